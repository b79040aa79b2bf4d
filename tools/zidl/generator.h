// SPDX-License-Identifier: Apache-2.0
// Fourth step: a checked model to C++ source.

#pragma once

#include <string>

#include "tools/zidl/model.h"

namespace zidl {

struct Options {
  std::string prefix;  // of client entries and of the interface handle
};

// name.h: types, constants and client declarations.
std::string generate_header(const Interface& interface, const Options& options);
// name_client.cpp
std::string generate_client(const Interface& interface, const Options& options);
// name_server.h and name_server.cpp
std::string generate_server_header(const Interface& interface);
std::string generate_server(const Interface& interface);

}  // namespace zidl
