// SPDX-License-Identifier: Apache-2.0
// Whole copies of the database.

#pragma once

#include <string>

#include "platform/sys/whole_file.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

// Copies the database as of one instant: no writer works meanwhile, as far as this user may hold
// them off. Reports failures.
Status CopyDatabase(const Arguments& arguments, const std::string& to, sys::Replace replace);

}  // namespace ztsys
