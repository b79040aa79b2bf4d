// SPDX-License-Identifier: Apache-2.0
// The sort is a quicksort with an explicit stack that leaves short ranges to a final pass. Its
// guarantees: n log n key comparisons in every case, since a table whose ranges split badly beyond
// a budget is finished by a heap sort, and a stack of log2 n ranges, since the larger part is
// pushed and the smaller one partitioned next.

#include "source/sysdb/ZTsysInfoObj_xref.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <utility>

namespace {

// A pending range of table indexes.
struct STACK_ENTRY {
  int fUpperLimit;
  int fLowerLimit;
};

// Twice the ranges that halving an int allows, and the bottom marker.
constexpr int kStackSize = 64;

// A part of this many entries or fewer is left to the final pass.
constexpr int kShortPart = 5;

// Passes over the whole table that partitioning may cost, in multiples of log2 n.
constexpr int kPassesPerLevel = 3;

constexpr std::size_t kNameBlock = 64 * 1024;

STACK_ENTRY* PushOnToStack(STACK_ENTRY* stack_ptr, int lower_limit, int upper_limit) {
  *stack_ptr = {upper_limit, lower_limit};
  return stack_ptr + 1;
}

STACK_ENTRY* PopStack(STACK_ENTRY* stack_ptr, int& lower_limit, int& upper_limit) {
  --stack_ptr;
  lower_limit = stack_ptr->fLowerLimit;
  upper_limit = stack_ptr->fUpperLimit;
  return stack_ptr;
}

void SortTwo(SYSTEM_XREF_ENTRY& first, SYSTEM_XREF_ENTRY& second) {
  if (first.fKey > second.fKey)
    SYSTEM_XREF_ENTRY::Switch(first, second);
}

// Sorts the entries at the range's quarters and brings their median to its start, where
// partitioning takes the pivot. Ordered and reversed ranges, and those that rise and fall, split in
// halves. The quarters are better than the ends: partitioning puts an entry from the middle at the
// start of each part of a reversed range, and the median with the ends is then the second greatest.
void ChoosePivot(int lower, int upper, SYSTEM_XREF_ENTRY* table) {
  if (upper - lower < kShortPart)
    return;
  const int quarter = (upper - lower) / 4;
  SYSTEM_XREF_ENTRY& low = table[lower + quarter];
  SYSTEM_XREF_ENTRY& middle = table[lower + 2 * quarter];
  SYSTEM_XREF_ENTRY& high = table[upper - quarter];
  SortTwo(low, middle);
  SortTwo(middle, high);
  SortTwo(low, middle);
  SYSTEM_XREF_ENTRY::Switch(table[lower], middle);
}

// Puts the pivot where it belongs and returns its place: no key before it is greater, none behind
// it is less. Keys equal to the pivot stop both scans, so that equal keys split in halves. The
// entry behind the range (not less than any of it) and the pivot itself end the scans.
int Partition(int lower, int upper, SYSTEM_XREF_ENTRY* table) {
  const SystemKey pivot = table[lower].fKey;
  int i = lower;
  int j = upper + 1;
  for (;;) {
    do {
      ++i;
    } while (table[i].fKey < pivot);
    do {
      --j;
    } while (table[j].fKey > pivot);
    if (i >= j)
      break;
    SYSTEM_XREF_ENTRY::Switch(table[i], table[j]);
  }
  if (j != lower)
    SYSTEM_XREF_ENTRY::Switch(table[lower], table[j]);
  return j;
}

// Narrows the range to the part around the pivot at `j` to be partitioned next, and pushes the
// other part if it is long as well. 0 when the range is finished.
int RepartitionSet(int& lower_limit, int& upper_limit, int j, STACK_ENTRY*& stack_ptr) {
  struct Part {
    int lower;
    int upper;
    bool IsShort() const { return upper - lower < kShortPart; }
  };
  Part smaller{lower_limit, j - 1};
  Part larger{j + 1, upper_limit};
  if (smaller.upper - smaller.lower > larger.upper - larger.lower)
    std::swap(smaller, larger);

  if (larger.IsShort())
    return 0;
  Part next = larger;
  if (!smaller.IsShort()) {
    stack_ptr = PushOnToStack(stack_ptr, larger.lower, larger.upper);
    next = smaller;
  }
  lower_limit = next.lower;
  upper_limit = next.upper;
  return 1;
}

void HeapSort(int lower, int upper, SYSTEM_XREF_ENTRY* table) {
  const auto less = [](const SYSTEM_XREF_ENTRY& a, const SYSTEM_XREF_ENTRY& b) {
    return a.fKey < b.fKey;
  };
  std::make_heap(table + lower, table + upper + 1, less);
  std::sort_heap(table + lower, table + upper + 1, less);
}

void SysQuickSort(int lower_limit, int upper_limit, SYSTEM_XREF_ENTRY* sort_ptr,
                  STACK_ENTRY*& stack_ptr, std::int64_t& budget) {
  int pivot;
  do {
    budget -= upper_limit - lower_limit;
    if (budget < 0) {
      HeapSort(lower_limit, upper_limit, sort_ptr);
      return;
    }
    ChoosePivot(lower_limit, upper_limit, sort_ptr);
    pivot = Partition(lower_limit, upper_limit, sort_ptr);
  } while (RepartitionSet(lower_limit, upper_limit, pivot, stack_ptr) != 0);
}

// Sorts what partitioning has left: no entry is further than kShortPart from its place.
void FinalPass(SYSTEM_XREF_ENTRY* table, int count) {
  for (int i = 2; i <= count; ++i)
    for (int j = i; table[j - 1].fKey > table[j].fKey; --j)
      SYSTEM_XREF_ENTRY::Switch(table[j - 1], table[j]);
}

}  // namespace

