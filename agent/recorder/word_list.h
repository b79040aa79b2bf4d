// SPDX-License-Identifier: Apache-2.0
// Known texts and what stands for each, found whole or inside other texts, whatever their case.

#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace agent::recorder {

class WordList {
 public:
  // From now on the text stays as it is.
  void keep(const std::string& text) { add(text, text); }
  // What stands for the text: what was first given for it, else the prefix and a number that counts
  // up for this prefix. Blanks at the end do not count, and an empty text stays empty.
  std::string made_up(const std::string& text, const std::string& prefix);
  // What stands for a known text.
  std::optional<std::string> find(const std::string& text) const;
  // Nothing happens to a text that is known.
  void add(const std::string& text, const std::string& stands_for);
  // The text with every known one in it replaced, where it stands between other characters than
  // letters and digits. Texts of one character, and numbers, are replaced only as a whole.
  // `pattern` is asked wherever a word may begin, before the list: it appends what stands for the
  // characters from there on and gives their number, or 0.
  using Pattern =
      std::function<std::size_t(const std::string& text, std::size_t at, std::string& out)>;
  std::string replaced(const std::string& text, const Pattern& pattern) const;

 private:
  std::size_t replace_known(const std::string& lower, std::size_t at, std::string& out) const;

  std::unordered_map<std::string, std::string> whole_;  // by the text in lower case
  // By the first word, longest first.
  std::unordered_map<std::string, std::vector<std::string>> inside_;
  std::map<std::string, std::size_t> numbers_;
};

// Letters, digits, "_" and octets beyond ASCII.
bool word_character(char c);

}  // namespace agent::recorder
