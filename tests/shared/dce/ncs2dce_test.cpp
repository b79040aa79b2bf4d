// SPDX-License-Identifier: Apache-2.0
// The endpoint query's filters over a scripted map, the ignore list and its scanners.

#include "shared/dce/ncs2dce.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/rpc/client/invoke.h"
#include "platform/sys/sockets.h"
#include "shared/general/nt/SHderControlObj.h"
#include "tests/support/settings_text.h"

using namespace std::chrono_literals;

// --- A scripted endpoint map in place of the runtime's inquiry and listening probe.

namespace {

struct MapElement {
  std::string binding;
  RPC_STATUS listening = RPC_S_OK;
};

struct ScriptedMap {
  RPC_STATUS begin = RPC_S_OK;
  std::vector<MapElement> elements;
  RPC_STATUS end = RPC_X_NO_MORE_ENTRIES;
  bool endless = false;  // the last element comes again and again
  std::size_t next = 0;
  int begun = 0, done = 0, probes = 0;
  std::chrono::milliseconds wait{};                // 0: the level's
  std::vector<std::chrono::milliseconds> waits{};  // of the probes
};
ScriptedMap script;
constexpr std::uint32_t kLevel = 5;  // 30 s

uuid_t object_of(std::size_t index) {
  uuid_t object{};
  object.time_low = static_cast<std::uint32_t>(index + 1);
  return object;
}

}  // namespace

RPC_STATUS RpcMgmtEpEltInqBegin(RPC_BINDING_HANDLE, std::uint32_t inquiry_type, const rpc_if_id_t*,
                                std::uint32_t version_option, const uuid_t*,
                                RPC_EP_INQ_HANDLE* inquiry) {
  EXPECT_EQ(RPC_C_EP_MATCH_BY_IF, inquiry_type);
  EXPECT_EQ(RPC_C_VERS_EXACT, version_option);
  ++script.begun;
  *inquiry = reinterpret_cast<RPC_EP_INQ_HANDLE>(&script);
  return script.begin;
}

RPC_STATUS RpcMgmtEpEltInqNextA(RPC_EP_INQ_HANDLE, rpc_if_id_t* interface_id,
                                RPC_BINDING_HANDLE* binding, uuid_t* object, char** annotation) {
  EXPECT_EQ(nullptr, annotation);
  if (script.next >= script.elements.size()) {
    if (!script.endless)
      return script.end;
    script.next = script.elements.size() - 1;
  }
  *interface_id = {};
  *object = object_of(script.next);
  const RPC_STATUS status =
      RpcBindingFromStringBindingA(script.elements[script.next++].binding.c_str(), binding);
  RpcMgmtSetComTimeout(*binding, kLevel);
  return status;
}

RPC_STATUS RpcMgmtEpEltInqDone(RPC_EP_INQ_HANDLE* inquiry) {
  ++script.done;
  *inquiry = nullptr;
  return RPC_S_OK;
}

std::optional<std::chrono::milliseconds> RpcMgmtLimitWaits(
    std::optional<std::chrono::milliseconds> longest) {
  script.wait = longest.value_or(0ms);
  return std::nullopt;
}

RPC_STATUS RpcMgmtIsServerListening(RPC_BINDING_HANDLE binding) {
  ++script.probes;
  std::uint32_t level = 0;
  RpcMgmtInqComTimeout(binding, &level);
  EXPECT_EQ(kLevel, level);
  script.waits.push_back(script.wait);
  return script.elements[script.next - 1].listening;
}

namespace {

const rpc_if_id_t kInterface = {{}, 2, 0};

std::string udp(const std::string& address, int port) {
  return "ncadg_ip_udp:" + address + "[" + std::to_string(port) + "]";
}

// The settings folder that the ignore list is read from.
class SettingsFolder {
 public:
  explicit SettingsFolder(const std::string& ignore_list) {
    folder_ =
        std::filesystem::path(::testing::TempDir()) / ("ncs2dce_" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_);
    std::ofstream(folder_ / "ignoreip.txt") << ignore_list;
    std::ofstream(folder_ / "zentrace.reg") << test::settings_text("", folder_.string());
    ::setenv("ZT_REGISTRY", (folder_ / "zentrace.reg").c_str(), 1);
    control_ = std::make_unique<CONTROL_OBJ>("zt/");
  }
  ~SettingsFolder() { std::filesystem::remove_all(folder_); }

