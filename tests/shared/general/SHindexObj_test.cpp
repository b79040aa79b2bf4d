// SPDX-License-Identifier: Apache-2.0
// The indexed record file: its edges, and every operation against a model in memory.

#include "shared/general/SHindexObj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/test_files.h"

namespace {

constexpr int kKeySize = 2;
constexpr int kRecordSize = 3;
constexpr std::int32_t kSlot = 1 + kKeySize + kRecordSize;

class IndexFile : public testing::Test {
 protected:
  void Open() { index_.emplace(path_.c_str(), kKeySize, kRecordSize); }
  int Put(const std::string& key, const std::string& record, std::int32_t& location) {
    return index_->PutRec(key.data(), kKeySize, record.data(), kRecordSize, location);
  }
  std::string Bytes() const { return test::ReadFile(path_); }

  test::Folder folder_;
  std::string path_ = folder_ / "data";
  std::optional<INDEX_DATA_OBJ> index_;
  char key_[kKeySize] = {};
  char record_[kRecordSize] = {};
  int key_size_ = kKeySize;
  int record_size_ = kRecordSize;
};

TEST_F(IndexFile, EmptyFileHasNoSlotsAndTakesTheFirstInsertAtItsStart) {
  Open();
  EXPECT_EQ(index_->GetRec(0, record_, record_size_), kIndexNoSlot);
  int entries = -1;
  EXPECT_EQ(index_->GetNumberOfEntries(entries, key_, key_size_, record_, record_size_), 1005);
  EXPECT_EQ(entries, 0);
  EXPECT_EQ(key_size_, 0);
  EXPECT_EQ(record_size_, 0);
  std::int32_t location = -1;
  EXPECT_EQ(Put("ab", "xyz", location), 0);
  EXPECT_EQ(location, 0);
  EXPECT_EQ(Bytes(), std::string("\0abxyz", 6));
}

TEST_F(IndexFile, ReusesTheLowestHoleAndNeverShrinks) {
  Open();
  std::int32_t location = 0;
  for (const char* key : {"k1", "k2", "k3"})
    Put(key, "...", location);
  EXPECT_EQ(index_->DeleteRec("k2", kKeySize), 0);
  EXPECT_EQ(Bytes().substr(kSlot, kSlot), std::string("\1\0\0\0\0\0", 6));
  EXPECT_EQ(index_->GetRec(kSlot, record_, record_size_), 0) << "a deleted slot reads as zeros";
  EXPECT_EQ(std::string(record_, 3), std::string(3, '\0'));
  EXPECT_EQ(Put("k4", "new", location), 0);
  EXPECT_EQ(location, kSlot);
  EXPECT_EQ(Put("k5", "end", location), 0);
  EXPECT_EQ(location, 3 * kSlot);
}

TEST_F(IndexFile, RefusesOtherSizesAndFailsWithoutItsDataFile) {
  int wrong = kRecordSize - 1;
  std::int32_t location = 0;
  int entries = 0;
  const struct {
    std::function<int()> operation;
    int with_other_sizes;
    int without_file;
  } cases[] = {
      {[&] { return index_->GetRec("k1", kKeySize, record_, wrong); }, 1006, 1002},
      {[&] { return index_->GetRec("k1", kKeySize + 1, record_, record_size_); }, 1006, 1002},
      {[&] { return index_->GetRec(0, record_, wrong); }, 1006, 1002},
      {[&] { return index_->PutRec("k1", kKeySize, "zzz", wrong); }, 1006, 1002},
      {[&] { return index_->ReplaceRec(0, "k1", "zzz", wrong); }, 1006, 1002},
      {[&] { return index_->ReplaceRec("k1", kKeySize, "zzz", wrong); }, 1006, 1002},
      {[&] { return index_->GetRec(0, record_, record_size_); }, 0, 1002},
      {[&] { return index_->GetNumberOfEntries(entries, key_, key_size_, record_, record_size_); },
       0, 1002},
      {[&] { return index_->ReturnRecAndKey("k1", record_); }, 0, 1005}};
  Open();
  Put("k1", "...", location);
  const std::string before = Bytes();
  for (const auto& c : cases)
    EXPECT_EQ(c.operation(), c.with_other_sizes) << &c - cases;
  EXPECT_EQ(Bytes(), before);
  path_ = folder_ / "none/data";
  Open();
  EXPECT_EQ(index_->ReturnValidObj(), 0);
  EXPECT_EQ(index_->ReturnError(), sys::tFILE_ERRORS::cMISSING);
  for (const auto& c : cases)
    EXPECT_EQ(c.operation(), c.without_file) << &c - cases;
  EXPECT_EQ(index_->DeleteRec(0), 1002);
  EXPECT_NE(index_->Lock(), 0);
}

TEST_F(IndexFile, TakesEveryStatusByteButOneForLive) {
  test::WriteFile(path_, std::string("\1\0\0\0\0\0"
                                     "\2abxyz"
                                     "\377cduvw",
                                     18));
  Open();
  std::int32_t location = -1;
  EXPECT_EQ(index_->GetFirstRec(key_, key_size_, record_, record_size_, location), 0);
  EXPECT_EQ(location, kSlot) << "the first live slot's own offset";
  EXPECT_EQ(std::string(key_, 2), "ab");
  EXPECT_EQ(index_->GetRec("cd", kKeySize, record_, record_size_, location), 0);
  EXPECT_EQ(location, 2 * kSlot);
  EXPECT_EQ(index_->ReplaceRec("cd", kKeySize, "new", kRecordSize), 0);
  EXPECT_EQ(Bytes().substr(12), std::string("\0cdnew", 6));
}

TEST_F(IndexFile, EndsBeforeAHalfSlotAndOverwritesItOnASlotBoundary) {
  test::WriteFile(path_, std::string("\0abxyz\0cdu", 10));
  Open();
  int entries = 0;
  EXPECT_EQ(index_->GetNumberOfEntries(entries, key_, key_size_, record_, record_size_), 0);
  EXPECT_EQ(entries, 1);
  EXPECT_EQ(index_->GetRec("cd", kKeySize, record_, record_size_ = kRecordSize), 1005);
  std::int32_t location = 0;
  EXPECT_EQ(Put("ef", "new", location), 0);
  EXPECT_EQ(location, kSlot);
  EXPECT_EQ(Bytes(), std::string("\0abxyz\0efnew", 12));
}

TEST_F(IndexFile, PrintsDebugLinesIndentedByLevel) {
  Open();
  testing::internal::CaptureStderr();
  index_->PrintDebugInfo("open");
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_EQ(line.substr(0, 4), "obj-");
  EXPECT_EQ(line.substr(line.find('[')), "[0]    open\n");
}

// The file as the description has it: slots, and a cursor where the next walk step reads.
class Model {
 public:
  struct Slot {
    bool live;
    std::string key, record;
  };

