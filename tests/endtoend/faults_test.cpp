// SPDX-License-Identifier: Apache-2.0
// The atlas of faults, docs/faults.md, against what the program prints: faults.cases holds for
// every row what is done and both streams whole, and every row has its case. Hosts that are out of
// reach are made of routes and of a pair of interfaces at whose other end nobody listens.
//
// ZT_FAULTS_RECORD=FILE writes the cases with what was printed now, to be read before it is taken.

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sys/prtzt_file.h"
#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/support/settings_text.h"

namespace endtoend {
namespace {

struct Case {
  std::string row;
  std::string actions;  // its lines as they stand
  std::map<std::string, std::string> action;
  std::string out, err;
};

std::string text_of(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<Case> read_cases() {
  std::vector<Case> cases;
  std::istringstream file(text_of(std::string(ZT_FAULTS) + ".cases"));
  std::string* stream = nullptr;
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(": ");
    if (line.starts_with("== ")) {
      cases.push_back({line.substr(3), {}, {}, {}, {}});
      stream = nullptr;
    } else if (cases.empty() || (line.empty() && stream == nullptr)) {
      continue;
    } else if (line.starts_with("1|") || line.starts_with("2|")) {
      stream = line.front() == '1' ? &cases.back().out : &cases.back().err;
      *stream += line.substr(2) + "\n";
    } else if (colon != std::string::npos && stream == nullptr) {
      cases.back().actions += line + "\n";
      cases.back().action[line.substr(0, colon)] = line.substr(colon + 2);
    }
  }
  return cases;
}

// Every row of the atlas: its case's name, and what it says is printed.
std::map<std::string, std::string> read_atlas() {
  std::map<std::string, std::string> rows;
  std::istringstream page(text_of(ZT_ATLAS));
  const std::regex row(R"(\| `(.*)` \| .* \| .* \| ([\w-]+) \|)");
  for (std::string line; std::getline(page, line);) {
    std::smatch match;
    if (std::regex_match(line, match, row)) {
      EXPECT_TRUE(rows.emplace(match[2], match[1]).second) << match[2];
    } else {
      EXPECT_FALSE(line.starts_with("| `")) << "a row of another form: " << line;
    }
  }
  return rows;
}

// An installation whose database is one of the sorts that a case names.
class Installation {
 public:
  explicit Installation(const std::string& sort) {
    const auto build = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    registry_ = folder_.write("zentrace.reg",
                              test::settings_text((build / "share/zentrace").string(), path()));
    std::filesystem::create_directory(folder_.path() / "datafiles");
    const std::string database = path() + "/datafiles/ztdb";
    if (sort == "no-folder")
      std::filesystem::remove(folder_.path() / "datafiles");
    else if (sort == "empty" || sort == "text")
      folder_.write("datafiles/ztdb", sort == "text" ? std::string(600, 'x') : "");
    else if (sort == "folder")
      std::filesystem::create_directory(database);
    else if (sort == "locked")
      lock_older(database);
    else if (sort != "missing")
      run("ztsys", {"--db", database, "add", "127.0.3.1"});
    if (sort == "cut")
      std::filesystem::resize_file(database, 700);
    if (sort == "unreadable")
      std::filesystem::permissions(database, std::filesystem::perms::none);
  }
  std::string path() const { return folder_.path().string(); }
  const std::string& registry() const { return registry_; }

 private:
  // A version record of the older layout, and the writers' lock of its file.
  void lock_older(const std::string& database) {
    std::string slot(501, '\0');
    slot[5] = 3;
    folder_.write("datafiles/ztdb", slot);
    lock_.SetName((database + ".lk").c_str());
    EXPECT_EQ(lock_.OpenAlways(sys::tFILEDEFS::cREADWRITE, 0, sys::tFILEDEFS::cALL_RWX), 0);
    EXPECT_EQ(lock_.LockRegion(1, 0), 0);
  }

  TemporaryFolder folder_;
  std::string registry_;
  sys::tBINFILE lock_{nullptr, 1};
};

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream text(line);
  return {std::istream_iterator<std::string>(text), {}};
}

// What changes from run to run: ports and the folder.
std::string constant(std::string text, const std::string& folder) {
  text = std::regex_replace(text, std::regex(R"(\[\d{4,5}\])"), "[*]");
  text = std::regex_replace(text, std::regex(R"(port \d{4,5})"), "port *");
  return folder.empty() ? text : replace_all(text, folder, "FOLDER");
}

// A text in which a line, or a group of three, that comes four times or more stands once, with the
// number of times.
std::string collapsed(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  std::string result;
  for (std::size_t at = 0; at < lines.size();) {
    std::size_t size = 1, times = 1;
    for (const std::size_t group : {1U, 3U}) {
      std::size_t same = 0;
      while (at + group + same < lines.size() && lines[at + same] == lines[at + group + same])
        ++same;
      if (same / group + 1 >= 4 && same / group + 1 > times)
        size = group, times = same / group + 1;
    }
    for (std::size_t i = 0; i < size; ++i)
      result += lines[at + i] + "\n";
    if (times > 1)
      result += "(" + std::to_string(times) + " times)\n";
    at += size * times;
  }
  return result;
}

// For a case's length, names that the hosts file lacks are asked of a server that swallows packets.
// The namespace's nsswitch.conf is its own file already.
class SilentNameServer {
 public:
  SilentNameServer() {
    const std::string resolver =
        folder_.write("resolv.conf", "nameserver 10.2.0.7\noptions timeout:2 attempts:1\n");
    EXPECT_EQ(0, std::system(("mount --bind " + resolver + " /etc/resolv.conf").c_str()));
    std::ofstream(kOrder) << "hosts: files dns\n";
  }
  ~SilentNameServer() {
    std::ofstream(kOrder) << order_;
    EXPECT_EQ(0, std::system("umount /etc/resolv.conf"));
  }

