// SPDX-License-Identifier: Apache-2.0
// The endpoint inquiry (C706 3.1.12 and appendix O): fetches the mapper's entries in batches and
// hands them out one by one.
//
// Bounds against a mapper that never ends: an inquiry takes at most kMaxEntries entries and
// kMaxEmptyBatches answers without any; beyond them it ends with 1728.

#include <algorithm>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "epm.h"
#include "platform/rpc/binding.h"
#include "platform/rpc/handed_out_text.h"
#include "platform/rpc/handle_table.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/tower.h"
#include "platform/rpc/stub/stub.h"

namespace rpc {
namespace {

constexpr std::uint32_t kBatchSize = 64;
constexpr std::size_t kMaxEntries = 16384;
constexpr unsigned kMaxEmptyBatches = 16;

constexpr char kMapperPort[] = "135";
constexpr char kThisHost[] = "127.0.0.1";
constexpr char kAnyAddress[] = "0.0.0.0";

// What is asked for; an inquiry type that does not use a part leaves it out.
struct Question {
  std::uint32_t inquiry_type = RPC_C_EP_ALL_ELTS;
  std::optional<ept_if_id_t> interface_id;
  std::optional<uuid_t> object;
  std::uint32_t version_option = 0;
};

struct Element {
  rpc_if_id_t interface_id;
  Binding binding;
  uuid_t object;
  std::string annotation;
  std::vector<unsigned> floors;
};

bool asks_for_interface(std::uint32_t inquiry_type) {
  return inquiry_type == RPC_C_EP_MATCH_BY_IF || inquiry_type == RPC_C_EP_MATCH_BY_BOTH;
}

bool asks_for_object(std::uint32_t inquiry_type) {
  return inquiry_type == RPC_C_EP_MATCH_BY_OBJ || inquiry_type == RPC_C_EP_MATCH_BY_BOTH;
}

// A call that did not get through is one failure for whoever asks a map, whenever it happened.
RPC_STATUS inquiry_status(RPC_STATUS status) {
  switch (status) {
    case RPC_S_SERVER_UNAVAILABLE:
    case RPC_S_CALL_FAILED:
    case RPC_S_CALL_FAILED_DNE:
      return RPC_S_COMM_FAILURE;
    default:
      return status;
  }
}

template <typename T>
const T* pointer_to(const std::optional<T>& value) {
  return value ? &*value : nullptr;
}

// A binding handle for the length of a call into a stub.
class OwnedBinding {
 public:
  explicit OwnedBinding(Binding binding) : handle_(register_binding(std::move(binding))) {}
  ~OwnedBinding() { unregister_binding(handle_); }
  OwnedBinding(const OwnedBinding&) = delete;
  OwnedBinding& operator=(const OwnedBinding&) = delete;
  RPC_BINDING_HANDLE get() const { return handle_; }

 private:
  RPC_BINDING_HANDLE handle_;
};

class Inquiry {
 public:
  Inquiry(CallTarget mapper, Question question) : mapper_(std::move(mapper)), question_(question) {}

  // The next element, or the status that ended the inquiry, again at every later call. Those of
  // unknown protocols are passed over unless they are wanted.
  RPC_STATUS next(Element* element, bool any) {
    for (;;) {
      while (elements_.empty()) {
        if (end_ != RPC_S_OK)
          return end_;
        fetch();
      }
      *element = std::move(elements_.front());
      elements_.pop_front();
      if (any || !element->binding.target.protocol_sequence.empty())
        return RPC_S_OK;
    }
  }

  std::uint32_t unreadable() const { return unreadable_; }

  // Gives the mapper's cursor back. A mapper that did not answer the last call is told, and its
  // answer hardly waited for: nobody waits for it twice.
  void close() {
    constexpr std::chrono::milliseconds kMoment{20};
    elements_.clear();
    if (cursor_ != nullptr) {
      const auto before = lost_ ? limit_waits(kMoment) : std::nullopt;
      try {
        const OwnedBinding mapper({mapper_, {}});
        error_status_t status = 0;
        ept_lookup_handle_free(mapper.get(), &cursor_, &status);
      } catch (const RpcException&) {
        // The cursor is the mapper's to clean up; the caller has its elements.
      }
      if (lost_)
        limit_waits(before);
    }
    if (cursor_ != nullptr)
      store_context(&cursor_, {}, mapper_);
    end_ = RPC_X_NO_MORE_ENTRIES;
  }

