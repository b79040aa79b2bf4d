// SPDX-License-Identifier: Apache-2.0
// Requests from anywhere, through every generated skeleton: the first byte chooses the interface,
// the second the operation, the third the data representation, the rest is the body.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "epm_server.h"
#include "mgmt_server.h"
#include "tests/idl/product_servers.h"

namespace {

using rpc::server::CallInfo;

// Fills what the client asked for, as far as it fits.
class Mapper : public epm_Server {
 public:
  void ept_lookup(const CallInfo&, std::uint32_t, const uuid_t*, const ept_if_id_t*, std::uint32_t,
                  rpc::WireContext*, std::uint32_t max_ents, std::uint32_t* num_ents,
                  ept_entry_t* entries, error_status_t*) override {
    *num_ents = max_ents < 4 ? max_ents : 4;
    for (std::uint32_t i = 0; i < *num_ents; ++i) {
      entries[i].tower = std::make_shared<twr_t>(twr_t{1, {9}});
      std::strcpy(entries[i].annotation, "x");
    }
  }
  void ept_lookup_handle_free(const CallInfo&, rpc::WireContext* entry_handle,
                              error_status_t*) override {
    *entry_handle = {};
  }
};

class Management : public mgmt_Server {
 public:
  boolean32 is_server_listening(const CallInfo&, error_status_t*) override { return 1; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static stub_test::RepServer rep;
  static stub_test::ViewServer view;
  static stub_test::FilteredViewServer filtered_view;
  static stub_test::TemporalViewServer temporal_view;
  static stub_test::TimeFilterServer time_filter;
  static stub_test::AlarmServer alarms;
  static Mapper mapper;
  static Management management;
  static rpc::server::Interface* const servers[] = {
      &rep, &view, &filtered_view, &temporal_view, &time_filter, &alarms, &mapper, &management};
  if (size < 3)
    return 0;
  rpc::server::Interface& server = *servers[data[0] % std::size(servers)];
  const std::span body(reinterpret_cast<const std::byte*>(data + 3), size - 3);
  const rpc::server::Outcome outcome = server.dispatch(
      {}, data[1], body, {.little_endian = (data[2] & 1) == 0, .ebcdic = (data[2] & 2) != 0},
      (data[2] & 4) == 0);
  if ((outcome.kind == rpc::server::Outcome::Kind::reply) != (outcome.status == 0))
    std::abort();
  return 0;
}
