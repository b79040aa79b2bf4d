// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/rpc/simulation.h"

#include <cstdio>
#include <cstdlib>

#include "platform/rpc/wire/wire_bytes.h"
#include "tests/support/rpc_bytes.h"

namespace rpc::simulation {
namespace {

constexpr std::uint16_t kClientPorts = 40'000;  // and one more for each that moves
constexpr SocketAddress kStranger{0x7F000004, 40'000};
constexpr SocketAddress kServerElsewhere{0x7F000003, 1045};
constexpr SocketAddress kCallBackPort{0x7F000002, 2999};
constexpr Duration kLongestSleep = seconds(3);
constexpr std::uint32_t kFault = 4711;
constexpr std::uint32_t kReject = nca::kServerTooBusy;
// Whoever may wait for ever still ends within this, as long as the server lives.
constexpr Duration kUnlimited = std::chrono::hours(4);

std::size_t fragments_of(std::size_t size, std::size_t fragment) {
  return size / (fragment - kHeaderSize - 7) + 1;
}

}  // namespace

World::World(const Setting& setting, std::uint64_t seed)
    : setting_(setting),
      seed_(seed),
      random_(seed),
      to_server_([&] {
        setting_.to_server.seed = random_.draw();
        return setting_.to_server;
      }()),
      to_client_([&] {
        setting_.to_client.seed = random_.draw();
        return setting_.to_client;
      }()),
      answers_from_(setting_.answers_from_elsewhere ? kServerElsewhere : kServer) {
  for (unsigned i = 0; i < setting_.clients; ++i) {
    clients_.emplace_back(random_, static_cast<std::uint16_t>(kClientPorts + 2 * i),
                          setting_.wrapping_sequence ? 0xFFFFFFFE : 0);
    clients_.back().calls_left = setting_.calls;
    clients_.back().begins = now_;
  }
  const char* const traced = std::getenv("ZT_SIMULATION_SEED");
  tracing_ = traced != nullptr && std::to_string(seed) == traced;
  start_server();
}

void World::trace(const char* what, std::span<const std::byte> datagram) {
  if (!tracing_)
    return;
  std::printf("%9.4f %-12s", std::chrono::duration<double>(now_.time_since_epoch()).count(), what);
  if (const auto packet = decode_packet(datagram))
    std::printf(" %-10s call %u boot %u fragment %d flags %02x serial %u, %zu bytes",
                test::name_of(packet->header.type), packet->header.sequence,
                packet->header.server_boot, static_cast<std::int16_t>(packet->header.fragment),
                packet->header.flags1, packet->header.serial, packet->body.size());
  std::printf("\n");
}

void World::start_server() {
  ++life_;
  server::CoreOptions options = setting_.server;
  options.boot_time = ++boot_time_;
  options.call_back_activity = random_.uuid();
  core_ = std::make_unique<server::ServerCore>(options, std::vector<server::Interface*>{&echo_});
}

void World::fail(const std::string& what) {
  std::ostringstream text;
  text << "seed " << seed_ << ", " << std::chrono::duration<double>(now_.time_since_epoch()).count()
       << " s: " << what;
  tally_.broken.push_back(text.str());
}

// The first eight bytes tell which call it is, so that the server's side knows what to expect.
std::vector<std::byte> World::bytes(std::uint64_t id, std::size_t size) {
  std::vector<std::byte> result(std::max(size, sizeof id));
  for (std::size_t i = 0; i < result.size(); i += 8) {
    const std::uint64_t word = random_.draw();
    std::memcpy(result.data() + i, &word, std::min<std::size_t>(8, result.size() - i));
  }
  std::memcpy(result.data(), &id, sizeof id);
  return result;
}

// Mostly short, now and then as long as may be.
std::size_t World::size_up_to(std::size_t longest) {
  const std::size_t most = random_.chance(0.6) ? std::min<std::size_t>(longest, 1500) : longest;
  return random_.between(0, most);
}

Duration World::duration_up_to(Duration longest) {
  const auto most = std::chrono::duration_cast<microseconds>(longest).count();
  return microseconds(random_.between(0, static_cast<std::uint64_t>(most)));
}

std::optional<Time> World::Client::wakeup() const {
  if (!call)
    return calls_left > 0 ? std::optional(begins) : std::nullopt;
  const std::optional<Time> time = call->wakeup();
  return time ? std::max(*time, asleep_until) : time;
}

Tally World::run() {
  const auto busy = [](const Client& client) { return client.call || client.calls_left > 0; };
  while (going() && std::any_of(clients_.begin(), clients_.end(), busy))
    step();
  for (Client& client : clients_)
    if (const auto ack = client.activity.take_ack()) {
      note_sent(ack->header, &client, true);
      pass_on(To::server, ack->header, client.address, ack->to);
    }
  settle();
  for (const auto& [id, plan] : plans_)
    if (going() && plan.status == RPC_S_CALL_FAILED_DNE && plan.runs > 0 && !plan.idempotent &&
        setting_.server.call_back != server::CallBack::none && !setting_.deliver_flips)
      fail("call " + std::to_string(id) + " ended as one that did not run, and ran");
  return std::move(tally_);
}

// Left alone, a server forgets all bodies within a bounded time and number of packets.
void World::settle() {
  const Time begun = now_;
  const std::uint64_t sent = tally_.server_packets;
  while (going() && (!events_.empty() || core_->statistics().bytes_held > 0)) {
    if (events_.empty() && !core_->wakeup())
      return fail("the server holds bodies and no clock runs");
    step();
    if (now_ - begun > setting_.longest_operation + setting_.server.client_silence + seconds(100) ||
        tally_.server_packets - sent > 500 * setting_.clients)
      return fail("the server does not come to rest");
  }
}

void World::begin_call(Client& client) {
  ++tally_.calls;
  --client.calls_left;
  client.id = ++id_;
  Plan& plan = plans_[id_];
  plan.idempotent = random_.chance(setting_.idempotent_share);
  plan.request = bytes(id_, size_up_to(setting_.longest_request));
  plan.reply = bytes(id_, size_up_to(setting_.longest_reply));
  plan.operation = duration_up_to(setting_.longest_operation);
  if (random_.chance(setting_.refused_share))
    plan.ending = random_.chance(0.5) ? Ending::fault : Ending::reject;

  CallRequest request;
  request.operation = plan.idempotent ? &server::kReadOperation : &server::kChangeOperation;
  request.body = plan.request;
  request.timeout_level =
      static_cast<unsigned>(random_.between(setting_.least_level, setting_.greatest_level));
  request.reply_limit = plan.reply.size() + random_.between(0, 100);
  request.path_limit = setting_.client_fragment;
  request.max_fragment =
      static_cast<std::uint32_t>(std::max(setting_.client_fragment, kLeastMaxFragment));
  if (random_.chance(setting_.outage_share)) {
    const std::uint64_t ways = random_.between(1, 3);
    outage_.begin = now_ + duration_up_to(seconds(2));
    outage_.end = outage_.begin + duration_up_to(setting_.longest_outage);
    outage_.to_server = (ways & 1) != 0;
    outage_.to_client = (ways & 2) != 0;
  }
  for (unsigned i = 0; i < setting_.strangers; ++i)
    call_of_stranger();
  if (!setting_.restart_in_pause && random_.chance(setting_.restart_share))
    events_.push({.time = now_ + duration_up_to(setting_.longest_operation + seconds(1)),
                  .order = ++order_,
                  .kind = Event::Kind::restart,
                  .life = life_});
  if (tracing_)
    std::printf("%9.4f call of level %u, request %zu, reply %zu, operation %.3f s\n",
                std::chrono::duration<double>(now_.time_since_epoch()).count(),
                request.timeout_level, plan.request.size(), plan.reply.size(),
                std::chrono::duration<double>(plan.operation).count());
  client.working.reset();
  client.seen.clear();
  client.packets = 0;
  client.call_begun = client.last_life = now_;
  client.silence = silence_of_level(request.timeout_level);
  client.call.emplace(client.activity, client.identity, random_, request, now_);
}

void World::end_call(Client& client) {
  ClientCall& call = *client.call;
  Plan& plan = plans_[client.id];
  plan.status = call.status();
  ++tally_.statuses[call.status()];
  if (call.status() == 0) {
    ++tally_.succeeded;
    if (plan.ending != Ending::reply)
      fail("success of a call that was refused");
    if (!setting_.deliver_flips && call.take_reply() != plan.reply)
      fail("the reply is not what the server sent");
    if (!setting_.deliver_flips && plan.runs == 0)
      fail("success without a run");
  } else if ((plan.ending == Ending::fault && call.answer_number() == kFault) ||
             (plan.ending == Ending::reject && call.answer_number() == kReject)) {
    ++tally_.succeeded;
  } else {
    tally_.failed_seeds.push_back(seed_);
  }
  client.call.reset();
  if (setting_.restart_in_pause && random_.chance(setting_.restart_share))
    start_server();
  client.begins = now_ + duration_up_to(setting_.longest_pause);
}

// The next thing that happens.
void World::step() {
  std::optional<Time> next = core_->wakeup();
  const auto earlier = [&next](const std::optional<Time>& time) {
    if (time && (!next || *time < *next))
      next = time;
  };
  for (const Client& client : clients_)
    earlier(client.wakeup());
  if (!events_.empty())
    earlier(events_.top().time);
  if (!next)
    return fail("nothing can move any more");
  now_ = std::max(now_, *next);
  if (!events_.empty() && events_.top().time <= now_) {
    const Event event = events_.top();
    events_.pop();
    happen(event);
  }
  core_->on_time(now_);
  for (Client& client : clients_)
    act(client);
  pump();
  for (Client& client : clients_)
    if (client.call)
      check(client);
  check_server();
}

void World::act(Client& client) {
  const bool due = client.wakeup() && *client.wakeup() <= now_;
  if (!client.call && due)
    begin_call(client);
  else if (client.call && due && now_ > client.asleep_until && random_.chance(setting_.late_share))
    client.asleep_until = now_ + duration_up_to(kLongestSleep);
  else if (client.call && now_ >= client.asleep_until)
    client.call->on_time(now_);
}

World::Client* World::client_at(const SocketAddress& address) {
  for (Client& client : clients_)
    if (client.address == address)
      return &client;
  return nullptr;
}

void World::arrive(Client& client, const Event& event) {
  if (!client.call)
    return;
  if (now_ < client.asleep_until) {
    Event later = event;
    later.time = client.asleep_until;
    events_.push(std::move(later));
    return;
  }
  const auto packet = decode_packet(event.bytes);
  // An upper bound: whatever comes to the client may be a sign of life.
  if (!client.call->done() && packet)
    client.last_life = now_;
  if (packet && packet->header.type == PacketType::working && !plans_[client.id].idempotent)
    client.working = packet->header;
  client.call->receive(event.bytes, event.source, now_);
}

void World::happen(const Event& event) {
  switch (event.kind) {
    case Event::Kind::to_client:
      trace("to client", event.bytes);
      if (Client* const client = client_at(event.destination))
        arrive(*client, event);
      return;
    case Event::Kind::to_server:
      trace("to server", event.bytes);
      if (const auto packet = decode_packet(event.bytes);
          packet && packet->header.type == PacketType::response && packet->body.size() >= 4)
        vouched_ = load32(packet->body.data(), packet->header.representation.little_endian);
      core_->receive(event.bytes, event.source, now_);
      return;
    case Event::Kind::operation_done:
      if (event.life == life_)
        complete(event.number, plans_[event.id]);
      return;
    case Event::Kind::restart:
      trace("new server", {});
      if (event.life == life_)
        start_server();
      return;
  }
}

// Hands over what has come out of all machines until nothing more comes.
void World::pump() {
  for (bool moved = true; moved && going();) {
    moved = false;
    for (Client& client : clients_) {
      while (const auto sent = client.call ? client.call->next_datagram(now_) : std::nullopt) {
        moved = true;
        const auto datagram = sent->bytes();
        note_sent(datagram, &client, true);
        if (random_.chance(setting_.move_share))
          client.address.port = client.address.port == client.home ? client.home + 1 : client.home;
        pass_on(To::server, datagram, client.address, sent->to);
      }
    }
    while (const auto sent = core_->next_datagram(now_)) {
      moved = true;
      const auto datagram = sent->bytes();
      note_sent(datagram, client_at(sent->to), false);
      if (sent->call_back && random_.chance(setting_.call_back_loss))
        continue;
      if (random_.chance(setting_.move_share))
        answers_from_ = answers_from_ == kServer ? kServerElsewhere : kServer;
      pass_on(To::client, datagram, sent->call_back ? kCallBackPort : answers_from_, sent->to);
    }
    for (server::ReadyCall& ready : core_->take_calls()) {
      moved = true;
      run_operation(std::move(ready));
    }
    vouched_.reset();
    core_->take_gone_clients();
  }
}

bool World::cut_off(To to) const {
  return outage_.begin <= now_ && now_ < outage_.end &&
         (to == To::server ? outage_.to_server : outage_.to_client);
}

// Half of the time a part of a call that never gets complete.
void World::call_of_stranger() {
  PacketHeader header;
  header.interface_id = server::kEchoSpec.id;
  header.interface_version = server::kEchoSpec.version();
  header.opnum = server::kChangeOperation.opnum;
  header.activity.time_low = ++invented_;
  header.flags1 = random_.chance(0.5) ? kFlagFragment | kFlagNoFack : 0;
  events_.push({now_ + duration_up_to(seconds(1)), ++order_, Event::Kind::to_server, kStranger,
                encode_packet(header, bytes(0, 100))});
}

void World::pass_on(To to, std::span<const std::byte> datagram, const SocketAddress& source,
                    const SocketAddress& destination) {
  if (cut_off(to)) {
    Client* const client = to == To::server ? client_at(source) : nullptr;
    if (setting_.outage_is_told && client != nullptr && client->call)
      client->call->unreachable(datagram, destination, now_);
    return;
  }
  Burst& burst = bursts_[to == To::server ? 0 : 1];
  if (burst.left == 0 && random_.chance(setting_.burst_share)) {
    burst.left = static_cast<unsigned>(random_.between(2, 30));
    burst.held_until.reset();
    if (random_.chance(0.5))
      burst.held_until = now_ + duration_up_to(seconds(1));
  }
  const bool in_burst = burst.left > 0;
  burst.left -= in_burst ? 1 : 0;
  if ((datagram.size() > setting_.widest && random_.chance(setting_.wide_loss)) ||
      (in_burst && !burst.held_until))
    return;
  server::FaultInjector& network = to == To::server ? to_server_ : to_client_;
  for (server::FaultInjector::Delivery& delivery : network.pass(datagram, now_)) {
    const bool flipped =
        !std::equal(delivery.bytes.begin(), delivery.bytes.end(), datagram.begin());
    if (flipped && !setting_.deliver_flips)
      continue;
    events_.push({in_burst ? std::max(delivery.time, *burst.held_until) : delivery.time, ++order_,
                  to == To::server ? Event::Kind::to_server : Event::Kind::to_client, source,
                  std::move(delivery.bytes), destination});
  }
}

void World::run_operation(server::ReadyCall ready) {
  std::uint64_t id = 0;
  std::memcpy(&id, ready.request.data(), std::min(sizeof id, ready.request.size()));
  if (id == 0 && ready.info.activity.time_low <= invented_) {
    core_->complete(ready.number, {}, now_);
    return;
  }
  const auto found = plans_.find(id);
  if (found == plans_.end()) {
    if (!setting_.deliver_flips)
      fail("a call was run that nobody made");
    core_->complete(ready.number, {}, now_);
    return;
  }
  Plan& plan = found->second;
  ++plan.runs;
  if (!setting_.deliver_flips) {
    if (ready.request != plan.request)
      fail("the request is not what the client sent");
    if (plan.runs > 1 && !plan.idempotent)
      fail("an operation that must not run twice ran twice");
    if (vouched_ && *vouched_ != plan.sequence)
      fail("a call ran that its client did not vouch for");
  }
  if (plan.operation.count() == 0)
    complete(ready.number, plan);
  else
    events_.push({.time = now_ + plan.operation,
                  .order = ++order_,
                  .kind = Event::Kind::operation_done,
                  .life = life_,
                  .number = ready.number,
                  .id = id});
}

void World::complete(server::CallNumber number, const Plan& plan) {
  server::Outcome outcome{server::Outcome::Kind::reply, 0, plan.reply};
  if (plan.ending == Ending::fault)
    outcome = server::Outcome::fault(kFault);
  else if (plan.ending == Ending::reject)
    outcome = server::Outcome::reject(kReject);
  core_->complete(number, std::move(outcome), now_);
}

// Two packets are the same when they differ in nothing but the serial number.
void World::note_sent(std::span<const std::byte> datagram, Client* client, bool by_client) {
  trace(by_client ? "client sends" : "server sends", datagram);
  ++(by_client ? tally_.client_packets : tally_.server_packets);
  const auto packet = decode_packet(datagram);
  if (!packet)
    return fail("something was sent that is no packet");
  const std::size_t longest =
      by_client ? std::min(setting_.client_fragment,
                           std::max(setting_.server.fragment_size, kLeastMaxFragment))
                : std::max(setting_.client_fragment, kLeastMaxFragment);
  const PacketHeader& header = packet->header;
  if (datagram.size() > longest && header.type != PacketType::fack)
    return fail("a packet is longer than its receiver takes");
  if (client == nullptr)
    return;
  ++client->packets;
  if (by_client && header.type == PacketType::request &&
      header.interface_id == server::kEchoSpec.id) {
    plans_[client->id].sequence = header.sequence;
    const auto& working = client->working;
    if (working && working->activity == header.activity && working->sequence == header.sequence &&
        !setting_.deliver_flips)
      fail("a request that must not run twice was sent again after \"working\"");
  }
  tally_.acks += header.type == PacketType::ack ? 1 : 0;
  tally_.pings += header.type == PacketType::ping ? 1 : 0;
  if (header.type == PacketType::fack)
    return;
  std::vector<std::byte> key(datagram.begin(), datagram.begin() + kHeaderSize);
  key[2] = key[7] = key[79] = std::byte{0};
  key.push_back(static_cast<std::byte>(by_client));
  tally_.repeated += client->seen[key]++ > 0 ? 1 : 0;
}

// A call may take a multiple of its fragments and of its waiting time, and no more.
void World::check(Client& client) {
  const Plan& plan = plans_[client.id];
  // One retransmission, which at the shorter levels is cut to half of the silence.
  const Duration repeat =
      client.silence ? std::min(kLongestRepeat, *client.silence / 2) : kLongestRepeat;
  const Duration slack = repeat + repeat * kSpreadPercent / 100 +
                         (setting_.late_share > 0 ? kLongestSleep : Duration{});
  if (client.silence && !client.call->done() && now_ > client.last_life + *client.silence + slack)
    fail("the call goes on beyond its level");
  if (now_ > client.call_begun + kUnlimited)
    fail("the call does not end");
  const double lost = std::max(setting_.to_client.loss, setting_.to_server.loss) +
                      setting_.to_client.truncation + setting_.to_client.byte_flips;
  const double tries = 1 / std::max(0.2, (1 - lost) * (1 - lost));
  const auto fragments = static_cast<double>(
      fragments_of(plan.request.size(), std::min(setting_.client_fragment, kLeastMaxFragment)) +
      fragments_of(plan.reply.size(), std::min(setting_.server.fragment_size, kLeastMaxFragment)));
  const double waited = std::chrono::duration<double>(now_ - client.call_begun).count();
  const double allowed = 200 + tries * (8 * fragments + 6 * waited);
  const double share = static_cast<double>(client.packets) / allowed;
  tally_.worst_packets = std::max(tally_.worst_packets, share);
  if (share > 1)
    fail("more packets than the bound");
  if (client.call->done())
    end_call(client);
}

void World::check_server() {
  const server::ServerCore::Statistics now = core_->statistics();
  if (now.activities > setting_.server.max_activities)
    fail("the table exceeds its bound");
  if (setting_.strangers > 0 || setting_.deliver_flips)
    return;
  if (now.bytes_held >
      2 * setting_.clients * (setting_.longest_request + setting_.longest_reply + 64))
    fail("the server holds more than its calls");
  if (now.activities > 4 * setting_.clients)
    fail("the server knows more clients than there are");
}

}  // namespace rpc::simulation
