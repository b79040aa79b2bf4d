// SPDX-License-Identifier: Apache-2.0
// Entries of the status log: a header that names the caller and the time, then message lines from
// the catalog. The file they go to, if any, is supplied by the program.

#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "shared/general/SHNLSmsg.h"

// The file that entries go to. A derived class opens it (setting the descriptor, the stream and the
// name), writes lines, rolls it over and locks it.
class STATUS_FILE_OBJ {
 public:
  STATUS_FILE_OBJ() = default;
  virtual ~STATUS_FILE_OBJ();  // closes the stream
  STATUS_FILE_OBJ(const STATUS_FILE_OBJ&) = delete;
  STATUS_FILE_OBJ& operator=(const STATUS_FILE_OBJ&) = delete;

  virtual void RollStatusFile() = 0;            // starts a new file, the current one is too large
  virtual void WriteMsg(const char* text) = 0;  // appends one line
  virtual int LockStatusFile() = 0;
  virtual int UnlockStatusFile() = 0;

  void Flush();
  int GetFileID() const { return fStatusLogID; }
  std::FILE* GetFilePtr() const { return fStatusLogFP; }
  int IsTooLarge() const;  // 1 above 1000 whole kilobytes

 protected:
  int FileOverflowed = 0;
  std::string fStatusFileName;
  static int fStatusLogID;
  static std::FILE* fStatusLogFP;
};

// All state is the class's own: the object constructed last decides it. Nothing given is owned.
// Without a status file no operation writes anything.
class STATUS_MESSAGE_OBJECT {
 public:
  STATUS_MESSAGE_OBJECT(const char* caller_id, const char* custom_msg, NLS_MESSAGE_OBJ* NLS_msg);
  STATUS_MESSAGE_OBJECT(const char* caller_id, const char* custom_msg, NLS_MESSAGE_OBJ* NLS_msg,
                        STATUS_FILE_OBJ* status_file_obj);

  // An entry of msg_count catalog messages; parameter[i] (may be null) takes the place of the
  // text's first '!', or follows it in parentheses.
  static void LogStatus(const int* set_number, const int* msg_number, const char** parameter,
                        int msg_count, int suppress_header);
  // An entry of ready-made lines.
  static void LogStatus(int msg_count, const char** parameter, int suppress_header);
  // An entry of one catalog message formatted by printf's rules; the caller vouches that the
  // arguments are those of the catalog's text.
  static void WriteStatus(int set_number, int msg_number, int suppress_header, ...);
  static void WriteStatus_valist(int set_number, int msg_number, int suppress_header,
                                 std::va_list arguments);

  static const char* GetNLSMessage(int set_number, int msg_number);  // null when missing
  static const char* GetCallerId() { return CallerId; }
  static const char* GetCustomMsg() { return CustomMsg; }
  static const char* GetNLSDateTime() { return NLS_MESSAGE_OBJ::GetNLSDateTime(); }

  static void WriteMsgToStatusFile(STATUS_FILE_OBJ* status_file, const int* set_number,
                                   const int* msg_number, const char** parameter, int msg_count,
                                   int suppress_header);

 private:
  static void BeginEntry(STATUS_FILE_OBJ* status_file, int suppress_header);

  static const char* CallerId;
  static const char* CustomMsg;
  static NLS_MESSAGE_OBJ* NLSmsg;
  static STATUS_FILE_OBJ* StatusFileObj;
};
