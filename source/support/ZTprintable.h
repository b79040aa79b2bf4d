// SPDX-License-Identifier: Apache-2.0
// Texts that came from the network or a file, made safe for a terminal.

#pragma once

#include "platform/sys/printable.h"

using sys::printable;
using sys::utf8_length;
