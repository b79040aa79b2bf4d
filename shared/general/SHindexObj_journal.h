// SPDX-License-Identifier: Apache-2.0
// What keeps the rewriting of a slot whole when its process is killed. The system looks for a fatal
// signal between the pages of one write, so that of a slot that lies in two pages the first part
// may be new and the second one old. Before such a write both images of the slot are noted in a
// file next to the data file, which is removed after the write. Whoever finds that file while no
// writer holds the lock does the write again.
//
// The file guards against the death of a process and not of the machine: it is not written through.
// What a power failure brings back of it does no harm, since a slot is rewritten only if each of
// its parts is one of the two images'.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

class SlotJournal {
 public:
  // A write that was noted. The images are empty when the file does not hold a whole note: its
  // writer had not come to the slot.
  struct Note {
    std::int32_t location = 0;
    std::vector<char> old_slot;
    std::vector<char> new_slot;
  };

  void SetDataFile(const std::string& name) { name_ = name + ".jn"; }

  bool IsThere() const;
  // False when the note cannot be kept (no room, no permission, a note of another write is there).
  bool Begin(std::int32_t location, std::span<const char> old_slot,
             std::span<const char> new_slot) const;
  void End() const;
  // Nothing when there is no file, or none that we may read.
  std::optional<Note> Read(std::size_t slot_size) const;

 private:
  std::string name_;
};

// Whether the bytes of a slot at `location` are on more than one page of memory.
bool CrossesPage(std::uint32_t location, std::size_t slot_size);

// Whether a slot is what an interrupted write may have left: on each page one image or the other.
bool IsMixture(std::span<const char> slot, const SlotJournal::Note& note);
