// SPDX-License-Identifier: Apache-2.0
// A message catalog compiled for a test, in a directory of its own.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

class TestCatalog {
 public:
  // messages: the catalog's source, as gencat takes it.
  explicit TestCatalog(const std::string& messages) {
    char directory[] = "/tmp/test_catalog.XXXXXX";
    if (::mkdtemp(directory) == nullptr)
      throw std::runtime_error("no temporary directory");
    directory_ = directory;
    std::ofstream(directory_ + "/source.msg") << messages;
    const std::string command = "gencat '" + path() + "' '" + directory_ + "/source.msg'";
    if (std::system(command.c_str()) != 0)
      throw std::runtime_error(command);
  }
  ~TestCatalog() { std::filesystem::remove_all(directory_); }
  TestCatalog(const TestCatalog&) = delete;
  TestCatalog& operator=(const TestCatalog&) = delete;

  const std::string& directory() const { return directory_; }
  std::string path() const { return directory_ + "/messages"; }

 private:
  std::string directory_;
};
