// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/network_files.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

namespace sys {
namespace {

constexpr std::size_t kLargest = 4 * 1024 * 1024;
constexpr const char* kServicesIndex = "/var/lib/misc/services.db";

// Empty when it cannot be read.
std::string read_whole(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0)
    return {};
  struct stat about {};
  std::string text;
  if (fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode) &&
      about.st_size <= static_cast<off_t>(kLargest))
    text.resize(static_cast<std::size_t>(about.st_size));
  std::size_t filled = 0;
  while (filled < text.size()) {
    const ssize_t got = read(descriptor, text.data() + filled, text.size() - filled);
    if (got == 0 || (got < 0 && errno != EINTR))
      break;
    filled += got > 0 ? static_cast<std::size_t>(got) : 0;
  }
  close(descriptor);
  // A file that is being written is left to who reads it next.
  return filled == text.size() ? text : std::string();
}

bool is_blank(char letter) {
  return letter == ' ' || (letter >= '\t' && letter <= '\r');
}

// The words of the next line that has any, its comment cut off; none at the end of the text.
std::vector<std::string_view> next_words(std::string_view& text) {
  std::vector<std::string_view> words;
  while (words.empty() && !text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    line = line.substr(0, line.find('#'));
    auto at = line.begin();
    while ((at = std::find_if_not(at, line.end(), is_blank)) != line.end()) {
      const auto word_end = std::find_if(at, line.end(), is_blank);
      words.emplace_back(at, word_end);
      at = word_end;
    }
  }
  return words;
}

// The sources of a data base in their order; none where the switch says nothing, or says it twice.
std::vector<std::string_view> sources_of(std::string_view text, std::string_view database) {
  std::vector<std::string_view> sources;
  for (auto words = next_words(text); !words.empty(); words = next_words(text)) {
    if (words.front() != database)
      continue;
    if (!sources.empty())
      return {};
    sources.assign(words.begin() + 1, words.end());
  }
  return sources;
}

// Whether the source at `index` is the files, and what they find is the answer.
bool answers(const std::vector<std::string_view>& sources, std::size_t index) {
  return index < sources.size() && sources[index] == "files" &&
         (index + 1 == sources.size() || !sources[index + 1].starts_with('['));
}

// The IPv4 address of a line of the hosts file, as the C library has it: that of this host, or one
// that is mapped, counts in its longer form too.
std::optional<std::uint32_t> address_of(std::string_view word) {
  const std::string text(word);
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) == 1)
    return address.s_addr;
  in6_addr longer{};
  if (inet_pton(AF_INET6, text.c_str(), &longer) != 1)
    return std::nullopt;
  if (IN6_IS_ADDR_LOOPBACK(&longer))
    return htonl(INADDR_LOOPBACK);
  if (!IN6_IS_ADDR_V4MAPPED(&longer))
    return std::nullopt;
  std::memcpy(&address.s_addr, longer.s6_addr + 12, sizeof address.s_addr);
  return address.s_addr;
}

bool name_before(std::string_view left, std::string_view right) {
  const int order = strncasecmp(left.data(), right.data(), std::min(left.size(), right.size()));
  return order != 0 ? order < 0 : left.size() < right.size();
}

}  // namespace

NetworkFiles::NetworkFiles(const std::string& folder) {
  const std::string switch_text = read_whole(folder + "nsswitch.conf");
  hosts_first_ = answers(sources_of(switch_text, "hosts:"), 0);
  std::vector<std::string_view> services = sources_of(switch_text, "services:");
  // An index that was never made finds nothing.
  if (!services.empty() && services.front() == "db" && access(kServicesIndex, F_OK) != 0)
    services.erase(services.begin());
  services_first_ = answers(services, 0);
  services_only_ = services_first_ && services.size() == 1;
  if (hosts_first_)
    hosts_ = read_whole(folder + "hosts");
  index_hosts();
  if (services_first_)
    services_ = read_whole(folder + "services");
}

const NetworkFiles& NetworkFiles::of_this_system() {
  static const NetworkFiles files("/etc/");
  return files;
}

void NetworkFiles::index_hosts() {
  std::string_view rest = hosts_;
  for (auto words = next_words(rest); !words.empty(); words = next_words(rest)) {
    const auto address = words.size() > 1 ? address_of(words.front()) : std::nullopt;
    if (!address)
      continue;
    by_address_.push_back({words[1], words[1], *address});
    for (std::size_t i = 1; i < words.size(); ++i)
      by_name_.push_back({words[i], words[1], *address});
  }
  std::ranges::sort(by_name_, name_before, &HostName::name);
  std::ranges::stable_sort(by_address_, {}, &HostName::address);
}

std::optional<NetworkFiles::Host> NetworkFiles::host_named(std::string_view name) const {
  const auto first = std::ranges::lower_bound(by_name_, name, name_before, &HostName::name);
  const auto names = [&](auto at) { return at != by_name_.end() && !name_before(name, at->name); };
  if (!names(first))
    return std::nullopt;
  for (auto each = first; names(each); ++each)
    if (each->official.data() != first->official.data())  // another line
      return std::nullopt;
  return Host{std::string(first->official), first->address};
}

std::optional<NetworkFiles::Host> NetworkFiles::host_at(std::uint32_t address) const {
  const auto found = std::ranges::lower_bound(by_address_, address, {}, &HostName::address);
  if (found == by_address_.end() || found->address != address)
    return std::nullopt;
  return Host{std::string(found->official), address};
}

std::optional<std::uint16_t> NetworkFiles::port_of(std::string_view service,
                                                   std::string_view protocol) const {
  // Only lines that have the name somewhere are taken apart: there are hundreds of others.
  const std::string_view text = services_;
  std::size_t at = 0;
  while (!service.empty() && (at = text.find(service, at)) != std::string_view::npos) {
    const std::size_t begin = text.rfind('\n', at) + 1;  // 0 on the first line
    const std::string_view line = text.substr(begin, text.find('\n', at) - begin);
    at = begin + line.size();
    std::string_view rest = line;
    std::vector<std::string_view> words = next_words(rest);
    if (words.size() < 2)
      continue;
    const std::string_view place = words[1];
    words.erase(words.begin() + 1);
    if (std::find(words.begin(), words.end(), service) == words.end())
      continue;
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(place.data(), place.data() + place.size(), port);
    const std::string_view behind = place.substr(static_cast<std::size_t>(end - place.data()));
    if (error == std::errc() && port != 0 && behind.starts_with('/') &&
        behind.substr(1) == protocol)
      return port;
  }
  return services_only_ && !services_.empty() ? std::optional<std::uint16_t>(0) : std::nullopt;
}

}  // namespace sys
