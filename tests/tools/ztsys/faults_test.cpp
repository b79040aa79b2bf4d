// SPDX-License-Identifier: Apache-2.0
// ztsys on a device that fails at each read and write in turn, and killed at random instants. What
// the file holds is read here by its offsets. ZT_KILLS sets how many kills there are.

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include "tests/tools/ztsys/program.h"

namespace {

using Systems = std::map<std::string, std::string>;  // group by key octets

class Faults : public ZtsysProgram {
 protected:
  // The live systems of the file; a key that is there twice fails the test.
  Systems Read() const {
    Systems systems;
    const std::string file = test::ReadFile(db_);
    for (std::size_t at = test::kSlotSize; at + test::kSlotSize <= file.size();
         at += test::kSlotSize) {
      if (file[at] == 1)
        continue;
      const std::string group = file.substr(at + test::kRecordAt + 260, 20);
      const bool once =
          systems.emplace(file.substr(at + 1, 4), group.substr(0, group.find('\0'))).second;
      EXPECT_TRUE(once) << "slot " << at / test::kSlotSize << " has a key for the second time";
    }
    return systems;
  }

  // Each system is as before or as after the command, and all that is in neither is absent.
  static void ExpectBetween(const Systems& now, const Systems& before, const Systems& after) {
    if (now == before || now == after)
      return;
    const auto value = [](const Systems& systems, const std::string& key) {
      const auto at = systems.find(key);
      return at == systems.end() ? "absent" : at->second;
    };
    for (const Systems* systems : {&now, &before, &after})
      for (const auto& [key, group] : *systems)
        EXPECT_TRUE(value(now, key) == value(before, key) || value(now, key) == value(after, key))
            << "10.x.x." << int{static_cast<unsigned char>(key[3])};
  }
};

// 18 systems, 10.0.0.1 to 20, with holes at 5 and 8: slots 8 and 16 lie on two pages.
std::string Pristine(int version) {
  std::string file = test::VersionSlot(version);
  for (int i = 1; i <= 20; ++i)
    file += i == 5 || i == 8 ? test::DeletedSlot()
                             : test::SystemSlot(test::Key(10, 0, 0, i), "s" + std::to_string(i));
  return file;
}

TEST_F(Faults, AFailureOfTheDeviceIsToldAndLosesNothing) {
  program_ = ZTSYS_FAULTY_PROGRAM;
  test::WriteFile(folder_ / "import.csv", "name,address,group\na,10.0.1.1,g\nb,10.0.1.2,g\n");
  test::WriteFile(folder_ / "update.csv", "name,address,group\na,10.0.0.7,g\nb,10.0.0.16,g\n");
  const std::string seen = folder_ / "seen";
  setenv("ZT_FAULT_SEEN", seen.c_str(), 1);
  const struct {
    Words words;
    int version = 4;
  } commands[] = {{{"list"}},
                  {{"list", "--json"}},
                  {{"show", "-n", "s20"}},
                  {{"info"}},
                  {{"verify"}},
                  {{"backup", folder_ / "copy"}},
                  {{"add", "10.0.0.98", "10.0.0.99"}},
                  {{"add", "10.0.0.99"}},
                  {{"set", "s16", "--group", "web"}},
                  {{"move", "s16", "10.0.0.88"}},
                  {{"delete", "--yes", "s16"}},
                  {{"import", folder_ / "import.csv"}},
                  {{"import", "--update", folder_ / "update.csv"}},
                  {{"add", "10.0.0.99"}, 3}};
  int faults = 0;
  for (const auto& command : commands) {
    unsetenv("ZT_FAULT");
    test::WriteFile(db_, Pristine(command.version));
    const Systems before = Read();
    const Outcome whole = Db(command.words);
    const Systems after = Read();
    for (const char* kind : {"read ", "write ", "late ", "sync "}) {
      for (int n = 1;; ++n) {
        SCOPED_TRACE(command.words[0] + ", " + kind + std::to_string(n));
        for (const char* left : {".v3", ".sem", ".lk"})
          remove((db_ + left).c_str());
        test::WriteFile(db_, Pristine(command.version));
        remove(seen.c_str());
        setenv("ZT_FAULT", (kind + std::to_string(n)).c_str(), 1);
        const Outcome outcome = Db(command.words);
        unsetenv("ZT_FAULT");
        if (access(seen.c_str(), F_OK) != 0)
          break;
        ++faults;
        // A read that came right when it was tried again has done no harm.
        if (outcome.status == 0) {
          EXPECT_EQ(outcome.out, whole.out);
          EXPECT_EQ(Read(), after);
        } else {
          EXPECT_EQ(outcome.status, 7);
          EXPECT_NE(outcome.err.find("device reports an error"), std::string::npos) << outcome.err;
        }
        ExpectBetween(Read(), before, after);
        // The same once more comes to the same end.
        Db(command.words);
        EXPECT_EQ(Read(), after);
      }
    }
    EXPECT_EQ(whole.status, 0) << whole.err;
  }
  unsetenv("ZT_FAULT_SEEN");
  std::printf("%d faults\n", faults);
  EXPECT_GT(faults, 100);
}

TEST_F(Faults, KillsAtRandomInstantsLoseNothingThatWasReported) {
  const char* setting = std::getenv("ZT_KILLS");
  const int kills = setting != nullptr ? std::atoi(setting) : 60;
  std::mt19937 random(std::random_device{}());
  // The latest kill of each command in microseconds. It follows how long they take here and now:
  // three of four are killed, wherever they are.
  std::map<std::string, double> latest;
  int killed = 0;
  for (int round = 0; killed < kills; ++round) {
    const std::string group = "g" + std::to_string(round);
    const Words commands[] = {{"add", "", "--group", group},
                              {"set", "", "--group", group},
                              {"delete", "", "--yes"},
                              {"import", folder_ / "import.csv", "--update"}};
    Words words = commands[random() % 4];
    const bool imports = words[0] == "import";
    Systems wanted;  // what the command is to store
    std::string lines = "name,address,group\n";
    for (unsigned i = 0; i < (imports ? 600U : 1U); ++i) {
      const int third = imports ? static_cast<int>(1 + random() % 8) : 0;
      const int fourth = static_cast<int>(random() % (imports ? 256 : 60));
      const std::string address = "10.0." + std::to_string(third) + '.' + std::to_string(fourth);
      wanted[test::Key(10, 0, third, fourth)] = group;
      lines += "n," + address + ',' + group + '\n';
      if (!imports)
        words[1] = address;
    }
    if (imports)
      test::WriteFile(folder_ / "import.csv", lines);
    // What is imported is thrown away at times, or nothing would be new.
    if (round % 64 == 0)
      remove(db_.c_str());
    words.insert(words.begin(), {"--db", db_});
    const Systems before = Read();
    test::WriteFile(folder_ / "out", "");
    const pid_t child = fork();
    if (child == 0) {
      StandardStreamsTo(folder_ / "out", folder_ / "err");
      Exec(words);
    }
    double& limit = latest.try_emplace(words[2], 10'000).first->second;
    usleep(static_cast<unsigned>(random()) % static_cast<unsigned>(limit));
    kill(child, SIGKILL);
    int wait_status = 0;
    waitpid(child, &wait_status, 0);
    killed += WIFSIGNALED(wait_status);
    limit = std::max(limit * (WIFSIGNALED(wait_status) ? 1.02 : 0.94), 100.0);

    SCOPED_TRACE(words[2] + ", round " + std::to_string(round));
    const Systems now = Read();
    const bool removes = words[2] == "delete";
    Systems after = before;
    for (const auto& [key, value] : wanted) {
      if (removes)
        after.erase(key);
      else if (words[2] != "set" || before.count(key) != 0)
        after[key] = value;
    }
    // A system that is there already is not added.
    if (words[2] == "add" && before.count(wanted.begin()->first) != 0)
      after = before;
    ExpectBetween(now, before, after);
    // What it has said, or its exit status, is true.
    const std::string told = test::ReadFile(folder_ / "out");
    if (!told.empty() || test::ExitStatus(wait_status) == 0) {
      EXPECT_TRUE(now == after) << told;
    }
    if (round % 50 == 49 && access(db_.c_str(), F_OK) == 0) {
      // Nothing is left to find but what is nobody's: part of a slot at the end, and holes that
      // were being filled.
      const Outcome repaired = Db({"verify", "--repair"});
      EXPECT_EQ(repaired.status, 0) << repaired.out << repaired.err;
      std::istringstream findings(repaired.out);
      for (std::string line; std::getline(findings, line);)
        EXPECT_TRUE(!line.starts_with("slot ") ||
                    line.find("octets behind the last") != std::string::npos ||
                    line.find("deleted, and not empty") != std::string::npos)
            << line;
      remove((db_ + ".before-repair").c_str());
    }
    ASSERT_FALSE(HasFailure());
  }
  std::printf("%d kills\n", killed);
}

}  // namespace
