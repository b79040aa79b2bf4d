// SPDX-License-Identifier: Apache-2.0
// Endpoint inquiries and the management call over a mapper that the test plays itself: it stands in
// for the call machine and answers every call with bytes of its own.

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/rpc/stub/stub.h"
#include "tests/support/endpoint_map_bytes.h"
#include "tests/support/rpc_bytes.h"

namespace {

using endpoint_map::Body;
using endpoint_map::Entry;
using endpoint_map::lookup_reply;
using endpoint_map::Octets;
using endpoint_map::udp_tower;

constexpr std::uint32_t kNotRegistered = 0x16C9A0D6;
constexpr std::uint16_t kLookup = 2;
constexpr std::uint16_t kHandleFree = 4;
constexpr rpc_if_id_t kRep = {
    {0x5b3c82a0, 0x17e4, 0, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 0}}, 2, 0};
constexpr uuid_t kObject = {0x77, 0x17e4, 0, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 9}};

struct Call {
  rpc::CallTarget target;
  std::uint16_t opnum;
  bool idempotent;
  Octets request;
  std::size_t reply_limit;
};

// Every call that was made, and what answers the next one.
struct Mapper {
  std::vector<Call> calls;
  std::function<rpc::Reply(const Call&)> answer;
  std::optional<std::chrono::milliseconds> longest_wait;
};

Mapper& mapper() {
  static Mapper instance;
  return instance;
}

}  // namespace

rpc::Reply rpc::invoke(const CallTarget& target, const OperationSpec& operation,
                       std::span<const std::byte> request, std::size_t reply_limit) {
  mapper().calls.push_back({target,
                            operation.opnum,
                            operation.idempotent,
                            {request.begin(), request.end()},
                            reply_limit});
  Reply reply = mapper().answer(mapper().calls.back());
  if (reply.body.size() > reply_limit)
    throw RpcException(RPC_X_BAD_STUB_DATA, FailureKind::local);
  return reply;
}

void rpc::release_activities(bool) {}

std::optional<std::chrono::milliseconds> rpc::limit_waits(
    std::optional<std::chrono::milliseconds> longest) {
  return std::exchange(mapper().longest_wait, longest);
}

namespace {

rpc::Reply reply_of(Octets body, bool little_endian = true) {
  rpc::Reply reply;
  reply.body = std::move(body);
  reply.representation.little_endian = little_endian;
  return reply;
}

// An inquiry and its elements as texts.
class Inquiry {
 public:
  explicit Inquiry(RPC_BINDING_HANDLE binding, std::uint32_t type = RPC_C_EP_ALL_ELTS,
                   std::uint32_t version_option = 0) {
    EXPECT_EQ(RpcMgmtEpEltInqBegin(binding, type, &kRep, version_option, &kObject, &handle),
              RPC_S_OK);
  }
  ~Inquiry() {
    EXPECT_EQ(RpcMgmtEpEltInqDone(&handle), RPC_S_OK);
    EXPECT_EQ(handle, nullptr);
  }
  Inquiry(const Inquiry&) = delete;
  Inquiry& operator=(const Inquiry&) = delete;

  // `element`, which may be null, as "binding annotation"; what differs from an element of `rep`
  // without an object, found at the default level, stands before it.
  RPC_STATUS next(std::string* element) { return next_of(handle, element); }
  static RPC_STATUS next_of(RPC_EP_INQ_HANDLE inquiry, std::string* element) {
    rpc_if_id_t id{};
    uuid_t object{};
    RPC_BINDING_HANDLE binding = nullptr;
    char* annotation = nullptr;
    const RPC_STATUS status =
        element == nullptr ? RpcMgmtEpEltInqNextA(inquiry, &id, nullptr, nullptr, nullptr)
                           : RpcMgmtEpEltInqNextA(inquiry, &id, &binding, &object, &annotation);
    if (element == nullptr || status != RPC_S_OK) {
      EXPECT_EQ(binding, nullptr);
      EXPECT_EQ(annotation, nullptr);
      return status;
    }
    char* text = nullptr;
    EXPECT_EQ(RpcBindingToStringBindingA(binding, &text), RPC_S_OK);
    const unsigned level = rpc::target_of(binding).timeout_level;
    *element = (id.uuid == kRep.uuid && id.vers_major == 2 && id.vers_minor == 0 ? "" : "other ") +
               std::string(object == kObject    ? "object "
                           : object == uuid_t{} ? ""
                                                : "strange ") +
               (level == 5 ? "" : "level " + std::to_string(level) + " ") + text + " " + annotation;
    RpcStringFreeA(&text);
    RpcStringFreeA(&annotation);
    RpcBindingFree(&binding);
    return status;
  }
  // The next element's text, or "" at the end.
  std::string next() {
    std::string element;
    const RPC_STATUS status = next(&element);
    EXPECT_TRUE(status == RPC_S_OK || status == RPC_X_NO_MORE_ENTRIES) << status;
    return element;
  }

