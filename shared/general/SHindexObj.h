// SPDX-License-Identifier: Apache-2.0
// Fixed-size records with fixed-size binary keys in one flat file, without an index in the file: a
// keyed operation scans it from the start, and a record's location is the byte offset of its slot.
//
// A slot is one status byte (0 live, 1 deleted, any other value live), the key and the record. A
// deleted slot is zero behind its status and is reused by the next insert; the file never shrinks.
// Bytes behind the last whole slot are no record: scans end before them and an insert overwrites
// them.
//
// Slots, their locks and the writers' lock are SHslotFile's.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "shared/general/SHslotFile.h"

// Statuses next to those of the file library. Every operation but the accessors returns a status,
// 0 for success.
enum : int {
  kIndexNoSlot = -1,       // no whole slot at that location
  kIndexNotValid = 1002,   // the data file is not open
  kIndexNotFound = 1005,   // no such key, or no further record
  kIndexWrongSize = 1006,  // a size differs from those the file was opened with
};

class INDEX_DATA_OBJ {
 public:
  // Opens or creates the data file and its lock file (the name with ".lk"). The sizes must be those
  // that the file was made with; nothing in it records them. A data file that this user may only
  // read is opened so, without a lock file: every write to it then fails with cACCESS.
  INDEX_DATA_OBJ(const char* file_name, int key_size, int record_size);
  ~INDEX_DATA_OBJ();
  INDEX_DATA_OBJ(const INDEX_DATA_OBJ&) = delete;
  INDEX_DATA_OBJ& operator=(const INDEX_DATA_OBJ&) = delete;

  // Whether the data file is open, and if not, the file library's status of its opening.
  int ReturnValidObj() const { return ValidObj; }
  int ReturnError() const { return Error; }
  int ReturnLockFileOpened() const { return fLockFileOpened; }
  bool ReturnReadOnly() const { return fFile.IsReadOnly(); }
  int ReturnResult() const { return Result; }  // of the last operation

  // The first live slot of a key. `location` receives its offset.
  int GetRec(const char* key, int key_size, char* record, int& record_size);
  int GetRec(const char* key, int key_size, char* record, int& record_size, std::int32_t& location);
  // The slot at a location, live or deleted (then all zero).
  int GetRec(std::int32_t location, char* record, int& record_size);

  // Inserts a record into the first deleted slot or behind the last one, whether or not the key
  // exists.
  int PutRec(const char* key, int key_size, const char* record, int record_size);
  int PutRec(const char* key, int key_size, const char* record, int record_size,
             std::int32_t& location);
  // The same for a caller that knows that no deleted slot lies before the location `search_from`,
  // which is spared the search of what lies before.
  int PutRec(const char* key, int key_size, const char* record, int record_size,
             std::int32_t& location, std::int32_t search_from);

  // Writes a live slot at a location, whatever it held; `state` is the status byte of a slot that
  // its user still has something to do with, never 1. By key: rewrites the first slot of the key.
  int ReplaceRec(std::int32_t location, const char* key, const char* record, int record_size,
                 char state = 0);
  int ReplaceRec(const char* key, int key_size, const char* record, int record_size);

  int DeleteRec(std::int32_t location);
  int DeleteRec(const char* key, int key_size);

  // Live slots in file order. The cursor is the file's position, which every other operation moves;
  // rewriting the slot just read, by location, leaves it where it was. At the end, or when a read
  // fails, 1005 and both sizes 0.
  int GetFirstRec(char* key, int& key_size, char* record, int& record_size);
  int GetFirstRec(char* key, int& key_size, char* record, int& record_size, std::int32_t& location);
  int GetNextRec(char* key, int& key_size, char* record, int& record_size);
  int GetNextRec(char* key, int& key_size, char* record, int& record_size, std::int32_t& location);

  // Counts the live slots; the buffers are scratch. An empty file gives 0 entries and 1005.
  int GetNumberOfEntries(int& number_of_entries, char* key, int& key_size, char* record,
                         int& record_size);
  int ReturnRecAndKey(const char* key, char* record);

  // The writers' lock between processes; waits until it is granted, or as long as it is told to.
  int Lock(const LockPatience& patience = {});
  int Unlock();

  // The key and the status byte of the slot that the last GetRec by location, GetFirstRec or
  // GetNextRec read.
  const char* ReturnSlotKey() const { return fSlot.data() + 1; }
  char ReturnSlotState() const { return fSlot[0]; }

  // Why the last walk or keyed search found no further slot: cEOF at the true end of the file. An
  // insert does not go on behind a slot that cannot be read.
  int ReturnReadStatus() const { return fReadStatus; }

  // Changes only the status octet of a slot. A walk over the slots goes on behind it.
  int MarkRec(std::int32_t location, char state);

  SlotFile& File() { return fFile; }

  // One line on standard error, for debugging.
  void PrintDebugInfo(const char* string) const;
  static int fDebugLevel;

 private:
  void OpenDataBase(const char* file_name, int key_size, int record_size);
  int CheckSizes(int key_size, int record_size) const;
  int SetResult(int status) { return Result = status; }

  int ReadSlot();
  int WriteSlot();
  void FillSlot(char state, const char* key, const char* record);
  void FillDeletedSlot();

  int GetRecByKey(const char* key, char* record, std::int32_t& location);
  int FindRecord(const char* key, std::int32_t& location);
  int FindPlace(std::int32_t search_from, std::int32_t& location, bool& in_hole);
  int NextLiveSlot(char* key, char* record, std::int32_t& location);

  int ValidObj = 0;
  int Error = 0;
  SlotFile fFile;
  int SizeOfRecords = 0;
  int SizeOfKeys = 0;
  std::uint32_t RecordSize = 0;  // of a slot
  int Result = 0;
  int fNumber = 0;
  int fLockFileOpened = 0;
  std::uint32_t fPosition = 0;  // the cursor
  int fReadStatus = 0;
  std::vector<char> fSlot;  // the slot last read or written
};
