// SPDX-License-Identifier: Apache-2.0
// Names and declarations of client stubs.

#pragma once

#include <string>

#include "tools/zidl/generator.h"
#include "tools/zidl/generator_parts.h"

namespace zidl {

std::string interface_handle(const Interface& interface, const Options& options);
// The declaration of an operation's stub up to its `tail`.
void write_client_head(Source& source, const Operation& operation, const Options& options,
                       const std::string& tail);

}  // namespace zidl
