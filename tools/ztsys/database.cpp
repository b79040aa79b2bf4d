// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/database.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/sys/native_path.h"
#include "shared/general/SHcontrolObj.h"
#include "source/support/ZTprintable.h"

namespace ztsys {

namespace {

constexpr int kReadAndWrite = 6;

std::string DatabasePath(const Arguments& arguments) {
  if (arguments.db)
    return *arguments.db;
  const char* directory = BASE_CONTROL_OBJ::GetDatabaseDirectory();
  return std::string(directory != nullptr ? directory : "") + "ztdb";
}

// What stands in the way of opening a file, or nothing. Asked beforehand, because the database
// tells only a status, and tells the change counter's failure on standard output.
std::string Obstacle(const std::string& path, bool must_exist) {
  struct stat about {};
  if (sys::_stat(path.c_str(), &about) != 0)
    return errno == ENOENT && !must_exist ? "" : path + ": " + std::strerror(errno);
  if (S_ISDIR(about.st_mode))
    return path + ": " + std::strerror(EISDIR);
  if (!S_ISREG(about.st_mode))
    return path + ": not a plain file";
  if (sys::_access(path.c_str(), kReadAndWrite) != 0)
    return path + ": " + std::strerror(errno);
  return "";
}

std::string StatusText(int status) {
  switch (status) {
    case kIndexNotFound:
      return "no such system";
    case kSysDbNoKey:
    case kSysDbNameUnknown:
      return "the name does not resolve to an address";
    case kSysDbBadVersion:
      return "not a system database, or of an unknown version";
    case kSysDbNoLockFile:
      return "its lock file cannot be opened";
    default:
      break;
  }
  if (status <= sys::tFILE_ERRORS::cNOTOPEN)
    return sys::FileStatusText(status);
  return status < kIndexNotValid ? std::strerror(status) : "status " + std::to_string(status);
}

}  // namespace

std::unique_ptr<zt_SystemDBAccess_class> OpenDatabase(const Arguments& arguments, Missing missing) {
  const std::string path = DatabasePath(arguments);
  std::string obstacle = Obstacle(path, missing == Missing::kRefuse);
  if (obstacle.empty())
    obstacle = Obstacle(path + ".lk", false);
  if (obstacle.empty())
    obstacle = Obstacle(path + ".sem", false);
  if (!obstacle.empty()) {
    Fail(obstacle);
    return nullptr;
  }
  auto db = std::make_unique<zt_SystemDBAccess_class>(path.c_str());
  if (db->ValidObj() != 0)
    return db;
  // Among errno values that are no file status there are only those of the change counter.
  const int error = db->ReturnError();
  const bool of_counter = error > sys::tFILE_ERRORS::cNOTOPEN && error < kIndexNotValid;
  Fail(path + (of_counter ? ".sem: " : ": ") + StatusText(error));
  return nullptr;
}

Status FindSystem(zt_SystemDBAccess_class& db, const std::string& word, zt_SystemInfo_class& info) {
  int status = db.GetSystemRec(word.c_str(), info);
  if (status == kIndexNotFound) {
    const SystemKey key = db.ReturnSystemKey(word.c_str());
    if (key != kNoSystemKey)
      status = db.GetSystemRec(key, info);
  }
  if (status == 0)
    return kDone;
  if (status == kIndexNotFound)
    return Fail("no system '" + word + "' in " + db.ReturnFileName());
  return FailDatabase(db, "cannot read system '" + word + "'", status);
}

Status FailDatabase(const zt_SystemDBAccess_class& db, const std::string& operation, int status) {
  return Fail(std::string(db.ReturnFileName()) + ": " + operation + ": " + StatusText(status));
}

std::string RefusalOf(const char* what, const std::string& text, std::size_t field_size) {
  const std::string subject = std::string("the ") + what;
  if (text.size() >= field_size)
    return subject + " is longer than " + std::to_string(field_size - 1) + " characters";
  if (printable(text) != text)
    return subject + " has control characters";
  // Nobody sees such a blank in a list, and a look-up by name does not find what has one.
  if (!text.empty() && (text.front() == ' ' || text.back() == ' '))
    return subject + " begins or ends with a blank";
  return "";
}

std::string AddressText(SystemKey key) {
  char text[kKeyTextSize];
  FormatSystemKey(key, text);
  return text;
}

std::string NameAndAddress(const zt_SystemInfo_class& info) {
  return printable(info.ReturnSystemName()) + " (" + AddressText(info.ReturnSystemKey()) + ')';
}

}  // namespace ztsys
