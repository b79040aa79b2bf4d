// SPDX-License-Identifier: Apache-2.0
// A scripted agent in place of the stubs, the location broker's client and the endpoint query,
// which a test links instead of the real ones. Only the probe connection is real: a listener on
// loopback.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ag.h"
#include "rep.h"
#include "repTimeFilter.h"
#include "repView.h"
#include "shared/dce/ncs2dce.h"
#include "shared/general/SHsysNameConv.h"

struct ScriptedServer {
  std::string label;
  std::string name;
  std::uint32_t id = 0;
  std::string path;
  int port = 0;
};

struct ScriptedClass {
  rep_sTableDescriptor table{};
  std::vector<rep_sMetricDescriptor> metrics;
  std::vector<rep_sInstanceDescriptor> instances;
};

// The reply to one read. Indexes are those of the last elements unless a test lies about them.
struct ScriptedRead {
  std::vector<std::uint32_t> positions;
  std::vector<std::uint32_t> integers;
  std::string characters;
  std::map<std::string, std::uint32_t> lies;  // "position", "integer", "character"
};

struct ScriptedAgent {
  int probe_port = 0;  // in host order; 0: the listener's
  std::uint32_t broker_status = 0;
  std::uint16_t major = 2;
  error_status_t lookup_status = 0;
  ptc_LookupLosses losses;
  std::vector<ScriptedServer> servers;
  std::vector<ScriptedServer> alarm_servers;
  std::vector<ScriptedClass> classes;
  std::vector<ScriptedRead> reads;

  // By operation, such as "rep_LookupTable": a status to report, or to raise.
  std::map<std::string, error_status_t> statuses;
  std::map<std::string, error_status_t> raised;
  bool object_with_refusal = false;  // creates hand out an object whatever their status
  bool null_contexts = false;        // creates report success and hand out nothing
  std::map<std::string, std::uint32_t> last_indexes;  // lies about a look-up's last index

  // What was called, with what counts.
  std::vector<std::string> calls;
  std::uint32_t position = 0;
  std::uint32_t last_metric_index = 0;
  std::vector<std::uint32_t> metric_ids;
  std::uint32_t most_positions = 0;
  std::vector<repTimeFilter_sShiftDescriptor> shifts;
  int records_held = 0;  // endpoint records that nobody has released

  int count(const std::string& operation) const;
};

extern ScriptedAgent agent;

inline constexpr SystemKey kLoopback = 0x0100007F;

// Lets the probe reach another loopback address, for the rest of the process.
void listen_on(SystemKey key);
// A port that refuses connections.
int refusing_port();
rep_sDescriptor descriptor(std::uint32_t id, const std::string& name,
                           const std::string& label = {});
ScriptedClass make_class(std::uint32_t id, const std::string& name,
                         const std::vector<std::string>& metrics);
// An agent with one server of the name.
void script_one_server(const std::string& name);
