// SPDX-License-Identifier: Apache-2.0
// ztsys verify: a look at every slot. With --repair, what is certain is mended under the writers'
// lock, after a whole copy has been put beside the file.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string_view>
#include <vector>

#include "platform/sys/native_path.h"
#include "platform/sys/whole_file.h"
#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTbackConnect.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/fields.h"

namespace ztsys {

namespace {

constexpr std::size_t kRecordAt = 1 + sizeof(SystemKey);
constexpr int kLastKnownState = 4;
constexpr int kLastKnownStatus = 6;
constexpr long kMostTold = 1000;

using Slot = std::array<char, kSlotSize>;

// What to do about a finding; nothing where nothing is certain.
enum class Mend { kNothing, kFree, kClear, kLive, kEndTexts, kVersionKey, kCutOff };

struct Finding {
  std::int32_t location;
  std::string what;
  Mend mend = Mend::kNothing;
};

constexpr const char* MendText(Mend mend) {
  switch (mend) {
    case Mend::kFree:
      return "the slot is free now";
    case Mend::kClear:
      return "the slot is cleared";
    case Mend::kLive:
      return "the status is 0 now";
    case Mend::kEndTexts:
      return "the text is ended where readers cut it";
    case Mend::kVersionKey:
      return "the key is 0.0.0.0 now";
    case Mend::kCutOff:
      return "they are cut off";
    case Mend::kNothing:
      break;
  }
  return "left as it is";
}

struct Entry {
  SystemKey key;
  std::int32_t location;
  std::size_t hash;  // of the record without the time of its last store
};

class Verification {
 public:
  explicit Verification(SystemReader& reader) : reader_(reader) {}

  Status Run();
  const std::vector<Finding>& findings() const { return findings_; }
  long count() const { return count_; }

 private:
  void Found(std::int32_t location, std::string what, Mend mend = Mend::kNothing) {
    ++count_;
    findings_.push_back({location, std::move(what), mend});
  }
  void CheckLength();
  void CheckVersion(const char* slot);
  void CheckDeleted(const char* slot, std::int32_t location);
  void CheckSystem(const char* slot, std::int32_t location);
  void CheckKeys();

  SystemReader& reader_;
  std::vector<Finding> findings_;
  std::vector<Entry> entries_;
  bool converting_ = false;  // slot 0 says that a conversion is not finished
  long count_ = 0;
};

Status Verification::Run() {
  for (const char* slot = reader_.NextSlot(); slot != nullptr; slot = reader_.NextSlot()) {
    const std::int32_t location = reader_.location();
    if (location == kVersionLocation)
      CheckVersion(slot);
    else if (slot[0] == kIndexSlotDeleted)
      CheckDeleted(slot, location);
    else
      CheckSystem(slot, location);
  }
  if (reader_.status() != kSysDbNoMoreSystems)
    return FailDatabase(reader_.path(), "cannot read on", reader_.status());
  CheckLength();
  CheckKeys();
  std::stable_sort(findings_.begin(), findings_.end(),
                   [](const Finding& a, const Finding& b) { return a.location < b.location; });
  return kDone;
}

void Verification::CheckLength() {
  sys::tFILE_STAMP stamp;
  if (reader_.GetStamp(stamp) != 0)
    return;
  if (const std::int64_t tail = stamp.length % kSlotSize; tail != 0)
    Found(static_cast<std::int32_t>(stamp.length - tail),
          std::to_string(tail) + " octets behind the last whole slot", Mend::kCutOff);
}

void Verification::CheckVersion(const char* slot) {
  converting_ = slot[0] == kSlotInOlderLayout;
  if (reader_.kind() == FileKind::kOlder)
    Found(0, converting_ ? "a conversion from the older layout is not finished: any change "
                           "finishes it"
                         : "the file is in the older layout: any change converts it");
  else if (slot[0] != kIndexSlotLive)
    Found(0, "the version record has the status " + std::to_string(slot[0]), Mend::kLive);
  if (ConvertSystemKey(slot + 1) != 0)
    Found(0, "the version record has the key " + AddressText(ConvertSystemKey(slot + 1)),
          Mend::kVersionKey);
}

void Verification::CheckDeleted(const char* slot, std::int32_t location) {
  if (std::any_of(slot + 1, slot + kSlotSize, [](char c) { return c != 0; }))
    Found(location, "neither live nor free: deleted, and not empty", Mend::kClear);
}

void Verification::CheckSystem(const char* slot, std::int32_t location) {
  zt_SystemInfo_struct record;
  std::memcpy(&record, slot + kRecordAt, sizeof record);
  const SystemKey key = ConvertSystemKey(slot + 1);
  zt_SystemInfo_struct timeless = record;
  timeless.fRecUpdateTime = 0;
  entries_.push_back(
      {key, location,
       std::hash<std::string_view>()({reinterpret_cast<const char*>(&timeless), sizeof timeless})});
  // Records of the older layout have other fields at these places.
  const bool older =
      reader_.kind() == FileKind::kOlder && (!converting_ || slot[0] == kSlotInOlderLayout);
  if (key == 0 || key == kNoSystemKey)
    Found(location, "a record of " + AddressText(key) + ", which nobody can reach", Mend::kFree);
  if (slot[0] != kIndexSlotLive && !(slot[0] == kSlotInOlderLayout && older))
    Found(location,
          "impossible status " + std::to_string(static_cast<unsigned char>(slot[0])) +
              " of the record of " + AddressText(key),
          Mend::kLive);
  const std::string of = " of " + AddressText(key);
  if (std::memchr(record.fSystemName, 0, sizeof record.fSystemName) == nullptr)
    Found(location, "the name" + of + " has no end", Mend::kEndTexts);
  if (older)
    return;
  if (std::memchr(record.fGroupName, 0, sizeof record.fGroupName) == nullptr)
    Found(location, "the group" + of + " has no end", Mend::kEndTexts);
  if (record.fSystemType < 0 || record.fSystemType > ReturnSupportedSystemTypeCount())
    Found(location, "unknown type " + std::to_string(record.fSystemType) + of);
  if (record.fAlarmMonitorStatus < 0 || record.fAlarmMonitorStatus > kLastKnownStatus)
    Found(location, "unknown monitor status " + std::to_string(record.fAlarmMonitorStatus) + of);
  const auto unknown = [](unsigned char octet) {
    return (octet & 0xF) > kLastKnownState || octet >> 4 > kLastKnownState;
  };
  if (std::any_of(std::begin(record.fAlarmStates), std::end(record.fAlarmStates), unknown))
    Found(location, "unknown alarm states" + of);
}

// Of two records of one address readers may take either: unless they are equal, only the user can
// tell which is right.
void Verification::CheckKeys() {
  std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
    return a.key != b.key ? a.key < b.key : a.location < b.location;
  });
  for (std::size_t i = 1; i < entries_.size(); ++i)
    if (entries_[i].key == entries_[i - 1].key)
      Found(entries_[i].location,
            "a second record of " + AddressText(entries_[i].key) + "; another is in slot " +
                std::to_string(entries_[i - 1].location / kSlotSize),
            entries_[i].hash == entries_[i - 1].hash ? Mend::kFree : Mend::kNothing);
}

