// SPDX-License-Identifier: Apache-2.0
// Opening of the database for a sub-command, the search for one system, and what its statuses mean
// for a user.

#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "source/sysdb/ZTsysInfoObj.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

enum class Missing { kRefuse, kCreate };

// An open database, or null after a report.
std::unique_ptr<zt_SystemDBAccess_class> OpenDatabase(const Arguments& arguments, Missing missing);

// The system that a word names: by the name stored for it, by its address, or by another name of
// its address. Reports failures.
Status FindSystem(zt_SystemDBAccess_class& db, const std::string& word, zt_SystemInfo_class& info);

// Reports a failed operation of the database.
Status FailDatabase(const zt_SystemDBAccess_class& db, const std::string& operation, int status);

// The writers' lock for a scope.
class DatabaseLock {
 public:
  explicit DatabaseLock(zt_SystemDBAccess_class& db) : db_(db) {
    db_.Lock();
    status_ = db_.ReturnError();
  }
  ~DatabaseLock() {
    if (status_ == 0)
      db_.Unlock();
  }
  DatabaseLock(const DatabaseLock&) = delete;
  DatabaseLock& operator=(const DatabaseLock&) = delete;
  int status() const { return status_; }  // 0 when the lock is held

 private:
  zt_SystemDBAccess_class& db_;
  int status_ = 0;
};

// What keeps a text out of a record's field of that size, or nothing. `what` names the text.
std::string RefusalOf(const char* what, const std::string& text, std::size_t field_size);

std::string AddressText(SystemKey key);
std::string NameAndAddress(const zt_SystemInfo_class& info);

}  // namespace ztsys
