// SPDX-License-Identifier: Apache-2.0
// The settings file of an installation.

#pragma once

#include <string>

namespace test {

inline std::string settings_text(const std::string& application_path,
                                 const std::string& data_path) {
  return "Windows Registry Editor Version 5.00\n\n"
         "[HKEY_LOCAL_MACHINE\\Software\\Moraine\\Zentrace Analyzer\\CurrentVersion]\n"
         "\"CommonApplicationPath\"=\"" +
         application_path + "\"\n\"CommonDataPath\"=\"" + data_path + "\"\n";
}

}  // namespace test