  RPC_EP_INQ_HANDLE handle = nullptr;
};

class EndpointInquiry : public testing::Test {
 protected:
  void SetUp() override {
    mapper() = {};
    binding_ = bind("ncadg_ip_udp:alpha[135]");
  }
  void TearDown() override { RpcBindingFree(&binding_); }

  static RPC_BINDING_HANDLE bind(const char* text) {
    RPC_BINDING_HANDLE binding = nullptr;
    EXPECT_EQ(RpcBindingFromStringBindingA(text, &binding), RPC_S_OK);
    return binding;
  }

  // Answers lookups with these bodies in turn and gives the cursor back when asked to.
  static void script(std::deque<Octets> bodies, bool little_endian = true) {
    mapper().answer = [bodies, little_endian](const Call& call) mutable {
      if (call.opnum == kHandleFree)
        return reply_of(endpoint_map::free_reply(little_endian), little_endian);
      if (bodies.empty())
        throw rpc::RpcException(RPC_S_SERVER_UNAVAILABLE, rpc::FailureKind::communication);
      Octets body = bodies.front();
      bodies.pop_front();
      return reply_of(std::move(body), little_endian);
    };
  }

  // The status that ends an inquiry over everything, and how many elements came before it.
  std::pair<RPC_STATUS, std::size_t> run_all() {
    Inquiry inquiry(binding_);
    std::size_t count = 0;
    while (inquiry.next(nullptr) == RPC_S_OK)
      ++count;
    const RPC_STATUS status = inquiry.next(nullptr);
    return {status, count};
  }

  static std::size_t calls_of(std::uint16_t opnum) {
    std::size_t count = 0;
    for (const Call& call : mapper().calls)
      count += call.opnum == opnum;
    return count;
  }

