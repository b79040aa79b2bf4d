// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHslotFile.h"

#include <algorithm>
#include <limits>
#include <thread>

using sys::tBINFILE;
using sys::tFILE_ERRORS;
using sys::tFILEDEFS;

namespace {

// A walk starts with few slots, since the one it looks for may be the first, and doubles up to
// about this many bytes. With the lock and its release that is three system calls for 256 KiB.
constexpr std::uint32_t kFirstBlockSlots = 4;
constexpr std::uint32_t kBlockBytes = 256 * 1024;

// The smallest page there is: the system may end a process between two pages of one write.
constexpr std::uint32_t kPageSize = 4096;

constexpr std::chrono::microseconds kSlotLockPause{20};
constexpr std::chrono::microseconds kFirstLockPause{100};
constexpr std::chrono::microseconds kLongestLockPause{20'000};
constexpr std::chrono::seconds kQuietWait{1};

// The octet of the lock file on which the holder of the lock leaves its process id.
constexpr std::int32_t kHolderMark = 1;

// Holds bytes of the file against writers (shared) or against everyone while slots are copied.
// Without the lock (a file system that has none, or a holder that does not let go) the copy goes on
// all the same. The file is left at `start`.
class SlotLock {
 public:
  SlotLock(tBINFILE& file, std::uint32_t start, std::uint32_t length, unsigned kind)
      : file_(file), start_(static_cast<std::int32_t>(start)), length_(length) {
    position_status_ = file_.Seek(start_, nullptr);
    if (position_status_ != 0)
      return;
    const int status = file_.LockRegion(length_, kind | tFILEDEFS::cLOCK_NOWAIT);
    held_ = status == 0 || (status == tFILE_ERRORS::cLOCKED && WaitFor(kind));
  }

  ~SlotLock() {
    if (held_ && file_.Seek(start_, nullptr) == 0)
      file_.UnlockRegion(length_);
  }

  SlotLock(const SlotLock&) = delete;
  SlotLock& operator=(const SlotLock&) = delete;

  int position_status() const { return position_status_; }  // not 0: nothing may be copied

 private:
  bool WaitFor(unsigned kind) {
    const auto end = std::chrono::steady_clock::now() + SlotFile::kSlotLockWait;
    int status = tFILE_ERRORS::cLOCKED;
    while (status == tFILE_ERRORS::cLOCKED && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(kSlotLockPause);
      status = file_.LockRegion(length_, kind | tFILEDEFS::cLOCK_NOWAIT);
    }
    return status == 0;
  }

  tBINFILE& file_;
  std::int32_t start_;
  std::uint32_t length_;
  int position_status_ = 0;
  bool held_ = false;
};

}  // namespace

int SlotFile::Open(const std::string& name, std::uint32_t slot_size) {
  slot_size_ = slot_size;
  read_only_ = false;
  data_.SetName(name.c_str());
  return data_.OpenAlways(tFILEDEFS::cREADWRITE | tFILEDEFS::cSYNC, 0, tFILEDEFS::cALL_READWRITE);
}

int SlotFile::OpenReadOnly(const std::string& name, std::uint32_t slot_size) {
  slot_size_ = slot_size;
  read_only_ = true;
  data_.SetName(name.c_str());
  return data_.OpenExisting(tFILEDEFS::cREAD);
}

int SlotFile::OpenLockFile() {
  lock_.SetName((std::string(data_.ReturnName()) + ".lk").c_str());
  return lock_.OpenAlways(tFILEDEFS::cREADWRITE, 0, tFILEDEFS::cALL_RWX);
}

int SlotFile::Read(std::uint32_t location, char* slot) {
  // Whoever holds the writers' lock reads what no other writer changes.
  if (locked_) {
    const int status = data_.Seek(static_cast<std::int32_t>(location), nullptr);
    return status != 0 ? status : data_.Read(slot, slot_size_, nullptr);
  }
  const SlotLock lock(data_, location, slot_size_, tFILEDEFS::cLOCK_SHARED);
  return lock.position_status() != 0 ? lock.position_status()
                                     : data_.Read(slot, slot_size_, nullptr);
}

int SlotFile::Write(std::uint32_t location, const char* slots, std::uint32_t count) {
  const std::uint32_t length = slot_size_ * count;
  const SlotLock lock(data_, location, length, tFILEDEFS::cLOCK_EXCLUSIVE);
  return lock.position_status() != 0 ? lock.position_status() : data_.Write(slots, length, nullptr);
}

bool SlotFile::IsOnTwoPages(std::uint32_t location) const {
  return location % kPageSize + slot_size_ > kPageSize;
}

int SlotFile::WriteOverDeleted(std::uint32_t location, std::vector<char> slot) {
  if (!IsOnTwoPages(location))
    return Write(location, slot.data());
  const char state = slot[0];
  slot[0] = kIndexSlotDeleted;
  const int status = Write(location, slot.data());
  return status != 0 ? status : WriteState(location, state);
}

int SlotFile::WriteState(std::uint32_t location, char state) {
  const SlotLock lock(data_, location, 1, tFILEDEFS::cLOCK_EXCLUSIVE);
  return lock.position_status() != 0 ? lock.position_status() : data_.Write(&state, 1, nullptr);
}

bool SlotFile::IsEndOfLocations(std::uint32_t location) const {
  return location >
         static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max()) - slot_size_;
}

