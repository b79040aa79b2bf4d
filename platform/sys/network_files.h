// SPDX-License-Identifier: Apache-2.0
// The machine's own files of host and service names, each read once in a run. The C library opens
// them anew for every look-up. They are asked only where its name service switch asks them first
// and what they say is beyond doubt; everything else is left to the C library.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sys {

class NetworkFiles {
 public:
  // Reads nsswitch.conf, hosts and services of `folder`. One that is missing, no regular file or
  // larger than 4 MiB settles nothing.
  explicit NetworkFiles(const std::string& folder);
  NetworkFiles(const NetworkFiles&) = delete;
  NetworkFiles& operator=(const NetworkFiles&) = delete;

  // Those of this system, read at the first look-up; any thread may ask.
  static const NetworkFiles& of_this_system();

  struct Host {
    std::string name;           // official
    std::uint32_t address = 0;  // network byte order
  };
  // Nothing: ask the C library. It is asked for a name that has several lines or none.
  std::optional<Host> host_named(std::string_view name) const;
  std::optional<Host> host_at(std::uint32_t address) const;

  // The port in host byte order, 0 when there is no such service. Nothing: ask the C library.
  std::optional<std::uint16_t> port_of(std::string_view service, std::string_view protocol) const;

 private:
  // One name of a line of the hosts file. The views are into `hosts_`.
  struct HostName {
    std::string_view name;
    std::string_view official;  // the line's first name
    std::uint32_t address = 0;
  };
  void index_hosts();

  std::string hosts_;
  std::vector<HostName> by_name_;     // sorted, whatever the case of the letters
  std::vector<HostName> by_address_;  // sorted, each address with its first line
  std::string services_;
  bool hosts_first_ = false;
  bool services_first_ = false;
  bool services_only_ = false;  // no other source is asked for what the file lacks
};

}  // namespace sys
