// SPDX-License-Identifier: Apache-2.0
#include "bench/measure.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

std::string number(double value, int places) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", places, value);
  return text;
}

std::string with_spread(const Figure& figure, double scale, int places) {
  return number(figure.median * scale, places) + " (" + number(figure.lowest * scale, places) +
         " to " + number(figure.highest * scale, places) + ")";
}

std::string with_unit(const Figure& figure, Unit unit) {
  return with_spread(figure, unit.scale, unit.places) + " " + unit.name;
}

// The heading where another table begins, then the row.
void print_row(const std::string& table, const std::vector<std::string>& heading,
               const std::vector<std::string>& row) {
  static std::string current;
  const auto print = [](const std::vector<std::string>& cells) {
    for (const auto& cell : cells)
      std::printf("| %s ", cell.c_str());
    std::printf("|\n");
  };
  if (current != table) {
    std::printf("%s%s\n\n", current.empty() ? "" : "\n", table.c_str());
    print(heading);
    print(std::vector<std::string>(heading.size(), "---"));
    current = table;
  }
  print(row);
  std::fflush(stdout);
}

}  // namespace

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Figure figure_of(const std::vector<double>& values) {
  const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
  return {median(values), *lowest, *highest};
}

double seconds_of(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double processor_seconds_of(const std::function<void()>& work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  };
  const double begin = now();
  work();
  return now() - begin;
}

Figure measure(const Work& work, int rounds) {
  if (rounds > 1)
    work();
  std::vector<double> values;
  for (int round = 0; round < rounds; ++round)
    values.push_back(work());
  return figure_of(values);
}

void require(bool good, const std::string& what) {
  if (good)
    return;
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

void report(const Contest& contest) {
  contest.ours();
  contest.baseline();
  std::vector<double> ours, baseline, compared;
  const bool ratio = contest.compared == Compared::ratio;
  for (int round = 0; round < kRounds; ++round) {
    ours.push_back(contest.ours());
    baseline.push_back(contest.baseline());
    compared.push_back(ratio ? ours.back() / baseline.back() : ours.back() - baseline.back());
  }
  const Figure last = figure_of(compared);
  print_row(ratio ? "ratios" : "differences",
            {"measured", "ours", "baseline", ratio ? "ratio" : "over it", "goal"},
            {contest.what, with_unit(figure_of(ours), contest.unit),
             contest.against + ": " + with_unit(figure_of(baseline), contest.unit),
             ratio ? with_spread(last, 1, 2) : with_unit(last, contest.unit), contest.goal});
}

void report(const std::string& what, const Figure& figure, Unit unit, const std::string& goal) {
  print_row("figures", {"measured", "result", "goal"}, {what, with_unit(figure, unit), goal});
}

void report_point(const std::string& series, double x, const Figure& figure, Unit unit) {
  print_row(
      "points", {"series", "x", "median", "lowest", "highest", "unit"},
      {series, number(x, 0), number(figure.median * unit.scale, 3),
       number(figure.lowest * unit.scale, 3), number(figure.highest * unit.scale, 3), unit.name});
}

}  // namespace bench
