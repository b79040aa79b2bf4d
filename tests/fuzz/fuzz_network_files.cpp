// SPDX-License-Identifier: Apache-2.0
// The machine's files of host and service names, of any bytes: nsswitch.conf, hosts and services,
// each ended by a zero.

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "platform/sys/network_files.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/scratch_folder.h"

namespace {

void check_host(const std::optional<sys::NetworkFiles::Host>& host, std::string_view hosts) {
  if (!host)
    return;
  fuzz::require(!host->name.empty() && hosts.find(host->name) != std::string_view::npos);
  fuzz::require(host->name.find_first_of(" \t\r\v\f\n#") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string folder = fuzz::scratch_folder() + "/";
  const std::string_view whole(reinterpret_cast<const char*>(data), size);
  std::string_view rest = whole;
  std::string_view hosts;
  for (const char* name : {"nsswitch.conf", "hosts", "services"}) {
    const std::string_view part = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    std::ofstream(folder + name, std::ios::binary | std::ios::trunc) << part;
    if (name == std::string_view("hosts"))
      hosts = part;
  }
  const sys::NetworkFiles files(folder);
  const auto named = files.host_named("sys1");
  check_host(named, hosts);
  // The first line with an address has its name; another one may have been asked for.
  fuzz::require(!named || files.host_at(named->address).has_value());
  check_host(files.host_at(0x0100007F), hosts);
  const auto port = files.port_of("ztserver", "tcp");
  fuzz::require(!port || *port == 0 || whole.find("/tcp") != std::string_view::npos);
  return 0;
}
