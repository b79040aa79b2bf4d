// SPDX-License-Identifier: Apache-2.0
// The endpoint mapper's interface over an endpoint map: inquiries in batches, with entry handles
// that belong to the client which began them.

#pragma once

#include <cstdint>
#include <map>

#include "agent/context_observer.h"
#include "agent/endpoint_map.h"
#include "epm_server.h"
#include "platform/rpc/names/random_source.h"

namespace agent {

class MapperInterface : public epm_Server {
 public:
  // When as many inquiries are open, the one that was begun first is closed for a new one.
  static constexpr std::size_t kMostInquiries = 256;

  // The map is not owned.
  MapperInterface(const EndpointMap& map, const EndpointMapper& settings,
                  ContextObserver observer = {})
      : map_(map), observer_(std::move(observer)) {
    apply(settings);
  }
  void apply(const EndpointMapper& settings);

  // The handle stays open while more elements follow; with the last one it becomes null.
  void ept_lookup(const rpc::server::CallInfo& call, std::uint32_t inquiry_type,
                  const uuid_t* object, const ept_if_id_t* interface_id, std::uint32_t vers_option,
                  rpc::WireContext* entry_handle, std::uint32_t max_ents, std::uint32_t* num_ents,
                  rpc::server::Results<ept_entry_t>& entries, error_status_t* status) override;
  void ept_lookup_handle_free(const rpc::server::CallInfo& call, rpc::WireContext* entry_handle,
                              error_status_t* status) override;

  // Beside those, ept_map resolves a partly bound handle, ept_inq_object tells the mapper's own
  // object, and inserts and deletes are refused by status: their parameters hold arrays of
  // pointers, which generated code has not.
  const rpc::OperationSpec* operation(std::uint16_t opnum) const override;
  rpc::server::Outcome dispatch(const rpc::server::CallInfo& call, std::uint16_t opnum,
                                std::span<const std::byte> request,
                                rpc::DataRepresentation representation,
                                bool reply_little_endian) override;

  void run_down(const uuid_t& client);
  void run_down_all();
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
  Inquiries::iterator find(const rpc::server::CallInfo& call, const rpc::WireContext& handle);
  Inquiries::iterator begin(const uuid_t& client, const MapInquiry& inquiry, std::size_t first);

  rpc::server::Outcome map(const rpc::server::CallInfo& call, std::span<const std::byte> request,
                           rpc::DataRepresentation representation, bool reply_little_endian);
  void end(Inquiries::iterator inquiry, std::string_view change);
  // How many elements the listing may still give in one reply; nothing when it is to fail now.
  std::optional<std::uint32_t> room(std::uint32_t given, std::uint32_t max_ents) const;
  void fail(error_status_t* status) const;

  const EndpointMap& map_;
  const ContextObserver observer_;
  std::uint32_t batch_ = 0;
  std::optional<std::uint32_t> fail_after_;
  MapperFailure failure_ = MapperFailure::status;
  rpc::SystemRandom random_;
  std::uint64_t begun_ = 0;
  Inquiries open_;
};

}  // namespace agent
