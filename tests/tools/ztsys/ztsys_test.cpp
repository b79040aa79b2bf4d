// SPDX-License-Identifier: Apache-2.0
// The command line of ztsys, on the program as it is built.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/sys/prtzt_file.h"
#include "tests/support/settings_text.h"
#include "tests/support/test_files.h"

namespace {

using Words = std::vector<std::string>;

struct Outcome {
  int status = 0;
  std::string out;
  std::string err;
};

class Ztsys : public testing::Test {
 protected:
  Ztsys() {
    mkdir((folder_ / "datafiles").c_str(), 0777);
    test::WriteFile(folder_ / "zentrace.reg", test::settings_text(folder_.path(), folder_.path()));
    setenv("ZT_REGISTRY", (folder_ / "zentrace.reg").c_str(), 1);
  }

  void StandardStreamsTo(const std::string& out, const std::string& err) const {
    constexpr mode_t kMode = 0666;
    dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kMode), STDOUT_FILENO);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kMode), STDERR_FILENO);
  }

  [[noreturn]] static void Exec(const Words& words) {
    std::vector<char*> arguments{const_cast<char*>(ZTSYS_PROGRAM)};
    for (const std::string& word : words)
      arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(ZTSYS_PROGRAM, arguments.data());
    _exit(127);
  }

  Outcome Collect(int wait_status) const {
    return {test::ExitStatus(wait_status), test::ReadFile(folder_ / "out"),
            test::ReadFile(folder_ / "err")};
  }

  Outcome Run(const Words& words, rlim_t file_size = RLIM_INFINITY, bool unprivileged = false) {
    // The output files belong to root even when the program does not run as it.
    const std::string out = folder_ / "out";
    const std::string err = folder_ / "err";
    for (const std::string& file : {out, err}) {
      test::WriteFile(file, "");
      chmod(file.c_str(), 0666);
    }
    return Collect(test::RunInChild(
        [&]() -> int {
          dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
          StandardStreamsTo(out, err);
          if (file_size != RLIM_INFINITY) {
            const rlimit limit{file_size, file_size};
            setrlimit(RLIMIT_FSIZE, &limit);
          }
          Exec(words);
        },
        unprivileged));
  }

  // With --db on the test's own database.
  Outcome Db(Words words) {
    words.insert(words.begin(), {"--db", db_});
    return Run(words);
  }

  Outcome DbOnTerminal(Words words, const std::string& answer) {
    words.insert(words.begin(), {"--db", db_});
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
      StandardStreamsTo(folder_ / "out", folder_ / "err");
      Exec(words);
    }
    EXPECT_EQ(write(terminal, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
    int wait_status = 0;
    waitpid(child, &wait_status, 0);
    close(terminal);
    return Collect(wait_status);
  }

  // One line on standard error that says both things, and nothing on standard output.
  static void ExpectFailure(const Outcome& outcome, int status, const std::string& part,
                            const std::string& other_part = "") {
    EXPECT_EQ(outcome.status, status) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.rfind("ztsys: ", 0), 0u) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
    EXPECT_NE(outcome.err.find(part), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find(other_part), std::string::npos) << outcome.err;
  }

  test::Folder folder_;
  std::string db_ = folder_ / "ztdb";
};

