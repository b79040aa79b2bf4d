// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/rpc/simulation.h"

#include <cstdio>
#include <cstdlib>

#include "platform/rpc/wire/wire_bytes.h"
#include "tests/support/rpc_bytes.h"

namespace rpc::simulation {
namespace {

constexpr SocketAddress kClient{0x7F000001, 40'000};
constexpr SocketAddress kClientElsewhere{0x7F000001, 40'001};
constexpr SocketAddress kServer{0x7F000002, 1045};
constexpr SocketAddress kServerElsewhere{0x7F000003, 1045};
constexpr SocketAddress kCallBackPort{0x7F000002, 2999};
constexpr Duration kLongestSleep = seconds(3);
constexpr std::uint32_t kRefusal = 4711;
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
      identity_(ClientIdentity::make(random_)),
      activity_(kServer, random_, setting_.wrapping_sequence ? 0xFFFFFFFE : 0),
      client_(kClient) {
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
  text << "seed " << seed_ << ", call " << id_ << ", "
       << std::chrono::duration<double>(now_.time_since_epoch()).count() << " s: " << what;
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

Tally World::run() {
  for (unsigned i = 0; i < setting_.calls && tally_.broken.empty(); ++i) {
    one_call();
    if (setting_.restart_in_pause && random_.chance(setting_.restart_share))
      start_server();
    const Time until = now_ + duration_up_to(setting_.longest_pause);
    while (now_ < until && tally_.broken.empty())
      step(until);
  }
  if (const auto ack = activity_.take_ack()) {
    note_sent(ack->header, true);
    pass_on(To::server, ack->header, kClient);
  }
  settle();
  return std::move(tally_);
}

// Left alone, a server forgets all bodies within a bounded time and number of packets.
void World::settle() {
  const Time begun = now_;
  packets_of_call_ = 0;
  while (tally_.broken.empty() && (!events_.empty() || core_->statistics().bytes_held > 0)) {
    if (events_.empty() && !core_->wakeup())
      return fail("the server holds bodies and no clock runs");
    step(std::nullopt);
    if (now_ - begun > setting_.longest_operation + setting_.server.client_silence + seconds(100) ||
        packets_of_call_ > 500)
      return fail("the server does not come to rest");
  }
}

void World::one_call() {
  ++tally_.calls;
  Plan& plan = plans_[++id_];
  plan.idempotent = random_.chance(setting_.idempotent_share);
  plan.request = bytes(id_, size_up_to(setting_.longest_request));
  plan.reply = bytes(id_, size_up_to(setting_.longest_reply));
  plan.operation = duration_up_to(setting_.longest_operation);
  plan.refused = random_.chance(setting_.refused_share);

  CallRequest request;
  request.operation = plan.idempotent ? &server::kReadOperation : &server::kChangeOperation;
  request.body = plan.request;
  request.timeout_level =
      static_cast<unsigned>(random_.between(setting_.least_level, setting_.greatest_level));
  request.reply_limit = plan.reply.size() + random_.between(0, 100);
  request.path_limit = setting_.client_fragment;
  request.max_fragment =
      static_cast<std::uint32_t>(std::max(setting_.client_fragment, kLeastMaxFragment));
  working_.reset();
  if (random_.chance(setting_.outage_share)) {
    const std::uint64_t ways = random_.between(1, 3);
    outage_.begin = now_ + duration_up_to(seconds(2));
    outage_.end = outage_.begin + duration_up_to(setting_.longest_outage);
    outage_.to_server = (ways & 1) != 0;
    outage_.to_client = (ways & 2) != 0;
  }
  for (unsigned i = 0; i < setting_.strangers; ++i)
    call_of_stranger();
  call_begun_ = last_life_ = now_;
  packets_of_call_ = 0;
  seen_.clear();
  if (!setting_.restart_in_pause && random_.chance(setting_.restart_share))
    events_.push({now_ + duration_up_to(setting_.longest_operation + seconds(1)),
                  ++order_,
                  Event::Kind::restart,
                  {},
                  {},
                  life_});

  if (tracing_)
    std::printf("%9.4f call of level %u, request %zu, reply %zu, operation %.3f s\n",
                std::chrono::duration<double>(now_.time_since_epoch()).count(),
                request.timeout_level, plan.request.size(), plan.reply.size(),
                std::chrono::duration<double>(plan.operation).count());
  ClientCall call(activity_, identity_, random_, request, now_);
  call_ = &call;
  pump();
  const std::optional<Duration> silence = silence_of_level(request.timeout_level);
  // One retransmission, which at the shorter levels is cut to half of the silence.
  const Duration repeat = silence ? std::min(kLongestRepeat, *silence / 2) : kLongestRepeat;
  const Duration slack = repeat + repeat * kSpreadPercent / 100 +
                         (setting_.late_share > 0 ? kLongestSleep : Duration{});
  while (!call.done() && tally_.broken.empty()) {
    const std::optional<Time> wake_up = call.wakeup();
    if (!wake_up && events_.empty() && !core_->wakeup())
      fail("nothing can move the call any more");
    else
      step(wake_up);
    if (silence && !call.done() && now_ > last_life_ + *silence + slack)
      fail("the call goes on beyond its level");
    if (now_ > call_begun_ + kUnlimited)
      fail("the call does not end");
    check_bounds();
  }
  call_ = nullptr;
  if (!tally_.broken.empty())
    return;

  ++tally_.statuses[call.status()];
  if (plan.refused && call.status() == 0)
    fail("success of a call that was refused");
  if (plan.refused && call.status() == kRefusal) {
    ++tally_.succeeded;
    return;
  }
  if (call.status() != 0) {
    tally_.failed_seeds.push_back(seed_);
    return;
  }
  ++tally_.succeeded;
  if (setting_.deliver_flips)
    return;
  if (call.take_reply() != plan.reply)
    fail("the reply is not what the server sent");
  if (plan.runs == 0)
    fail("success without a run");
}

// The next thing that happens; time does not go beyond `client_wake_up`.
void World::step(std::optional<Time> client_wake_up) {
  if (client_wake_up)
    client_wake_up = std::max(*client_wake_up, asleep_until_);
  std::optional<Time> next = client_wake_up;
  const auto earlier = [&next](const std::optional<Time>& time) {
    if (time && (!next || *time < *next))
      next = time;
  };
  if (!events_.empty())
    earlier(events_.top().time);
  earlier(core_->wakeup());
  if (!next)
    return;
  now_ = std::max(now_, *next);
  if (!events_.empty() && events_.top().time <= now_) {
    const Event event = events_.top();
    events_.pop();
    happen(event);
  }
  core_->on_time(now_);
  if (call_ != nullptr && now_ >= asleep_until_) {
    if (client_wake_up && *client_wake_up <= now_ && random_.chance(setting_.late_share))
      asleep_until_ = now_ + duration_up_to(kLongestSleep);
    else
      call_->on_time(now_);
  }
  pump();
}

void World::happen(const Event& event) {
  switch (event.kind) {
    case Event::Kind::to_client: {
      trace("to client", event.bytes);
      if (call_ == nullptr)
        return;
      if (now_ < asleep_until_) {
        Event later = event;
        later.time = asleep_until_;
        events_.push(std::move(later));
        return;
      }
      const bool was_done = call_->done();
      call_->receive(event.bytes, event.source, now_);
      const auto packet = decode_packet(event.bytes);
      if (packet && packet->header.type == PacketType::working && !plans_[id_].idempotent)
        working_ = packet->header;
      // An upper bound: whatever comes to the client may be a sign of life.
      if (!was_done && packet)
        last_life_ = now_;
      return;
    }
    case Event::Kind::to_server:
      trace("to server", event.bytes);
      if (const auto packet = decode_packet(event.bytes);
          packet && packet->header.type == PacketType::response && packet->body.size() >= 4)
        vouched_ = load32(packet->body.data(), packet->header.representation.little_endian);
      core_->receive(event.bytes, event.source, now_);
      return;
    case Event::Kind::operation_done:
      if (event.life == life_)
        core_->complete(event.number,
                        event.bytes.empty()
                            ? server::Outcome::fault(kRefusal)
                            : server::Outcome{server::Outcome::Kind::reply, 0, event.bytes},
                        now_);
      return;
    case Event::Kind::restart:
      trace("new server", {});
      if (event.life == life_)
        start_server();
      return;
    case Event::Kind::wake:
      return;
  }
}

// Hands over what has come out of both machines until nothing more comes.
void World::pump() {
  for (;;) {
    bool moved = false;
    if (call_ != nullptr) {
      while (const auto sent = call_->next_datagram(now_)) {
        moved = true;
        const auto datagram = sent->bytes();
        note_sent(datagram, true);
        if (random_.chance(setting_.move_share))
          client_ = client_ == kClient ? kClientElsewhere : kClient;
        pass_on(To::server, datagram, client_);
        if (packets_of_call_ > 10'000'000)
          return fail("packets without end");
      }
    }
    while (const auto sent = core_->next_datagram()) {
      moved = true;
      const auto datagram = sent->bytes();
      note_sent(datagram, false);
      if (sent->to != client_)
        continue;
      if (sent->call_back && random_.chance(setting_.call_back_loss))
        continue;
      pass_on(To::client, datagram,
              sent->call_back ? kCallBackPort
                              : (setting_.answers_from_elsewhere ? kServerElsewhere : kServer));
    }
    for (server::ReadyCall& ready : core_->take_calls()) {
      moved = true;
      run_operation(std::move(ready));
    }
    vouched_.reset();
    core_->take_gone_clients();
    if (!moved)
      return;
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
  events_.push({now_ + duration_up_to(seconds(1)), ++order_, Event::Kind::to_server,
                kClientElsewhere, encode_packet(header, bytes(0, 100))});
}

void World::pass_on(To to, std::span<const std::byte> datagram, const SocketAddress& source) {
  if (cut_off(to)) {
    if (to == To::server && setting_.outage_is_told && call_ != nullptr)
      call_->unreachable(datagram, kServer, now_);
    return;
  }
  server::FaultInjector& network = to == To::server ? to_server_ : to_client_;
  for (server::FaultInjector::Delivery& delivery : network.pass(datagram, now_)) {
    const bool flipped =
        !std::equal(delivery.bytes.begin(), delivery.bytes.end(), datagram.begin());
    if (flipped && !setting_.deliver_flips)
      continue;
    events_.push({delivery.time, ++order_,
                  to == To::server ? Event::Kind::to_server : Event::Kind::to_client, source,
                  std::move(delivery.bytes)});
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
  if (plan.operation.count() == 0 && !plan.refused)
    core_->complete(ready.number, {server::Outcome::Kind::reply, 0, plan.reply}, now_);
  else
    events_.push({now_ + plan.operation,
                  ++order_,
                  Event::Kind::operation_done,
                  {},
                  plan.refused ? std::vector<std::byte>() : plan.reply,
                  life_,
                  ready.number});
}

// Two packets are the same when they differ in nothing but the serial number.
void World::note_sent(std::span<const std::byte> datagram, bool by_client) {
  trace(by_client ? "client sends" : "server sends", datagram);
  ++packets_of_call_;
  ++(by_client ? tally_.client_packets : tally_.server_packets);
  const auto packet = decode_packet(datagram);
  if (!packet)
    return fail("something was sent that is no packet");
  const std::size_t longest = by_client ? std::min(setting_.client_fragment, kLeastMaxFragment)
                                        : std::max(setting_.client_fragment, kLeastMaxFragment);
  const PacketHeader& header = packet->header;
  if (datagram.size() > longest && header.type != PacketType::fack)
    return fail("a packet is longer than its receiver takes");
  if (by_client && header.type == PacketType::request &&
      header.interface_id == server::kEchoSpec.id) {
    plans_[id_].sequence = header.sequence;
    if (working_ && working_->activity == header.activity &&
        working_->sequence == header.sequence && !setting_.deliver_flips)
      fail("a request that must not run twice was sent again after \"working\"");
  }
  tally_.acks += header.type == PacketType::ack ? 1 : 0;
  tally_.pings += header.type == PacketType::ping ? 1 : 0;
  if (header.type == PacketType::fack)
    return;
  std::vector<std::byte> key(datagram.begin(), datagram.begin() + kHeaderSize);
  key[2] = key[7] = key[79] = std::byte{0};
  key.push_back(static_cast<std::byte>(by_client));
  tally_.repeated += seen_[key]++ > 0 ? 1 : 0;
}

// A call may take a multiple of its fragments and of its waiting time, and no more.
void World::check_bounds() {
  const Plan& plan = plans_[id_];
  const double lost = std::max(setting_.to_client.loss, setting_.to_server.loss) +
                      setting_.to_client.truncation + setting_.to_client.byte_flips;
  const double tries = 1 / std::max(0.2, (1 - lost) * (1 - lost));
  const auto fragments = static_cast<double>(
      fragments_of(plan.request.size(), std::min(setting_.client_fragment, kLeastMaxFragment)) +
      fragments_of(plan.reply.size(), std::min(setting_.server.fragment_size, kLeastMaxFragment)));
  const double waited = std::chrono::duration<double>(now_ - call_begun_).count();
  const double allowed = 200 + tries * (8 * fragments + 6 * waited);
  tally_.worst_packets =
      std::max(tally_.worst_packets, static_cast<double>(packets_of_call_) / allowed);
  if (static_cast<double>(packets_of_call_) > allowed)
    fail("more packets than the bound");
  if (setting_.strangers > 0) {
    if (core_->statistics().activities > setting_.server.max_activities)
      fail("the table exceeds its bound");
    return;
  }
  const std::size_t most_held = 2 * (setting_.longest_request + setting_.longest_reply + 64);
  if (core_->statistics().bytes_held > most_held && !setting_.deliver_flips)
    fail("the server holds more than its call");
  if (core_->statistics().activities > 4 && !setting_.deliver_flips)
    fail("the server knows more clients than there are");
}

}  // namespace rpc::simulation