 private:
  // One lookup call: fills elements_ or sets end_, or does neither when a batch held nothing that
  // is usable and more may follow.
  void fetch() {
    std::vector<ept_entry_t> entries(kBatchSize);
    std::uint32_t count = 0;
    error_status_t status = 0;
    try {
      const OwnedBinding mapper({mapper_, {}});
      ept_lookup(mapper.get(), question_.inquiry_type, pointer_to(question_.object),
                 pointer_to(question_.interface_id), question_.version_option, &cursor_, kBatchSize,
                 &count, entries.data(), &status);
    } catch (const RpcException& failure) {
      end_ = failure.status();
      lost_ = failure.kind() == FailureKind::communication;
      return;
    }
    entries.resize(std::min<std::size_t>(count, entries.size()));
    if (status == RPC_S_OK || status == ept::kNotRegistered)
      take(entries);
    if (status == ept::kNotRegistered || (status == RPC_S_OK && cursor_ == nullptr)) {
      end_ = RPC_X_NO_MORE_ENTRIES;
    } else if (status != RPC_S_OK) {
      end_ = inquiry_status(status);
      lost_ = end_ == RPC_S_COMM_FAILURE;
    } else if (is_endless(entries.size())) {
      end_ = RPC_S_PROTOCOL_ERROR;
    }
  }

  bool is_endless(std::size_t batch) {
    taken_ += batch;
    empty_batches_ = batch == 0 ? empty_batches_ + 1 : 0;
    return taken_ >= kMaxEntries || empty_batches_ >= kMaxEmptyBatches;
  }

  void take(std::vector<ept_entry_t>& entries) {
    for (const ept_entry_t& entry : entries) {
      if (entry.tower == nullptr)
        continue;
      std::optional<Tower> tower =
          decode_any_tower(std::as_bytes(std::span(entry.tower->tower_octet_string)));
      if (!tower) {
        ++unreadable_;
        continue;
      }
      std::vector<unsigned> floors = std::move(tower->floors);
      elements_.push_back({tower->interface_id, binding_of(std::move(*tower)), entry.object,
                           entry.annotation, std::move(floors)});
    }
  }

  Binding binding_of(Tower tower) const {
    Binding binding;
    CallTarget& target = binding.target;
    // A server that listens at every address of its host says so; it is where its mapper is.
    const bool anywhere = !tower.protocol_sequence.empty() &&
                          tower.network_address == kAnyAddress &&
                          find_protocol_sequence(tower.protocol_sequence)->internet_address;
    target.network_address = std::move(tower.network_address);
    if (anywhere)
      target.network_address = mapper_.network_address;
    target.protocol_sequence = std::move(tower.protocol_sequence);
    target.endpoint = std::move(tower.endpoint);
    target.timeout_level = mapper_.timeout_level;
    return binding;
  }

  CallTarget mapper_;
  Question question_;
  RPC_CONTEXT_HANDLE cursor_ = nullptr;
  std::deque<Element> elements_;
  RPC_STATUS end_ = RPC_S_OK;
  bool lost_ = false;  // the mapper does not answer any more
  std::uint32_t unreadable_ = 0;
  std::size_t taken_ = 0;
  unsigned empty_batches_ = 0;
};

HandleTable<RPC_EP_INQ_HANDLE, Inquiry>& inquiries() {
  static HandleTable<RPC_EP_INQ_HANDLE, Inquiry> table;
  return table;
}

// Where the mapper is: its port is well known, and a binding without an address means this host.
std::optional<CallTarget> mapper_target(RPC_BINDING_HANDLE mapper) {
  CallTarget target;
  if (mapper != nullptr) {
    try {
      target = target_of(mapper);
    } catch (const RpcException&) {
      return std::nullopt;
    }
  } else {
    target.protocol_sequence = protseq::kUdp;
  }
  if (target.network_address.empty())
    target.network_address = kThisHost;
  if (target.endpoint.empty())
    target.endpoint = kMapperPort;
  return target;
}

std::optional<Question> make_question(std::uint32_t inquiry_type, const rpc_if_id_t* interface_id,
                                      std::uint32_t version_option, const uuid_t* object) {
  if (inquiry_type > RPC_C_EP_MATCH_BY_BOTH)
    return std::nullopt;
  Question question;
  question.inquiry_type = inquiry_type;
  question.version_option = version_option;
  if (asks_for_interface(inquiry_type)) {
    if (interface_id == nullptr || version_option < RPC_C_VERS_ALL ||
        version_option > RPC_C_VERS_UPTO)
      return std::nullopt;
    question.interface_id = {interface_id->uuid, interface_id->vers_major,
                             interface_id->vers_minor};
  }
  if (asks_for_object(inquiry_type)) {
    if (object == nullptr)
      return std::nullopt;
    question.object = *object;
  }
  return question;
}

}  // namespace
}  // namespace rpc

