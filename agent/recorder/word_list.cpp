// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/word_list.h"

#include <algorithm>

namespace agent::recorder {

namespace {

std::string lower_case(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t last = text.find_last_not_of(' ');
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// The word at a place, or the one character that is none.
std::string first_word(std::string_view text) {
  const auto end = std::find_if_not(text.begin(), text.end(), word_character);
  return std::string(
      text.substr(0, std::max<std::size_t>(1, static_cast<std::size_t>(end - text.begin()))));
}

bool too_common(std::string_view text) {
  return text.size() < 2 || text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

bool word_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         (c & 0x80) != 0;
}

void WordList::add(const std::string& text, const std::string& stands_for) {
  std::string lower = lower_case(trimmed(text));
  if (lower.empty() || !whole_.emplace(lower, stands_for).second || too_common(lower))
    return;
  std::vector<std::string>& same = inside_[first_word(lower)];
  const auto place = std::find_if(same.begin(), same.end(), [&](const std::string& other) {
    return other.size() < lower.size();
  });
  same.insert(place, std::move(lower));
}

std::string WordList::made_up(const std::string& text, const std::string& prefix) {
  if (trimmed(text).empty())
    return {};
  if (!find(text))
    add(text, prefix + std::to_string(++numbers_[prefix]));
  return *find(text);
}

std::optional<std::string> WordList::find(const std::string& text) const {
  const auto known = whole_.find(lower_case(trimmed(text)));
  return known != whole_.end() ? std::optional(known->second) : std::nullopt;
}

std::size_t WordList::replace_known(const std::string& lower, std::size_t at,
                                    std::string& out) const {
  const std::string_view rest = std::string_view(lower).substr(at);
  const auto same = inside_.find(first_word(rest));
  if (same == inside_.end())
    return 0;
  for (const std::string& known : same->second) {
    if (!rest.starts_with(known))
      continue;
    const bool ends = rest.size() == known.size() || !word_character(known.back()) ||
                      !word_character(rest[known.size()]);
    if (!ends)
      continue;
    out += whole_.find(known)->second;
    return known.size();
  }
  return 0;
}

std::string WordList::replaced(const std::string& text, const Pattern& pattern) const {
  const std::string lower = lower_case(text);
  const std::string_view without_blanks = trimmed(lower);
  if (const auto known = whole_.find(std::string(without_blanks)); known != whole_.end())
    return known->second + text.substr(without_blanks.size());
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const bool within = at > 0 && word_character(text[at - 1]) && word_character(text[at]);
    std::size_t taken = 0;
    if (!within) {
      taken = pattern(text, at, out);
      if (taken == 0)
        taken = replace_known(lower, at, out);
    }
    if (taken == 0)
      out += text[at++];
    at += taken;
  }
  return out;
}

}  // namespace agent::recorder
