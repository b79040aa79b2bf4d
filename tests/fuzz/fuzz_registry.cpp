// SPDX-License-Identifier: Apache-2.0
// Settings files of any content: what the parser keeps must be sound whatever it was given.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "platform/sys/registry_file.h"
#include "tests/fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const registry::ParsedFile file =
      registry::parse_registry_file(std::as_bytes(std::span(data, size)));
  fuzz::require(file.complaints.size() <= registry::kMostComplaints + 1);
  for (const registry::Complaint& complaint : file.complaints)
    fuzz::require(complaint.line <= size && complaint.text.size() < 300);

  for (const auto& [path, values] : file.keys) {
    const std::size_t last = path.rfind('\\');
    fuzz::require(last == std::string::npos ||
                  file.keys.contains(std::string_view(path).substr(0, last)));
    for (const auto& [name, value] : values) {
      const bool text = value.type == registry::REG_SZ || value.type == registry::REG_EXPAND_SZ;
      fuzz::require(!text || value.data.find('\0') == std::string::npos);
    }
  }
  return 0;
}
