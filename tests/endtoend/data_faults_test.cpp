// SPDX-License-Identifier: Apache-2.0
// Faults in the middle of the configuration report and the data query. What makes a reply a lie is
// told where it is decided: by the stubs and by the repository client.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

const std::map<std::string, std::string> kQuick = {{"TZ", "UTC"}, {"ZT_RPC_TIMEOUT", "0"}};
const std::string kSilence =
    "The server does not answer; it may not be running, or the network may be down.";

std::string collector_source() {
  SourceText source("TAMBO");
  source.with_class("CONFIGURATION", "rows = 1\nfirst = 1705320000").metric("GBL_NUM_NETWORK");
  source.with_class("GLOBAL", "rows = 1\nfirst = 1705320000");
  source.metric("GBL_NUM_DISK", "width = 1");
  return source.text();
}

constexpr std::string_view kConfigurationReport =
    "CONFIGURATION data was collected at 01/15/24 12:00\n  Number of LANs : 0\n\n";
constexpr std::string_view kQueryReport =
    "Data source TAMBO, class GLOBAL\n                \nDate     Time   \n01/15/24 12:00 0\n\n";

// A call of one operation that goes wrong, in a check.
struct BrokenCall {
  std::string check;
  std::string operation;
  int after;             // calls of it that come before
  std::string settings;  // what becomes of it
  std::string expected_err;
};

std::vector<BrokenCall> broken_calls() {
  const std::string unspecified = "fault = 0x1C000012";
  std::vector<BrokenCall> calls;
  // The first look-up of the repository belongs to the connection to the system.
  const std::pair<std::string, int> operations[] = {
      {"rep_LookupRepository", 1}, {"rep_LookupRepository", 2}, {"rep_LookupTable", 0},
      {"rep_LookupMetric", 0},     {"rep_LookupMetric", 1},     {"repView_Create", 0},
      {"repView_SetPosition", 0},  {"repView_Read", 0},         {"repView_Destroy", 0},
  };
  for (const auto& [operation, after] : operations)
    for (const std::string check : {"-c", "-ds TAMBO"})
      calls.push_back({check, operation, after, unspecified, message(13, 101)});
  const std::pair<std::string, std::string> faults[] = {
      {"status = 0x4C010003", message(13, 4)},
      {"status = 5", message(13, 90, "Access to the resource was denied.")},
      {"silent = true", message(13, 90, kSilence)},
      {"die = true", message(13, 90, kSilence)},
      {"reply = '01020304'", message(13, 101)},
  };
  for (const auto& [settings, err] : faults)
    calls.push_back({"-ds TAMBO", "repView_Read", 0, settings, err});
  return calls;
}

TEST(DataFaults, EndInTheMessageOfTheOperationThatFailed) {
  const auto calls = broken_calls();
  const auto address_of = [](std::size_t i) { return "127.0.5." + std::to_string(i + 1); };
  std::string scenario = collector_source();
  for (std::size_t i = 0; i < calls.size(); ++i)
    scenario += "[[system]]\naddress = '" + address_of(i) +
                "'\n[[system.repository]]\nsource = 'TAMBO'\nbehaviour = [{operation = '" +
                calls[i].operation + "', after = " + std::to_string(calls[i].after) + ", " +
                calls[i].settings + "}]\n[system.alarm]\n";
  const Agent agent(scenario);
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const BrokenCall& call = calls[i];
    SCOPED_TRACE(call.check + " " + call.operation + " " + call.settings);
    const bool report = call.check == "-c";
    const Result result = report ? ztcomm({"-s", address_of(i), "-c"}, kQuick)
                                 : ztcomm({"-s", address_of(i), "-ds", "TAMBO"}, kQuick);
    std::string expected_err = message(20, 203, "0") + "\n";
    std::string expected_out =
        heading("ztcomm -s " + address_of(i) + " " + call.check, address_of(i));
    if (call.operation == "repView_Destroy") {
      expected_out += report ? kConfigurationReport : kQueryReport;
    } else {
      expected_err += message(11, 32, address_of(i)) + call.expected_err;
      if (report && call.operation.starts_with("rep_"))  // the data source did not open
        expected_err += message(20, 100);
    }
    EXPECT_EQ(result.err, expected_err);
    EXPECT_EQ(result.out, expected_out);
    EXPECT_EQ(result.status, 0);
  }
}

}  // namespace
}  // namespace endtoend