 private:
  static constexpr const char* kOrder = "/etc/nsswitch.conf";
  const std::string order_ = text_of(kOrder);
  TemporaryFolder folder_;
};

// Runs the case; the streams as they are compared.
Case run_case(const Case& given) {
  const auto said = [&](const char* key) {
    const auto found = given.action.find(key);
    return found != given.action.end() ? found->second : std::string();
  };
  std::map<std::string, std::string> environment = {{"ZT_RPC_TIMEOUT", "0"}, {"TZ", "UTC"}};
  const std::string setting = said("env");
  if (!setting.empty())
    environment[setting.substr(0, setting.find('='))] = setting.substr(setting.find('=') + 1);
  const std::string sort = said("database");
  const Installation installation(sort);
  if (!sort.empty())
    environment["ZT_REGISTRY"] = installation.registry();
  const std::string host = said("host").empty() ? "console" : said("host");
  EXPECT_EQ(0, ::sethostname(host.data(), host.size()));
  std::optional<SilentNameServer> name_server;
  if (!said("nameserver").empty())
    name_server.emplace();
  const Result result = run("ztcomm", words_of(said("run")), environment, 60, said("output"));
  EXPECT_EQ(0, ::sethostname("console", 7));

  Case now = given;
  now.out = collapsed(constant(result.out, installation.path()));
  now.err = constant(result.err, installation.path());
  const std::string note = message(20, 203, "0") + "\n";
  if (now.err.starts_with(note))
    now.err.erase(0, note.size());
  const std::string within = said("within");
  EXPECT_LT(result.seconds, within.empty() ? 12 : std::stod(within)) << given.row;
  return now;
}

std::string recorded(const Case& each) {
  std::string text = "\n== " + each.row + "\n" + each.actions;
  for (const auto& [mark, stream] : {std::pair("1|", each.out), std::pair("2|", each.err)}) {
    std::istringstream lines(stream);
    for (std::string line; std::getline(lines, line);)
      text += mark + line + "\n";
  }
  return text;
}

// Whether a stream holds the text, whose parts between "…" stand in it in this order.
bool holds(const std::string& stream, const std::string& text) {
  std::size_t at = 0, from = 0;
  const std::string gap = "…";
  while (from <= text.size()) {
    const std::size_t end = std::min(text.find(gap, from), text.size());
    at = stream.find(text.substr(from, end - from), at);
    if (at == std::string::npos)
      return false;
    from = end + gap.size();
  }
  return true;
}

class Faults : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Permissions shall count for the programs, whoever runs the tests.
    for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
      ASSERT_EQ(0, ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0));
    for (const char* command :
         {"ip link add road0 type veth peer name road1", "ip link set road1 up",
          "ip addr add 10.2.0.1/24 dev road0", "ip link set road0 up",
          "ip neigh add 10.2.0.7 lladdr 02:00:00:00:00:07 dev road0 nud permanent",
          "ip route add unreachable 10.1.1.1", "ip route add prohibit 10.1.1.2"})
      ASSERT_EQ(0, std::system(command)) << command;
  }
};

TEST_F(Faults, TheAtlasTellsWhatIsPrinted) {
  const Agent agent(text_of(std::string(ZT_FAULTS) + ".toml"));
  auto atlas = read_atlas();
  EXPECT_GE(atlas.size(), 60U);
  std::string record;
  for (const Case& each : read_cases()) {
    SCOPED_TRACE(each.row);
    const Case now = run_case(each);
    EXPECT_EQ(each.out, now.out);
    EXPECT_EQ(each.err, now.err);
    const auto row = atlas.find(each.row);
    if (row == atlas.end()) {
      ADD_FAILURE() << "the atlas has no such row";
    } else {
      EXPECT_TRUE(holds(now.out + now.err, row->second)) << row->second;
      atlas.erase(row);
    }
    record += recorded(now);
  }
  for (const auto& [row, text] : atlas)
    ADD_FAILURE() << "no case for the row " << row;
  if (const char* file = std::getenv("ZT_FAULTS_RECORD"))
    std::ofstream(file) << record;
}

}  // namespace
}  // namespace endtoend
