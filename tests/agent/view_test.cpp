// SPDX-License-Identifier: Apache-2.0
#include "agent/view.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/repository.h"

namespace agent {
namespace {

constexpr std::uint32_t kDay = 86'400;
constexpr std::uint32_t kSunday = 1'704'585'600;  // 2024-01-07 00:00 UTC

ReadLimits plenty() {
  return {256, 4096, 32768};
}

Metric metric(std::uint32_t id, ValueModel model, Summary summary = Summary::average) {
  Metric result;
  result.id = id;
  result.model = std::move(model);
  result.data_type = std::holds_alternative<TextsModel>(result.model) ||
                             std::holds_alternative<InstanceModel>(result.model)
                         ? kTextType
                         : std::int16_t{0};
  result.summary = static_cast<std::int16_t>(summary);
  return result;
}

// Rows of a minute at 1000, 1060, ...; metric 0 counts them, metric 1 is a text.
ClassData counting(std::uint32_t rows) {
  ClassData data;
  data.id = 1;
  data.flags = kSummarizableFlag;
  data.interval = 60;
  data.first_time = 1000;
  data.row_count = rows;
  data.metrics = {metric(1, RampModel{0, 1'000'000, 1}), metric(2, TextsModel{{"a", "bcd"}})};
  return data;
}

View base_view(const RowTable& table, std::vector<std::size_t> metrics) {
  ViewDefinition definition;
  definition.table = &table;
  definition.metrics = std::move(metrics);
  return View(std::move(definition));
}

// Of the first metric and, without any, of the first instance.
ViewDefinition temporal_view(const RowTable& table, std::uint32_t interval,
                             std::vector<std::size_t> instances = {0}) {
  ViewDefinition definition;
  definition.table = &table;
  definition.metrics = {0};
  definition.temporal = true;
  definition.instances = std::move(instances);
  definition.interval = interval;
  return definition;
}

using Numbers = std::vector<std::uint32_t>;

TEST(RowModels, GiveTheirValuesInTurn) {
  struct Case {
    const char* name;
    ValueModel model;
    Numbers values;
  };
  const std::uint32_t minus_one = 0xFFFFFFFF;
  const Case cases[] = {
      {"constant", ConstantModel{-1}, {minus_one, minus_one}},
      {"greatest", ConstantModel{0xFFFFFFFF}, {0xFFFFFFFF}},
      {"ramp", RampModel{-1, 2, 2}, {minus_one, 1, minus_one, 1}},
      {"ramp of one value", RampModel{7, 7, 5}, {7, 7}},
      {"ramp whose end is no step", RampModel{0, 5, 2}, {0, 2, 4, 0}},
      {"wave", WaveModel{0, 100, 4}, {0, 50, 100, 50, 0, 50}},
      {"wave of one row", WaveModel{3, 9, 1}, {3, 3}},
      {"odd wave", WaveModel{0, 30, 3}, {0, 20, 20, 0}},
      {"values", ValuesModel{{5, 6, 7}}, {5, 6, 7, 5}},
  };
  for (const Case& one : cases) {
    ClassData data = counting(10);
    data.metrics = {metric(1, one.model)};
    const RowTable table(data);
    for (std::size_t i = 0; i < one.values.size(); ++i)
      EXPECT_EQ(std::get<std::uint32_t>(table.value(i, 0, 0)), one.values[i]) << one.name << i;
  }
}

TEST(BaseView, ReadsInBatchesUpToTheEndMark) {
  const ClassData data = counting(5);
  const RowTable table(data);
  View view = base_view(table, {0});
  EXPECT_EQ(view.first_position(), 1000u);
  EXPECT_EQ(view.last_position(), 1240u);
  EXPECT_EQ(view.x_interval(), 60u);

  ReadResult batch = view.read({3, 4096, 1});
  EXPECT_EQ(batch.positions, (Numbers{1000, 1060, 1120}));
  EXPECT_EQ(batch.integers, (Numbers{0, 1, 2}));
  EXPECT_EQ(view.position(), 1180u);
  batch = view.read({3, 4096, 1});
  EXPECT_EQ(batch.positions, (Numbers{1180, 1240, kEndPosition}));
  EXPECT_EQ(view.position(), kEndPosition);
  batch = view.read({3, 4096, 1});
  EXPECT_EQ(batch.positions, (Numbers{kEndPosition}));
  EXPECT_TRUE(batch.integers.empty());
}

TEST(BaseView, AFullBatchHasNoEndMark) {
  const ClassData data = counting(2);
  const RowTable table(data);
  View view = base_view(table, {0});
  EXPECT_EQ(view.read({2, 9, 9}).positions, (Numbers{1000, 1060}));
  EXPECT_EQ(view.read({2, 9, 9}).positions, (Numbers{kEndPosition}));
}

TEST(BaseView, EachLimitEndsABatch) {
  struct Case {
    const char* name;
    ReadLimits limits;
    std::size_t rows;  // without the end mark; 0: no room
  };
  const Case cases[] = {
      {"positions", {2, 100, 100}, 2},       {"integers", {10, 5, 100}, 2},
      {"exact integers", {10, 6, 100}, 3},   {"characters", {10, 100, 7}, 2},
      {"exact characters", {10, 100, 8}, 3}, {"no integers", {10, 1, 100}, 0},
      {"no characters", {10, 100, 1}, 0},
  };
  const ClassData data = counting(4);
  const RowTable table(data);
  for (const Case& one : cases) {
    View view = base_view(table, {0, 1});
    const ReadResult batch = view.read(one.limits);
    EXPECT_EQ(batch.positions.size(), one.rows) << one.name;
    EXPECT_EQ(batch.integers.size(), 2 * one.rows) << one.name;
    EXPECT_LE(batch.characters.size(), one.limits.characters) << one.name;
    EXPECT_EQ(batch.status == RepositoryStatus::no_room, one.rows == 0) << one.name;
  }
}

TEST(BaseView, TextsStandBehindTheirOffsets) {
  const ClassData data = counting(3);
  const RowTable table(data);
  const ReadResult batch = base_view(table, {1, 0, 1}).read(plenty());
  EXPECT_EQ(batch.integers, (Numbers{0, 0, 2, 4, 1, 8, 12, 2, 14}));
  EXPECT_EQ(batch.characters, std::string("a\0a\0bcd\0bcd\0a\0a\0", 16));
}

TEST(BaseView, PositionsGoToTheNextRow) {
  const ClassData data = counting(3);
  const RowTable table(data);
  View view = base_view(table, {0});
  const std::pair<std::uint32_t, std::uint32_t> cases[] = {{0, 1000},
                                                           {1000, 1000},
                                                           {1001, 1060},
                                                           {1060, 1060},
                                                           {1120, 1120},
                                                           {1121, kEndPosition},
                                                           {kEndPosition, kEndPosition},
                                                           {0xFFFFF000, kEndPosition}};
  for (const auto& [where, set] : cases) {
    EXPECT_EQ(view.set_position(where), set) << where;
    EXPECT_EQ(view.position(), set) << where;
    EXPECT_EQ(view.read(plenty()).positions.front(), set) << where;
  }
}

TEST(BaseView, AClassWithoutRowsHasOnlyAnEnd) {
  const ClassData data = counting(0);
  const RowTable table(data);
  View view = base_view(table, {0});
  EXPECT_EQ(view.first_position(), kEndPosition);
  EXPECT_EQ(view.last_position(), kEndPosition);
  EXPECT_EQ(view.set_position(5), kEndPosition);
  EXPECT_EQ(view.read(plenty()).positions, (Numbers{kEndPosition}));
}

TEST(BaseView, InstancesHaveARowEachWithinTheirLives) {
  ClassData data = counting(3);
  data.instances = {{1, "x", "X", 0, 1060}, {2, "y", "Y", 1060, 5000}};
  data.metrics = {metric(1, InstanceModel{false}), metric(2, InstanceModel{true})};
  const RowTable table(data);
  const ReadResult batch = base_view(table, {0, 1}).read(plenty());
  EXPECT_EQ(batch.positions, (Numbers{1000, 1060, 1060, 1120, kEndPosition}));
  EXPECT_EQ(batch.characters, std::string("x\0X\0x\0X\0y\0Y\0y\0Y\0", 16));
}

TEST(BaseView, ExplicitRowsAreReadAsTheyStand) {
  ClassData data = counting(0);
  data.rows = {{10, {Cell(-5), Cell("p")}}, {10, {Cell(6), Cell("q")}}, {40, {Cell(7), Cell("")}}};
  const RowTable table(data);
  View view = base_view(table, {0, 1});
  EXPECT_EQ(view.last_position(), 40u);
  EXPECT_EQ(view.set_position(11), 40u);
  view.set_position(0);
  const ReadResult batch = view.read(plenty());
  EXPECT_EQ(batch.positions, (Numbers{10, 10, 40, kEndPosition}));
  EXPECT_EQ(batch.integers, (Numbers{0xFFFFFFFB, 0, 6, 2, 7, 4}));
}

TEST(Shifts, ContainTimes) {
  constexpr std::int32_t kHour = 3600;
  struct Case {
    const char* name;
    Shift shift;
    std::uint32_t time;
    bool inside;
  };
  const Case cases[] = {
      {"absolute, start", {ShiftKind::absolute, 100, 200}, 100, true},
      {"absolute, before", {ShiftKind::absolute, 100, 200}, 99, false},
      {"absolute, stop", {ShiftKind::absolute, 100, 200}, 200, false},
      {"daily, morning", {ShiftKind::daily, 8 * kHour, 17 * kHour}, kSunday + 8 * kHour, true},
      {"daily, evening", {ShiftKind::daily, 8 * kHour, 17 * kHour}, kSunday + 17 * kHour, false},
      {"daily, of another day's times",
       {ShiftKind::daily, static_cast<std::int32_t>(kSunday) + 8 * kHour,
        static_cast<std::int32_t>(kSunday) + 17 * kHour},
       kSunday + 3 * kDay + 9 * kHour,
       true},
      {"night before midnight", {ShiftKind::daily, 22 * kHour, 6 * kHour}, kSunday - 1, true},
      {"night after midnight", {ShiftKind::daily, 22 * kHour, 6 * kHour}, kSunday, true},
      {"day between nights", {ShiftKind::daily, 22 * kHour, 6 * kHour}, kSunday + 6 * kHour, false},
      {"whole day", {ShiftKind::daily, 0, 24 * kHour}, kSunday - 1, true},
      {"weekly, Sunday", {ShiftKind::weekly, 0, 24 * kHour}, kSunday, true},
      {"weekly, Saturday", {ShiftKind::weekly, 0, 24 * kHour}, kSunday - 1, false},
      {"weekly, Monday", {ShiftKind::weekly, 24 * kHour, 48 * kHour}, kSunday + kDay, true},
      {"weekend over Saturday midnight",
       {ShiftKind::weekly, 6 * 24 * kHour, 24 * kHour},
       kSunday - 1,
       true},
      {"week after the weekend",
       {ShiftKind::weekly, 6 * 24 * kHour, 24 * kHour},
       kSunday + kDay,
       false},
  };
  for (const Case& one : cases)
    EXPECT_EQ(contains(one.shift, one.time), one.inside) << one.name;
}

TEST(Shifts, AreRefusedWithoutExtent) {
  EXPECT_FALSE(sound({ShiftKind::absolute, 5, 5}));
  EXPECT_FALSE(sound({ShiftKind::absolute, 6, 5}));
  EXPECT_FALSE(sound({ShiftKind::daily, 5, 5}));
  EXPECT_TRUE(sound({ShiftKind::daily, 6, 5}));
  EXPECT_FALSE(sound({static_cast<ShiftKind>(3), 0, 5}));
}

TEST(FilteredView, HasTheRowsOfAnyShift) {
  const ClassData data = counting(10);
  const RowTable table(data);
  ViewDefinition definition;
  definition.table = &table;
  definition.metrics = {0};
  definition.shifts = {{ShiftKind::absolute, 1060, 1120}, {ShiftKind::absolute, 1400, 1500}};
  View view(definition);
  EXPECT_EQ(view.first_position(), 1060u);
  EXPECT_EQ(view.last_position(), 1480u);
  EXPECT_EQ(view.set_position(1061), 1420u);
  view.set_position(0);
  EXPECT_EQ(view.read(plenty()).positions, (Numbers{1060, 1420, 1480, kEndPosition}));

  definition.shifts = {{ShiftKind::absolute, 5000, 6000}};
  View empty(definition);
  EXPECT_EQ(empty.first_position(), kEndPosition);
  EXPECT_EQ(empty.last_position(), kEndPosition);
  EXPECT_EQ(empty.read(plenty()).positions, (Numbers{kEndPosition}));
}

TEST(TemporalView, PutsTheRowsOfAnIntervalTogether) {
  struct Case {
    Summary summary;
    Numbers values;
  };
  // Rows at 1000 to 1240 hold -3, 5, 10, 3, 8; intervals of 120 s begin at 960, 1080 and 1200.
  const Case cases[] = {
      {Summary::average, {1, 7, 8}},   {Summary::sum, {2, 13, 8}},
      {Summary::greatest, {5, 10, 8}}, {Summary::least, {0xFFFFFFFD, 3, 8}},
      {Summary::last, {5, 3, 8}},      {static_cast<Summary>(77), {5, 3, 8}},
  };
  for (const Case& one : cases) {
    ClassData data = counting(5);
    data.metrics = {metric(1, ValuesModel{{-3, 5, 10, 3, 8}}, one.summary)};
    const RowTable table(data);
    View view(temporal_view(table, 120));
    const ReadResult batch = view.read(plenty());
    EXPECT_EQ(batch.positions, (Numbers{960, 1080, 1200, kEndPosition}));
    EXPECT_EQ(batch.integers, one.values) << static_cast<int>(one.summary);
    EXPECT_EQ(view.first_position(), 960u);
    EXPECT_EQ(view.last_position(), 1200u);
    EXPECT_EQ(view.set_position(1100), 1080u);
    EXPECT_EQ(view.set_x_interval(60), 60u);
    EXPECT_EQ(view.position(), 1080u);
  }
}

TEST(TemporalView, HasTheChosenInstancesInTheirOrderWithinTheShifts) {
  ClassData data = counting(4);
  data.instances = {{1, "x", "", 0, 9999}, {2, "y", "", 0, 9999}, {3, "z", "", 1180, 9999}};
  data.metrics = {metric(1, InstanceModel{false})};
  const RowTable table(data);
  ViewDefinition definition = temporal_view(table, 120, {2, 0});
  definition.shifts = {{ShiftKind::absolute, 1060, 1200}};
  const ReadResult batch = View(definition).read(plenty());
  EXPECT_EQ(batch.positions, (Numbers{960, 1080, 1080, kEndPosition}));
  EXPECT_EQ(batch.characters, std::string("x\0z\0x\0", 6));
}

TEST(TemporalView, LimitsOfIntervalAndSum) {
  ClassData data = counting(3);
  data.metrics = {metric(1, ConstantModel{0x7FFFFFFF}, Summary::sum)};
  const RowTable table(data);
  ViewDefinition definition = temporal_view(table, 0xFFFFFFFF);
  EXPECT_EQ(View(definition).read(plenty()).integers, (Numbers{0x7FFFFFFF}));
  definition.interval = 0;
  EXPECT_EQ(View(definition).x_interval(), 60u);
}

TEST(TemporalView, RoundsAveragesBelowZeroAwayFromIt) {
  ClassData data = counting(2);
  data.metrics = {metric(1, ValuesModel{{-3, -4}})};
  const RowTable table(data);
  EXPECT_EQ(View(temporal_view(table, 120)).read(plenty()).integers, (Numbers{0xFFFFFFFC}));
}

class Contexts : public testing::Test {
 protected:
  static std::shared_ptr<const DataSource> source() {
    auto result = std::make_shared<DataSource>();
    result->classes.push_back(counting(5));
    result->classes.push_back(counting(5));
    result->classes[1].id = 2;
    result->classes[1].flags = kInstancesFlag;
    result->classes[1].instances = {{7, "x", "X", 0, 9999}};
    return result;
  }

