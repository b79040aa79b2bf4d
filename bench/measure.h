// SPDX-License-Identifier: Apache-2.0
// How the benchmarks measure and what they print: medians of five rounds with the lowest and the
// highest of them, the compared works warm and in turn, so that a change of the machine's speed
// meets both. What is printed are Markdown tables; bench/plot draws from the points among them.

#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace bench {

inline constexpr int kRounds = 5;

struct Figure {
  double median = 0;
  double lowest = 0;
  double highest = 0;
};

double median(std::vector<double> values);
Figure figure_of(const std::vector<double>& values);

// Says itself what it measured: seconds, or a size.
using Work = std::function<double()>;

double seconds_of(const std::function<void()>& work);

// The processor time of this process alone: for works that wait for nothing, so that what else the
// machine does is no part of them.
double processor_seconds_of(const std::function<void()>& work);

// One round that does not count, then so many; of a single one nothing goes before it.
Figure measure(const Work& work, int rounds = kRounds);

// Keeps the compiler from leaving out what made the object.
template <typename T>
void keep(const T& object) {
  asm volatile("" : : "r"(&object) : "memory");
}

// Ends the program with a message when a work has not done what it was measured for.
void require(bool good, const std::string& what);

struct Unit {
  const char* name;
  double scale;  // of what the works measure
  int places;    // behind the point
};
inline constexpr Unit kSeconds{"s", 1, 2};
inline constexpr Unit kMilliseconds{"ms", 1e3, 2};
inline constexpr Unit kMicroseconds{"us", 1e6, 2};
inline constexpr Unit kNanoseconds{"ns", 1e9, 1};
inline constexpr Unit kMebibytes{"MiB", 1.0 / (1024 * 1024), 1};

// Ours to the baseline's, or what ours takes beyond it.
enum class Compared { ratio, difference };

struct Contest {
  std::string what;
  Work ours;
  std::string against;
  Work baseline;
  Unit unit;
  std::string goal;
  Compared compared = Compared::ratio;
};
// Measures both in turn; the comparison is made round by round. A row of the table "ratios" or
// "differences".
void report(const Contest& contest);

// A row of the table "figures": what has no baseline of its kind.
void report(const std::string& what, const Figure& figure, Unit unit, const std::string& goal);

// A row of the table "points".
void report_point(const std::string& series, double x, const Figure& figure, Unit unit);

}  // namespace bench