RPC_STATUS RpcMgmtEpEltInqBegin(RPC_BINDING_HANDLE mapper, std::uint32_t inquiry_type,
                                const rpc_if_id_t* interface_id, std::uint32_t version_option,
                                const uuid_t* object, RPC_EP_INQ_HANDLE* inquiry) {
  if (inquiry == nullptr)
    return RPC_S_INVALID_ARG;
  *inquiry = nullptr;
  std::optional<rpc::CallTarget> target = rpc::mapper_target(mapper);
  if (!target)
    return RPC_S_INVALID_BINDING;
  std::optional<rpc::Question> question =
      rpc::make_question(inquiry_type, interface_id, version_option, object);
  if (!question)
    return RPC_S_INVALID_ARG;
  *inquiry = rpc::inquiries().insert(rpc::Inquiry(std::move(*target), *question));
  return RPC_S_OK;
}

RPC_STATUS RpcMgmtEpEltInqNextA(RPC_EP_INQ_HANDLE inquiry, rpc_if_id_t* interface_id,
                                RPC_BINDING_HANDLE* binding, uuid_t* object, char** annotation) {
  if (interface_id == nullptr)
    return RPC_S_INVALID_ARG;
  const std::shared_ptr<rpc::Inquiry> found = rpc::inquiries().find(inquiry);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  if (binding != nullptr)
    *binding = nullptr;
  if (annotation != nullptr)
    *annotation = nullptr;

  rpc::Element element;
  RPC_STATUS status = found->next(&element, false);
  if (status == RPC_S_OK && annotation != nullptr)
    status = rpc::hand_out_text(element.annotation, annotation);
  if (status != RPC_S_OK)
    return status;
  *interface_id = element.interface_id;
  if (object != nullptr)
    *object = element.object;
  if (binding != nullptr)
    *binding = rpc::register_binding(std::move(element.binding));
  return RPC_S_OK;
}

RPC_STATUS RpcMgmtEpEltInqNextAny(RPC_EP_INQ_HANDLE inquiry, RpcEndpointElement* element) {
  const std::shared_ptr<rpc::Inquiry> found = rpc::inquiries().find(inquiry);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  rpc::Element next;
  if (const RPC_STATUS status = found->next(&next, true); status != RPC_S_OK)
    return status;
  RPC_BINDING_HANDLE binding = nullptr;
  if (!next.binding.target.protocol_sequence.empty())
    binding = rpc::register_binding(std::move(next.binding));
  *element = {next.interface_id, binding, next.object, std::move(next.annotation),
              std::move(next.floors)};
  return RPC_S_OK;
}

std::uint32_t RpcMgmtEpEltInqUnreadable(RPC_EP_INQ_HANDLE inquiry) {
  const std::shared_ptr<rpc::Inquiry> found = rpc::inquiries().find(inquiry);
  return found != nullptr ? found->unreadable() : 0;
}

RPC_STATUS RpcMgmtEpEltInqDone(RPC_EP_INQ_HANDLE* inquiry) {
  if (inquiry == nullptr)
    return RPC_S_INVALID_ARG;
  const std::shared_ptr<rpc::Inquiry> found = rpc::inquiries().remove(*inquiry);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  found->close();
  *inquiry = nullptr;
  return RPC_S_OK;
}
