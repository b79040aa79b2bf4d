// SPDX-License-Identifier: Apache-2.0
#include "agent/mapper_interface.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace agent {

namespace {

using rpc::server::CallInfo;

void put(ept_entry_t& result, const MapEntry& entry) {
  result.object = entry.object;
  result.tower = std::make_shared<twr_t>();
  result.tower->tower_length = static_cast<std::uint32_t>(entry.tower.size());
  for (const std::byte octet : entry.tower)
    result.tower->tower_octet_string.push_back(std::to_integer<std::uint8_t>(octet));
  const std::size_t length = std::min(entry.annotation.size(), sizeof result.annotation - 1);
  std::memcpy(result.annotation, entry.annotation.data(), length);
}

}  // namespace

void MapperInterface::apply(const EndpointMapper& settings) {
  batch_ = settings.batch;
  fail_after_ = settings.fail_after;
  failure_ = settings.failure;
}

MapperInterface::Inquiries::iterator MapperInterface::find(const CallInfo& call,
                                                           const rpc::WireContext& handle) {
  const auto found = open_.find(handle.id);
  // A look-up asks nobody who it is: until then the client is its activity.
  if (found == open_.end() || handle.attributes != 0 ||
      (found->second.client != call.client && found->second.client != call.activity))
    throw rpc::server::Fault(rpc::nca::kContextMismatch);
  found->second.client = call.client;
  return found;
}

MapperInterface::Inquiries::iterator MapperInterface::begin(const uuid_t& client,
                                                            const MapInquiry& inquiry,
                                                            std::size_t first) {
  if (open_.size() >= kMostInquiries)
    end(std::min_element(
            open_.begin(), open_.end(),
            [](const auto& a, const auto& b) { return a.second.number < b.second.number; }),
        "run down");
  const auto begun =
      open_.emplace(random_.uuid(), OpenInquiry{client, ++begun_, inquiry, first, 0}).first;
  if (observer_)
    observer_("inquiry", begun->first, "made");
  return begun;
}

void MapperInterface::ept_lookup(const CallInfo& call, std::uint32_t inquiry_type,
                                 const uuid_t* object, const ept_if_id_t* interface_id,
                                 std::uint32_t vers_option, rpc::WireContext* entry_handle,
                                 std::uint32_t max_ents, std::uint32_t* num_ents,
                                 rpc::server::Results<ept_entry_t>& entries,
                                 error_status_t* status) {
  MapInquiry inquiry;
  std::size_t next = 0;
  auto open = open_.end();
  if (entry_handle->null()) {
    inquiry.type = inquiry_type;
    inquiry.version_option = vers_option;
    if (object != nullptr)
      inquiry.object = *object;
    if (interface_id != nullptr)
      inquiry.interface_id =
          rpc_if_id_t{interface_id->uuid, interface_id->vers_major, interface_id->vers_minor};
    next = inquiry.sound() ? map_.find(inquiry, 0) : map_.size();
  } else {
    open = find(call, *entry_handle);
    inquiry = open->second.inquiry;
    next = open->second.next;
  }
  if (!inquiry.sound() || max_ents == 0) {
    *status = rpc::ept::kCannotPerform;
    return;
  }
  const std::uint32_t given = open != open_.end() ? open->second.given : 0;
  const std::optional<std::uint32_t> most = room(given, max_ents);
  if (!most)
    return fail(status);
  for (; *num_ents < *most && next < map_.size(); next = map_.find(inquiry, next + 1))
    put(entries[(*num_ents)++], map_.entry(next));
  if (*num_ents == 0)
    *status = rpc::ept::kNotRegistered;
  if (next >= map_.size()) {
    if (open != open_.end())
      end(open, "destroyed");
    *entry_handle = {};
    return;
  }
  if (open == open_.end()) {
    open = begin(call.client, inquiry, next);
    entry_handle->id = open->first;
    if (call.leaves_context != nullptr)
      *call.leaves_context = true;
  }
  open->second.next = next;
  open->second.given = given + *num_ents;
}

std::optional<std::uint32_t> MapperInterface::room(std::uint32_t given,
                                                   std::uint32_t max_ents) const {
  const std::uint32_t most = std::min(max_ents, batch_);
  if (!fail_after_)
    return most;
  if (given >= *fail_after_)
    return std::nullopt;
  return std::min(most, *fail_after_ - given);
}

void MapperInterface::fail(error_status_t* status) const {
  if (failure_ == MapperFailure::silent)
    throw rpc::server::Unanswered();
  *status = rpc::ept::kCannotPerform;
}

void MapperInterface::ept_lookup_handle_free(const CallInfo& call, rpc::WireContext* entry_handle,
                                             error_status_t*) {
  if (entry_handle->null())
    return;
  end(find(call, *entry_handle), "destroyed");
  *entry_handle = {};
}

void MapperInterface::end(Inquiries::iterator inquiry, std::string_view change) {
  if (observer_)
    observer_("inquiry", inquiry->first, change);
  open_.erase(inquiry);
}

void MapperInterface::run_down(const uuid_t& client) {
  for (auto each = open_.begin(); each != open_.end();) {
    const auto next = std::next(each);
    if (each->second.client == client)
      end(each, "run down");
    each = next;
  }
}

void MapperInterface::run_down_all() {
  while (!open_.empty())
    end(open_.begin(), "run down");
}

}  // namespace agent
