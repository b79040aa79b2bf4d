// SPDX-License-Identifier: Apache-2.0
// Views of all kinds through the product's own client, in this process, against a running agent.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "source/domain/ZTrepServerInfoObj.h"
#include "tests/endtoend/harness.h"

namespace endtoend {
namespace {

using Numbers = std::vector<std::uint32_t>;

constexpr std::uint32_t kSunday = 1'704'585'600;  // 2024-01-07 00:00 UTC
constexpr std::uint32_t kHour = 3600;
constexpr SystemKey kAlpha = 0x0101007F;  // 127.0.1.1
constexpr std::uint32_t kMetric = 4;
constexpr std::uint32_t kNameMetric = 5;

// A class of 600 hourly rows, and one with a row an hour for each of two instances.
std::string scenario(const std::string& byte_order) {
  return "[source.A]\nid = 7\npath = '/a'\n"
         "[[source.A.class]]\nid = 3\nname = 'LONG'\nrows = 600\ninterval = 3600\n"
         "first = 1704585600\n"
         "[[source.A.class.metric]]\nid = 4\nname = 'M'\nramp = {from = 0, to = 1000, step = 1}\n"
         "[[source.A.class]]\nid = 5\nname = 'PAIR'\nrows = 4\ninterval = 3600\n"
         "first = 1704585600\n"
         "[[source.A.class.instance]]\nid = 1\nname = 'x'\n"
         "[[source.A.class.instance]]\nid = 2\nname = 'y'\n"
         "[[source.A.class.metric]]\nid = 4\nname = 'M'\nsummary = 'sum'\nconstant = 5\n"
         "[[source.A.class.metric]]\nid = 5\nname = 'N'\ntype = 'text'\ninstance = 'name'\n"
         "[[system]]\nname = 'alpha'\naddress = '127.0.1.1'\n"
         "repository = [{source = 'A', byte_order = '" +
         byte_order + "'}]\n";
}

class Views : public testing::TestWithParam<std::string> {
 protected:
  Views() : agent_(scenario(GetParam())), client_(kAlpha, "alpha") {
    EXPECT_EQ(1, client_.ConnectToServer("a"));
    long_ = client_.ValidClassName("LONG");
    pair_ = client_.ValidClassName("PAIR");
    EXPECT_EQ(0, long_);
    EXPECT_EQ(1, pair_);
  }

  Numbers times() const {
    return {client_.ReturnTimeStamps(), client_.ReturnTimeStamps() + client_.ReturnRowCount()};
  }
  Numbers integers() const {
    return {client_.ReturnIntResults(),
            client_.ReturnIntResults() + client_.ReturnLastIntResultsIndex() + 1};
  }

  const Agent agent_;
  zt_RepServerInfo_class client_;
  int long_ = -1;
  int pair_ = -1;
};

TEST_P(Views, ReadOnFromBatchToBatch) {
  ASSERT_EQ(1, client_.CreateBaseView(long_, &kMetric, 1));
  ASSERT_EQ(1, client_.SetPosition(long_, 0));
  std::uint32_t next = 0;
  for (const std::size_t rows : {256U, 256U, 88U}) {
    ASSERT_EQ(1, client_.ReadData());
    ASSERT_EQ(rows, client_.ReturnRowCount());
    EXPECT_EQ(rows == 88 ? 0 : 1, client_.ReturnMoreData());
    for (std::size_t row = 0; row < rows; ++row, ++next) {
      EXPECT_EQ(kSunday + next * kHour, client_.ReturnTimeStamps()[row]);
      EXPECT_EQ(next, client_.ReturnIntResults()[row]);
    }
  }
  // So many seconds before the newest row.
  ASSERT_EQ(1, client_.SetPosition(long_, 2 * kHour));
  ASSERT_EQ(1, client_.ReadData());
  EXPECT_EQ((Numbers{597, 598, 599}), integers());
  client_.DisconnectFromClass();
}

TEST_P(Views, OfShiftsHaveTheRowsWithinThem) {
  const repTimeFilter_sShiftDescriptor shifts[] = {
      {8 * kHour, 10 * kHour, repTimeFilter_cShiftDaily},
      {static_cast<std::int32_t>(kSunday), static_cast<std::int32_t>(kSunday + kHour),
       repTimeFilter_cShiftAbsolute}};
  ASSERT_EQ(1, client_.CreateFilteredView(long_, &kMetric, 1, shifts, 2));
  ASSERT_EQ(1, client_.SetPosition(long_, 0));
  ASSERT_EQ(1, client_.ReadData());
  EXPECT_EQ(0, client_.ReturnMoreData());
  Numbers expected{0};
  for (std::uint32_t day = 0; day < 25; ++day)
    expected.insert(expected.end(), {day * 24 + 8, day * 24 + 9});
  EXPECT_EQ(expected, integers());
  ASSERT_EQ(expected.size(), client_.ReturnRowCount());
  EXPECT_EQ(kSunday + 8 * kHour, client_.ReturnTimeStamps()[1]);
  client_.DisconnectFromClass();
}

TEST_P(Views, OfIntervalsSumTheChosenInstancesUp) {
  const repTimeFilter_sShiftDescriptor shift{static_cast<std::int32_t>(kSunday),
                                             static_cast<std::int32_t>(kSunday + 3 * kHour),
                                             repTimeFilter_cShiftAbsolute};
  const std::uint32_t metrics[] = {kMetric, kNameMetric};
  const std::uint32_t instances[] = {2, 1};
  ASSERT_EQ(1, client_.CreateTemporalView(pair_, metrics, 2, instances, 2, &shift, 1, 2 * kHour));
  ASSERT_EQ(1, client_.SetPosition(pair_, 0));
  ASSERT_EQ(1, client_.ReadData());
  EXPECT_EQ((Numbers{kSunday, kSunday, kSunday + 2 * kHour, kSunday + 2 * kHour}), times());
  const Numbers cells = integers();
  ASSERT_EQ(8U, cells.size());
  const std::uint32_t sums[] = {10, 10, 5, 5};
  const char* const names[] = {"y", "x", "y", "x"};
  for (std::size_t row = 0; row < 4; ++row) {
    EXPECT_EQ(sums[row], cells[row * 2]) << row;
    EXPECT_EQ(names[row], client_.ReturnText(cells[row * 2 + 1])) << row;
  }
  client_.DisconnectFromClass();
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, Views, testing::Values("little", "big"));

}  // namespace
}  // namespace endtoend
