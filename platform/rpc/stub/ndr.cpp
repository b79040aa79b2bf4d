// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/stub/ndr.h"

#include <algorithm>

#include "platform/numbers/status.h"
#include "platform/rpc/exception.h"

namespace rpc::ndr {

void fail_data() {
  throw RpcException(RPC_X_BAD_STUB_DATA, FailureKind::local);
}

void fail_characters() {
  throw RpcException(RPC_S_UNSUPPORTED_TRANS_SYN, FailureKind::communication);
}

void Encoder::grow(std::size_t size) {
  constexpr std::size_t kLeast = 256;
  capacity_ = std::max({kLeast, 2 * capacity_, size_ + size});
  auto larger = std::make_unique_for_overwrite<std::byte[]>(capacity_);
  if (size_ != 0)
    std::memcpy(larger.get(), bytes_.get(), size_);
  bytes_ = std::move(larger);
}

void Encoder::put_varying(std::uint32_t count) {
  put(std::uint32_t{0});
  put(count);
}

void Encoder::put_conformant_varying(std::uint64_t size, std::uint32_t count) {
  const auto size_on_wire = static_cast<std::uint32_t>(size);
  require(count <= size_on_wire);
  put(size_on_wire);
  put_varying(count);
}

void Encoder::put_text(const char* text, std::size_t size, std::uint32_t count) {
  require(count != 0 && count <= size && text[count - 1] == '\0');
  put_varying(count);
  append(text, count);
}

void Encoder::put_string(const char* text, std::size_t size) {
  const char* end = std::find(text, text + size, '\0');
  require(end != text + size);
  const auto count = static_cast<std::uint32_t>(end - text) + 1;
  put_varying(count);
  append(text, count);
}

bool Encoder::put_referent(const void* target, const void* type) {
  if (target == nullptr) {
    put(std::uint32_t{0});
    return false;
  }
  const auto known = std::find_if(referents_.begin(), referents_.end(), [&](const Referent& r) {
    return r.target == target && r.type == type;
  });
  if (known != referents_.end()) {
    put(known->number);
    return false;
  }
  while (request_ != nullptr && request_->has_referent(numbers_.first))
    numbers_.first += numbers_.step;
  referents_.push_back({target, type, numbers_.first});
  put(numbers_.first);
  numbers_.first += numbers_.step;
  return true;
}

bool Encoder::next_deferred() {
  return deferred_.at(next_deferred_++);
}

Decoder::ArrayHead Decoder::get_array_head() {
  const Fields head = fields(4, 12);
  const ArrayHead result{head.get<std::uint32_t>(0), head.get<std::uint32_t>(8)};
  require(head.get<std::uint32_t>(4) == 0 && result.count <= result.maximum);
  return result;
}

std::uint32_t Decoder::get_conformant_varying(std::uint64_t room, std::uint32_t expected) {
  const ArrayHead head = get_array_head();
  require(head.maximum <= room && head.count == expected);
  return head.count;
}

std::uint32_t Decoder::get_exact_conformant_varying(std::uint64_t size, std::uint32_t expected,
                                                    std::size_t element) {
  const ArrayHead head = get_array_head();
  require(head.maximum == static_cast<std::uint32_t>(size) && head.count == expected &&
          head.count <= remaining() / element);
  return head.count;
}

void Decoder::get_octets(std::vector<std::uint8_t>& octets, std::uint32_t maximum,
                         std::uint32_t size) {
  require(maximum == size && size <= remaining());
  octets.resize(size);
  get_array(octets.data(), size);
}

std::uint32_t Decoder::next_deferred() {
  return deferred_.at(next_deferred_++);
}

}  // namespace rpc::ndr
