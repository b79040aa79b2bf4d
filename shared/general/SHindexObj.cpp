// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHindexObj.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <thread>

using sys::tBINFILE;
using sys::tFILE_ERRORS;
using sys::tFILEDEFS;

namespace {

// A scan starts with few slots, since the one it looks for may be the first, and doubles up to
// about this many bytes.
constexpr std::uint32_t kFirstBlockSlots = 4;
constexpr std::uint32_t kBlockBytes = 64 * 1024;

constexpr int kMaxSlotSize = 1024 * 1024;
constexpr std::chrono::microseconds kSlotLockPause{20};

int gObjectNumber = 0;
int gDebugLevel = 0;

// Holds the bytes from the file's position on against writers (shared) or against everyone while a
// slot is copied. Without the lock (a file system that has none, or a holder that does not let go)
// the copy goes on all the same.
class SlotLock {
 public:
  SlotLock(tBINFILE& file, std::uint32_t length, unsigned kind) : file_(file), length_(length) {
    file_.GetPos(&start_);
    const auto end = std::chrono::steady_clock::now() + INDEX_DATA_OBJ::kSlotLockWait;
    int status = file_.LockRegion(length_, kind | tFILEDEFS::cLOCK_NOWAIT);
    while (status == tFILE_ERRORS::cLOCKED && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(kSlotLockPause);
      status = file_.LockRegion(length_, kind | tFILEDEFS::cLOCK_NOWAIT);
    }
    held_ = status == 0;
  }

  ~SlotLock() {
    if (!held_)
      return;
    std::uint32_t position = 0;
    file_.GetPos(&position);
    file_.Seek(static_cast<std::int32_t>(start_), nullptr);
    file_.UnlockRegion(length_);
    file_.Seek(static_cast<std::int32_t>(position), nullptr);
  }

  SlotLock(const SlotLock&) = delete;
  SlotLock& operator=(const SlotLock&) = delete;

 private:
  tBINFILE& file_;
  std::uint32_t length_;
  std::uint32_t start_ = 0;
  bool held_ = false;
};

}  // namespace

int INDEX_DATA_OBJ::fDebugLevel = 0;

INDEX_DATA_OBJ::INDEX_DATA_OBJ(const char* file_name, int key_size, int record_size)
    : fNumber(++gObjectNumber) {
  OpenDataBase(file_name, key_size, record_size);
}

INDEX_DATA_OBJ::~INDEX_DATA_OBJ() = default;

void INDEX_DATA_OBJ::OpenDataBase(const char* file_name, int key_size, int record_size) {
  if (file_name == nullptr || key_size < 0 || record_size < 0 || key_size > kMaxSlotSize ||
      record_size > kMaxSlotSize) {
    Error = kIndexWrongSize;
    return;
  }
  SizeOfRecords = record_size;
  SizeOfKeys = key_size;
  RecordSize = static_cast<std::uint32_t>(record_size + key_size + 1);
  fSlot.resize(RecordSize);

  fDataBase.SetName(file_name);
  Error =
      fDataBase.OpenAlways(tFILEDEFS::cREADWRITE | tFILEDEFS::cSYNC, 0, tFILEDEFS::cALL_READWRITE);
  if (Error != 0)
    return;
  ValidObj = 1;
  fLockFile.SetName((std::string(file_name) + ".lk").c_str());
  if (fLockFile.OpenAlways(tFILEDEFS::cREADWRITE, 0, tFILEDEFS::cALL_RWX) == 0)
    fLockFileOpened = 1;
  fJournal.SetDataFile(file_name);
  FinishInterruptedWrite();
}

int INDEX_DATA_OBJ::CheckSizes(int key_size, int record_size) const {
  return record_size == SizeOfRecords && key_size == SizeOfKeys ? 0 : kIndexWrongSize;
}

// Locations are signed 32-bit numbers; a slot that starts beyond them cannot be named.
bool INDEX_DATA_OBJ::IsEndOfLocations(std::uint32_t offset) const {
  return offset > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max()) - RecordSize;
}

int INDEX_DATA_OBJ::ReadSlot() {
  std::uint32_t position = 0;
  fDataBase.GetPos(&position);
  if (CrossesPage(position, RecordSize))
    FinishInterruptedWrite();
  const SlotLock lock(fDataBase, RecordSize, tFILEDEFS::cLOCK_SHARED);
  return fDataBase.Read(fSlot.data(), RecordSize, nullptr);
}

