// SPDX-License-Identifier: Apache-2.0
#include "scripted_agent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "repFilteredView.h"
#include "repTemporalView.h"

namespace {

constexpr rpc::InterfaceSpec kRep = {{1, 0, 0, 0, 0, {}}, 2, 0, "rep"};
constexpr rpc::InterfaceSpec kAg = {{2, 0, 0, 0, 0, {}}, 2, 0, "ag"};

// Notes the call and applies what the test wants of it. True: the operation goes on.
bool enter(const std::string& operation, error_status_t* status) {
  agent.calls.push_back(operation);
  if (const auto raised = agent.raised.find(operation); raised != agent.raised.end())
    throw rpc::RpcException(raised->second, rpc::FailureKind::fault);
  const auto wanted = agent.statuses.find(operation);
  *status = wanted != agent.statuses.end() ? wanted->second : 0;
  return *status == 0;
}

void create(const std::string& operation, RPC_CONTEXT_HANDLE* context, error_status_t* status) {
  if ((enter(operation, status) && !agent.null_contexts) || agent.object_with_refusal)
    *context = reinterpret_cast<RPC_CONTEXT_HANDLE>(&agent);
}

template <typename Element>
void answer(const std::string& operation, const std::vector<Element>& elements,
            std::uint32_t max_index, std::uint32_t* last_index, Element* results,
            error_status_t* status) {
  if (!enter(operation, status))
    return;
  const std::size_t count = std::min<std::size_t>(elements.size(), std::size_t{max_index} + 1);
  std::copy_n(elements.begin(), count, results);
  *last_index = static_cast<std::uint32_t>(count) - 1;
  if (const auto lie = agent.last_indexes.find(operation); lie != agent.last_indexes.end())
    *last_index = lie->second;
}

const ScriptedClass& class_of(std::uint32_t id) {
  return *std::find_if(agent.classes.begin(), agent.classes.end(),
                       [id](const ScriptedClass& one) { return one.table.Descriptor.fId == id; });
}

const ScriptedServer& server_of(handle_t handle) {
  char* text = nullptr;
  char* port = nullptr;
  RpcBindingToStringBindingA(handle, &text);
  RpcStringBindingParseA(text, nullptr, nullptr, nullptr, &port, nullptr);
  const auto server =
      std::find_if(agent.servers.begin(), agent.servers.end(),
                   [&](const ScriptedServer& one) { return std::to_string(one.port) == port; });
  RpcStringFreeA(&text);
  RpcStringFreeA(&port);
  return *server;
}

template <typename Element>
void copy_results(const std::vector<Element>& elements, const char* name, const ScriptedRead& read,
                  std::uint32_t max_index, Element* results, std::uint32_t* last_index) {
  const std::size_t count = std::min<std::size_t>(elements.size(), std::size_t{max_index} + 1);
  std::copy_n(elements.begin(), count, results);
  const auto lie = read.lies.find(name);
  *last_index = lie != read.lies.end() ? lie->second : static_cast<std::uint32_t>(count) - 1;
}

}  // namespace

int ScriptedAgent::count(const std::string& operation) const {
  return static_cast<int>(std::count(calls.begin(), calls.end(), operation));
}

rep_sDescriptor descriptor(std::uint32_t id, const std::string& name, const std::string& label) {
  rep_sDescriptor result{};
  result.fId = id;
  result.NameLength = static_cast<std::uint16_t>(name.size());
  result.LabelLength = static_cast<std::uint16_t>(label.size());
  std::memcpy(result.fName, name.data(), name.size());
  std::memcpy(result.Label, label.data(), label.size());
  return result;
}

ScriptedClass make_class(std::uint32_t id, const std::string& name,
                         const std::vector<std::string>& metrics) {
  ScriptedClass result;
  result.table.Descriptor = descriptor(id, name);
  result.table.DiscriminatorId = 0xFFFFFFFF;
  result.table.FirstX = 911404800;
  result.table.LastX = 911412000;
  for (std::size_t i = 0; i < metrics.size(); ++i) {
    rep_sMetricDescriptor metric{};
    metric.Descriptor = descriptor(static_cast<std::uint32_t>(100 * id + i), metrics[i]);
    result.metrics.push_back(metric);
  }
  return result;
}

void script_one_server(const std::string& name) {
  agent = {};
  agent.servers = {{"", name, 7, "/var/opt/" + name, 2001}};
}

// --- Stubs.

const RPC_IF_HANDLE zt_v2_rep_v2_0_c_ifspec = &kRep;
const RPC_IF_HANDLE zt_v2_ag_v2_0_c_ifspec = &kAg;

void zt_v2_rep_LookupRepository(handle_t handle, rep_sRepositoryDescriptor* result,
                                error_status_t* status) {
  if (!enter("rep_LookupRepository", status))
    return;
  const ScriptedServer& server = server_of(handle);
  *result = {};
  result->Descriptor = descriptor(server.id, server.name, server.label);
  result->PathNameLength = static_cast<std::uint16_t>(server.path.size());
  std::memcpy(result->PathName, server.path.data(), server.path.size());
}

