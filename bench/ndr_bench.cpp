// SPDX-License-Identifier: Apache-2.0
// How fast replies are decoded: 500 metric descriptors by the generated code, and by the whole
// client stub, against a copy of the decoded structures. The stub's time includes a copy of the
// reply's body, which stands in for its arrival.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

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
                   std::uint32_t*, rep_sTableDescriptor*, error_status_t*) override {}
  void LookupInstance(const rpc::server::CallInfo&, std::uint32_t, std::uint32_t, std::uint32_t*,
                      std::uint32_t, std::uint32_t*, rep_sInstanceDescriptor*,
                      error_status_t*) override {}
  void LookupMetric(const rpc::server::CallInfo&, std::uint32_t, std::uint32_t, std::uint32_t*,
                    std::uint32_t maxIndex, std::uint32_t* lastIndex,
                    rep_sMetricDescriptor* results, error_status_t*) override {
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

void CopyMetrics(benchmark::State& state) {
  const std::vector<rep_sMetricDescriptor> decoded(kMetrics);
  std::vector<rep_sMetricDescriptor> copy(kMetrics);
  benchmark::DoNotOptimize(copy.data());
  for (auto _ : state) {
    std::memcpy(copy.data(), decoded.data(), kMetrics * sizeof(rep_sMetricDescriptor));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(CopyMetrics);

void DecodeMetrics(benchmark::State& state) {
  const rpc::Reply reply = metrics_reply(state.range(0) != 0);
  std::vector<rep_sMetricDescriptor> results(kMetrics);
  for (auto _ : state) {
    rpc::ndr::Decoder in(reply.body, reply.representation);
    in.fields(4, 8);
    const std::uint32_t count = in.get_conformant_varying(kMetrics, kMetrics);
    for (std::uint32_t i = 0; i < count; ++i)
      decode(in, results[i]);
    benchmark::DoNotOptimize(results.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(DecodeMetrics)->Arg(1)->Arg(0)->ArgName("little_endian");

void LookupMetrics(benchmark::State& state) {
  prepared = metrics_reply(state.range(0) != 0);
  handle_t handle = binding();
  std::vector<rep_sMetricDescriptor> results(kMetrics);
  for (auto _ : state) {
    std::uint32_t lookup = 0;
    std::uint32_t last = 0;
    error_status_t status = 1;
    zt_v2_rep_LookupMetric(handle, 1, 0, &lookup, kMetrics - 1, &last, results.data(), &status);
    if (status != 0 || last != kMetrics - 1)
      state.SkipWithError("the lookup failed");
    benchmark::ClobberMemory();
  }
  RpcBindingFree(&handle);
}
BENCHMARK(LookupMetrics)->Arg(1)->Arg(0)->ArgName("little_endian");

}  // namespace

namespace rpc {

Reply invoke(const CallTarget&, const OperationSpec&, std::span<const std::byte>, std::size_t) {
  return prepared;
}

void release_activities() {}

}  // namespace rpc

BENCHMARK_MAIN();
