// SPDX-License-Identifier: Apache-2.0
// The tables of ztsys's sub-commands and options.

#pragma once

#include "platform/sys/options.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

// The program's table: options go to the arguments, which each sub-command's run() uses.
sys::Command Program(Arguments& arguments);

}  // namespace ztsys
