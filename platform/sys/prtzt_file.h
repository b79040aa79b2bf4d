// SPDX-License-Identifier: Apache-2.0
// Binary files of the portability library: positioned reads and writes and byte-range locks that
// hold between processes, over POSIX descriptors. It knows nothing of what the files contain.

#pragma once

#include <cstdint>
#include <string>

namespace sys {

// Statuses of every call below; 0 is success. The first six numbers are known to callers' users
// and never change; the others tell the remaining failures of this platform apart.
struct tFILE_ERRORS {
  enum eSTATUS : int {
    cNORMAL = 0,
    cMISSING = 1,      // no such file, or a folder of its path is missing
    cEXISTS = 2,       // the file exists and must not
    cACCESS = 3,       // no permission, a read-only file system, or not a plain file
    cEOF = 4,          // the end of the file was reached before all bytes were read
    cINTERRUPTED = 5,  // a signal ended a wait
    cLOCKED = 6,       // another holder has the region
    cFULL = 7,         // no room: the disk, a quota or a file-size limit
    cDEVICE = 8,       // the device failed, or a failure without a number of its own
    cLIMIT = 9,        // out of descriptors, locks or memory
    cPOSITION = 10,    // a position before the start or beyond 4 GiB
    cNOTOPEN = 11,     // the file is not open
  };
};

struct tFILEDEFS {
  enum eSEEKMODE { cFROMSTART = 0, cFROMCURRENT = 1, cFROMEND = 2 };
  enum eACCESS : unsigned {
    cREAD = 1,
    cWRITE = 2,
    cREADWRITE = 3,
    cSYNC = 8,  // a write returns when its bytes are on the device
  };
  // Permissions of a new file: three bits each for user, group and others, of which 1 is read, 2
  // is write and 4 is execute. The process's umask still applies.
  enum eSECURITY : unsigned { cALL_READWRITE = 219, cALL_RWX = 511 };
  enum eLOCK : unsigned {
    cLOCK_WAIT = 0,
    cLOCK_EXCLUSIVE = 0,
    cLOCK_SHARED = 1,
    cLOCK_NOWAIT = 2,  // a region held by another gives cLOCKED at once
  };
};

// What the statuses mean, for messages: a clause without a full stop, in static storage.
const char* FileStatusText(int status);
// The status for an errno.
int FileStatusOf(int error);

// What every write to a file changes. With equal stamps before and after, nobody has written in
// between; a system whose clock for files is coarse may miss a write within the same few
// milliseconds that leaves the length as it was.
struct tFILE_STAMP {
  std::int64_t length = -1;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  bool operator==(const tFILE_STAMP&) const = default;
};

// The descriptor behind a file object; closes it when destroyed.
class tPHYSICAL_FILE {
 public:
  tPHYSICAL_FILE() = default;
  ~tPHYSICAL_FILE();
  tPHYSICAL_FILE(const tPHYSICAL_FILE&) = delete;
  tPHYSICAL_FILE& operator=(const tPHYSICAL_FILE&) = delete;

  int descriptor = -1;
};

// A file with a name and a position of its own. Positions are absolute byte offsets below 4 GiB.
// The position belongs to the object, not to the descriptor, so that a forked process that goes
// on using its copy does not move ours. Not thread-safe.
class tLOGICAL_FILE {
 public:
  // With a null `physical` the object makes and owns its own; otherwise the caller keeps it alive
  // longer than the object. `flag` 1: the file is closed with the object.
  tLOGICAL_FILE(tPHYSICAL_FILE* physical, int flag);
  ~tLOGICAL_FILE();
  tLOGICAL_FILE(const tLOGICAL_FILE&) = delete;
  tLOGICAL_FILE& operator=(const tLOGICAL_FILE&) = delete;

  // The path as the product writes it; it is translated where the file is opened.
  void SetName(const char* name);
  const char* ReturnName() const { return name_.c_str(); }

  // Opens the file, creating it empty if it is absent, at position 0. Only plain files open:
  // anything else gives cACCESS. `access` is a sum of eACCESS, `security` a sum as in eSECURITY;
  // `share` is accepted and ignored, since this platform always shares.
  int OpenAlways(unsigned access, unsigned share, unsigned security);
  // The same for a file that must be there.
  int OpenExisting(unsigned access);

  // Reads `size` bytes at the position and advances past them. cEOF when the file ends first: a
  // caller that gave `count` gets the bytes there are, their number, and a position past them;
  // for one that did not, the position stays.
  int Read(void* buffer, std::uint32_t size, std::uint32_t* count);

  // Writes `size` bytes at the position in one system call, extending the file if need be, and
  // advances past them. A write that the system cuts short (no room) is taken back: the old bytes
  // and the old length are restored as far as the system lets us, and the position stays.
  int Write(const void* buffer, std::uint32_t size, std::uint32_t* count);
  // Of a file opened with cSYNC: from DeferSync on, writes return before their bytes are on the
  // device. Sync waits for all of them, and from then on each write waits for its own again.
  void DeferSync() { deferred_ = true; }
  int Sync();

  // Moves the position; `position`, if given, receives the new one. A position before the start
  // is refused and the old one kept; one past the end is allowed.
  int Seek(std::int32_t offset, std::uint32_t* position);
  int Seek(tFILEDEFS::eSEEKMODE mode, std::int32_t offset, std::uint32_t* position);
  int GetPos(std::uint32_t* position) const;
  int Rewind();

  int GetStamp(tFILE_STAMP& stamp) const;

  // Locks or unlocks `length` bytes from the position on, against other open files (of this and
  // of other processes); `flags` is a sum of eLOCK. The system drops the locks when the file is
  // closed or its process dies. cINTERRUPTED when a signal handler ended the wait.
  int LockRegion(std::uint32_t length, unsigned flags);
  int UnlockRegion(std::uint32_t length);

  // Which process has locked the octet at the position, as far as the lock tells. Locks of open
  // files belong to no process, so a holder marks another octet of the file with its process's own
  // lock; closing any descriptor of the file drops that mark. 0: unknown, or this process.
  long ReturnLockHolder(std::int32_t mark) const;
  void MarkLockHolder(std::int32_t mark) const;
  void UnmarkLockHolder(std::int32_t mark) const;

  int Close();

 private:
  int Open(int flags, unsigned security);
  int WaitForDevice() const;
  int SetLock(short type, std::uint32_t length, bool wait) const;

  std::string name_;
  tPHYSICAL_FILE own_;
  tPHYSICAL_FILE* physical_;
  bool closes_;
  bool synchronous_ = false;
  bool deferred_ = false;
  std::uint64_t position_ = 0;
};

class tBINFILE : public tLOGICAL_FILE {
 public:
  using tLOGICAL_FILE::tLOGICAL_FILE;
};

}  // namespace sys