// A name with a hyphen, and what stands behind it on its line, are not what their writer meant.
void WarnOfHyphens() {
  const std::string path = BackConnectFile::OfInstallation().path();
  std::ifstream file(sys::native_path(path));
  std::string line;
  for (int number = 1; std::getline(file, line); ++number)
    if (line.find('-') != std::string::npos)
      Tell("warning: " + sys::native_path(path) + ':' + std::to_string(number) +
           ": a hyphen ends a name in this file; systems with one in their name cannot stand here");
}

// The file's status.
int MendSlot(SlotFile& file, const std::string& path, const Finding& finding) {
  const auto at = static_cast<std::uint32_t>(finding.location);
  if (finding.mend == Mend::kCutOff)
    return truncate(path.c_str(), finding.location) == 0 ? 0 : sys::FileStatusOf(errno);
  Slot slot{};
  if (const int status = file.Read(at, slot.data()); status != 0)
    return status;
  switch (finding.mend) {
    case Mend::kFree:
    case Mend::kClear:
      slot.fill(0);
      slot[0] = kIndexSlotDeleted;
      break;
    case Mend::kLive:
      slot[0] = kIndexSlotLive;
      break;
    case Mend::kEndTexts:
      slot[kRecordAt + kSystemNameSize - 1] = 0;
      slot[kRecordAt + offsetof(zt_SystemInfo_struct, fGroupName) + kGroupNameSize - 1] = 0;
      break;
    case Mend::kVersionKey:
      std::fill_n(slot.begin() + 1, sizeof(SystemKey), '\0');
      break;
    case Mend::kCutOff:
    case Mend::kNothing:
      return 0;
  }
  return file.Write(at, slot.data());
}

void Print(const Finding& finding, const std::string& done) {
  std::printf("slot %d: %s%s\n", finding.location / kSlotSize, printable(finding.what).c_str(),
              done.empty() ? "" : (": " + done).c_str());
}

std::string FreeName(const std::string& path) {
  std::string name = path + ".before-repair";
  for (int i = 1; access(name.c_str(), F_OK) == 0; ++i)
    name = path + ".before-repair." + std::to_string(i);
  return name;
}

// Mends under the lock, by a look of its own at the file as it is then.
Status Repair(const Arguments& arguments, long& left) {
  Status status = kDone;
  const auto change = Change::Begin(arguments, Missing::kRefuse, status);
  if (change == nullptr)
    return status;
  const std::string path = change->path();
  SystemReader reader;
  if (status = OpenReader(arguments, reader); status != kDone)
    return status;
  Verification verification(reader);
  if (status = verification.Run(); status != kDone)
    return status;
  left = verification.count();
  if (left == 0)
    return kDone;
  const std::string copy = FreeName(path);
  if (const int error = sys::CopyWholeFile(path, copy, sys::Replace::kNo); error != 0)
    return Fail(copy + ": cannot be written, and nothing is repaired: " + std::strerror(error));
  std::printf("copied %s to %s\n", printable(path).c_str(), printable(copy).c_str());
  for (const Finding& finding : verification.findings()) {
    if (finding.mend != Mend::kNothing) {
      if (const int error = MendSlot(change->db().Manager().File(), path, finding); error != 0)
        return change->Fail("cannot repair slot " + std::to_string(finding.location / kSlotSize),
                            error);
      --left;
    }
    Print(finding, MendText(finding.mend));
  }
  change->db().Manager().TellChange();
  return kDone;
}

}  // namespace

Status RunVerify(const Arguments& arguments) {
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  WarnOfHyphens();
  long left = 0;
  if (arguments.repair) {
    if (const Status status = Repair(arguments, left); status != kDone)
      return status;
  } else {
    Verification verification(reader);
    if (const Status status = verification.Run(); status != kDone)
      return status;
    left = verification.count();
    long told = 0;
    for (const Finding& finding : verification.findings())
      if (told++ < kMostTold)
        Print(finding, "");
    if (told > kMostTold)
      std::printf("and %ld more\n", told - kMostTold);
  }
  std::printf("%s: %ld finding%s%s\n", printable(reader.path()).c_str(), left, left == 1 ? "" : "s",
              arguments.repair ? " left" : "");
  return left == 0 ? kDone : kFailed;
}

}  // namespace ztsys
