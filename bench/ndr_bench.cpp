// SPDX-License-Identifier: Apache-2.0
// How fast replies are decoded: 500 metric descriptors by the generated code, and by the whole
// client stub, against a copy of the decoded structures. The stub's time includes a copy of the
// reply's body, which stands in for its arrival.

#include <cstring>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "platform/rpc/client/invoke.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/stub/ndr.h"
#include "rep_server.h"
// The decoding functions of structures are local to the stub.
#include "rep_client.cpp"

namespace {

rpc::Reply prepared;

constexpr std::uint32_t kMetrics = 500;

void set_text(std::uint16_t& length, char* text, const std::string& value) {
  length = static_cast<std::uint16_t>(value.size());
  std::memcpy(text, value.c_str(), value.size() + 1);
}

class Metrics : public rep_Server {
 public:
  void LookupRepository(const rpc::server::CallInfo&, rep_sRepositoryDescriptor*,
                        error_status_t*) override {}
  void LookupTable(const rpc::server::CallInfo&, std::uint32_t, std::uint32_t*, std::uint32_t,
                   std::uint32_t*, rpc::server::Results<rep_sTableDescriptor>&,
                   error_status_t*) override {}
  void LookupInstance(const rpc::server::CallInfo&, std::uint32_t, std::uint32_t, std::uint32_t*,
                      std::uint32_t, std::uint32_t*, rpc::server::Results<rep_sInstanceDescriptor>&,
                      error_status_t*) override {}
  void LookupMetric(const rpc::server::CallInfo&, std::uint32_t, std::uint32_t, std::uint32_t*,
                    std::uint32_t maxIndex, std::uint32_t* lastIndex,
                    rpc::server::Results<rep_sMetricDescriptor>& results,
                    error_status_t*) override {
    *lastIndex = maxIndex;
    for (std::uint32_t i = 0; i <= maxIndex; ++i) {
      rep_sMetricDescriptor& metric = results[i];
      metric.Descriptor.fId = i;
      set_text(metric.Descriptor.NameLength, metric.Descriptor.fName,
               "GBL_CPU_TOTAL_UTIL_" + std::to_string(i));
      set_text(metric.Descriptor.LabelLength, metric.Descriptor.Label,
               "CPU utilisation of class " + std::to_string(i));
      set_text(metric.HeadOneLength, metric.HeadingOne, "CPU");
      set_text(metric.HeadTwoLength, metric.HeadingTwo, "Total %");
    }
  }
};

rpc::Reply metrics_reply(bool little_endian) {
  Metrics server;
  rpc::ndr::Encoder request;
  for (const std::uint32_t value : {0u, 0u, 0u, kMetrics - 1})
    request.put(value);
  const rpc::server::Outcome outcome =
      server.dispatch({}, 3, request.body(), {.little_endian = true}, little_endian);
  return {outcome.reply, {.little_endian = little_endian}};
}

RPC_BINDING_HANDLE binding() {
  RPC_BINDING_HANDLE handle = nullptr;
  RpcBindingFromStringBindingA("ncadg_ip_udp:127.0.0.1[1]", &handle);
  return handle;
}

using Metrics500 = std::vector<rep_sMetricDescriptor>;

// The time of one of many runs.
double each(const std::function<void()>& work) {
  constexpr int kRuns = 1000;
  return bench::processor_seconds_of([&] {
           for (int run = 0; run < kRuns; ++run)
             work();
         }) /
         kRuns;
}

void copy(const Metrics500& from, Metrics500& to) {
  std::memcpy(to.data(), from.data(), kMetrics * sizeof(rep_sMetricDescriptor));
  bench::keep(*to.data());
}

void decode_body(const rpc::Reply& reply, Metrics500& results) {
  rpc::ndr::Decoder in(reply.body, reply.representation);
  in.fields(4, 8);
  const std::uint32_t count = in.get_conformant_varying(kMetrics, kMetrics);
  for (std::uint32_t i = 0; i < count; ++i)
    decode(in, results[i]);
  bench::keep(*results.data());
}

void call_stub(handle_t handle, Metrics500& results) {
  std::uint32_t lookup = 0;
  std::uint32_t last = 0;
  error_status_t status = 1;
  zt_v2_rep_LookupMetric(handle, 1, 0, &lookup, kMetrics - 1, &last, results.data(), &status);
  bench::require(status == 0 && last == kMetrics - 1, "the lookup failed");
}

void compare(bool little_endian, handle_t handle) {
  prepared = metrics_reply(little_endian);
  const rpc::Reply reply = prepared;
  Metrics500 results(kMetrics);
  const Metrics500 decoded(kMetrics);
  Metrics500 copied(kMetrics);
  const std::string order = little_endian ? "little-endian" : "big-endian";
  const auto contest = [&](const std::string& what, const std::function<void()>& work,
                           const char* goal) {
    bench::report({.what = what + ", " + order,
                   .ours = [&] { return each(work); },
                   .against = "memcpy of the structures",
                   .baseline = [&] { return each([&] { copy(decoded, copied); }); },
                   .unit = bench::kMicroseconds,
                   .goal = goal});
  };
  contest(
      "decoding 500 metric descriptors", [&] { decode_body(reply, results); }, "4 or less");
  contest(
      "the whole client stub of that reply", [&] { call_stub(handle, results); }, "");
}

}  // namespace

namespace rpc {

Reply invoke(const CallTarget&, const OperationSpec&, std::span<const std::byte>, std::size_t) {
  return prepared;
}

void release_activities(bool) {}

}  // namespace rpc

int main() {
  handle_t handle = binding();
  for (const bool little_endian : {true, false})
    compare(little_endian, handle);
  RpcBindingFree(&handle);
}