char* NameStore::Add(std::string_view name) {
  if (left_ <= name.size()) {
    left_ = std::max(kNameBlock, name.size() + 1);
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(left_));
    end_ = blocks_.back().get() + left_;
  }
  char* const copy = end_ - left_;
  *std::copy(name.begin(), name.end(), copy) = '\0';
  left_ -= name.size() + 1;
  return copy;
}

void NameStore::Clear() {
  blocks_.clear();
  left_ = 0;
}

SYSTEM_XREF_ENTRY::Name SYSTEM_XREF_ENTRY::CopyOf(const char* text) {
  if (text == nullptr)
    return nullptr;
  const std::string_view view(text);
  Name copy(new char[view.size() + 1]);
  *std::copy(view.begin(), view.end(), copy.get()) = '\0';
  return copy;
}

SYSTEM_XREF_ENTRY::SYSTEM_XREF_ENTRY(const char* system_name, SystemKey key, std::int32_t location)
    : fKey(key), fLocation(location), fSystemName(CopyOf(system_name)) {}

SYSTEM_XREF_ENTRY::SYSTEM_XREF_ENTRY(NameStore& names, std::string_view system_name, SystemKey key,
                                     std::int32_t location)
    : fKey(key), fLocation(location), fSystemName(names.Add(system_name), {false}) {}

void SYSTEM_XREF_ENTRY::Switch(SYSTEM_XREF_ENTRY& entry_1, SYSTEM_XREF_ENTRY& entry_2) {
  std::swap(entry_1.fKey, entry_2.fKey);
  std::swap(entry_1.fLocation, entry_2.fLocation);
  entry_1.fSystemName.swap(entry_2.fSystemName);
}

void SYSTEM_XREF_ENTRY::SetSystemName(const char* system_name) {
  fSystemName = CopyOf(system_name);
}

void SortSysList(SYSTEM_XREF_ENTRY* list_ptr, int number_of_entries) {
  if (number_of_entries <= 1)
    return;
  // The smallest and the largest key of all: the scans stop at them whatever the table holds.
  list_ptr[0].fKey = std::numeric_limits<SystemKey>::min();
  list_ptr[number_of_entries + 1].fKey = std::numeric_limits<SystemKey>::max();

  std::array<STACK_ENTRY, kStackSize> stack;
  STACK_ENTRY* top = PushOnToStack(stack.data(), -1, -1);
  top = PushOnToStack(top, 1, number_of_entries);
  const auto levels =
      static_cast<std::int64_t>(std::bit_width(static_cast<unsigned>(number_of_entries)));
  std::int64_t budget = number_of_entries * levels * kPassesPerLevel;

  int lower;
  int upper;
  for (top = PopStack(top, lower, upper); upper >= 0; top = PopStack(top, lower, upper))
    SysQuickSort(lower, upper, list_ptr, top, budget);
  FinalPass(list_ptr, number_of_entries);
}
