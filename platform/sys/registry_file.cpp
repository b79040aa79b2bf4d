// SPDX-License-Identifier: Apache-2.0
// A file is turned into UTF-8 as a whole, cut into logical lines (a hexadecimal value goes on
// behind a backslash), and each line is read by itself, so that a bad one costs nothing but itself.

#include "platform/sys/registry_file.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace registry {
namespace {

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool same_name(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lower(a) == lower(b); });
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const std::size_t start = text.find_first_not_of(kBlanks);
  if (start == std::string_view::npos)
    return {};
  return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

void append_utf8(std::string& text, std::uint32_t point) {
  const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (point < 0x80) {
    put(point);
  } else if (point < 0x800) {
    put(0xC0 | point >> 6);
    put(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    put(0xE0 | point >> 12);
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  } else {
    put(0xF0 | point >> 18);
    put(0x80 | (point >> 12 & 0x3F));
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  }
}

// UTF-16 with the high byte at offset `high` of each pair. Unpaired surrogates and half a unit at
// the end become U+FFFD.
std::string utf8_from_utf16(std::span<const std::byte> bytes, std::size_t high) {
  constexpr std::uint32_t kReplacement = 0xFFFD;
  const auto unit = [bytes, high](std::size_t i) {
    return std::to_integer<std::uint32_t>(bytes[2 * i + high]) << 8 |
           std::to_integer<std::uint32_t>(bytes[2 * i + 1 - high]);
  };
  std::string text;
  const std::size_t units = bytes.size() / 2;
  for (std::size_t i = 0; i < units; ++i) {
    std::uint32_t point = unit(i);
    if (point >= 0xD800 && point < 0xDC00 && i + 1 < units && unit(i + 1) >= 0xDC00 &&
        unit(i + 1) < 0xE000) {
      point = 0x10000 + ((point - 0xD800) << 10 | (unit(i + 1) - 0xDC00));
      ++i;
    } else if (point >= 0xD800 && point < 0xE000) {
      point = kReplacement;
    }
    append_utf8(text, point);
  }
  if (bytes.size() % 2 != 0)
    append_utf8(text, kReplacement);
  return text;
}

std::string utf8_from_file(std::span<const std::byte> bytes) {
  const auto starts_with = [bytes](std::initializer_list<unsigned> mark) {
    return bytes.size() >= mark.size() &&
           std::equal(mark.begin(), mark.end(), bytes.begin(),
                      [](unsigned a, std::byte b) { return a == std::to_integer<unsigned>(b); });
  };
  if (starts_with({0xFF, 0xFE}))
    return utf8_from_utf16(bytes.subspan(2), 1);
  if (starts_with({0xFE, 0xFF}))
    return utf8_from_utf16(bytes.subspan(2), 0);
  if (starts_with({0xEF, 0xBB, 0xBF}))
    bytes = bytes.subspan(3);
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Hands out the lines of a text; CR LF, LF and CR each end one.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  bool next(std::string_view& line) {
    if (rest_.empty())
      return false;
    ++number_;
    const std::size_t end = rest_.find_first_of("\r\n");
    line = rest_.substr(0, end);
    if (end == std::string_view::npos)
      rest_ = {};
    else
      rest_.remove_prefix(rest_.substr(end).starts_with("\r\n") ? end + 2 : end + 1);
    return true;
  }
  std::size_t number() const { return number_; }

 private:
  std::string_view rest_;
  std::size_t number_ = 0;
};

// A quoted text at the start of `text`, which is moved behind it. Nothing when the quote is not
// closed.
std::optional<std::string> take_quoted(std::string_view& text) {
  std::string content;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '"') {
      text.remove_prefix(i + 1);
      return content;
    }
    // A backslash that escapes nothing is a typed path; it stands for itself.
    if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '\\' || text[i + 1] == '"'))
      ++i;
    content += text[i];
  }
  return std::nullopt;
}

std::optional<std::uint32_t> hex_number(std::string_view text, std::size_t most_digits) {
  if (text.empty() || text.size() > most_digits)
    return std::nullopt;
  std::uint32_t number = 0;
  for (const char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0)
      return std::nullopt;
    const char digit = lower(c);
    number =
        number << 4 | static_cast<std::uint32_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
  }
  return number;
}

