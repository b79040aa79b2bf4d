// SPDX-License-Identifier: Apache-2.0
// Texts of strangers on their way out: to a terminal, as JSON, and in a page for a browser.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "source/support/ZTprintable.h"
#include "tests/fuzz/require.h"
#include "tools/ztsys/check_html.h"

namespace {

std::string page_of(const std::string& text) {
  ztsys::PageSystem system;
  for (std::string* each : {&system.name, &system.address, &system.group, &system.text})
    *each = text;
  return ztsys::CheckPage({&system, 1}, 0, 0);
}

void check_page(const std::string& text) {
  static const std::string empty = page_of("");
  const std::string page = page_of(text);
  for (const char mark : {'<', '>', '"'})
    fuzz::require(std::ranges::count(page, mark) == std::ranges::count(empty, mark));
  fuzz::require(fuzz::is_printable(page, "\n"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string shown = printable(text);
  fuzz::require(fuzz::is_printable(shown) && printable(shown) == shown);
  fuzz::require(!fuzz::is_printable(text) || shown == text);

  const std::string json = sys::json_quoted(text);
  fuzz::require(fuzz::is_printable(json));
  // Of the quotes only the last one ends the text.
  for (std::size_t at = 1; at < json.size() - 1; at += json[at] == '\\' ? 2 : 1)
    fuzz::require(json[at] != '"' && at + (json[at] == '\\' ? 1 : 0) < json.size() - 1);
  for (std::size_t at = 0; at < json.size();) {
    const std::size_t length = utf8_length(std::string_view(json).substr(at));
    fuzz::require(length != 0);
    at += length;
  }
  if (size % 16 == 0)  // a page is long
    check_page(text);
  return 0;
}