int INDEX_DATA_OBJ::WriteSlot() {
  const SlotLock lock(fDataBase, RecordSize, tFILEDEFS::cLOCK_EXCLUSIVE);
  std::uint32_t position = 0;
  fDataBase.GetPos(&position);
  const auto location = static_cast<std::int32_t>(position);
  bool noted = false;
  if (fHoldsLock && CrossesPage(position, RecordSize)) {
    std::vector<char> old(RecordSize);
    // At the end of the file there is no slot yet, and a part of one is no record.
    noted = fDataBase.Read(old.data(), RecordSize, nullptr) == 0 &&
            fJournal.Begin(location, old, fSlot);
    fDataBase.Seek(location, nullptr);
  }
  const int status = fDataBase.Write(fSlot.data(), RecordSize, nullptr);
  if (noted)
    fJournal.End();
  return status;
}

void INDEX_DATA_OBJ::FinishInterruptedWrite() {
  if (!fJournal.IsThere())
    return;
  // Whoever holds the lock is still at work.
  if (!fHoldsLock && fLockFile.LockRegion(1, tFILEDEFS::cLOCK_NOWAIT) != 0)
    return;
  std::uint32_t position = 0;
  fDataBase.GetPos(&position);
  const auto note = fJournal.Read(RecordSize);
  if (note && (note->new_slot.empty() || Redo(*note)))
    fJournal.End();
  fDataBase.Seek(static_cast<std::int32_t>(position), nullptr);
  if (!fHoldsLock)
    fLockFile.UnlockRegion(1);
}

// False when there is still something to do.
bool INDEX_DATA_OBJ::Redo(const SlotJournal::Note& note) {
  std::vector<char> slot(RecordSize);
  if (fDataBase.Seek(note.location, nullptr) != 0)
    return true;
  const SlotLock lock(fDataBase, RecordSize, tFILEDEFS::cLOCK_EXCLUSIVE);
  const int status = fDataBase.Read(slot.data(), RecordSize, nullptr);
  if (status == tFILE_ERRORS::cEOF)
    return true;
  if (status != 0)
    return false;
  if (!IsMixture(slot, note) || slot == note.new_slot)
    return true;
  fDataBase.Seek(note.location, nullptr);
  return fDataBase.Write(note.new_slot.data(), RecordSize, nullptr) == 0;
}

void INDEX_DATA_OBJ::FillSlot(char state, const char* key, const char* record) {
  fSlot[0] = state;
  std::copy_n(key, SizeOfKeys, fSlot.data() + 1);
  std::copy_n(record, SizeOfRecords, fSlot.data() + 1 + SizeOfKeys);
}

void INDEX_DATA_OBJ::FillDeletedSlot() {
  std::fill(fSlot.begin(), fSlot.end(), '\0');
  fSlot[0] = kIndexSlotDeleted;
}

void INDEX_DATA_OBJ::StartBlock(Block& block, std::uint32_t base) const {
  block.bytes.resize(std::size_t{kFirstBlockSlots} * RecordSize);
  block.base = base;
  block.count = 0;
  block.next = 0;
}

// The next slot of a scan, or null when no whole slot follows.
const char* INDEX_DATA_OBJ::NextInBlock(Block& block) {
  if (block.next == block.count) {
    const bool first = block.count == 0;
    block.base += block.count * RecordSize;
    block.count = block.next = 0;
    if (IsEndOfLocations(block.base))
      return nullptr;
    if (first)
      FinishInterruptedWrite();
    else if (block.bytes.size() * 2 <= kBlockBytes)
      block.bytes.resize(block.bytes.size() * 2);
    if (fDataBase.Seek(static_cast<std::int32_t>(block.base), nullptr) != 0)
      return nullptr;
    const auto wanted = static_cast<std::uint32_t>(block.bytes.size());
    std::uint32_t got = 0;
    {
      const SlotLock lock(fDataBase, wanted, tFILEDEFS::cLOCK_SHARED);
      fReadStatus = fDataBase.Read(block.bytes.data(), wanted, &got);
    }
    block.count = got / RecordSize;
    if (block.count == 0)
      return nullptr;
  }
  return block.bytes.data() + std::size_t{block.next++} * RecordSize;
}

// The file is left at the start of the found slot, whose image is in fSlot.
int INDEX_DATA_OBJ::FindRecord(const char* key, std::int32_t& location) {
  location = -1;
  if (const int status = fDataBase.Rewind(); status != 0)
    return status;
  Block block;
  StartBlock(block, 0);
  const char* slot = NextInBlock(block);
  while (slot != nullptr && (slot[0] == kIndexSlotDeleted ||
                             std::memcmp(slot + 1, key, static_cast<std::size_t>(SizeOfKeys)) != 0))
    slot = NextInBlock(block);
  if (slot == nullptr)
    return kIndexNotFound;
  std::copy_n(slot, RecordSize, fSlot.data());
  location = static_cast<std::int32_t>(block.base + (block.next - 1) * RecordSize);
  return fDataBase.Seek(location, nullptr);
}

