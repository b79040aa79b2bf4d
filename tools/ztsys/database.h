// SPDX-License-Identifier: Apache-2.0
// How sub-commands get at the database: one pass for those that only read, the manager under the
// writers' lock for those that change; the search for systems by the words of a user; and what
// statuses mean for that user.

#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "source/sysdb/ZTsysInfoObj.h"
#include "source/sysdb/ZTsysReader.h"
#include "tools/ztsys/host_names.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

// The path of the database, in this platform's form.
std::string DatabasePath(const Arguments& arguments);

// Opens the database for reading; it makes and changes nothing. Reports failures.
Status OpenReader(const Arguments& arguments, SystemReader& reader);
// Gives every system to `take`, in file order. Reports a read that fails on the way.
Status ForEachSystem(SystemReader& reader,
                     const std::function<void(const zt_SystemInfo_class&)>& take);

// Reports a file that ends with so many octets of a record, if any: kDamaged.
Status ReportTail(const std::string& path, std::int64_t octets);

// Gives the systems that the user's words name to `take`, in the order of the words: by the name
// stored for them, by their address, or by another name of their address. Reports a word that names
// none, or several. In one pass over the file, or two when a name has to be looked up.
Status FindSystems(SystemReader& reader, const std::vector<std::string>& words,
                   NameLookups& lookups,
                   const std::function<void(const zt_SystemInfo_class&)>& take);

enum class Missing { kRefuse, kCreate };

// The database open for change, under the writers' lock, with a table that is certainly the file's.
class Change {
 public:
  // Null after a report; `status` tells the kind.
  static std::unique_ptr<Change> Begin(const Arguments& arguments, Missing missing, Status& status);
  ~Change() { db_->Unlock(); }
  Change(const Change&) = delete;
  Change& operator=(const Change&) = delete;

  zt_SystemDBAccess_class& db() { return *db_; }
  std::string path() const;
  // Reports a failed operation of the database.
  Status Fail(const std::string& operation, int status) const;

 private:
  explicit Change(std::unique_ptr<zt_SystemDBAccess_class> db) : db_(std::move(db)) {}

  std::unique_ptr<zt_SystemDBAccess_class> db_;
};

// Reports a failed operation on the database file.
Status FailDatabase(const std::string& path, const std::string& operation, int status);

std::string AddressText(SystemKey key);
std::string NameAndAddress(const zt_SystemInfo_class& info);
// The record with its name or group replaced, whatever the name resolves to.
zt_SystemInfo_class WithName(const zt_SystemInfo_class& info, const std::string& name);

}  // namespace ztsys