  RepositoryStatus create(const ViewRequest& request, rpc::WireContext* context,
                          std::uint32_t client = 1) {
    return contexts_.create_view(uuid_t{client, 0, 0, 0, 0, {}}, request, {}, context);
  }

  const Repository repository_{source()};
  ViewContexts contexts_{repository_};
};

constexpr uuid_t kFirst{1, 0, 0, 0, 0, {}};
constexpr uuid_t kSecond{2, 0, 0, 0, 0, {}};

TEST_F(Contexts, RefuseWhatIsNotThere) {
  const Numbers good{1};
  const Numbers bad{1, 99};
  const Numbers instance{7};
  const Numbers bad_instance{8};
  struct Case {
    const char* name;
    ViewRequest request;
    RepositoryStatus status;
  };
  const Case cases[] = {
      {"table", {ViewKind::base, 9, good, {}, 0}, RepositoryStatus::nothing_found},
      {"metric", {ViewKind::base, 1, bad, {}, 0}, RepositoryStatus::unknown_metric},
      {"no metric", {ViewKind::base, 1, {}, {}, 0}, RepositoryStatus::no_metrics},
      {"instance",
       {ViewKind::temporal, 2, good, bad_instance, 0},
       RepositoryStatus::unknown_instance},
      {"no instance", {ViewKind::temporal, 2, good, {}, 0}, RepositoryStatus::unknown_instance},
      {"interval",
       {ViewKind::temporal, 2, good, instance, 120},
       RepositoryStatus::not_summarizable},
      {"its own interval", {ViewKind::temporal, 2, good, instance, 60}, RepositoryStatus::ok},
      {"class without instances",
       {ViewKind::temporal, 1, good, bad_instance, 120},
       RepositoryStatus::ok},
  };
  for (const Case& one : cases) {
    rpc::WireContext context;
    EXPECT_EQ(create(one.request, &context), one.status) << one.name;
    EXPECT_EQ(context.null(), one.status != RepositoryStatus::ok) << one.name;
  }
}

TEST_F(Contexts, EndWithDestroyAndWithTheirClient) {
  const Numbers metrics{1};
  rpc::WireContext mine;
  rpc::WireContext other;
  rpc::WireContext filter;
  ASSERT_EQ(create({ViewKind::base, 1, metrics, {}, 0}, &mine, 1), RepositoryStatus::ok);
  ASSERT_EQ(create({ViewKind::base, 1, metrics, {}, 0}, &other, 2), RepositoryStatus::ok);
  ASSERT_EQ(contexts_.create_filter(kFirst, {{ShiftKind::daily, 1, 2}}, &filter),
            RepositoryStatus::ok);
  EXPECT_THROW(contexts_.view(kFirst, filter), rpc::server::Fault);
  EXPECT_THROW(contexts_.filter(kFirst, mine), rpc::server::Fault);
  EXPECT_THROW(contexts_.view(kFirst, mine, ViewKind::temporal), rpc::server::Fault);
  EXPECT_THROW(contexts_.view(kFirst, {}), rpc::server::Fault);

  rpc::WireContext stale = other;
  EXPECT_THROW(contexts_.view(kFirst, other), rpc::server::Fault);
  contexts_.destroy_view(kSecond, &other);
  EXPECT_TRUE(other.null());
  contexts_.destroy_view(kSecond, &other);
  EXPECT_THROW(contexts_.destroy_view(kSecond, &stale), rpc::server::Fault);

  contexts_.run_down(kFirst);
  EXPECT_EQ(contexts_.objects(), 0u);
  EXPECT_THROW(contexts_.view(kFirst, mine), rpc::server::Fault);
}

TEST_F(Contexts, AreBoundedForEachClient) {
  const Numbers metrics{1};
  rpc::WireContext context;
  for (std::size_t i = 0; i < ViewContexts::kMostObjectsOfClient; ++i)
    ASSERT_EQ(create({ViewKind::base, 1, metrics, {}, 0}, &context), RepositoryStatus::ok);
  EXPECT_EQ(create({ViewKind::base, 1, metrics, {}, 0}, &context),
            RepositoryStatus::too_many_objects);
  EXPECT_EQ(create({ViewKind::base, 1, metrics, {}, 0}, &context, 2), RepositoryStatus::ok);
}

}  // namespace
}  // namespace agent
