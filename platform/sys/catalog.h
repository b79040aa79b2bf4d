// SPDX-License-Identifier: Apache-2.0
// Message catalogs (XPG), with plain numbers for descriptors.

#pragma once

namespace catalog {

// Opens a compiled catalog by its path; one without a slash is in the current directory, never
// searched for. A descriptor, or -1.
int catopen(const char* path, int flag);

// The message, or default_text for one that is missing or a descriptor that is not open. The text
// is the catalog's and good until it is closed.
const char* catgets(int descriptor, int set, int message, const char* default_text);

// 0, or -1 for a descriptor that is not open.
int catclose(int descriptor);

}  // namespace catalog
