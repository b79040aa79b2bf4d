// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/datagram.h"

#include <utility>

namespace rpc {

std::vector<std::byte> OutgoingDatagram::bytes() const {
  std::vector<std::byte> whole;
  whole.reserve(header.size() + body.size());
  whole.insert(whole.end(), header.begin(), header.end());
  whole.insert(whole.end(), body.begin(), body.end());
  return whole;
}

Outbox::Item& Outbox::add(const SocketAddress& to, const PacketHeader& header, std::size_t size) {
  if (waiting() == 0)
    clear();
  Item& item = items_.emplace_back();
  item.datagram.to = to;
  encode_header(header, size, item.datagram.header);
  return item;
}

void Outbox::put(const SocketAddress& to, const PacketHeader& header, std::vector<std::byte> body,
                 bool call_back) {
  Item& item = add(to, header, body.size());
  item.datagram.call_back = call_back;
  item.own = std::move(body);
  item.datagram.body = item.own;
}

void Outbox::put_view(const SocketAddress& to, const PacketHeader& header,
                      std::span<const std::byte> body) {
  add(to, header, body.size()).datagram.body = body;
}

std::optional<OutgoingDatagram> Outbox::next() {
  if (waiting() == 0)
    return std::nullopt;
  return items_[taken_++].datagram;
}

void Outbox::clear() {
  items_.clear();
  taken_ = 0;
}

}  // namespace rpc