// Bytes as "43,00,3a"; an empty text is no bytes.
std::optional<std::string> hex_bytes(std::string_view text) {
  std::string bytes;
  text = trimmed(text);
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    const std::optional<std::uint32_t> byte = hex_number(trimmed(text.substr(0, comma)), 2);
    if (!byte)
      return std::nullopt;
    bytes += static_cast<char>(*byte);
    text = comma == std::string_view::npos ? std::string_view{} : trimmed(text.substr(comma + 1));
  }
  return bytes;
}

class Parser {
 public:
  ParsedFile parse(std::string_view text) {
    Lines lines(text);
    read_header(lines);
    for (std::string line; next_logical_line(lines, line);)
      read_line(line);
    return std::move(result_);
  }

 private:
  void complain(std::string text) {
    if (result_.complaints.size() < kMostComplaints)
      result_.complaints.push_back({line_, std::move(text)});
    else if (result_.complaints.size() == kMostComplaints)
      result_.complaints.push_back({line_, "further malformed lines are not reported"});
  }

  static std::string shown(std::string_view text) {
    constexpr std::size_t kMost = 120;
    return text.size() <= kMost ? std::string(text) : std::string(text.substr(0, kMost)) + "...";
  }

  // The first line that is neither empty nor a comment names the format.
  void read_header(Lines& lines) {
    std::string_view line;
    while (lines.next(line)) {
      line_ = lines.number();
      line = trimmed(line);
      if (line.empty() || line.front() == ';')
        continue;
      wide_texts_ = line == "Windows Registry Editor Version 5.00";
      if (wide_texts_ || line == "REGEDIT4")
        return;
      complain("expected \"Windows Registry Editor Version 5.00\", found \"" + shown(line) + "\"");
      read_line(line);
      return;
    }
  }

  // Joins the lines of a hexadecimal value, which a backslash continues.
  bool next_logical_line(Lines& lines, std::string& whole) {
    std::string_view line;
    if (!lines.next(line))
      return false;
    line_ = lines.number();
    whole = trimmed(line);
    if (!is_hexadecimal(whole))
      return true;
    while (whole.ends_with('\\') && lines.next(line)) {
      whole.pop_back();
      whole += trimmed(line);
    }
    return true;
  }

  // Only hexadecimal values go on; a text may end in a backslash by mistake, and must not take the
  // next line with it.
  static bool is_hexadecimal(std::string_view line) {
    if (line.empty() || line.front() == ';' || line.front() == '[')
      return false;
    if (line.front() == '"' && !take_quoted(line))
      return false;
    const std::size_t equals = line.find('=');
    return equals != std::string_view::npos &&
           same_name(trimmed(line.substr(equals + 1)).substr(0, 3), "hex");
  }

  void read_line(std::string_view line) {
    if (line.empty() || line.front() == ';')
      return;
    if (line.front() == '[')
      read_key(line);
    else
      read_value(line);
  }

  void read_key(std::string_view line) {
    key_ = nullptr;
    skip_values_ = true;
    const std::size_t end = line.rfind(']');
    if (end == std::string_view::npos || !nothing_but_comment(line.substr(end + 1)))
      return complain("a key must end with ]: " + shown(line));
    std::string_view path = line.substr(1, end - 1);
    const bool removed = path.starts_with('-');
    if (removed)
      path.remove_prefix(1);
    const std::string_view root = path.substr(0, path.find('\\'));
    if (!same_name(root.substr(0, 5), "HKEY_") || path.ends_with('\\') ||
        path.find("\\\\") != std::string_view::npos)
      return complain("no key path such as HKEY_LOCAL_MACHINE\\Software: " + shown(line));
    if (path.size() > kLongestPath || std::count(path.begin(), path.end(), '\\') > kDeepestPath)
      return complain("a key path that is too long: " + shown(line));
    if (removed)
      remove_key(path);
    else
      add_key(path);
  }

  void add_key(std::string_view path) {
    for (std::size_t end = path.find('\\'); end != std::string_view::npos;
         end = path.find('\\', end + 1))
      result_.keys.try_emplace(std::string(path.substr(0, end)));
    key_ = &result_.keys[std::string(path)];
    skip_values_ = false;
  }