int INDEX_DATA_OBJ::GetRecByKey(const char* key, char* record, std::int32_t& location) {
  if (FindRecord(key, location) != 0)
    return kIndexNotFound;
  std::copy_n(fSlot.data() + 1 + SizeOfKeys, SizeOfRecords, record);
  return 0;
}

// Where the next insert belongs; the file is left there. -1 with Result set when there is no place.
std::int32_t INDEX_DATA_OBJ::FindHole(std::int32_t search_from) {
  if (SetResult(fDataBase.Seek(search_from, nullptr)) != 0)
    return -1;
  Block block;
  StartBlock(block, static_cast<std::uint32_t>(search_from));
  const char* slot = NextInBlock(block);
  while (slot != nullptr && slot[0] != kIndexSlotDeleted)
    slot = NextInBlock(block);
  std::uint32_t place = 0;
  if (slot != nullptr) {
    place = block.base + (block.next - 1) * RecordSize;
  } else {
    if (SetResult(fDataBase.Seek(tFILEDEFS::cFROMEND, 0, &place)) != 0)
      return -1;
    place -= place % RecordSize;
  }
  if (IsEndOfLocations(place)) {
    SetResult(tFILE_ERRORS::cFULL);
    return -1;
  }
  const auto location = static_cast<std::int32_t>(place);
  return SetResult(fDataBase.Seek(location, nullptr)) == 0 ? location : -1;
}

int INDEX_DATA_OBJ::GetRec(const char* key, int key_size, char* record, int& record_size) {
  std::int32_t location;
  return GetRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetRec(const char* key, int key_size, char* record, int& record_size,
                           std::int32_t& location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(key_size, record_size) != 0)
    return SetResult(kIndexWrongSize);
  return SetResult(GetRecByKey(key, record, location));
}

int INDEX_DATA_OBJ::GetRec(std::int32_t location, char* record, int& record_size) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(SizeOfKeys, record_size) != 0)
    return SetResult(kIndexWrongSize);
  if (SetResult(fDataBase.Seek(location, nullptr)) != 0)
    return Result;
  const int status = ReadSlot();
  if (status != 0)
    return SetResult(status == tFILE_ERRORS::cEOF ? kIndexNoSlot : status);
  std::copy_n(fSlot.data() + 1 + SizeOfKeys, SizeOfRecords, record);
  return SetResult(0);
}

int INDEX_DATA_OBJ::PutRec(const char* key, int key_size, const char* record, int record_size) {
  std::int32_t location;
  return PutRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::PutRec(const char* key, int key_size, const char* record, int record_size,
                           std::int32_t& location) {
  return PutRec(key, key_size, record, record_size, location, 0);
}

int INDEX_DATA_OBJ::PutRec(const char* key, int key_size, const char* record, int record_size,
                           std::int32_t& location, std::int32_t search_from) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(key_size, record_size) != 0)
    return SetResult(kIndexWrongSize);
  location = FindHole(search_from);
  if (location < 0)
    return Result;
  FillSlot(kIndexSlotLive, key, record);
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::ReplaceRec(std::int32_t location, const char* key, const char* record,
                               int record_size, char state) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(SizeOfKeys, record_size) != 0)
    return SetResult(kIndexWrongSize);
  if (SetResult(fDataBase.Seek(location, nullptr)) != 0)
    return Result;
  FillSlot(state, key, record);
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::ReplaceRec(const char* key, int key_size, const char* record, int record_size) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(key_size, record_size) != 0)
    return SetResult(kIndexWrongSize);
  std::int32_t location;
  if (FindRecord(key, location) != 0)
    return SetResult(kIndexNotFound);
  fSlot[0] = kIndexSlotLive;
  std::copy_n(record, SizeOfRecords, fSlot.data() + 1 + SizeOfKeys);
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::DeleteRec(std::int32_t location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (fDataBase.Seek(location, nullptr) != 0)
    return SetResult(kIndexNotFound);
  FillDeletedSlot();
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::DeleteRec(const char* key, int /*key_size*/) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  std::int32_t location;
  if (FindRecord(key, location) != 0)
    return SetResult(kIndexNotFound);
  FillDeletedSlot();
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::MarkRec(std::int32_t location, char state) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (SetResult(fDataBase.Seek(location, nullptr)) != 0)
    return Result;
  if (SetResult(fDataBase.Write(&state, 1, nullptr)) != 0)
    return Result;
  return SetResult(
      fDataBase.Seek(tFILEDEFS::cFROMCURRENT, static_cast<std::int32_t>(RecordSize) - 1, nullptr));
}