TEST_F(Ztsys, AddsListsRenamesAndDeletes) {
  EXPECT_EQ(Db({"add", "192.0.2.7", "--group", "web", "--type=dnx"}).out,
            "added 192.0.2.7 (192.0.2.7)\n");
  EXPECT_EQ(Db({"add", "127.0.0.1", "--type", "1"}).status, 0);
  EXPECT_EQ(Db({"list"}).out,
            "NAME       ADDRESS    GROUP  TYPE   ALARMS    STATUS\n"
            "192.0.2.7  192.0.2.7  web    DNX    disabled  NOT MONITORING\n"
            "127.0.0.1  127.0.0.1  -      ALDER  disabled  NOT MONITORING\n");
  EXPECT_EQ(Db({"rename", "127.0.0.1", "localhost"}).out,
            "renamed 127.0.0.1 (127.0.0.1) to localhost\n");
  EXPECT_NE(Db({"show", "localhost"}).out.find("    Data comm key   : 127.0.0.1\n"),
            std::string::npos);
  EXPECT_NE(Db({"show", "--short", "127.0.0.1"}).out.find("(localhost): Key=127.0.0.1\n"),
            std::string::npos);
  EXPECT_EQ(Db({"delete", "192.0.2.7"}).out, "deleted 192.0.2.7 (192.0.2.7)\n");
  const Outcome alarms = Db({"alarms"});
  EXPECT_NE(alarms.out.find("Key=127.0.0.1"), std::string::npos);
  EXPECT_NE(alarms.out.find("U = unused"), std::string::npos);
  EXPECT_EQ(alarms.out.find("192.0.2.7"), std::string::npos);
  EXPECT_EQ(Db({"info"}).out,
            "\n  System DB Version : 4\n"
            "  File              : " +
                db_ +
                "\n"
                "  Systems           : 1\n");
  EXPECT_EQ(test::ReadFile(db_ + ".sem"), std::string("\3\0\0\0", 4));
}

TEST_F(Ztsys, ListsOneJsonObjectALineWhateverTheFileHolds) {
  std::string file = test::VersionSlot(4);
  file += test::SystemSlot(test::Key(10, 0, 0, 1), "a\"b\\c\x1b[31m\xc3\xa4\xc2\x9b\xff\xe2\x82");
  test::WriteFile(db_, file);
  EXPECT_EQ(Db({"list", "--json"}).out,
            "{\"name\": \"a\\\"b\\\\c\\u001b[31m\xc3\xa4\\u009b\\ufffd\\ufffd\\ufffd\", "
            "\"address\": \"10.0.0.1\", \"group\": \"\", \"type\": 0, \"type_name\": \"UNKNOWN\", "
            "\"alarms\": \"disabled\", \"status\": 0, \"status_text\": \"NOT MONITORING\", "
            "\"last_error\": 0, \"sequence\": 0, \"alarm_count\": 0, \"symbols\": false, "
            "\"old_agent\": false, \"updated\": 0}\n");
  const std::string shown = "a\"b\\c?[31m\xc3\xa4?\xff\xe2?";
  EXPECT_NE(Db({"list"}).out.find(shown), std::string::npos) << "no control of the terminal";
  EXPECT_NE(Db({"show", "10.0.0.1"}).out.find(shown), std::string::npos);
  EXPECT_NE(Db({"show", "--short", "10.0.0.1"}).out.find(shown), std::string::npos);
}

TEST_F(Ztsys, WorksOnTheInstallationsDatabase) {
  EXPECT_EQ(Run({"add", "10.0.0.1"}).status, 0);
  EXPECT_EQ(test::ReadFile(folder_ / "datafiles/ztdb").size(), 2 * test::kSlotSize);
}

TEST_F(Ztsys, AsksOnATerminalBeforeItDeletes) {
  Db({"add", "10.0.0.1"});
  const Outcome no = DbOnTerminal({"delete", "10.0.0.1"}, "n\n");
  EXPECT_EQ(no.status, 1);
  EXPECT_EQ(no.err,
            "Delete 10.0.0.1 (10.0.0.1) from " + db_ + "? [y/N] ztsys: nothing is deleted\n");
  EXPECT_EQ(DbOnTerminal({"delete", "10.0.0.1"}, "y\n").status, 0);
  Db({"add", "10.0.0.1"});
  const Outcome unasked = DbOnTerminal({"delete", "--yes", "10.0.0.1"}, "n\n");
  EXPECT_EQ(unasked.status, 0);
  EXPECT_EQ(unasked.err, "");
}