  void remove_key(std::string_view path) {
    const std::string below = std::string(path) + '\\';
    const auto first = result_.keys.lower_bound(below);
    auto last = first;
    while (last != result_.keys.end() &&
           same_name(std::string_view(last->first).substr(0, below.size()), below))
      ++last;
    result_.keys.erase(first, last);
    if (const auto own = result_.keys.find(path); own != result_.keys.end())
      result_.keys.erase(own);
  }

  void read_value(std::string_view line) {
    std::string_view rest = line;
    std::optional<std::string> name;
    if (rest.front() == '"') {
      name = take_quoted(rest);
    } else if (rest.front() == '@') {
      name = "";
      rest.remove_prefix(1);
    }
    rest = trimmed(rest);
    if (!name || !rest.starts_with('='))
      return complain("expected \"name\"=value, found " + shown(line));
    if (key_ == nullptr) {
      // Values behind a malformed or removed key were named with it.
      if (!skip_values_)
        complain("a value before the first key: " + shown(line));
      return;
    }

    rest = trimmed(rest.substr(1));
    if (rest.starts_with('-') && nothing_but_comment(rest.substr(1))) {
      key_->erase(*name);
      return;
    }
    const std::optional<Value> value = read_data(rest);
    if (!value)
      return complain("no text, dword or hex value: " + shown(line));
    key_->insert_or_assign(*name, *value);
  }

  std::optional<Value> read_data(std::string_view text) const {
    if (text.starts_with('"')) {
      std::optional<std::string> content = take_quoted(text);
      if (!content || !nothing_but_comment(text) || content->find('\0') != std::string::npos)
        return std::nullopt;
      return Value{REG_SZ, std::move(*content)};
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos)
      return std::nullopt;
    const std::string_view kind = trimmed(text.substr(0, colon));
    std::string_view data = text.substr(colon + 1);
    data = trimmed(data.substr(0, data.find(';')));
    if (same_name(kind, "dword"))
      return read_dword(data);
    if (same_name(kind, "hex"))
      return read_hex(REG_BINARY, data);
    if (kind.size() > 5 && same_name(kind.substr(0, 4), "hex(") && kind.back() == ')') {
      const std::optional<std::uint32_t> type = hex_number(kind.substr(4, kind.size() - 5), 8);
      if (type)
        return read_hex(*type, data);
    }
    return std::nullopt;
  }

  static std::optional<Value> read_dword(std::string_view digits) {
    const std::optional<std::uint32_t> number = hex_number(digits, 8);
    if (!number)
      return std::nullopt;
    Value value{REG_DWORD, {}};
    for (int shift = 0; shift < 32; shift += 8)
      value.data += static_cast<char>(*number >> shift & 0xFF);
    return value;
  }

  // Texts stand as UTF-16LE in a file of version 5, as single bytes in one of version 4.
  std::optional<Value> read_hex(std::uint32_t type, std::string_view digits) const {
    std::optional<std::string> bytes = hex_bytes(digits);
    if (!bytes)
      return std::nullopt;
    Value value{type, std::move(*bytes)};
    if (wide_texts_ && (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ))
      value.data = utf8_from_utf16(std::as_bytes(std::span(value.data)), 1);
    if (type == REG_SZ || type == REG_EXPAND_SZ)
      value.data.resize(std::min(value.data.find('\0'), value.data.size()));
    return value;
  }

  static bool nothing_but_comment(std::string_view text) {
    text = trimmed(text);
    return text.empty() || text.front() == ';';
  }

  // Every key makes its parents too; these bound what a line can make.
  static constexpr std::size_t kLongestPath = 1024;
  static constexpr std::ptrdiff_t kDeepestPath = 32;

  ParsedFile result_;
  Key* key_ = nullptr;
  bool skip_values_ = false;
  bool wide_texts_ = true;
  std::size_t line_ = 0;
};

}  // namespace

bool NameLess::operator()(std::string_view left, std::string_view right) const {
  return std::lexicographical_compare(
      left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
        return static_cast<unsigned char>(lower(a)) < static_cast<unsigned char>(lower(b));
      });
}

ParsedFile parse_registry_file(std::span<const std::byte> bytes) {
  if (bytes.size() > kLargestFile) {
    ParsedFile refused;
    refused.complaints.push_back(
        {0, "larger than " + std::to_string(kLargestFile) + " bytes, not read"});
    return refused;
  }
  return Parser().parse(utf8_from_file(bytes));
}

}  // namespace registry