 private:
  std::filesystem::path folder_;
  std::unique_ptr<CONTROL_OBJ> control_;
};

struct Outcome {
  error_status_t status = 99;
  std::uint32_t count = 0;
  ptc_LookupLosses losses;
  std::vector<std::string> bindings;
};

Outcome query(std::uint32_t capacity, const rpc_if_id_t& interface_id = kInterface,
              const ptc_LookupOptions& options = {}) {
  std::vector<ptc_RpcClientContextStruct> records(capacity);
  Outcome outcome;
  outcome.count = capacity;
  ptc_rpc_ep_lookup(nullptr, &interface_id, nullptr, records.data(), &outcome.count,
                    &outcome.status, &outcome.losses, options);
  if (outcome.status != RPC_S_OK)
    return outcome;
  for (std::uint32_t i = 0; i < outcome.count; ++i)
    outcome.bindings.push_back(records[i].fStringBinding);
  error_status_t released = 0;
  ptc_rpc_clnt_ctx_free(records.data(), outcome.count, &released);
  EXPECT_EQ(RPC_S_OK, released);
  return outcome;
}

TEST(EndpointQuery, AcceptsLiveDatagramServersInTheMapsOrder) {
  script = {};
  script.elements = {{udp("10.0.0.1", 2000)},
                     {"ncacn_ip_tcp:10.0.0.1[2001]"},
                     {udp("10.0.0.1", 2002), RPC_S_NOT_LISTENING},
                     {udp("10.0.0.2", 2000)},  // the first server through another address
                     {udp("10.0.0.1", 2003), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.1", 2004)}};
  const Outcome outcome = query(128);
  EXPECT_EQ(RPC_S_OK, outcome.status);
  EXPECT_EQ((std::vector{udp("10.0.0.1", 2000), udp("10.0.0.1", 2004)}), outcome.bindings);
  EXPECT_EQ(5, script.probes) << "the other sequence is probed, the repeated endpoint is not";
  EXPECT_EQ(1, script.done);
}

TEST(EndpointQuery, StopsAtItsCapacity) {
  script = {};
  script.elements = {
      {udp("10.0.0.1", 1), RPC_S_NOT_LISTENING}, {udp("10.0.0.1", 2)}, {udp("10.0.0.1", 3)}};
  const Outcome outcome = query(1);
  EXPECT_EQ(std::vector{udp("10.0.0.1", 2)}, outcome.bindings);
  EXPECT_EQ(2, script.probes);
  EXPECT_TRUE(outcome.losses.full);
}

TEST(EndpointQuery, ReportsHowTheInquiryEnded) {
  struct Case {
    const char* name;
    RPC_STATUS begin, end;
    std::size_t elements;
    error_status_t status;
    std::uint32_t count;
  };
  const Case cases[] = {
      {"end of the map", 0, RPC_X_NO_MORE_ENTRIES, 1, 0, 1},
      {"connection lost", 0, RPC_S_COMM_FAILURE, 1, 0, 1},
      {"no mapper there", 0, RPC_S_UNKNOWN_IF, 0, 0, 0},
      {"any other status", 0, 1728, 1, 1728, 128},
      {"inquiry cannot begin", 1702, 0, 0, 1702, 128},
  };
  for (const Case& test : cases) {
    script = {};
    script.begin = test.begin;
    script.end = test.end;
    script.elements.assign(test.elements, {udp("10.0.0.1", 2000)});
    const Outcome outcome = query(128);
    EXPECT_EQ(test.status, outcome.status) << test.name;
    EXPECT_EQ(test.count, outcome.count) << test.name;
  }
}

void answer_with(RPC_STATUS network) {
  rpc::set_last_call_outcome({RpcCallOutcome::Kind::undelivered, network});
}

TEST(EndpointQuery, TellsTheFirstServerThatDoesNotAnswerAndHowManyThereAre) {
  script = {};
  script.elements = {{"ncacn_ip_tcp:10.0.0.1[1]", RPC_S_PROTSEQ_NOT_SUPPORTED},
                     {udp("10.0.0.1", 6), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.1", 7), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.1", 7), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.2", 8), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.2", 6)}};
  answer_with(10061);
  const ptc_LookupLosses losses = query(8).losses;
  EXPECT_EQ("10.0.0.1", losses.server_address);
  EXPECT_EQ(7, losses.server_port) << "the one of port 6 answers at its other address";
  EXPECT_EQ(2, losses.servers);
  EXPECT_EQ(10061U, losses.server.outcome.network);
  EXPECT_FALSE(losses.full);
}

TEST(EndpointQuery, NeverLooksUpAnOldInterface) {
  script = {};
  const Outcome outcome = query(8, {{}, 1, 0});
  EXPECT_EQ(RPC_S_OK, outcome.status);
  EXPECT_EQ(0U, outcome.count);
  EXPECT_EQ(0, script.begun);
}

TEST(EndpointQuery, EndsEvenWhenTheMapDoesNot) {
  script = {};
  script.elements = {{udp("10.0.0.1", 1), RPC_S_NOT_LISTENING}};
  script.endless = true;
  const Outcome outcome = query(8);
  EXPECT_EQ(RPC_S_OK, outcome.status);
  EXPECT_EQ(0U, outcome.count);
  EXPECT_TRUE(outcome.losses.unfinished);
}

// A map of servers that swallow everything: the live one behind the first of them is found.
TEST(EndpointQuery, LosesPatienceWithServersThatAnswerNothing) {
  script = {};
  for (int port = 1; port <= 200; ++port)
    script.elements.push_back({udp("10.0.0.1", port), RPC_S_SERVER_UNAVAILABLE});
  script.elements[20].listening = RPC_S_OK;
  answer_with(10060);
  const Outcome outcome = query(128);
  EXPECT_EQ(std::vector{udp("10.0.0.1", 21)}, outcome.bindings);
  EXPECT_TRUE(outcome.losses.unfinished);
  std::vector waits(8, 0ms);
  waits.resize(65, 3750ms);
  EXPECT_EQ(waits, script.waits);

  answer_with(10061);
  script.next = 0;
  script.probes = 0;
  EXPECT_FALSE(query(128).losses.unfinished) << "a refusal costs no time";
  EXPECT_EQ(200, script.probes);
}

// What swallows packets is waited for once: a server, and an address other than the map's host.
TEST(EndpointQuery, WaitsOnceForOneDeadThing) {
  script = {};
  script.elements = {{udp("10.0.0.1", 1), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.1", 2), RPC_S_OK},
                     {udp("10.0.0.9", 3), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.9", 4), RPC_S_SERVER_UNAVAILABLE},
                     {udp("10.0.0.9", 5), RPC_S_OK}};
  answer_with(10060);
  KnownSilence silence;
  const std::uint32_t host = sockets::inet_addr("10.0.0.1");
  silence.add({host, 2, "rep_LookupTable"}, {RPC_S_SERVER_UNAVAILABLE, RpcLastCallOutcome()});
  const ptc_LookupOptions options{.silence = &silence, .host = host};
  EXPECT_EQ(2U, query(8, kInterface, options).count);
  EXPECT_EQ((std::vector{0ms, 2500ms, 0ms, 1250ms, 625ms}), script.waits);

  script.next = 0;
  script.waits.clear();
  const Outcome again = query(8, kInterface, options);
  EXPECT_EQ(2U, again.count);
  EXPECT_EQ(3, again.losses.servers) << "they are told as if they had been waited for";
  EXPECT_EQ((std::vector{2500ms, 625ms}), script.waits);
}

TEST(IgnoreList, DropsItsAddresses) {
  const SettingsFolder settings(
      "# a comment that mentions 192.168.7.21\n"
      "\n"
      "    \n"
      "   # a comment behind blanks\n"
      "192.168.7.20 the second network card\r\n"
      "\r\n"
      "\t10.9.9.9\r\n" +
      ("# " + std::string(400, 'x')) +
      " 192.168.7.21\n"
      "  192.168.7.22");
  std::array<std::int32_t, kMostIgnored> keys{};
  ASSERT_EQ(3U, ept_CheckIgnoreIPs(keys));

  script = {};
  script.elements = {{udp("192.168.7.20", 1)},
                     {udp("192.168.7.21", 2)},
                     {udp("192.168.7.22", 3)},
                     {udp("10.9.9.9", 4)}};
  EXPECT_EQ(std::vector{udp("192.168.7.21", 2)}, query(8).bindings);
}

TEST(IgnoreList, HoldsAtMostItsLimit) {
  std::string list;
  for (int i = 0; i < 1500; ++i)
    list += "10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250) + "\n";
  const SettingsFolder settings(list);
  std::array<std::int32_t, kMostIgnored> keys{};
  EXPECT_EQ(kMostIgnored, ept_CheckIgnoreIPs(keys));
}

// The example of the format's description, so that it stays true.
TEST(IgnoreList, ReadsTheExampleOfItsDescription) {
  std::ifstream page(ZT_FORMATS "/ignore-list.md");
  std::string text{std::istreambuf_iterator<char>(page), {}};
  const std::string fence = "```\n";
  const std::size_t start = text.find(fence) + fence.size();
  ASSERT_LT(start, text.size());
  text = text.substr(start, text.find(fence, start) - start);
  std::FILE* stream = ::fmemopen(text.data(), text.size(), "r");
  std::vector<std::string> names;
  while (const auto name = ept_NextIgnoredName(stream))
    names.push_back(*name);
  std::fclose(stream);
  EXPECT_EQ((std::vector<std::string>{"192.168.7.20", "192.168.7.21", "backup-gw.example"}), names);
}

TEST(IgnoreList, MissingFileIgnoresNothing) {
  std::array<std::int32_t, kMostIgnored> keys{};
  EXPECT_EQ(0U, ept_CheckIgnoreIPs(keys)) << "without any settings";
}

TEST(CopyToNewLine, ReadsLinesWithoutLeadingBlanks) {
  char text[] = "  one two  \n\n   \nlong line\nlast";
  std::FILE* stream = ::fmemopen(text, sizeof text - 1, "r");
  std::string line;
  std::vector<std::string> lines;
  while (ept_CopyToNewLine(line, stream, 9) != 0)
    lines.push_back(line);
  std::fclose(stream);
  EXPECT_EQ((std::vector<std::string>{"one two  \n", "\n", "\n", "long line\n", "last\n"}), lines);
}

TEST(GetToken, FindsTheFirstToken) {
  struct Case {
    const char* input;
    int most;
    const char* token;
    int position;
  };
  const Case cases[] = {
      {"10.1.2.3 rest\n", 15, "10.1.2.3", 0},
      {" \t\n host\n", 15, "host", 4},
      {"", 15, "", 0},
      {"  \n", 15, "", 3},
      {"abcdef", 3, "abc", 0},
      {"'a b' c", 15, "'a b'", 0},
      {"\"a'b\" c", 15, "\"a'b\"", 0},
      {"\"open end", 15, "\"open end", 0},
      {"'a\t'b' c", 15, "'a'b'", 0},  // the quote behind a tab is taken as it is
      {"'a\n", 15, "'a", 0},
      {"\"abcdef\"", 4, "\"abc", 0},
  };
  for (const Case& test : cases) {
    std::string token = "stale";
    int position = -1;
    EXPECT_EQ(static_cast<int>(std::string(test.token).size()),
              ept_GetToken(test.input, token, position, test.most))
        << test.input;
    EXPECT_EQ(test.token, token) << test.input;
    EXPECT_EQ(test.position, position) << test.input;
  }
  std::string token;
  int position = 0;
  EXPECT_EQ(0, ept_GetToken(nullptr, token, position, 15));
}

TEST(BindingFromHostname, ComposesAndReportsFailures) {
  RPC_BINDING_HANDLE binding = nullptr;
  error_status_t status = 99;
  ptc_binding_from_hostname("10.1.2.3", "ncadg_ip_udp", &binding, &status);
  EXPECT_EQ(RPC_S_OK, status);
  char* text = nullptr;
  RpcBindingToStringBindingA(binding, &text);
  EXPECT_STREQ("ncadg_ip_udp:10.1.2.3", text);
  RpcStringFreeA(&text);
  RpcBindingFree(&binding);
  ptc_binding_from_hostname("10.1.2.3", "no_such_sequence", &binding, &status);
  EXPECT_NE(RPC_S_OK, status);
}

}  // namespace
