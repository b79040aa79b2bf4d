// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/database.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "platform/sys/native_path.h"
#include "shared/general/SHcontrolObj.h"
#include "source/support/ZTprintable.h"
#include "tools/ztsys/fields.h"

namespace ztsys {

namespace {

Status KindOf(int status) {
  switch (status) {
    case kIndexNotFound:
      return kNoSuchSystem;
    case sys::tFILE_ERRORS::cMISSING:
    case sys::tFILE_ERRORS::cACCESS:
    case kSysDbNoLockFile:
      return kNotOpened;
    case sys::tFILE_ERRORS::cLOCKED:
      return kLocked;
    case sys::tFILE_ERRORS::cDEVICE:
    case sys::tFILE_ERRORS::cEOF:
    case kSysDbBadVersion:
      return kDamaged;
    default:
      return kFailed;
  }
}

// What errno says of a file, and what to try.
std::string Refusal(const std::string& path) {
  const char* advice = "";
  if (errno == ENOENT)
    advice = "; add or import makes it, --db names another";
  else if (errno == EACCES)
    advice = "; its owner and its group (ls -l) may";
  return path + ": " + std::strerror(errno) + advice;
}

// What keeps a file from being opened, or nothing.
std::string Obstacle(const std::string& path, bool must_exist, bool to_write) {
  struct stat about {};
  if (stat(path.c_str(), &about) != 0) {
    if (errno != ENOENT || must_exist)
      return Refusal(path);
  } else if (!S_ISREG(about.st_mode)) {
    return path + ": " + (S_ISDIR(about.st_mode) ? std::strerror(EISDIR) : "not a plain file");
  }
  if (to_write && !sys::may_write(path))
    return Refusal(path);
  return "";
}

// A word and the systems that it names: several only when they have one name.
struct Found {
  std::string word;
  std::vector<zt_SystemInfo_class> systems;
};

// The words that are still without a system, by what they are searched for.
struct Wanted {
  std::unordered_map<std::string, std::vector<Found*>> names;
  std::unordered_map<SystemKey, std::vector<Found*>> keys;
};

Status Search(SystemReader& reader, const Wanted& wanted) {
  reader.Rewind();
  std::vector<std::pair<Found*, zt_SystemInfo_class>> by_address;
  const Status status = ForEachSystem(reader, [&](const zt_SystemInfo_class& info) {
    if (const auto at = wanted.names.find(info.ReturnSystemName()); at != wanted.names.end())
      for (Found* found : at->second)
        found->systems.push_back(info);
    if (const auto at = wanted.keys.find(info.ReturnSystemKey()); at != wanted.keys.end())
      for (Found* found : at->second)
        by_address.emplace_back(found, info);
  });
  // A name that is stored goes before the address that a word is, too. Of two records of one
  // address the first counts.
  for (const auto& [found, info] : by_address)
    if (found->systems.empty())
      found->systems.push_back(info);
  return status;
}

Status SearchByOtherNames(SystemReader& reader, NameLookups& lookups, std::vector<Found>& found) {
  std::vector<std::string> names;
  for (const Found& one : found)
    if (one.systems.empty() && !LooksLikeAddress(one.word))
      names.push_back(one.word);
  if (names.empty())
    return kDone;
  const Addresses addresses = lookups.AddressesOf(std::move(names));
  Wanted wanted;
  for (Found& one : found)
    if (const auto at = addresses.find(one.word); at != addresses.end() && one.systems.empty())
      wanted.keys[at->second].push_back(&one);
  return wanted.keys.empty() ? kDone : Search(reader, wanted);
}

// A word that names no system, or several.
Status FailFound(const std::string& path, const Found& found) {
  if (found.systems.empty())
    return Fail("no system '" + found.word + "' in " + path, kNoSuchSystem);
  std::string addresses;
  for (const zt_SystemInfo_class& info : found.systems)
    addresses += (addresses.empty() ? "" : ", ") + AddressText(info.ReturnSystemKey());
  return Fail("'" + found.word + "' is the name of " + std::to_string(found.systems.size()) +
              " systems: " + addresses + "; say which by its address");
}

}  // namespace

std::string DatabasePath(const Arguments& arguments) {
  if (arguments.db)
    return sys::native_path(*arguments.db);
  const char* directory = BASE_CONTROL_OBJ::GetDatabaseDirectory();
  return sys::native_path(std::string(directory != nullptr ? directory : "") + "ztdb");
}

Status OpenReader(const Arguments& arguments, SystemReader& reader) {
  const std::string path = DatabasePath(arguments);
  const int status = reader.Open(path);
  if (status == 0)
    return kDone;
  if (const std::string obstacle = Obstacle(path, true, false); !obstacle.empty())
    return Fail(obstacle, kNotOpened);
  if (status == sys::tFILE_ERRORS::cACCESS) {
    errno = EACCES;
    return Fail(Refusal(path), kNotOpened);
  }
  return FailDatabase(path, "cannot open", status);
}

Status ForEachSystem(SystemReader& reader,
                     const std::function<void(const zt_SystemInfo_class&)>& take) {
  zt_SystemInfo_class info;
  int status = reader.Next(info);
  for (; status == 0; status = reader.Next(info))
    take(info);
  return status == kSysDbNoMoreSystems ? kDone : FailDatabase(reader.path(), "cannot read", status);
}

Status ReportTail(const std::string& path, std::int64_t octets) {
  return octets == 0 ? kDone : Fail(path + ": " + CutDatabaseText(octets), kDamaged);
}

Status FindSystems(SystemReader& reader, const std::vector<std::string>& words,
                   NameLookups& lookups,
                   const std::function<void(const zt_SystemInfo_class&)>& take) {
  std::vector<Found> found;
  found.reserve(words.size());
  for (const std::string& word : words)
    found.push_back({word, {}});
  Wanted wanted;
  for (Found& one : found) {
    wanted.names[one.word].push_back(&one);
    if (const auto key = ParseAddress(one.word))
      wanted.keys[*key].push_back(&one);
  }
  if (const Status status = Search(reader, wanted); status != kDone)
    return status;
  if (const Status status = SearchByOtherNames(reader, lookups, found); status != kDone)
    return status;
  Outcome outcome;
  for (const Found& one : found) {
    if (one.systems.size() == 1)
      take(one.systems[0]);
    else
      outcome.Add(FailFound(reader.path(), one));
  }
  return outcome.status();
}

std::unique_ptr<Change> Change::Begin(const Arguments& arguments, Missing missing, Status& status) {
  const std::string path = DatabasePath(arguments);
  std::string obstacle = Obstacle(path, missing == Missing::kRefuse, true);
  for (const char* companion : {".lk", ".sem"})
    if (obstacle.empty())
      obstacle = Obstacle(path + companion, false, true);
  if (!obstacle.empty()) {
    status = ztsys::Fail(obstacle, kNotOpened);
    return nullptr;
  }
  // Before anything is made beside a file that is none of ours.
  FileKind kind = FileKind::kNew;
  if (KindOfDatabase(path, kind) == 0 && kind == FileKind::kForeign) {
    status = FailDatabase(path, "cannot open", kSysDbBadVersion);
    return nullptr;
  }
  zt_SystemDBOptions options{std::chrono::seconds(arguments.wait), Tell};
  auto db = std::make_unique<zt_SystemDBAccess_class>(path.c_str(), std::move(options));
  if (db->ValidObj() == 0) {
    // Among errno values that are no file status there are only those of the change counter.
    const int error = db->ReturnError();
    const bool of_counter = error > sys::tFILE_ERRORS::cNOTOPEN && error < kIndexNotValid;
    status = FailDatabase(of_counter ? path + ".sem" : path, "cannot open", error);
    return nullptr;
  }
  db->Lock();
  if (const int error = db->ReturnError(); error != 0) {
    status = FailDatabase(path, "cannot lock", error);
    return nullptr;
  }
  std::unique_ptr<Change> change(new Change(std::move(db)));
  if (const int error = change->db_->Manager().SyncWithFile(); error != 0) {
    status = FailDatabase(path, "cannot read", error);
    return nullptr;
  }
  // The next insert writes over it; verify finds it itself.
  if (const std::int64_t tail = change->db_->ReturnTail(); tail != 0 && !arguments.repair)
    Tell(path + ": " + CutDatabaseText(tail));
  return change;
}

std::string Change::path() const {
  return sys::native_path(db_->ReturnFileName());
}

Status Change::Fail(const std::string& operation, int status) const {
  return FailDatabase(path(), operation, status);
}

Status FailDatabase(const std::string& path, const std::string& operation, int status) {
  return Fail(path + ": " + operation + ": " + SystemDatabaseText(status), KindOf(status));
}

std::string AddressText(SystemKey key) {
  char text[kKeyTextSize];
  FormatSystemKey(key, text);
  return text;
}

std::string NameAndAddress(const zt_SystemInfo_class& info) {
  return printable(info.ReturnSystemName()) + " (" + AddressText(info.ReturnSystemKey()) + ')';
}

zt_SystemInfo_class WithName(const zt_SystemInfo_class& info, const std::string& name) {
  SystemKey key = kNoSystemKey;
  zt_SystemInfo_struct record = info.ReturnStruct(key);
  std::memset(record.fSystemName, 0, sizeof record.fSystemName);
  name.copy(record.fSystemName, sizeof record.fSystemName - 1);
  return {record, key};
}

}  // namespace ztsys