int SlotFile::End(std::uint32_t& location) {
  if (const int status = data_.Seek(tFILEDEFS::cFROMEND, 0, &location); status != 0)
    return status;
  location -= location % slot_size_;
  return 0;
}

int SlotFile::Lock(const LockPatience& patience) {
  const int status = WaitForLock(patience, tFILEDEFS::cLOCK_EXCLUSIVE);
  locked_ = status == 0;
  if (locked_)
    lock_.MarkLockHolder(kHolderMark);
  return status;
}

int SlotFile::LockShared(const LockPatience& patience) {
  lock_.SetName((std::string(data_.ReturnName()) + ".lk").c_str());
  const int status = lock_.OpenExisting(tFILEDEFS::cREAD);
  return status != 0 ? status : WaitForLock(patience, tFILEDEFS::cLOCK_SHARED);
}

int SlotFile::WaitForLock(const LockPatience& patience, unsigned kind) {
  const auto start = std::chrono::steady_clock::now();
  auto pause = kFirstLockPause;
  bool told = patience.notice == nullptr;
  int status = lock_.LockRegion(1, kind | tFILEDEFS::cLOCK_NOWAIT);
  while (status == tFILE_ERRORS::cLOCKED) {
    const auto waited = std::chrono::steady_clock::now() - start;
    if (waited >= patience.limit)
      return status;
    if (!told && waited >= kQuietWait) {
      told = true;
      patience.notice(lock_.ReturnName(), lock_.ReturnLockHolder(kHolderMark));
    }
    if (told && patience.limit == std::chrono::milliseconds::max()) {
      return lock_.LockRegion(1, kind | tFILEDEFS::cLOCK_WAIT);
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, kLongestLockPause);
    status = lock_.LockRegion(1, kind | tFILEDEFS::cLOCK_NOWAIT);
  }
  return status;
}

int SlotFile::Unlock() {
  const int status = lock_.UnlockRegion(1);
  if (status == 0) {
    locked_ = false;
    lock_.UnmarkLockHolder(kHolderMark);
  }
  return status;
}

SlotWalk::SlotWalk(SlotFile& file, std::uint32_t start)
    : file_(file), bytes_(std::size_t{kFirstBlockSlots} * file.slot_size()), base_(start) {}

const char* SlotWalk::Next() {
  if (next_ == count_ && !ReadBlock())
    return nullptr;
  return bytes_.data() + std::size_t{next_++} * file_.slot_size();
}

bool SlotWalk::ReadBlock() {
  if (status_ != 0)
    return false;
  if (count_ != 0 && bytes_.size() * 2 <= kBlockBytes)
    bytes_.resize(bytes_.size() * 2);
  base_ += count_ * file_.slot_size();
  count_ = next_ = 0;
  if (file_.IsEndOfLocations(base_)) {
    status_ = tFILE_ERRORS::cEOF;
    return false;
  }
  const auto wanted = static_cast<std::uint32_t>(bytes_.size());
  std::uint32_t got = 0;
  {
    const SlotLock lock(file_.data_, base_, wanted, tFILEDEFS::cLOCK_SHARED);
    status_ = file_.data_.Read(bytes_.data(), wanted, &got);
  }
  count_ = got / file_.slot_size();
  tail_ = got % file_.slot_size();
  return count_ != 0;
}