TEST_F(Ztsys, RefusesWrongUsageWithStatusTwo) {
  const struct {
    Words words;
    const char* part;
  } cases[] = {{{}, "no command"},
               {{"frob"}, "'frob'"},
               {{"--frob", "list"}, "'--frob'"},
               {{"list", "x"}, "unexpected word 'x'"},
               {{"list", "--yes"}, "does not go with 'list'"},
               {{"list", "--json=1"}, "takes no value"},
               {{"list", "--db"}, "needs a value"},
               {{"list", "--db="}, "is empty"},
               {{"--db", "a", "--db", "b", "list"}, "given twice"},
               {{"show"}, "NAME|ADDRESS"},
               {{"show", ""}, "is empty"},
               {{"rename", "10.0.0.1"}, "ADDRESS NAME"},
               {{"add", "x", "--type", "8"}, "unknown type '8'"},
               {{"add", "x", "--group", std::string(20, 'g')}, "longer than 19"},
               {{"add", std::string(257, 'n')}, "longer than 256"},
               {{"add", "a\nb"}, "control characters"},
               {{"add", "10.0.0.7 "}, "begins or ends with a blank"},
               {{"rename", "10.0.0.7", " x"}, "begins or ends with a blank"}};
  for (const auto& c : cases)
    ExpectFailure(Run(c.words), 2, c.part, "see ztsys --help");
  struct stat about {};
  EXPECT_NE(stat((folder_ / "datafiles/ztdb").c_str(), &about), 0) << "no database is made";
}

TEST_F(Ztsys, ReportsWhatCannotBeDoneWithStatusOne) {
  ExpectFailure(Db({"list"}), 1, db_, "No such file");
  Db({"add", "10.0.0.1"});
  const std::string before = test::ReadFile(db_);
  const struct {
    Words words;
    const char* part;
  } cases[] = {{{"add", "10.0.0.1"}, "already"},
               {{"add", "no-such-host.invalid"}, "does not resolve"},
               {{"add", "0.0.0.0"}, "no system's address"},
               {{"add", "255.255.255.255"}, "does not resolve"},
               {{"show", "10.0.0.2"}, "no system '10.0.0.2'"},
               {{"delete", "--yes", "--", "-x"}, "no system '-x'"},
               {{"delete", "--yes", "a\nb\x1b[31m"}, "no system 'a?b?[31m'"},
               {{"alarms", "10.0.0.2"}, "no system"},
               {{"rename", "10.0.0.1", "10.0.0.2"}, "is the name of 10.0.0.2"},
               {{"rename", "10.0.0.1", "no-such-host.invalid"}, "does not resolve"}};
  for (const auto& c : cases)
    ExpectFailure(Db(c.words), 1, c.part);
  EXPECT_EQ(test::ReadFile(db_), before);
}

TEST_F(Ztsys, NamesTheFileThatIsDamagedAndLeavesItAsItIs) {
  ExpectFailure(Run({"--db", folder_.path(), "add", "10.0.0.1"}), 1, folder_.path(), "directory");
  ExpectFailure(Run({"--db", folder_ / "none/ztdb", "add", "10.0.0.1"}), 1, "none/ztdb");
  for (const std::string& bytes :
       {std::string(600, '\xA5'), std::string("half"), std::string(test::VersionSlot(9))}) {
    test::WriteFile(db_, bytes);
    ExpectFailure(Db({"add", "10.0.0.1"}), 1, db_, "not a system database");
    EXPECT_EQ(test::ReadFile(db_), bytes);
  }
  test::WriteFile(db_, test::VersionSlot(4));
  chmod(db_.c_str(), 0444);
  ExpectFailure(Run({"--db", db_, "add", "10.0.0.1"}, RLIM_INFINITY, true), 1, db_,
                "Permission denied");
  chmod(db_.c_str(), 0666);
  test::WriteFile(db_ + ".sem", "");
  chmod((db_ + ".sem").c_str(), 0);
  remove((db_ + ".lk").c_str());
  ExpectFailure(Run({"--db", db_, "list"}, RLIM_INFINITY, true), 1, db_ + ".sem",
                "Permission denied");
}

