// SPDX-License-Identifier: Apache-2.0
// Starts the simulated agent and the programs under test as real processes and collects what they
// print. Runs inside the namespace that in_namespace.sh makes.

#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace endtoend {

struct Result {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
  double seconds = 0;
  double processor_seconds = 0;
  long peak_kilobytes = 0;  // largest resident set
};

// Runs a program of the build to its end; killed after `limit_seconds` (status 137). The
// environment is this process's without the product's own variables, plus `environment`. Standard
// output goes to the file instead where one is given, and is not in the result.
Result run(const std::string& program, const std::vector<std::string>& arguments,
           const std::map<std::string, std::string>& environment = {}, int limit_seconds = 60,
           const std::string& output_file = {});

inline Result ztcomm(const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment = {},
                     int limit_seconds = 60) {
  return run("ztcomm", arguments, environment, limit_seconds);
}

// A folder of its own that is removed with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }
  // Writes a file of this name into the folder and returns its path.
  std::string write(const std::string& name, std::string_view text) const;
  std::string read(const std::string& name) const;

 private:
  std::filesystem::path path_;
};

// hxasim over a scenario text, from its ready line to its end.
class Agent {
 public:
  // With -v unless other options are given.
  explicit Agent(std::string_view scenario, std::vector<std::string> options = {"-v"});
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // What it has printed so far (-v: a line per packet or call).
  std::string log() const;
  // The servers on which clients still hold a view, a filter or an inquiry, as the log has it.
  std::vector<std::string> holders_of_contexts() const;
  // Ends it with SIGKILL, as a crash would.
  void kill();

 private:
  TemporaryFolder folder_;
  pid_t pid_ = -1;
};

// The text with every occurrence of `from` replaced.
std::string replace_all(std::string text, std::string_view from, std::string_view to);

}  // namespace endtoend