int INDEX_DATA_OBJ::GetFirstRec(char* key, int& key_size, char* record, int& record_size) {
  std::int32_t location;
  return GetFirstRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetFirstRec(char* key, int& key_size, char* record, int& record_size,
                                std::int32_t& location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (SetResult(fDataBase.Rewind()) != 0)
    return Result;
  if (fReadingAhead)
    StartBlock(fAhead, 0);
  return GetNextRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetNextRec(char* key, int& key_size, char* record, int& record_size) {
  std::int32_t location;
  return GetNextRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetNextRec(char* key, int& key_size, char* record, int& record_size,
                               std::int32_t& location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  const bool found = NextLiveSlot(key, record, location) == 0;
  key_size = found ? SizeOfKeys : 0;
  record_size = found ? SizeOfRecords : 0;
  return SetResult(found ? 0 : kIndexNotFound);
}

int INDEX_DATA_OBJ::NextLiveSlot(char* key, char* record, std::int32_t& location) {
  std::uint32_t end = 0;
  do {
    if (fReadingAhead) {
      const char* slot = NextInBlock(fAhead);
      if (slot == nullptr)
        return kIndexNotFound;
      std::copy_n(slot, RecordSize, fSlot.data());
      end = fAhead.base + fAhead.next * RecordSize;
    } else {
      fDataBase.GetPos(&end);
      fReadStatus = IsEndOfLocations(end) ? int{tFILE_ERRORS::cEOF} : ReadSlot();
      if (fReadStatus != 0)
        return kIndexNotFound;
      end += RecordSize;
    }
  } while (fSlot[0] == kIndexSlotDeleted);
  std::copy_n(fSlot.data() + 1, SizeOfKeys, key);
  std::copy_n(fSlot.data() + 1 + SizeOfKeys, SizeOfRecords, record);
  location = static_cast<std::int32_t>(end - RecordSize);
  return 0;
}

int INDEX_DATA_OBJ::GetNumberOfEntries(int& number_of_entries, char* key, int& key_size,
                                       char* record, int& record_size) {
  number_of_entries = 0;
  if (ValidObj == 0)
    return kIndexNotValid;
  int status = GetFirstRec(key, key_size, record, record_size);
  if (status != 0 || record_size == 0)
    return status;
  do {
    ++number_of_entries;
    status = GetNextRec(key, key_size, record, record_size);
  } while (status == 0 && record_size > 0);
  return record_size == 0 ? 0 : status;
}

int INDEX_DATA_OBJ::ReturnRecAndKey(const char* key, char* record) {
  std::int32_t location;
  return SetResult(ValidObj == 0 ? kIndexNotFound : GetRecByKey(key, record, location));
}

int INDEX_DATA_OBJ::Lock() {
  if (SetResult(fLockFile.LockRegion(1, 0)) == 0) {
    fHoldsLock = true;
    FinishInterruptedWrite();
  }
  return Result;
}

int INDEX_DATA_OBJ::Unlock() {
  if (SetResult(fLockFile.UnlockRegion(1)) == 0)
    fHoldsLock = false;
  return Result;
}

void INDEX_DATA_OBJ::PrintDebugInfo(const char* string) const {
  if (fDebugLevel == 1 && fDebugLevel != gDebugLevel) {
    std::fputs("\n", stderr);
    gDebugLevel = fDebugLevel;
  }
  std::fprintf(stderr, "obj-%-3d [%d] %*s%s\n", fNumber, fDebugLevel, (fDebugLevel + 1) * 3, " ",
               string);
  std::fflush(stderr);
}

INDEX_DATA_OBJ::ReadAhead::ReadAhead(INDEX_DATA_OBJ& index) : index_(index) {
  std::uint32_t position = 0;
  index_.fDataBase.GetPos(&position);
  index_.StartBlock(index_.fAhead, position);
  index_.fReadingAhead = true;
}

// Leaves the cursor behind the last slot handed out.
INDEX_DATA_OBJ::ReadAhead::~ReadAhead() {
  const Block& block = index_.fAhead;
  index_.fReadingAhead = false;
  index_.fDataBase.Seek(static_cast<std::int32_t>(block.base + block.next * index_.RecordSize),
                        nullptr);
}
