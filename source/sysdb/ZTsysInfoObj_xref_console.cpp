// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): copies of entries.

#include "source/sysdb/ZTsysInfoObj_xref.h"

SYSTEM_XREF_ENTRY::SYSTEM_XREF_ENTRY(const SYSTEM_XREF_ENTRY& other)
    : SYSTEM_XREF_ENTRY(other.ReturnSystemName(), other.fKey, other.fLocation) {}

SYSTEM_XREF_ENTRY& SYSTEM_XREF_ENTRY::operator=(const SYSTEM_XREF_ENTRY& other) {
  if (this != &other)
    *this = SYSTEM_XREF_ENTRY(other);
  return *this;
}
