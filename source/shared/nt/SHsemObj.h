// SPDX-License-Identifier: Apache-2.0
// One integer that processes share: a file of 4 bytes (signed, machine order) mapped into each of
// them. A value that one stores is seen by all at once.

#pragma once

#include <cstdint>

class SEM_OBJ {
 public:
  // Opens the file, created with the value 0 if it is absent and grown to 4 bytes if it is shorter.
  // When it cannot be opened, says so on standard output; ReturnError then holds the errno. The
  // other arguments are accepted and ignored.
  SEM_OBJ(const char* path, char key_id, int nsems, int semflag);
  // Opens a file that is there for reading alone; the object is not valid when it cannot.
  explicit SEM_OBJ(const char* path);
  ~SEM_OBJ();
  SEM_OBJ(const SEM_OBJ&) = delete;
  SEM_OBJ& operator=(const SEM_OBJ&) = delete;

  // Stores value_to_set % 32767 (the sign follows the value). 1, or 0 when the object is not valid
  // or only reads. semnum is ignored, here and below. There is no atomic increment.
  int SetSemVal(int semnum, int value_to_set);
  // The shared integer; -1 when the object is not valid.
  int GetSemVal(int semnum) const;

  bool ValidObj() const { return ValidObject == 1; }
  int ReturnError() const { return fError; }

 private:
  bool Open(const char* path, int flags);
  bool Grow();
  bool Map(int protection);

  int ValidObject = 0;
  bool fReadOnly = false;
  int mFileObj = -1;              // the file's descriptor
  std::int32_t* fiptr = nullptr;  // the mapped integer
  int fError = 0;
};
