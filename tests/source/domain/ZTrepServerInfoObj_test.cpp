// SPDX-License-Identifier: Apache-2.0
// The repository client: the catalogue of a data source, names, views and reading.

#include "source/domain/ZTrepServerInfoObj.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <string>
#include <vector>

#include "captured.h"
#include "scripted_agent.h"

namespace {

std::string message(int set, int number) {
  return "<message catalog missing message " + std::to_string(number) + " in set " +
         std::to_string(set) + ">\n";
}

// A client that is connected to the data source.
struct Client : zt_RepServerInfo_class {
  Client() : zt_RepServerInfo_class(kLoopback, "127.0.0.1") {
    EXPECT_EQ(1, ConnectToServer("DATA"));
  }
};

class RepServerInfo : public ::testing::Test {
 protected:
  RepServerInfo() {
    script_one_server("DATA");
    agent.classes = {make_class(1, "GLOBAL", {"TIME", "CPU"}), make_class(2, "EMPTY", {}),
                     make_class(3, "DISK", {"NAME"})};
    agent.classes[2].table.Flags = 3;
    agent.classes[2].table.DiscriminatorId = 5;
    for (const char* label : {"ALPHA   ", "      ", "beta"}) {
      rep_sInstanceDescriptor instance{};
      instance.Descriptor = descriptor(9, std::string("I_") + label[0], label);
      agent.classes[2].instances.push_back(instance);
    }
  }

