// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHindexObj_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/sys/native_path.h"

namespace {

// The smallest page there is. On a system with larger ones more is noted than need be.
constexpr std::size_t kPageSize = 4096;

// A note is the mark, the location as it stands in memory, the old and the new slot.
constexpr std::array<char, 4> kMark = {'z', 't', 'j', '1'};
constexpr std::size_t kHeadSize = kMark.size() + sizeof(std::int32_t);

class Descriptor {
 public:
  Descriptor(const std::string& name, int flags)
      : number_(open(sys::native_path(name).c_str(),
                     flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0666)) {}
  ~Descriptor() {
    if (number_ >= 0)
      close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace

bool SlotJournal::IsThere() const {
  return sys::_access(name_.c_str(), 0) == 0;
}

bool SlotJournal::Begin(std::int32_t location, std::span<const char> old_slot,
                        std::span<const char> new_slot) const {
  std::vector<char> bytes(kHeadSize);
  std::copy(kMark.begin(), kMark.end(), bytes.begin());
  std::memcpy(bytes.data() + kMark.size(), &location, sizeof location);
  bytes.insert(bytes.end(), old_slot.begin(), old_slot.end());
  bytes.insert(bytes.end(), new_slot.begin(), new_slot.end());
  const Descriptor file(name_, O_WRONLY | O_CREAT | O_EXCL);
  if (file.number() < 0)
    return false;
  if (pwrite(file.number(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()))
    return true;
  End();
  return false;
}

void SlotJournal::End() const {
  unlink(sys::native_path(name_).c_str());
}

std::optional<SlotJournal::Note> SlotJournal::Read(std::size_t slot_size) const {
  const Descriptor file(name_, O_RDONLY);
  struct stat about {};
  if (file.number() < 0 || fstat(file.number(), &about) != 0 || !S_ISREG(about.st_mode))
    return std::nullopt;
  Note note;
  std::vector<char> bytes(kHeadSize + 2 * slot_size);
  if (pread(file.number(), bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()) ||
      !std::equal(kMark.begin(), kMark.end(), bytes.begin()))
    return note;
  std::memcpy(&note.location, bytes.data() + kMark.size(), sizeof note.location);
  const auto images = bytes.begin() + kHeadSize;
  const auto size = static_cast<std::ptrdiff_t>(slot_size);
  note.old_slot.assign(images, images + size);
  note.new_slot.assign(images + size, bytes.end());
  return note;
}

bool CrossesPage(std::uint32_t location, std::size_t slot_size) {
  return location % kPageSize + slot_size > kPageSize;
}

bool IsMixture(std::span<const char> slot, const SlotJournal::Note& note) {
  std::size_t at = 0;
  while (at < slot.size()) {
    const std::size_t in_page = (static_cast<std::size_t>(note.location) + at) % kPageSize;
    const std::size_t end = std::min(slot.size(), at + kPageSize - in_page);
    const auto is_part_of = [&](const std::vector<char>& image) {
      return std::memcmp(slot.data() + at, image.data() + at, end - at) == 0;
    };
    if (!is_part_of(note.old_slot) && !is_part_of(note.new_slot))
      return false;
    at = end;
  }
  return true;
}