TEST_F(Ztsys, AFullDiskLeavesTheDatabaseAsItWas) {
  ExpectFailure(Run({"--db", db_, "add", "10.0.0.1"}, 300), 1, db_, "no room");
  EXPECT_EQ(test::ReadFile(db_), "") << "no half version record";
  Db({"add", "10.0.0.1"});
  Db({"add", "10.0.0.2"});
  const std::string before = test::ReadFile(db_);
  ExpectFailure(Run({"--db", db_, "add", "10.0.0.3"}, before.size() + 77), 1, db_, "no room");
  EXPECT_EQ(test::ReadFile(db_), before);
  EXPECT_EQ(test::ReadFile(db_ + ".sem"), std::string("\2\0\0\0", 4));
}

// The same on a file system without room, which only root can make.
TEST_F(Ztsys, AFullFileSystemLeavesTheDatabaseAsItWas) {
  constexpr int kSkipped = 77;
  db_ = folder_ / "small/ztdb";
  mkdir((folder_ / "small").c_str(), 0777);
  const int wait_status = test::RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, "") != 0 ||
        mount("none", (folder_ / "small").c_str(), "tmpfs", 0, "size=12k") != 0)
      return kSkipped;
    // Two pages are the database's: 16 slots less some octets.
    for (int i = 1; i <= 15; ++i)
      EXPECT_EQ(Db({"add", "10.0.0." + std::to_string(i)}).status, 0);
    const std::string before = test::ReadFile(db_);
    ExpectFailure(Db({"add", "10.0.0.16"}), 1, db_, "no room");
    EXPECT_EQ(test::ReadFile(db_), before);
    // The eighth slot is on both pages, and there is no room to note what it held.
    EXPECT_EQ(Db({"delete", "10.0.0.8"}).status, 0);
    EXPECT_EQ(Db({"add", "10.0.0.16"}).status, 0);
    EXPECT_EQ(Db({"list"}).out.find("10.0.0.8 "), std::string::npos);
    db_ += "2";
    ExpectFailure(Db({"add", "10.0.0.1"}), 1, db_, "no room");
    EXPECT_EQ(test::ReadFile(db_), "");
    return HasFailure() ? 1 : 0;
  });
  if (test::ExitStatus(wait_status) == kSkipped)
    GTEST_SKIP() << "no file system of our own";
  EXPECT_EQ(test::ExitStatus(wait_status), 0);
}

// A file that got the number of standard output would be written over by what is printed.
TEST_F(Ztsys, ClosedStandardStreamsAreNotTheDatabase) {
  Db({"add", "10.0.0.1"});
  const std::string before = test::ReadFile(db_);
  test::RunInChild([&]() -> int {
    StandardStreamsTo(folder_ / "out", folder_ / "err");
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    Exec({"--db", db_, "list"});
  });
  EXPECT_EQ(test::ReadFile(folder_ / "err"),
            "ztsys: cannot write the output: Bad file descriptor\n");
  EXPECT_EQ(test::ReadFile(db_), before);
}

TEST_F(Ztsys, WaitsForTheWritersLock) {
  Db({"add", "10.0.0.1"});
  sys::tBINFILE lock(nullptr, 1);
  lock.SetName((db_ + ".lk").c_str());
  ASSERT_EQ(lock.OpenAlways(sys::tFILEDEFS::cREADWRITE, 0, sys::tFILEDEFS::cALL_RWX), 0);
  ASSERT_EQ(lock.LockRegion(1, 0), 0);
  const pid_t child = fork();
  if (child == 0) {
    lock.Close();
    StandardStreamsTo(folder_ / "out", folder_ / "err");
    Exec({"--db", db_, "add", "10.0.0.2"});
  }
  int wait_status = 0;
  usleep(200'000);
  EXPECT_EQ(waitpid(child, &wait_status, WNOHANG), 0);
  EXPECT_EQ(Db({"list"}).status, 0) << "readers do not wait";
  lock.Close();
  waitpid(child, &wait_status, 0);
  EXPECT_EQ(test::ExitStatus(wait_status), 0);
}

TEST_F(Ztsys, HelpAndVersionGoToStandardOutput) {
  const Outcome help = Run({"show", "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.err, "");
  EXPECT_NE(help.out.find("--short"), std::string::npos);
  EXPECT_EQ(Run({"--version"}).out, "ztsys " ZT_VERSION "\n");
}

}  // namespace
