// SPDX-License-Identifier: Apache-2.0
// The entries of the cross-reference table of the system database, and their sort.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "shared/general/SHsysNameConv.h"

// The names of a table's entries, one behind the other.
class NameStore {
 public:
  // The terminated copy stays where it is until Clear.
  char* Add(std::string_view name);
  void Clear();

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* end_ = nullptr;  // of the last block
  std::size_t left_ = 0;
};

// Of a name that its entry owns, or borrows from a store.
struct NameDeleter {
  bool owned = true;
  void operator()(char* name) const {
    if (owned)
      delete[] name;
  }
};

// Where the record of a system is. Copies own a copy of the name.
class SYSTEM_XREF_ENTRY {
 public:
  SYSTEM_XREF_ENTRY() = default;
  SYSTEM_XREF_ENTRY(const char* system_name, SystemKey key, std::int32_t location);
  // The name is kept in `names`, which must outlive the entry and those that it is moved to.
  SYSTEM_XREF_ENTRY(NameStore& names, std::string_view system_name, SystemKey key,
                    std::int32_t location);
  SYSTEM_XREF_ENTRY(const SYSTEM_XREF_ENTRY& other);
  SYSTEM_XREF_ENTRY(SYSTEM_XREF_ENTRY&&) noexcept = default;
  SYSTEM_XREF_ENTRY& operator=(const SYSTEM_XREF_ENTRY& other);
  SYSTEM_XREF_ENTRY& operator=(SYSTEM_XREF_ENTRY&&) noexcept = default;
  ~SYSTEM_XREF_ENTRY() = default;

  // Exchanges two entries without copying their names.
  static void Switch(SYSTEM_XREF_ENTRY& entry_1, SYSTEM_XREF_ENTRY& entry_2);

  const char* ReturnSystemName() const { return fSystemName.get(); }
  void SetSystemName(const char* system_name);

  SystemKey fKey = 0;
  std::int32_t fLocation = 0;  // byte offset in the file; -1: deleted since the last build

 private:
  using Name = std::unique_ptr<char[], NameDeleter>;
  static Name CopyOf(const char* text);

  Name fSystemName;
};

// Sorts entries 1 to number_of_entries by key, as signed numbers; equal keys in no particular
// order. list_ptr[0] and list_ptr[number_of_entries + 1] must exist: their keys are overwritten.
void SortSysList(SYSTEM_XREF_ENTRY* list_ptr, int number_of_entries);
