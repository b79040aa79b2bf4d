// SPDX-License-Identifier: Apache-2.0
// The atlas of faults, docs/faults.md, against what the program prints: faults.cases holds for
// every row what is done and both streams whole, and every row has its case. Hosts that are out of
// reach are made of routes and of a pair of interfaces at whose other end nobody listens.
//
// "(heading)" stands for the lines from the echo of the command to the target's.
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
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sys/prtzt_file.h"
#include "platform/sys/sockets.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"
#include "tests/endtoend/toy_server.h"
#include "tests/support/settings_text.h"

namespace endtoend {
namespace {

struct Case {
  std::string row;
  std::string actions;  // its lines as they stand
  std::map<std::string, std::string> action;
  std::string out, err;
};

constexpr const char* kHeading = "1|(heading)";

// What the case's command prints ahead of its checks, with the console or an address for a target.
std::string heading_of(const Case& each) {
  const std::string command = each.action.at("run");
  const std::size_t target = command.find("-s ");
  if (target == std::string::npos)
    return heading("ztcomm " + command, "console", "127.0.0.2");
  return heading("ztcomm " + command,
                 command.substr(target + 3, command.find(' ', target + 3) - target - 3));
}

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
    } else if (line == kHeading) {
      stream = &cases.back().out;
      *stream += heading_of(cases.back());
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

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream text(line);
  return {std::istream_iterator<std::string>(text), {}};
}

// An installation whose database is one of the sorts that a case names, with these systems, and
// whose list of ignored addresses has the lines of a workstation's file.
class Installation {
 public:
  Installation(const std::string& sort, const std::string& systems, const std::string& ignored) {
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
    else if (sort == "device")  // nothing can be read at the start of a process's memory
      std::filesystem::create_symlink("/proc/self/mem", database);
    else if (!sort.empty() && sort != "missing")
      run("ztsys", {"--db", database, "add", "127.0.3.1"});
    for (const std::string& system : words_of(systems))
      run("ztsys", {"--db", database, "add", system});
    std::string list;
    for (const std::string& address : words_of(ignored))
      list += address + "\r\n";
    folder_.write("ignoreip.txt", list);
    if (sort == "cut")
      std::filesystem::resize_file(database, std::filesystem::file_size(database) - 302);
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

// What changes from run to run: ports and the folder.
std::string constant(std::string text, const std::string& folder) {
  text = std::regex_replace(text, std::regex(R"(\[\d{4,5}\])"), "[*]");
  text = std::regex_replace(text, std::regex(R"(port \d{4,5})"), "port *");
  return folder.empty() ? text : replace_all(text, folder, "FOLDER");
}

// A text in which a line, or a group of three or five, that comes four times or more stands once,
// with the number of times.
std::string collapsed(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  std::string result;
  for (std::size_t at = 0; at < lines.size();) {
    std::size_t size = 1, times = 1;
    for (const std::size_t group : {1U, 3U, 5U}) {
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

// A file of the system's with this text for a case's length. The namespace's nsswitch.conf is its
// own already, without a name that something could be mounted on.
class Instead {
 public:
  Instead(const std::string& file, const std::string& text)
      : file_(file), mounted_(file != "/etc/nsswitch.conf"), before_(text_of(file)) {
    if (mounted_)
      EXPECT_EQ(0,
                std::system(("mount --bind " + folder_.write("text", text) + " " + file).c_str()));
    else
      std::ofstream(file) << text;
  }
  ~Instead() {
    if (mounted_)
      EXPECT_EQ(0, std::system(("umount " + file_).c_str()));
    else
      std::ofstream(file_) << before_;
  }

 private:
  std::string file_;
  bool mounted_;
  std::string before_;
  TemporaryFolder folder_;
};

// A repository server at this address that lives and answers to a call that it works, or with
// replies that it signs, and after a few of them nothing more.
std::unique_ptr<ToyServer> toy_server(bool works, const std::string& address) {
  int left = works ? 4 : 3;
  return std::make_unique<ToyServer>(ToyServer::Settings{
      .address = ::ntohl(sockets::inet_addr(address.c_str())),
      .port = 2000,
      .receive = [works, left](const rpc::PacketHeader& request, Datagrams& answers) mutable {
        constexpr std::uint32_t kManagement = 0xafa8bd80;
        auto answer = header_for(request, rpc::PacketType::response);
        if (request.interface_id.time_low == kManagement) {
          answers = {encode_packet(answer, rpc::test::hex("00000000 01000000"))};
        } else if (left-- > 0) {
          answer.type = works ? rpc::PacketType::working : rpc::PacketType::response;
          constexpr std::size_t kAuthentication = 78;
          answers = {encode_packet(answer, {})};
          answers[0].at(kAuthentication) = std::byte(works ? 0 : 10);
        }
        return false;
      }});
}

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
  const std::string sort = said("database"), systems = said("systems"), ignored = said("ignored");
  const Installation installation(sort, systems, ignored);
  if (!(sort + systems + ignored).empty())
    environment["ZT_REGISTRY"] = installation.registry();
  const std::string host = said("host").empty() ? "console" : said("host");
  EXPECT_EQ(0, ::sethostname(host.data(), host.size()));
  std::vector<std::unique_ptr<Instead>> instead;
  if (!said("nameserver").empty()) {
    instead.push_back(std::make_unique<Instead>(
        "/etc/resolv.conf", "nameserver 10.2.0.7\noptions timeout:2 attempts:1\n"));
    instead.push_back(std::make_unique<Instead>("/etc/nsswitch.conf", "hosts: files dns\n"));
  }
  if (!said("hosts").empty())
    instead.push_back(
        std::make_unique<Instead>("/etc/hosts", replace_all(said("hosts"), "; ", "\n")));
  std::unique_ptr<ToyServer> toy;
  if (!said("toy").empty())
    toy = toy_server(said("toy") == "working", words_of(said("run")).at(1));
  const Result result =
      run("ztcomm", words_of(said("run")), environment,
          said("killed").empty() ? 60 : std::stoi(said("killed")), said("output"));
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
  std::string out = each.out;
  if (const std::string usual = heading_of(each); out.starts_with(usual)) {
    text += std::string(kHeading) + "\n";
    out.erase(0, usual.size());
  }
  for (const auto& [mark, stream] : {std::pair("1|", out), std::pair("2|", each.err)}) {
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
          "ip route add unreachable 10.1.1.1", "ip route add prohibit 10.1.1.2",
          // What repository-asks-from-elsewhere sends from other ports than its own is dropped.
          "ip rule add pref 10 lookup local", "ip rule del pref 0",
          "ip rule add pref 1 from 127.0.3.65 ipproto udp sport 135 lookup local",
          "ip rule add pref 2 from 127.0.3.65 ipproto udp sport 4100 lookup local",
          "ip rule add pref 3 from 127.0.3.65 ipproto udp blackhole"})
      ASSERT_EQ(0, std::system(command)) << command;
  }
};

TEST_F(Faults, TheAtlasTellsWhatIsPrinted) {
  std::string scenario = text_of(std::string(ZT_FAULTS) + ".toml") +
                         "[[system]]\nname = 'crowd'\naddress = '127.0.3.57'\nalarm = {}\n"
                         "repository = [{source = 'TAMBO'}";
  for (int i = 0; i < 129; ++i)
    scenario += ", {source = 'ORDERS'}";
  const Agent agent(scenario + "]\n");
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
  // Whatever the checks made on an agent they took back, but where a server let them not.
  EXPECT_EQ((std::vector<std::string>{"server-hangs/TAMBO"}), agent.holders_of_contexts());
  if (const char* file = std::getenv("ZT_FAULTS_RECORD"))
    std::ofstream(file) << record;
}

// Views over filters, which no check makes. The server hands out an object with its refusal, and a
// second filter takes the place of the first.
TEST_F(Faults, NoFilterIsLeftOnTheAgent) {
  const repTimeFilter_sShiftDescriptor shift{0, 0x7FFFFFFF, repTimeFilter_cShiftAbsolute};
  const std::uint32_t metric = 101;
  const std::string refusing = "behaviour = [{patch = {at = 20, hex = '0500014C'}, operation = ";
  const std::map<std::string, int> cases = {{"", 1},
                                            {refusing + "'repTimeFilter_Create'}]", 0},
                                            {refusing + "'repFilteredView_Create'}]", 0}};
  SourceText source("A");
  source.with_class("C", "rows = 3").metric("M");
  for (const auto& [behaviour, made] : cases) {
    SCOPED_TRACE(behaviour);
    const Agent agent(source.text() + system_alpha({"A"}, behaviour));
    {
      zt_RepServerInfo_class client(0x0101007F, "alpha");
      ASSERT_EQ(1, client.ConnectToServer("A"));
      for (int i = 0; i < 2; ++i)
        EXPECT_EQ(made, client.CreateFilteredView(0, &metric, 1, &shift, 1));
    }
    EXPECT_NE(agent.log().find(" is made"), std::string::npos);
    EXPECT_EQ(agent.holders_of_contexts(), std::vector<std::string>());
  }
}

}  // namespace
}  // namespace endtoend