  RPC_BINDING_HANDLE binding_ = nullptr;
};

TEST_F(EndpointInquiry, HandsOutElementsOfAllBatchesOneByOne) {
  for (const bool little_endian : {true, false}) {
    mapper().calls.clear();
    script({lookup_reply(little_endian, 5,
                         {{9, udp_tower(10, 1, 2, 3, 1045), "Repository server"},
                          {0, udp_tower(10, 1, 2, 4, 65535), ""}},
                         0),
            lookup_reply(little_endian, 0, {{0, udp_tower(10, 1, 2, 3, 1046), "x"}}, 0)},
           little_endian);
    ASSERT_EQ(RpcMgmtSetComTimeout(binding_, 2), RPC_S_OK);
    {
      Inquiry inquiry(binding_);
      EXPECT_EQ(inquiry.next(), "object level 2 ncadg_ip_udp:10.1.2.3[1045] Repository server");
      EXPECT_EQ(inquiry.next(), "level 2 ncadg_ip_udp:10.1.2.4[65535] ");
      EXPECT_EQ(mapper().calls.size(), 1u);
      EXPECT_EQ(inquiry.next(), "level 2 ncadg_ip_udp:10.1.2.3[1046] x");
      EXPECT_EQ(inquiry.next(nullptr), RPC_X_NO_MORE_ENTRIES);
      EXPECT_EQ(inquiry.next(nullptr), RPC_X_NO_MORE_ENTRIES);
    }
    // The mapper gave the cursor back itself, with the last batch.
    EXPECT_EQ(mapper().calls.size(), 2u);
  }
}

// docs/formats/endpoint-map.md shows these bytes.
constexpr char kExampleRequest[] =
    "01 00 00 00 00 00 00 00 01 00 00 00 a0 82 3c 5b e4 17 00 00 02 0a 14 1e 28 00 00 00"
    "02 00 00 00 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
    "40 00 00 00";
constexpr char kExampleReply[] =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 40 00 00 00"
    "00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 04 00 02 00"
    "00 00 00 00 04 00 00 00 72 65 70 00 4b 00 00 00 4b 00 00 00 05 00 13 00 0d a0 82 3c"
    "5b e4 17 00 00 02 0a 14 1e 28 00 00 00 02 00 02 00 00 00 13 00 0d 04 5d 88 8a eb 1c"
    "c9 11 9f e8 08 00 2b 10 48 60 02 00 02 00 00 00 01 00 0a 02 00 00 00 01 00 08 02 00"
    "04 15 01 00 09 04 00 0a 01 02 03 00 00 00 00 00";

TEST_F(EndpointInquiry, ExampleRequestBringsTheExampleReply) {
  ASSERT_EQ(rpc::test::hex(kExampleReply).size(), 156u);
  script({rpc::test::hex(kExampleReply)});
  // The object is not sent, since the inquiry's type does not use it.
  Inquiry inquiry(binding_, RPC_C_EP_MATCH_BY_IF, RPC_C_VERS_EXACT);
  EXPECT_TRUE(mapper().calls.empty());
  EXPECT_EQ(inquiry.next(), "ncadg_ip_udp:10.1.2.3[1045] rep");
  EXPECT_EQ(inquiry.next(), "");
  ASSERT_EQ(mapper().calls.size(), 1u);
  EXPECT_EQ(mapper().calls[0].request, rpc::test::hex(kExampleRequest));
  EXPECT_TRUE(mapper().calls[0].idempotent);
  // An entry is object, referent, annotation 8 + 64, and its tower: maximum, length, 2048 octets.
  const std::size_t greatest = 20 + 4 + 12 + 64 * (16 + 4 + 72 + 4 + 4 + 2048) + 4;
  EXPECT_GE(mapper().calls[0].reply_limit, greatest);
  EXPECT_LE(mapper().calls[0].reply_limit, greatest + 8) << "gaps before the towers";
}

TEST_F(EndpointInquiry, AsksForAllByBothAndGoesOnWithTheCursor) {
  script({lookup_reply(true, 5, {}, 0), lookup_reply(true, 0, {}, kNotRegistered)});
  EXPECT_EQ(run_all().first, RPC_X_NO_MORE_ENTRIES);
  ASSERT_EQ(mapper().calls.size(), 2u);
  EXPECT_EQ(mapper().calls[0].request,
            Body(true).u32(0).u32(0).u32(0).u32(0).context(0).u32(64).bytes());
  EXPECT_EQ(mapper().calls[1].request,
            Body(true).u32(0).u32(0).u32(0).u32(0).context(5).u32(64).bytes());

  mapper().calls.clear();
  script({lookup_reply(true, 0, {}, 0)});
  EXPECT_EQ(Inquiry(binding_, RPC_C_EP_MATCH_BY_BOTH, RPC_C_VERS_UPTO).next(), "");
  Body expected(true);
  expected.u32(3).u32(1).uuid(0x77, 9).u32(2).uuid(0x5b3c82a0, 0).u16(2).u16(0).u32(5);
  EXPECT_EQ(mapper().calls[0].request, expected.context(0).u32(64).bytes());
}

TEST_F(EndpointInquiry, GivesTheCursorBackWhenClosedEarly) {
  script({lookup_reply(true, 5, {{0, udp_tower(10, 1, 2, 3, 1045), ""}}, 0)});
  RPC_EP_INQ_HANDLE stale = nullptr;
  {
    Inquiry inquiry(binding_);
    ASSERT_EQ(inquiry.next(nullptr), RPC_S_OK);
    stale = inquiry.handle;
  }
  ASSERT_EQ(mapper().calls.size(), 2u);
  EXPECT_EQ(mapper().calls[1].opnum, kHandleFree);
  EXPECT_FALSE(mapper().calls[1].idempotent);
  EXPECT_EQ(mapper().calls[1].request, Body(true).context(5).bytes());
  EXPECT_EQ(Inquiry::next_of(stale, nullptr), RPC_S_INVALID_BINDING);
}

TEST_F(EndpointInquiry, EndsWithAStatusForEachFailure) {
  using rpc::FailureKind;
  struct Case {
    const char* name;
    std::function<rpc::Reply()> second_answer;
    RPC_STATUS status;
    int gives_cursor_back;  // 2: and hardly waits for an answer
  };
  const auto failing = [](RPC_STATUS status, FailureKind kind) {
    return [=]() -> rpc::Reply { throw rpc::RpcException(status, kind); };
  };
  const auto saying = [](std::uint32_t cursor, std::uint32_t status) {
    return [=] { return reply_of(lookup_reply(true, cursor, {}, status)); };
  };
  const Case cases[] = {
      {"silence", failing(1722, FailureKind::communication), RPC_S_COMM_FAILURE, 2},
      {"lost", failing(1726, FailureKind::communication), RPC_S_COMM_FAILURE, 2},
      {"not run", failing(1727, FailureKind::communication), RPC_S_COMM_FAILURE, 2},
      {"unknown interface", failing(1717, FailureKind::communication), RPC_S_UNKNOWN_IF, 1},
      {"too busy", failing(1723, FailureKind::communication), RPC_S_SERVER_TOO_BUSY, 1},
      {"foreign characters", failing(1730, FailureKind::communication), 1730, 1},
      {"fault", failing(5, FailureKind::fault), 5, 1},
      {"failed on the server", failing(1726, FailureKind::fault), 1726, 1},
      {"undecodable", failing(1783, FailureKind::local), 1783, 1},
      {"cannot perform", saying(5, 0x16C9A0CD), 0x16C9A0CD, 1},
      {"not supported", saying(5, RPC_S_CANNOT_SUPPORT), RPC_S_CANNOT_SUPPORT, 1},
      {"no more", saying(0, kNotRegistered), RPC_X_NO_MORE_ENTRIES, 0},
      {"no more, cursor left open", saying(5, kNotRegistered), RPC_X_NO_MORE_ENTRIES, 1},
      {"nothing and no cursor", saying(0, 0), RPC_X_NO_MORE_ENTRIES, 0},
  };
  for (const Case& c : cases) {
    mapper().calls.clear();
    mapper().answer = [&](const Call& call) {
      EXPECT_EQ(call.opnum == kHandleFree && c.gives_cursor_back == 2,
                mapper().longest_wait.has_value());
      if (call.opnum == kHandleFree)
        return reply_of(endpoint_map::free_reply(true));
      if (calls_of(kLookup) == 1)
        return reply_of(lookup_reply(true, 5, {{0, udp_tower(10, 1, 2, 3, 1045), ""}}, 0));
      return c.second_answer();
    };
    const auto [status, count] = run_all();
    EXPECT_EQ(status, c.status) << c.name;
    EXPECT_EQ(count, 1u) << c.name;
    EXPECT_EQ(calls_of(kLookup), 2u) << c.name;
    EXPECT_EQ(calls_of(kHandleFree), c.gives_cursor_back > 0 ? 1u : 0u) << c.name;
  }
}

TEST_F(EndpointInquiry, EntriesThatComeWithTheEndAreHandedOut) {
  script({lookup_reply(true, 0, {{0, udp_tower(1, 2, 3, 4, 5), ""}}, kNotRegistered)});
  EXPECT_EQ(run_all(), (std::pair<RPC_STATUS, std::size_t>(RPC_X_NO_MORE_ENTRIES, 1)));
}

TEST_F(EndpointInquiry, MapperThatNeverEndsIsLeft) {
  for (const std::size_t batch : {0U, 64U}) {
    mapper().calls.clear();
    const std::vector<Entry> entries(batch, {0, udp_tower(10, 1, 2, 3, 1045), ""});
    mapper().answer = [&](const Call& call) {
      return reply_of(call.opnum == kHandleFree ? endpoint_map::free_reply(true)
                                                : lookup_reply(true, 5, entries, 0));
    };
    const std::size_t most = batch == 0 ? 0 : 16384;
    EXPECT_EQ(run_all(), (std::pair<RPC_STATUS, std::size_t>(RPC_S_PROTOCOL_ERROR, most)));
    EXPECT_LE(calls_of(kLookup), most / 64 + 20);
    EXPECT_EQ(calls_of(kHandleFree), 1u);
  }
}

TEST_F(EndpointInquiry, UnusableTowersAreSkipped) {
  Octets cut = udp_tower(10, 1, 2, 3, 1045);
  cut.pop_back();
  Octets unknown = udp_tower(10, 1, 2, 3, 1045);
  unknown[60] = std::byte{0x05};
  script({lookup_reply(true, 5, {{0, cut, "cut"}, {0, {}, "null"}, {0, unknown, "unknown"}}, 0),
          lookup_reply(true, 0, {{0, udp_tower(10, 1, 2, 3, 1045), "good"}, {0, cut, "cut"}}, 0)});
  Inquiry inquiry(binding_);
  EXPECT_EQ(inquiry.next(), "ncadg_ip_udp:10.1.2.3[1045] good");
  EXPECT_EQ(inquiry.next(), "");
}

TEST_F(EndpointInquiry, ServerAtEveryAddressIsWhereItsMapperIs) {
  script({lookup_reply(
      true, 0, {{0, udp_tower(0, 0, 0, 0, 1045), ""}, {0, udp_tower(0, 0, 0, 1, 1045), ""}}, 0)});
  Inquiry inquiry(binding_);
  EXPECT_EQ(inquiry.next(), "ncadg_ip_udp:alpha[1045] ");
  EXPECT_EQ(inquiry.next(), "ncadg_ip_udp:0.0.0.1[1045] ");
}

TEST_F(EndpointInquiry, MapperIsThisHostsAtItsKnownPortUnlessNamed) {
  RPC_BINDING_HANDLE without_port = bind("ncadg_ip_udp:alpha");
  struct Case {
    RPC_BINDING_HANDLE binding;
    const char* address;
  };
  for (const Case& c : {Case{nullptr, "127.0.0.1"}, Case{without_port, "alpha"}}) {
    mapper().calls.clear();
    script({lookup_reply(true, 0, {}, kNotRegistered)});
    EXPECT_EQ(Inquiry(c.binding).next(), "");
    ASSERT_EQ(mapper().calls.size(), 1u);
    EXPECT_EQ(mapper().calls[0].target.network_address, c.address);
    EXPECT_EQ(mapper().calls[0].target.endpoint, "135");
    EXPECT_EQ(mapper().calls[0].target.protocol_sequence, "ncadg_ip_udp");
  }
  RpcBindingFree(&without_port);
}

TEST_F(EndpointInquiry, SurvivesTheBindingItWasBegunWith) {
  script({lookup_reply(true, 0, {{0, udp_tower(1, 2, 3, 4, 5), ""}}, 0)});
  RPC_BINDING_HANDLE other = bind("ncadg_ip_udp:beta[135]");
  Inquiry inquiry(other);
  RpcBindingFree(&other);
  EXPECT_EQ(inquiry.next(nullptr), RPC_S_OK);
  EXPECT_EQ(mapper().calls[0].target.network_address, "beta");
}

TEST_F(EndpointInquiry, BadQuestionsAndHandlesAreRefused) {
  struct Case {
    std::uint32_t type;
    const rpc_if_id_t* interface_id;
    std::uint32_t version_option;
    const uuid_t* object;
    RPC_STATUS status;
  };
  const Case cases[] = {
      {4, &kRep, 1, &kObject, RPC_S_INVALID_ARG},
      {0xFFFFFFFF, &kRep, 1, &kObject, RPC_S_INVALID_ARG},
      {RPC_C_EP_MATCH_BY_IF, nullptr, 1, nullptr, RPC_S_INVALID_ARG},
      {RPC_C_EP_MATCH_BY_IF, &kRep, 0, nullptr, RPC_S_INVALID_ARG},
      {RPC_C_EP_MATCH_BY_IF, &kRep, 6, nullptr, RPC_S_INVALID_ARG},
      {RPC_C_EP_MATCH_BY_OBJ, nullptr, 0, nullptr, RPC_S_INVALID_ARG},
      {RPC_C_EP_MATCH_BY_BOTH, &kRep, 1, nullptr, RPC_S_INVALID_ARG},
      {RPC_C_EP_MATCH_BY_OBJ, nullptr, 0, &kObject, RPC_S_OK},
      {RPC_C_EP_ALL_ELTS, nullptr, 77, nullptr, RPC_S_OK},
  };
  for (const Case& c : cases) {
    RPC_EP_INQ_HANDLE inquiry = nullptr;
    EXPECT_EQ(RpcMgmtEpEltInqBegin(binding_, c.type, c.interface_id, c.version_option, c.object,
                                   &inquiry),
              c.status)
        << c.type << ' ' << c.version_option;
    EXPECT_EQ(inquiry != nullptr, c.status == RPC_S_OK);
    if (inquiry != nullptr)
      RpcMgmtEpEltInqDone(&inquiry);
  }
  EXPECT_TRUE(mapper().calls.empty());

  RPC_BINDING_HANDLE stale = bind("ncadg_ip_udp:alpha[135]");
  const RPC_BINDING_HANDLE freed = stale;
  RpcBindingFree(&stale);
  RPC_EP_INQ_HANDLE inquiry = nullptr;
  EXPECT_EQ(RpcMgmtEpEltInqBegin(freed, 0, nullptr, 0, nullptr, &inquiry), RPC_S_INVALID_BINDING);
  EXPECT_EQ(Inquiry::next_of(nullptr, nullptr), RPC_S_INVALID_BINDING);
  EXPECT_EQ(RpcMgmtEpEltInqDone(&inquiry), RPC_S_INVALID_BINDING);
  inquiry = reinterpret_cast<RPC_EP_INQ_HANDLE>(binding_);
  EXPECT_EQ(Inquiry::next_of(inquiry, nullptr), RPC_S_INVALID_BINDING);
}

TEST_F(EndpointInquiry, RepliesCutAnywhereOrWithFalseCountsAreRefused) {
  const std::vector<Entry> entries = {{9, udp_tower(10, 1, 2, 3, 1045), "one"},
                                      {0, udp_tower(10, 1, 2, 4, 1046), "two"}};
  for (const bool little_endian : {true, false}) {
    const Octets whole = lookup_reply(little_endian, 0, entries, 0);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      script({Octets(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))},
             little_endian);
      EXPECT_EQ(run_all(), (std::pair<RPC_STATUS, std::size_t>(RPC_X_BAD_STUB_DATA, 0))) << length;
    }
  }

  struct Case {
    const char* name;
    std::size_t offset;
    unsigned value;  // of the low byte
  };
  const Case cases[] = {
      {"more entries than asked for", 20, 65},
      {"counts that differ", 20, 1},
      {"maximum beyond what was asked", 24, 65},
      {"maximum below the count", 24, 1},
      {"offset", 28, 1},
      {"annotation without end", 60, 3},
      {"annotation offset", 56, 1},
      {"annotation too long", 60, 65},
      {"tower below its maximum", 104, 74},
      {"tower beyond its maximum", 104, 77},
  };
  for (const Case& c : cases) {
    Octets body = lookup_reply(true, 0, entries, 0);
    body[c.offset] = static_cast<std::byte>(c.value);
    script({body});
    EXPECT_EQ(run_all().first, RPC_X_BAD_STUB_DATA) << c.name;
  }
  for (const auto& [size, status] :
       {std::pair(2048U, RPC_X_NO_MORE_ENTRIES), std::pair(2049U, RPC_X_BAD_STUB_DATA)}) {
    script({lookup_reply(true, 0, {{0, Octets(size), "tower"}}, 0)});
    EXPECT_EQ(run_all().first, status) << size;
  }
}

