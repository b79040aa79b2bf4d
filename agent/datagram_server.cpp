// SPDX-License-Identifier: Apache-2.0
#include "agent/datagram_server.h"

#include <utility>

#include "agent/scenario_names.h"
#include "platform/rpc/wire/path_limit.h"

namespace agent {

namespace {

using rpc::server::FaultPlan;

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

const char* name_of(ServerState state) {
  switch (state) {
    case ServerState::dead:
      return "dead";
    case ServerState::mute:
      return "mute";
    case ServerState::alive:
      break;
  }
  return "alive";
}

// What a running server can take on without being opened anew.
ServerSettings with_changeable_parts_of(ServerSettings settings, const ServerSettings& other) {
  settings.state = other.state;
  settings.listening = other.listening;
  settings.behaviours = other.behaviours;
  settings.network = other.network;
  return settings;
}

}  // namespace

DatagramServer::DatagramServer(rpc::server::ServerHost& host, const Log& log, std::string name,
                               const ServerSettings& settings, bool shared_socket)
    : host_(host),
      log_(log, std::move(name)),
      settings_(settings),
      shared_socket_(shared_socket),
      script_(settings.behaviours) {}

DatagramServer::~DatagramServer() {
  close();
}

void DatagramServer::close() {
  if (endpoint_ != nullptr)
    host_.close(std::exchange(endpoint_, nullptr));
}

ContextObserver DatagramServer::context_observer() {
  return [this](std::string_view object, const uuid_t& id, std::string_view change) {
    log_.context(object, id, change);
  };
}

// Clients of one host come in a row.
std::function<std::size_t(const rpc::SocketAddress&)> DatagramServer::path_limit() {
  return [host = std::uint32_t{0}, limit = std::size_t{0}](const rpc::SocketAddress& to) mutable {
    if (limit == 0 || host != to.host)
      limit = rpc::path_limit_to(to);
    host = to.host;
    return limit;
  };
}

rpc::server::EndpointOptions DatagramServer::options() {
  rpc::server::EndpointOptions result;
  result.address = address_;
  result.port = settings_.port;
  result.shared_socket = shared_socket_;
  result.core.boot_time = 0;
  result.core.little_endian = settings_.little_endian;
  result.core.call_back = call_back(settings_.call_back);
  result.core.fragment_size = settings_.fragment_size;
  result.core.path_limit = path_limit();
  result.core.max_activities = settings_.max_activities;
  result.core.client_silence = std::chrono::seconds(settings_.client_silence);
  result.core.call_back_limit = std::chrono::seconds(settings_.call_back_limit);
  result.core.objects = contents_.objects;
  result.core.on_event = [this](const auto& event) { log_.event(event); };
  result.interfaces = contents_.interfaces;
  result.call_back_from_other_port = settings_.call_back_from_other_port;
  result.record_calls = log_.enabled();
  result.management = management(settings_.listening);
  result.mute = settings_.state == ServerState::mute;
  result.receive_faults = own_plan(settings_.network.incoming, log_.name());
  result.send_faults = own_plan(settings_.network.outgoing, log_.name());
  result.before_dispatch = [this](const auto& call, const auto& operation) {
    OperationScript::Choice choice = script_.before(operation);
    if (choice.rule != 0)
      log_.behaviour(call, operation, choice);
    return std::move(choice.verdict);
  };
  result.after_dispatch = [this](const auto& call, const auto& operation, const auto& outcome) {
    log_.call(call, operation, outcome);
  };
  result.on_datagram = [this](const auto& report) { log_.datagram(report); };
  result.on_client_gone = contents_.gone;
  result.on_life_over = contents_.all_gone;
  return result;
}

std::string DatagramServer::open(std::uint32_t address, Contents contents) {
  address_ = address;
  contents_ = std::move(contents);
  log_.set_interfaces(contents_.interfaces);
  return open();
}

std::string DatagramServer::open() {
  if (settings_.state == ServerState::dead && settings_.port != 0) {
    port_ = settings_.port;
    return {};
  }
  const auto opened = host_.open(options());
  if (opened.endpoint == nullptr)
    return opened.error;
  endpoint_ = opened.endpoint;
  port_ = endpoint_->port();
  if (settings_.state == ServerState::dead)
    endpoint_->kill();
  return {};
}

void DatagramServer::leave_socket(bool shared_socket) {
  if (std::exchange(shared_socket_, shared_socket) != shared_socket)
    close();
}

void DatagramServer::set_objects(std::vector<uuid_t> objects) {
  if (objects == contents_.objects)
    return;
  contents_.objects = std::move(objects);
  close();
}

std::string DatagramServer::apply(const ServerSettings& settings, bool shared_socket, bool revive) {
  leave_socket(shared_socket);
  const bool stays =
      endpoint_ != nullptr && with_changeable_parts_of(settings_, settings) == settings;
  const ServerSettings old = std::exchange(settings_, settings);
  if (settings_.state != old.state)
    log_.state(std::string("is ") + name_of(settings_.state) + " now");
  if (settings_.behaviours != old.behaviours) {
    script_.replace(settings_.behaviours);
    log_.state("has other behaviours now");
  }
  if (settings_.network != old.network)
    log_.state("has another network now");
  if (settings_.listening != old.listening)
    log_.state("has listening = \"" + std::string(name_of(settings_.listening, kListenings)) +
               "\" now");
  if (!stays) {
    close();
    std::string failure = open();
    if (failure.empty() && endpoint_ != nullptr && endpoint_->alive())
      log_.state("is opened anew, on port " + std::to_string(port_));
    return failure;
  }
  endpoint_->set_management(management(settings_.listening));
  if (settings_.network != old.network)
    endpoint_->set_faults(own_plan(settings_.network.incoming, log_.name()),
                          own_plan(settings_.network.outgoing, log_.name()));
  endpoint_->set_mute(settings_.state == ServerState::mute);
  settle_state(revive || settings_.state != old.state);
  return {};
}

void DatagramServer::settle_state(bool revive) {
  if (settings_.state == ServerState::dead)
    endpoint_->kill();
  else if (revive && !endpoint_->alive() && !endpoint_->restart())
    log_.state("cannot come back, its port is taken");
}

void DatagramServer::write_counters(const Log& log) const {
  log_.write_counters(log);
}

}  // namespace agent