  std::string errors(zt_RepServerInfo_class& client) {
    return capture([&] { client.DisplayErrors(); }).err;
  }
};

TEST(MetricList, GivesBackWhatItKept) {
  std::vector<rep_sMetricDescriptor> metrics(3);
  std::memset(&metrics[1], 'x', sizeof metrics[1]);
  metrics[1].Descriptor.NameLength = metrics[1].Descriptor.LabelLength = 63;
  metrics[1].HeadOneLength = metrics[1].HeadTwoLength = 79;
  std::memset(metrics[1].Descriptor.fName + 63, 0, sizeof metrics[1].Descriptor.fName - 63);
  metrics[1].Descriptor.Label[63] = metrics[1].HeadingOne[79] = metrics[1].HeadingTwo[79] = '\0';
  metrics[2].Descriptor.fId = 7;
  ZTmetricList list;
  EXPECT_EQ(nullptr, list.Unpacked());
  for (const std::size_t count : {metrics.size(), std::size_t{1}}) {
    list.Keep(std::span(metrics).last(count));
    EXPECT_EQ(0, std::memcmp(list.Unpacked(), &metrics[3 - count], count * sizeof metrics[0]));
  }
  list.Keep({});
  EXPECT_EQ(nullptr, list.Unpacked());
}

TEST_F(RepServerInfo, LoadsTheCatalogue) {
  zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
  ASSERT_EQ(1, client.ValidObj());
  ASSERT_EQ(1, client.ConnectToServer("DATA"));
  EXPECT_STREQ("DATA", client.ReturnDataSourceName());
  EXPECT_EQ(3, client.ReturnNumClasses());
  EXPECT_EQ(2, client.ReturnNumMetrics(0));
  EXPECT_STREQ("CPU", client.ReturnMetrics(0)[1].Descriptor.fName);
  EXPECT_EQ(0, client.ReturnNumMetrics(1));
  EXPECT_EQ(0, client.ReturnNumInstances(0));
  ASSERT_EQ(3, client.ReturnNumInstances(2));
  EXPECT_STREQ("ALPHA", client.ReturnInstanceLabel(2, 0));
  EXPECT_EQ(5, client.ReturnInstanceLabelLen(2, 0));
  EXPECT_STREQ("", client.ReturnInstanceLabel(2, 1));
  EXPECT_EQ(0, client.ReturnInstanceLabelLen(2, 1));
  EXPECT_EQ(0, client.IsMultiInstance(0));
  EXPECT_EQ(1, client.IsMultiInstance(2));
  EXPECT_EQ(1, client.IsSummarizable(2));
  EXPECT_EQ(0, client.HasDiscriminator(0));
  EXPECT_EQ(1, client.HasDiscriminator(2));
  EXPECT_EQ(911412000, client.ReturnLastX(0));
  for (const int wrong : {-1, 3, 1000000}) {
    EXPECT_EQ(-1, client.ReturnNumMetrics(wrong));
    EXPECT_EQ(nullptr, client.ReturnMetrics(wrong));
    EXPECT_EQ(nullptr, client.ReturnClassName(wrong));
    EXPECT_EQ(-1, client.ReturnClassLabelLen(wrong));
    EXPECT_EQ(-1, client.IsMultiInstance(wrong));
    EXPECT_EQ(nullptr, client.ReturnInstanceName(2, wrong));
    EXPECT_EQ(-1, client.ReturnInstanceLabelLen(wrong, 0));
  }
  EXPECT_EQ("", errors(client));
}

TEST_F(RepServerInfo, FindsDataSourcesInAnyCaseWhenTheirsIsUpper) {
  agent.servers = {{"", "TAMBO", 1, "", 2001}, {"", "MixedCase", 2, "", 2002}};
  struct Case {
    const char* given;
    int result;
    const char* name;
  };
  for (const Case& test :
       {Case{"TAMBO", 1, "TAMBO"}, Case{"tambo", 1, "TAMBO"}, Case{"MixedCase", 1, "MixedCase"},
        Case{"mixedcase", 0, "MIXEDCASE"}, Case{"NONE", 0, "NONE"}}) {
    zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
    EXPECT_EQ(test.result, client.ConnectToServer(test.given)) << test.given;
    EXPECT_STREQ(test.name, client.ReturnDataSourceName());
    EXPECT_EQ(test.result == 1 ? "" : message(20, 9), errors(client));
    EXPECT_EQ("", errors(client)) << "what was shown is not shown again";
  }
}

TEST_F(RepServerInfo, MatchesLabelsBeforeNames) {
  agent.classes = {make_class(1, "ONE", {"M"}), make_class(2, "TWO", {"M"}),
                   make_class(3, "EMPTY", {}), make_class(4, "lower", {"M"})};
  agent.classes[0].table.Descriptor = descriptor(1, "ONE", "TWO");
  Client client;
  struct Case {
    const char* name;
    int index;
  };
  for (const Case& test : {Case{"TWO", 0}, Case{"ONE", 0}, Case{"two", 1}, Case{"one", 0},
                           Case{"lower", 3}, Case{"LOWER", -1}, Case{"EMPTY", -1}}) {
    EXPECT_EQ(test.index, client.ValidClassName(test.name)) << test.name;
    EXPECT_EQ(test.index >= 0 ? "" : message(20, 1), errors(client)) << test.name;
  }
}

TEST_F(RepServerInfo, MatchesInstances) {
  Client client;
  EXPECT_EQ(0, client.ValidInstanceName(2, "ALPHA"));
  EXPECT_EQ(0, client.ValidInstanceName(2, "i_a"));
  EXPECT_EQ(-1, client.ValidInstanceName(2, "GAMMA"));
  EXPECT_EQ(message(20, 2), errors(client));
}

TEST_F(RepServerInfo, ClassesMayLackMetricsAndInstances) {
  for (const char* operation : {"rep_LookupMetric", "rep_LookupInstance"}) {
    agent.statuses = {{operation, 0x4C010001}};
    zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
    EXPECT_EQ(1, client.ConnectToServer("DATA")) << operation;
  }
}

TEST_F(RepServerInfo, RefusesLastIndexesBeyondWhatWasAskedFor) {
  struct Case {
    const char* operation;
    std::uint32_t index;
    int result;
  };
  for (const Case& test :
       {Case{"rep_LookupTable", 251, 0}, Case{"rep_LookupTable", 0xFFFFFFFE, 0},
        Case{"rep_LookupTable", 0xFFFFFFFF, 1}, Case{"rep_LookupMetric", 500, 0},
        Case{"rep_LookupMetric", 0xFFFFFFFF, 1}, Case{"rep_LookupInstance", 2048, 0},
        Case{"rep_LookupInstance", 0x80000000, 0}}) {
    agent.last_indexes = {{test.operation, test.index}};
    zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
    EXPECT_EQ(test.result, client.ConnectToServer("DATA")) << test.operation << test.index;
    EXPECT_EQ(test.result == 1 ? "" : message(11, 32) + message(13, 90) + message(20, 124),
              errors(client));
  }
}

TEST_F(RepServerInfo, LoadsTheFirst251Classes) {
  agent.classes.clear();
  for (std::uint32_t i = 0; i < 300; ++i)
    agent.classes.push_back(make_class(i, "C" + std::to_string(i), {"M"}));
  zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
  const std::size_t before = ::mallinfo2().uordblks + ::mallinfo2().hblkhd;
  ASSERT_EQ(1, client.ConnectToServer("DATA"));
  const std::size_t held = ::mallinfo2().uordblks + ::mallinfo2().hblkhd - before;
  EXPECT_EQ(251, client.ReturnNumClasses());
  EXPECT_EQ(250, client.ValidClassName("C250"));
  EXPECT_EQ(-1, client.ValidClassName("C251"));
  EXPECT_LT(held, 2U << 20) << "memory follows what was sent";
}

TEST_F(RepServerInfo, BatchSizeFollowsTheNumberOfMetrics) {
  struct Case {
    int metrics;
    std::uint32_t most;
  };
  for (const Case& test :
       {Case{1, 255}, Case{16, 255}, Case{17, 239}, Case{500, 7}, Case{4096, 0}}) {
    agent.reads = {{{911404800, 0xFFFFFFFF}, std::vector<std::uint32_t>(4096), "", {}}};
    Client client;
    const std::vector<std::uint32_t> ids(static_cast<std::size_t>(test.metrics), 1);
    ASSERT_EQ(1, client.CreateBaseView(0, ids.data(), test.metrics));
    EXPECT_EQ(static_cast<std::uint32_t>(test.metrics - 1), agent.last_metric_index);
    ASSERT_EQ(1, client.ReadData());
    EXPECT_EQ(test.most, agent.most_positions) << test.metrics;
    client.DisconnectFromClass();
  }
  EXPECT_EQ(agent.count("repView_Create"), agent.count("repView_Destroy"));
}

TEST_F(RepServerInfo, ViewsOverNoMetricAreAskedForAndNotRead) {
  Client client;
  EXPECT_EQ(1, client.CreateBaseView(0, nullptr, 0));
  EXPECT_EQ(0xFFFFFFFF, agent.last_metric_index);
  EXPECT_EQ(0, client.ReadData());
  EXPECT_EQ(0, agent.count("repView_Read"));
  EXPECT_EQ(message(11, 32) + message(13, 90) + message(20, 124), errors(client));
  client.DisconnectFromClass();
  const std::vector<std::uint32_t> ids(4097, 1);
  ASSERT_EQ(1, client.CreateBaseView(0, ids.data(), 4097));
  EXPECT_EQ(0, client.ReadData()) << "no row of so many metrics fits";
  EXPECT_EQ(0, agent.count("repView_Read"));
}

TEST_F(RepServerInfo, PositionsFromEitherEndOfTheData) {
  Client client;
  const std::uint32_t id = 1;
  ASSERT_EQ(1, client.CreateBaseView(0, &id, 1));
  EXPECT_EQ(1, client.SetPosition(0, 0));
  EXPECT_EQ(911404800U, agent.position);
  EXPECT_EQ(1, client.SetPosition(0, 3600));
  EXPECT_EQ(911408400U, agent.position);
  EXPECT_EQ(1, client.SetPosition(0, 911412001));
  EXPECT_EQ(0xFFFFFFFFU, agent.position);
}

TEST_F(RepServerInfo, ReadsBatchesUntilTheEndMark) {
  Client client;
  const std::uint32_t ids[] = {1, 2};
  ASSERT_EQ(1, client.CreateBaseView(0, ids, 2));
  agent.reads = {{{10, 20}, {1, 2, 3, 4}, "ab", {}},
                 {{30, 0xFFFFFFFF}, {5, 6}, "", {}},
                 {{40, 0xFFFFFFFF, 50}, {5, 6, 7, 8, 9, 10}, "", {}},
                 {{}, {}, "", {}}};
  ASSERT_EQ(1, client.ReadData());
  EXPECT_EQ(2U, client.ReturnRowCount());
  EXPECT_EQ(1, client.ReturnMoreData());
  ASSERT_EQ(1, client.ReadData());
  EXPECT_EQ(1U, client.ReturnRowCount());
  EXPECT_EQ(0, client.ReturnMoreData());
  EXPECT_EQ(1U, client.ReturnLastTimeStampIndex());
  EXPECT_EQ(0U, client.ReturnIntResults()[2]) << "nothing of the earlier batch is left";
  ASSERT_EQ(1, client.ReadData());
  EXPECT_EQ(1U, client.ReturnRowCount()) << "what stands behind the end is no row";
  ASSERT_EQ(1, client.ReadData());
  EXPECT_EQ(0U, client.ReturnRowCount());
  EXPECT_EQ(0, client.ReturnMoreData());
}

TEST_F(RepServerInfo, RefusesRepliesThatDoNotAddUp) {
  struct Case {
    const char* name;
    ScriptedRead read;
  };
  const std::vector<std::uint32_t> two{1, 2};
  const Case cases[] = {
      {"too few integers", {{10, 20}, {1, 2, 3}, "", {}}},
      {"no integers", {{10}, {}, "", {}}},
      {"position index beyond the batch", {{10}, two, "", {{"position", 256}}}},
      {"huge position index", {{10}, two, "", {{"position", 0xFFFFFFFE}}}},
      {"integer index beyond the buffer", {{10}, two, "", {{"integer", 4096}}}},
      {"character index beyond the buffer", {{10}, two, "", {{"character", 32768}}}},
  };
  for (const Case& test : cases) {
    Client client;
    const std::uint32_t ids[] = {1, 2};
    ASSERT_EQ(1, client.CreateBaseView(0, ids, 2));
    agent.reads = {test.read};
    EXPECT_EQ(0, client.ReadData()) << test.name;
    EXPECT_EQ(0U, client.ReturnRowCount()) << test.name;
    EXPECT_EQ(message(11, 32) + message(13, 90) + message(20, 124), errors(client)) << test.name;
  }
}

TEST_F(RepServerInfo, HandsOutTextsWithinWhatWasRead) {
  Client client;
  const std::uint32_t id = 1;
  ASSERT_EQ(1, client.CreateBaseView(0, &id, 1));
  agent.reads = {{{10}, {0}, std::string("one\0two\0end", 11), {}}};
  ASSERT_EQ(1, client.ReadData());
  EXPECT_EQ("one", client.ReturnText(0));
  EXPECT_EQ("wo", client.ReturnText(5));
  EXPECT_EQ("", client.ReturnText(7));
  for (const std::uint32_t wrong : {8U, 10U, 11U, 32768U, 0xFFFFFFFFU})
    EXPECT_EQ(std::nullopt, client.ReturnText(wrong)) << wrong;
}

TEST_F(RepServerInfo, FilteredAndTemporalViewsStandOnAFilter) {
  const repTimeFilter_sShiftDescriptor shifts[] = {{0, 3600, 1}, {100, 200, 0}};
  const std::uint32_t id = 1;
  for (const bool temporal : {false, true}) {
    agent.calls.clear();
    {
      Client client;
      EXPECT_EQ(1, temporal ? client.CreateTemporalView(2, &id, 1, &id, 1, shifts, 2, 300)
                            : client.CreateFilteredView(0, &id, 1, shifts, 2));
      EXPECT_EQ(2U, agent.shifts.size());
    }
    const std::vector<std::string> last(agent.calls.end() - 4, agent.calls.end());
    EXPECT_EQ(
        (std::vector<std::string>{"repTimeFilter_Create",
                                  temporal ? "repTemporalView_Create" : "repFilteredView_Create",
                                  "repView_Destroy", "repTimeFilter_Destroy"}),
        last)
        << "the view goes before the filter that it stands on";
  }
  // The filter of a view that could not be made is destroyed with the object.
  agent.statuses["repFilteredView_Create"] = 1726;
  {
    Client client;
    EXPECT_EQ(0, client.CreateFilteredView(0, &id, 1, shifts, 2));
    EXPECT_EQ(0, client.CreateFilteredView(0, &id, 1, shifts, 0));
  }
  EXPECT_EQ("repTimeFilter_Destroy", agent.calls.back());
}

TEST_F(RepServerInfo, NothingIsLeftOnTheAgent) {
  const repTimeFilter_sShiftDescriptor period[] = {{0, 3600, 1}};
  const std::uint32_t metric = 1;
  const struct {
    const char* name;
    void (*act)(Client& client, const std::uint32_t* id,
                const repTimeFilter_sShiftDescriptor* shifts);
  } cases[] = {
      {"a view that cannot be positioned",
       [](Client& client, auto id, auto) {
         agent.statuses["repView_SetPosition"] = 5;
         client.CreateBaseView(0, id, 1);
         EXPECT_EQ(0, client.SetPosition(0, 0));
       }},
      {"a second view, and a second filter",
       [](Client& client, auto id, auto shifts) {
         client.CreateFilteredView(0, id, 1, shifts, 1);
         client.CreateTemporalView(2, id, 1, id, 1, shifts, 1, 300);
         client.CreateBaseView(0, id, 1);
       }},
      {"a refusal that hands out an object",
       [](Client& client, auto id, auto shifts) {
         agent.object_with_refusal = true;
         agent.statuses = {{"repView_Create", 5}, {"repTimeFilter_Create", 5}};
         EXPECT_EQ(0, client.CreateBaseView(0, id, 1));
         EXPECT_EQ(0, client.CreateFilteredView(0, id, 1, shifts, 1));
       }},
  };
  for (const auto& each : cases) {
    agent.calls.clear();
    agent.statuses.clear();
    Client client;
    each.act(client, &metric, period);
    client.DisconnectFromServer();
    EXPECT_EQ(agent.count("repView_Create") + agent.count("repFilteredView_Create") +
                  agent.count("repTemporalView_Create"),
              agent.count("repView_Destroy"))
        << each.name;
    EXPECT_EQ(agent.count("repTimeFilter_Create"), agent.count("repTimeFilter_Destroy"))
        << each.name;
    EXPECT_EQ(0, client.ReadData()) << "nothing is read of a data source that was let go";
    EXPECT_EQ(0, client.CreateBaseView(0, &metric, 1));
    agent.statuses.clear();
    EXPECT_EQ(1, client.ConnectToServer("DATA"));
    EXPECT_EQ(0, client.ReadData()) << "nor from the next one as if it were its own";
  }
}

}  // namespace