TEST_F(EndpointInquiry, ListeningIsWhatTheServerSays) {
  struct Case {
    std::function<rpc::Reply()> answer;
    RPC_STATUS status;
  };
  const auto saying = [](std::uint32_t status, std::uint32_t listening, bool little_endian) {
    return [=] {
      return reply_of(Body(little_endian).u32(status).u32(listening).bytes(), little_endian);
    };
  };
  const auto failing = [](RPC_STATUS status) {
    return
        [=]() -> rpc::Reply { throw rpc::RpcException(status, rpc::FailureKind::communication); };
  };
  const Case cases[] = {
      {saying(0, 1, true), RPC_S_OK},
      {saying(0, 1, false), RPC_S_OK},
      {saying(0, 0, true), RPC_S_NOT_LISTENING},
      {saying(5, 1, true), 5},
      {saying(5, 0, false), 5},
      {failing(RPC_S_SERVER_UNAVAILABLE), RPC_S_SERVER_UNAVAILABLE},
      {failing(RPC_S_PROTSEQ_NOT_SUPPORTED), RPC_S_PROTSEQ_NOT_SUPPORTED},
      {[] { return reply_of(Octets(7)); }, RPC_X_BAD_STUB_DATA},
  };
  for (const Case& c : cases) {
    mapper().answer = [&](const Call&) { return c.answer(); };
    EXPECT_EQ(RpcMgmtIsServerListening(binding_), c.status);
  }
  EXPECT_EQ(mapper().calls[0].opnum, 2);
  EXPECT_TRUE(mapper().calls[0].idempotent);
  EXPECT_TRUE(mapper().calls[0].request.empty());
  EXPECT_EQ(RpcMgmtIsServerListening(nullptr), RPC_S_INVALID_BINDING);
}

}  // namespace