  std::int32_t Put(const std::string& key, const std::string& record) {
    auto at = std::find_if(slots.begin(), slots.end(), [](const Slot& s) { return !s.live; });
    if (at == slots.end())
      at = slots.insert(at, Slot{});
    *at = {true, key, record};
    return Location(at, 1);
  }
  std::vector<Slot>::iterator Find(const std::string& key) {
    return std::find_if(slots.begin(), slots.end(),
                        [&](const Slot& s) { return s.live && s.key == key; });
  }
  std::int32_t Location(std::vector<Slot>::iterator at, std::size_t cursor_behind) {
    const auto index = static_cast<std::size_t>(at - slots.begin());
    cursor = index + cursor_behind;
    return static_cast<std::int32_t>(index) * kSlot;
  }
  std::string Bytes() const {
    std::string bytes;
    for (const Slot& slot : slots)
      bytes += slot.live ? '\0' + slot.key + slot.record
                         : '\1' + std::string(kKeySize + kRecordSize, '\0');
    return bytes;
  }

  std::vector<Slot> slots;
  std::size_t cursor = 0;
};

TEST_F(IndexFile, DoesWhatAModelInMemoryDoes) {
  Open();
  Model model;
  std::mt19937 random(4711);
  const auto pick = [&](std::size_t limit) { return random() % limit; };
  const auto key_of = [&] { return std::string{'k', static_cast<char>('a' + pick(26))}; };
  std::string record(kRecordSize, ' ');

  for (int step = 0; step < 20'000; ++step) {
    SCOPED_TRACE(step);
    const std::string key = key_of();
    for (char& c : record)
      c = static_cast<char>(pick(256));
    const auto found = model.Find(key);
    const bool exists = found != model.slots.end();
    const std::size_t at = model.slots.empty() ? 0 : pick(model.slots.size());
    const auto location_at = static_cast<std::int32_t>(at) * kSlot;
    std::int32_t location = -1;
    record_size_ = kRecordSize;
    key_size_ = kKeySize;
    switch (pick(model.slots.size() > 200 ? 8 : 9)) {
      case 0:
        ASSERT_EQ(index_->GetRec(key.data(), kKeySize, record_, record_size_, location),
                  exists ? 0 : 1005);
        if (exists) {
          ASSERT_EQ(location, model.Location(found, 0));
          ASSERT_EQ(std::string(record_, kRecordSize), found->record);
        } else {
          ASSERT_EQ(index_->GetFirstRec(key_, key_size_, record_, record_size_) == 0,
                    std::any_of(model.slots.begin(), model.slots.end(),
                                [](const auto& s) { return s.live; }));
          model.cursor =
              static_cast<std::size_t>(std::find_if(model.slots.begin(), model.slots.end(),
                                                    [](const auto& s) { return s.live; }) -
                                       model.slots.begin());
          model.cursor = std::min(model.cursor + 1, model.slots.size());
        }
        break;
      case 1:
        ASSERT_EQ(index_->ReplaceRec(key.data(), kKeySize, record.data(), kRecordSize),
                  exists ? 0 : 1005);
        if (!exists)
          continue;
        found->record = record;
        model.Location(found, 1);
        break;
      case 2:
        ASSERT_EQ(index_->DeleteRec(key.data(), kKeySize), exists ? 0 : 1005);
        if (!exists)
          continue;
        found->live = false;
        model.Location(found, 1);
        break;
      case 3:
        if (model.slots.empty())
          continue;
        ASSERT_EQ(index_->ReplaceRec(location_at, key.data(), record.data(), kRecordSize), 0);
        model.slots[at] = {true, key, record};
        model.cursor = at + 1;
        break;
      case 4:
        if (model.slots.empty())
          continue;
        ASSERT_EQ(index_->DeleteRec(location_at), 0);
        model.slots[at].live = false;
        model.cursor = at + 1;
        break;
      case 5: {
        if (model.slots.empty())
          continue;
        ASSERT_EQ(index_->GetRec(location_at, record_, record_size_), 0);
        const std::string expected =
            model.slots[at].live ? model.slots[at].record : std::string(kRecordSize, '\0');
        ASSERT_EQ(std::string(record_, kRecordSize), expected);
        model.cursor = at + 1;
        break;
      }
      default:
        ASSERT_EQ(Put(key, record, location), 0);
        ASSERT_EQ(location, model.Put(key, record));
    }
    // Every operation leaves the cursor where the next walk step shows it.
    if (pick(4) != 0)
      continue;
    key_size_ = kKeySize;
    auto next = model.slots.begin() + static_cast<std::ptrdiff_t>(model.cursor);
    next = std::find_if(next, model.slots.end(), [](const auto& s) { return s.live; });
    const int status = index_->GetNextRec(key_, key_size_, record_, record_size_, location);
    ASSERT_EQ(status, next == model.slots.end() ? 1005 : 0);
    if (status == 0) {
      ASSERT_EQ(location, model.Location(next, 1));
      ASSERT_EQ(std::string(key_, kKeySize) + std::string(record_, kRecordSize),
                next->key + next->record);
    }
  }
  EXPECT_EQ(Bytes(), model.Bytes());
  EXPECT_GT(model.slots.size(), 100u);
}

}  // namespace
