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

void Outbox::put(const SocketAddress& to, const PacketHeader& header, std::vector<std::byte> body,
                 bool call_back) {
  if (waiting() == 0)
    clear();
  Item& item = items_.emplace_back();
  item.datagram.to = to;
  item.datagram.call_back = call_back;
  item.body = std::move(body);
  item.datagram.body = item.body;
  encode_header(header, item.body.size(), item.datagram.header);
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
