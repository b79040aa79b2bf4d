// SPDX-License-Identifier: Apache-2.0
// Texts of the message catalog, read from its source: what a user must see for a recorded message.

#pragma once

#include <string>
#include <string_view>

namespace endtoend {

// The line that the programs print for this message, with its newline.
std::string message(int set, int number, std::string_view parameter = {});

}  // namespace endtoend
