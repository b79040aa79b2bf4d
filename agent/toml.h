// SPDX-License-Identifier: Apache-2.0
// toml++ as the system's package builds it: the compiled library, errors as exceptions.

#pragma once

#include <toml++/toml.h>