void zt_v2_rep_LookupTable(handle_t, std::uint32_t, std::uint32_t*, std::uint32_t max_index,
                           std::uint32_t* last_index, rep_sTableDescriptor* results,
                           error_status_t* status) {
  std::vector<rep_sTableDescriptor> tables;
  for (const ScriptedClass& one : agent.classes)
    tables.push_back(one.table);
  answer("rep_LookupTable", tables, max_index, last_index, results, status);
}

void zt_v2_rep_LookupMetric(handle_t, std::uint32_t table, std::uint32_t, std::uint32_t*,
                            std::uint32_t max_index, std::uint32_t* last_index,
                            rep_sMetricDescriptor* results, error_status_t* status) {
  const auto& metrics = class_of(table).metrics;
  if (metrics.empty()) {
    agent.calls.push_back("rep_LookupMetric");
    *status = 0x4C010001;
    return;
  }
  answer("rep_LookupMetric", metrics, max_index, last_index, results, status);
}

void zt_v2_rep_LookupInstance(handle_t, std::uint32_t table, std::uint32_t, std::uint32_t*,
                              std::uint32_t max_index, std::uint32_t* last_index,
                              rep_sInstanceDescriptor* results, error_status_t* status) {
  answer("rep_LookupInstance", class_of(table).instances, max_index, last_index, results, status);
}

void zt_v2_repView_Create(handle_t, std::uint32_t, std::uint32_t last_metric_index,
                          const std::uint32_t* metric_ids, RPC_CONTEXT_HANDLE* context,
                          error_status_t* status) {
  EXPECT_NE(nullptr, metric_ids);
  agent.last_metric_index = last_metric_index;
  agent.metric_ids.assign(metric_ids,
                          metric_ids + static_cast<std::uint32_t>(last_metric_index + 1));
  create("repView_Create", context, status);
}

void zt_v2_repView_SetPosition(RPC_CONTEXT_HANDLE, std::uint32_t* where, error_status_t* status) {
  agent.position = *where;
  enter("repView_SetPosition", status);
}

void zt_v2_repView_GetLastPosition(RPC_CONTEXT_HANDLE, std::uint32_t* where,
                                   error_status_t* status) {
  *where = agent.position;
  enter("repView_GetLastPosition", status);
}

void zt_v2_repView_Read(RPC_CONTEXT_HANDLE, std::uint32_t max_position,
                        std::uint32_t* last_position, std::uint32_t max_integer,
                        std::uint32_t* last_integer, std::uint32_t max_character,
                        std::uint32_t* last_character, std::uint32_t* positions,
                        std::uint32_t* integers, char* characters, error_status_t* status) {
  agent.most_positions = max_position;
  if (!enter("repView_Read", status))
    return;
  ASSERT_FALSE(agent.reads.empty());
  const ScriptedRead read = agent.reads.front();
  agent.reads.erase(agent.reads.begin());
  copy_results(read.positions, "position", read, max_position, positions, last_position);
  copy_results(read.integers, "integer", read, max_integer, integers, last_integer);
  copy_results(std::vector<char>(read.characters.begin(), read.characters.end()), "character", read,
               max_character, characters, last_character);
}

void zt_v2_repView_Destroy(RPC_CONTEXT_HANDLE* context, error_status_t* status) {
  enter("repView_Destroy", status);
  *context = nullptr;
}

void zt_v2_repTimeFilter_Create(handle_t, std::uint32_t last_shift,
                                const repTimeFilter_sShiftDescriptor* shifts,
                                RPC_CONTEXT_HANDLE* context, error_status_t* status) {
  agent.shifts.assign(shifts, shifts + last_shift + 1);
  create("repTimeFilter_Create", context, status);
}

void zt_v2_repTimeFilter_Destroy(RPC_CONTEXT_HANDLE* context, error_status_t* status) {
  enter("repTimeFilter_Destroy", status);
  *context = nullptr;
}

void zt_v2_repFilteredView_Create(handle_t, std::uint32_t, RPC_CONTEXT_HANDLE filter, std::uint32_t,
                                  const std::uint32_t*, RPC_CONTEXT_HANDLE* context,
                                  error_status_t* status) {
  EXPECT_NE(nullptr, filter);
  create("repFilteredView_Create", context, status);
}

void zt_v2_repTemporalView_Create(handle_t, std::uint32_t, RPC_CONTEXT_HANDLE filter, std::uint32_t,
                                  std::uint32_t, const std::uint32_t*, std::uint32_t,
                                  const std::uint32_t*, RPC_CONTEXT_HANDLE* context,
                                  error_status_t* status) {
  EXPECT_NE(nullptr, filter);
  create("repTemporalView_Create", context, status);
}

void zt_v2_ag_RegisterZT(handle_t, std::int32_t key, error_status_t* status) {
  EXPECT_EQ(0, key);
  enter("ag_RegisterZT", status);
}

void zt_v2_ag_UnregisterZT(handle_t, std::int32_t key, error_status_t* status) {
  EXPECT_EQ(0, key);
  enter("ag_UnregisterZT", status);
}

void zt_v2_ag_Ping(handle_t, error_status_t* status) {
  enter("ag_Ping", status);
}
