// SPDX-License-Identifier: Apache-2.0
// The note that earlier versions kept beside the file while they rewrote a slot on two pages. One
// that a killed process has left is told and removed. It is never redone: others may have changed
// that slot since, and a deletion would be undone.

#include <unistd.h>

#include <array>
#include <cstring>

#include "platform/sys/native_path.h"
#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr std::string_view kMark = "ztj1";
constexpr std::size_t kHead = kMark.size() + sizeof(std::int32_t);
constexpr std::size_t kNoteSize = kHead + 2 * std::size_t{kSlotSize};

std::string SystemOf(std::string_view slot) {
  char address[kKeyTextSize];
  FormatSystemKey(ConvertSystemKey(slot.data() + 1), address);
  const std::string_view name = slot.substr(1 + sizeof(SystemKey), kSystemNameSize);
  return printable(name.substr(0, name.find('\0'))) + " (" + address + ')';
}

// What the slot holds today, seen from the note.
const char* StateOf(std::string_view slot, std::string_view before, std::string_view after) {
  if (slot == after)
    return "which was stored";
  if (slot == before)
    return "which was not stored: the record is as it was before";
  if (slot.substr(1, sizeof(SystemKey)) == before.substr(1, sizeof(SystemKey)) &&
      slot[0] == before[0])
    return "whose record may now be a mixture of both, or has changed since: look at it with ztsys "
           "show, and store it again with ztsys set";
  return "whose slot has been used for something else since";
}

}  // namespace

void zt_SystemDBMgt_class::ReportNote() {
  const std::string path = fSystemFileName + ".jn";
  if (sys::_access(path.c_str(), 0) != 0)
    return;
  // Whoever holds the lock may be such an earlier version, at work.
  SlotFile& file = fIndexDataObj->File();
  if (file.Lock({.limit = std::chrono::milliseconds(0), .notice = {}}) != 0)
    return;
  std::array<char, kNoteSize> bytes{};
  std::uint32_t length = 0;
  sys::tBINFILE note(nullptr, 1);
  note.SetName(path.c_str());
  std::string story = "an earlier version was ended as it began to rewrite a record";
  if (note.OpenExisting(sys::tFILEDEFS::cREAD) == 0 &&
      note.Read(bytes.data(), kNoteSize, &length) == 0 &&
      std::string_view(bytes.data(), length).starts_with(kMark)) {
    std::int32_t location = 0;
    std::memcpy(&location, bytes.data() + kMark.size(), sizeof location);
    const std::string_view before(bytes.data() + kHead, kSlotSize);
    const std::string_view after(bytes.data() + kHead + kSlotSize, kSlotSize);
    std::array<char, kSlotSize> slot{};
    if (location > 0 && location % kSlotSize == 0 &&
        file.Read(static_cast<std::uint32_t>(location), slot.data()) == 0)
      story = "an earlier version was ended as it rewrote the record of " + SystemOf(before) +
              ", " + StateOf({slot.data(), slot.size()}, before, after);
  }
  Tell(sys::native_path(path) + ": " + story);
  unlink(sys::native_path(path).c_str());
  file.Unlock();
}
