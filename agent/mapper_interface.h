// SPDX-License-Identifier: Apache-2.0
// The endpoint mapper's interface over an endpoint map: inquiries in batches, with entry handles
// that belong to the client which began them.

#pragma once

#include <cstdint>
#include <map>

#include "agent/endpoint_map.h"
#include "agent/operation_script.h"
#include "epm_server.h"
#include "platform/rpc/names/random_source.h"

namespace agent {

class MapperInterface : public Scripted<epm_Server> {
 public:
  // When as many inquiries are open, the one that was begun first is closed for a new one.
  static constexpr std::size_t kMostInquiries = 256;

  // The script and the map are not owned.
  MapperInterface(OperationScript& script, const EndpointMap& map, const EndpointMapper& settings)
      : Scripted(script),
        map_(map),
        batch_(settings.batch),
        fail_after_(settings.fail_after),
        failure_(settings.failure) {}

  // The handle stays open while more elements follow; with the last one it becomes null.
  void ept_lookup(const rpc::server::CallInfo& call, std::uint32_t inquiry_type,
                  const uuid_t* object, const ept_if_id_t* interface_id, std::uint32_t vers_option,
                  rpc::WireContext* entry_handle, std::uint32_t max_ents, std::uint32_t* num_ents,
                  ept_entry_t* entries, error_status_t* status) override;
  void ept_lookup_handle_free(const rpc::server::CallInfo& call, rpc::WireContext* entry_handle,
                              error_status_t* status) override;

  void run_down(const uuid_t& client);
  std::size_t open_inquiries() const { return open_.size(); }

 private:
  struct OpenInquiry {
    uuid_t client;
    std::uint64_t number;  // rises with each inquiry that is begun
    MapInquiry inquiry;
    std::size_t next;         // index of its next match
    std::uint32_t given = 0;  // elements so far
  };
  using Inquiries = std::map<uuid_t, OpenInquiry>;

  // Throws the fault "context mismatch" for a handle that is not open.
  Inquiries::iterator find(const rpc::WireContext& handle);
  Inquiries::iterator begin(const uuid_t& client, const MapInquiry& inquiry, std::size_t first);

  const EndpointMap& map_;
  // How many elements the listing may still give in one reply; nothing when it is to fail now.
  std::optional<std::uint32_t> room(std::uint32_t given, std::uint32_t max_ents) const;
  void fail(error_status_t* status);

  const std::uint32_t batch_;
  const std::optional<std::uint32_t> fail_after_;
  const MapperFailure failure_;
  rpc::SystemRandom random_;
  std::uint64_t begun_ = 0;
  Inquiries open_;
};

}  // namespace agent
