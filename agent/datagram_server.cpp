// SPDX-License-Identifier: Apache-2.0
#include "agent/datagram_server.h"

#include <array>
#include <cstdio>

#include "platform/rpc/wire/pdu.h"

namespace agent {

namespace {

using rpc::server::Direction;
using rpc::server::FaultPlan;
using rpc::server::Outcome;

rpc::server::CallBack call_back(CallBackKind kind) {
  switch (kind) {
    case CallBackKind::none:
      return rpc::server::CallBack::none;
    case CallBackKind::who_are_you:
      return rpc::server::CallBack::who_are_you;
    case CallBackKind::who_are_you2:
      break;
  }
  return rpc::server::CallBack::who_are_you2;
}

rpc::server::Management management(Listening listening) {
  switch (listening) {
    case Listening::no:
      return rpc::server::Management::not_listening;
    case Listening::mute:
      return rpc::server::Management::mute;
    case Listening::absent:
      return rpc::server::Management::absent;
    case Listening::yes:
      break;
  }
  return rpc::server::Management::listening;
}

// Servers that share a plan must not lose the same datagrams; the same server must at each run.
std::optional<FaultPlan> own_plan(std::optional<FaultPlan> plan, const std::string& name) {
  if (plan)
    for (const char c : name)
      plan->seed = (plan->seed ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return plan;
}

std::string type_name(rpc::PacketType type) {
  static constexpr std::array<const char*, 11> kNames = {"request", "ping",   "response",  "fault",
                                                         "working", "nocall", "reject",    "ack",
                                                         "cancel",  "fack",   "cancel_ack"};
  return kNames[static_cast<std::size_t>(type)];
}

std::string hexadecimal(std::uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(number));
  return text;
}

}  // namespace

DatagramServer::DatagramServer(rpc::server::ServerHost& host, const Log& log, std::string name,
                               const ServerSettings& settings, bool shared_socket)
    : host_(host),
      log_(log),
      name_(std::move(name)),
      settings_(settings),
      shared_socket_(shared_socket),
      script_(settings.behaviours) {}

DatagramServer::~DatagramServer() {
  if (endpoint_ != nullptr)
    host_.close(endpoint_);
}

rpc::server::EndpointOptions DatagramServer::options(std::uint32_t address) {
  rpc::server::EndpointOptions result;
  result.address = address;
  result.port = settings_.port;
  result.shared_socket = shared_socket_;
  result.core.boot_time = 0;
  result.core.little_endian = settings_.little_endian;
  result.core.call_back = call_back(settings_.call_back);
  result.call_back_from_other_port = settings_.call_back_from_other_port;
  result.management = management(settings_.listening);
  result.mute = settings_.state == ServerState::mute;
  result.receive_faults = own_plan(settings_.network.incoming, name_);
  result.send_faults = own_plan(settings_.network.outgoing, name_);
  result.before_dispatch = [this](const auto& call, const auto& operation) {
    return script_.before(call, operation);
  };
  if (log_.enabled()) {
    result.after_dispatch = [this](const auto& call, const auto& operation, const auto& outcome) {
      log_call(call, operation, outcome);
    };
    result.on_datagram = [this](Direction direction, const auto& peer, auto datagram) {
      log_datagram(direction, peer, datagram);
    };
  }
  return result;
}

std::string DatagramServer::open(std::uint32_t address,
                                 std::vector<rpc::server::Interface*> interfaces,
                                 std::function<void(const uuid_t&)> gone) {
  if (settings_.state == ServerState::dead && settings_.port != 0) {
    port_ = settings_.port;
    return {};
  }
  rpc::server::EndpointOptions wanted = options(address);
  wanted.interfaces = std::move(interfaces);
  wanted.on_client_gone = [this, gone = std::move(gone)](const uuid_t& activity) {
    script_.forget(activity);
    if (gone)
      gone(activity);
  };
  const auto opened = host_.open(std::move(wanted));
  if (opened.endpoint == nullptr)
    return opened.error;
  endpoint_ = opened.endpoint;
  port_ = endpoint_->port();
  if (settings_.state == ServerState::dead)
    endpoint_->kill();
  return {};
}

void DatagramServer::log_datagram(Direction direction, const rpc::SocketAddress& peer,
                                  std::span<const std::byte> datagram) const {
  const bool received = direction == Direction::received;
  std::string text = received ? "from " : "to ";
  text += rpc::to_text(peer) + " ";
  if (const auto packet = rpc::decode_packet(datagram)) {
    const rpc::PacketHeader& header = packet->header;
    text += type_name(header.type) + " operation " + std::to_string(header.opnum) + " call " +
            std::to_string(header.sequence);
    if ((header.flags1 & rpc::kFlagFragment) != 0)
      text += " fragment " + std::to_string(header.fragment);
    text += ", " + std::to_string(packet->body.size()) + " bytes";
  } else {
    text += "no packet, " + std::to_string(datagram.size()) + " bytes";
  }
  log_.line(name_, text);
}

void DatagramServer::log_call(const rpc::server::CallInfo& call,
                              const rpc::OperationSpec& operation, const Outcome& outcome) const {
  std::string text = std::string(operation.name) + " of " + call.client_address + ":" +
                     std::to_string(call.client_port);
  switch (outcome.kind) {
    case Outcome::Kind::reply:
      text += " answered with " + std::to_string(outcome.reply.size()) + " bytes";
      break;
    case Outcome::Kind::fault:
      text += " ended with fault " + hexadecimal(outcome.status);
      break;
    case Outcome::Kind::reject:
      text += " rejected with " + hexadecimal(outcome.status);
      break;
    case Outcome::Kind::none:
      text += " is not answered";
      break;
  }
  log_.line(name_, text);
}

}  // namespace agent
