// SPDX-License-Identifier: Apache-2.0
// A flat file of slots of one size, with a lock file for its writers. A slot begins with a status
// octet; what follows is the user's. Bytes behind the last whole slot are no slot.
//
// Writers of several processes exclude each other with Lock and Unlock, which readers do not need.
// So that a reader never gets half of an old and half of a new slot, reads and writes also hold a
// lock of the slot's own bytes in the data file while they copy them. That lock is courtesy: it is
// waited for at most kSlotLockWait, and a process that does not know of it does no harm.

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/sys/prtzt_file.h"

// Status octets of slots. Every octet but that of a deleted slot is live.
inline constexpr char kIndexSlotLive = 0;
inline constexpr char kIndexSlotDeleted = 1;

// How long a writer waits for the lock, and what is called once when that has taken a second.
struct LockPatience {
  std::chrono::milliseconds limit = std::chrono::milliseconds::max();
  // `holder` is the process that has the lock, 0 when the lock does not tell.
  std::function<void(const std::string& lock_file, long holder)> notice;
};

// Statuses are those of the file library. Not thread-safe.
class SlotFile {
 public:
  static constexpr std::chrono::milliseconds kSlotLockWait{500};

  // Opens the data file, for reading and writing; it is created if it is absent.
  int Open(const std::string& name, std::uint32_t slot_size);
  // Opens a file that is there, for reading alone.
  int OpenReadOnly(const std::string& name, std::uint32_t slot_size);
  // Opens or creates the lock file, the data file's name with ".lk".
  int OpenLockFile();
  bool IsReadOnly() const { return read_only_; }
  std::uint32_t slot_size() const { return slot_size_; }

  // Copies one slot. cEOF: there is no whole slot at that location.
  int Read(std::uint32_t location, char* slot);
  // Writes whole slots side by side in one system call.
  int Write(std::uint32_t location, const char* slots, std::uint32_t count = 1);
  // Whether a slot there may be written in part when the writer is killed.
  bool IsOnTwoPages(std::uint32_t location) const;
  // Writes a live slot over a deleted one: whoever dies on the way leaves it deleted.
  int WriteOverDeleted(std::uint32_t location, std::vector<char> slot);
  // Writes only a slot's status octet.
  int WriteState(std::uint32_t location, char state);

  // Writes return when their bytes are on the device. From DeferSync on they return sooner, and
  // Sync waits for all of them.
  void DeferSync() { data_.DeferSync(); }
  int Sync() { return data_.Sync(); }

  // Whether a slot that starts there would have a location beyond 31 bits.
  bool IsEndOfLocations(std::uint32_t location) const;
  // Where a new slot belongs: behind the last whole one.
  int End(std::uint32_t& location);
  // Changes with every write to the data file, by whomever.
  int GetStamp(sys::tFILE_STAMP& stamp) const { return data_.GetStamp(stamp); }

  // The writers' lock between processes. cLOCKED when patience ends first.
  int Lock(const LockPatience& patience = {});
  int Unlock();
  // Keeps writers off while others may do the same, with a lock file that is there already.
  int LockShared(const LockPatience& patience);

 private:
  friend class SlotWalk;
  int WaitForLock(const LockPatience& patience, unsigned kind);

  sys::tBINFILE data_{nullptr, 1};
  sys::tBINFILE lock_{nullptr, 1};
  std::uint32_t slot_size_ = 0;
  bool read_only_ = false;
  bool locked_ = false;
};

// A walk over all slots in file order that reads many at a time. What others write meanwhile shows
// or not, slot by slot.
class SlotWalk {
 public:
  explicit SlotWalk(SlotFile& file, std::uint32_t start = 0);

  // The next slot, good until the next call; null at the end, or when a read fails.
  const char* Next();
  // The location of the slot last handed out.
  std::uint32_t location() const { return base_ + (next_ - 1) * file_.slot_size(); }
  // Why Next gave none: cEOF at the true end of the file.
  int status() const { return status_; }
  // Octets behind the last whole slot, when Next has come to the end.
  std::uint32_t tail() const { return tail_; }

 private:
  bool ReadBlock();

  SlotFile& file_;
  std::vector<char> bytes_;  // `count_` slots from `base_` on, of which `next_` are used up
  std::uint32_t base_;
  std::uint32_t count_ = 0;
  std::uint32_t next_ = 0;
  std::uint32_t tail_ = 0;
  int status_ = 0;
};
