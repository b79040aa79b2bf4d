// SPDX-License-Identifier: Apache-2.0
// The command line of ztsys, on the program as it is built.

#include <pty.h>
#include <sched.h>
#include <sys/mount.h>

#include <chrono>
#include <filesystem>

#include "platform/sys/prtzt_file.h"
#include "tests/tools/ztsys/program.h"

namespace {

// A command, its exit status, and what it says: in full on standard output if the status is 0 and
// the text ends with a line end, else as a part of it or of standard error.
struct Step {
  Words words;
  int status;
  std::string says;
};

class Ztsys : public ZtsysProgram {
 protected:
  void Follow(std::initializer_list<Step> steps) const {
    for (const Step& step : steps) {
      std::string line;
      for (const std::string& word : step.words)
        line += word + ' ';
      const Outcome outcome = Db(step.words);
      EXPECT_EQ(outcome.status, step.status) << line << outcome.err;
      if (step.status == 0 && step.says.ends_with('\n')) {
        EXPECT_EQ(outcome.out, step.says) << line;
      } else {
        const std::string& text = step.status == 0 ? outcome.out : outcome.err;
        EXPECT_NE(text.find(step.says), std::string::npos) << line << text;
        EXPECT_TRUE(step.status == 0 || text.starts_with("ztsys: ")) << line << text;
      }
    }
  }

  Outcome DbOnTerminal(Words words, const std::string& answer) const {
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

  void Store(std::initializer_list<std::string> slots) const {
    std::string file;
    for (const std::string& slot : slots)
      file += slot;
    test::WriteFile(db_, file);
  }
};

TEST_F(Ztsys, ChangesSystemsAndTellsEachKindOfFailure) {
  Follow({
      {{"list"}, 5, db_ + ": No such file"},
      {{"set", "x", "--type", "1"}, 5, "No such file"},
      {{"add", "192.0.2.7", "10.0.0.1", "--group", "web", "--type=dnx"},
       0,
       "added 192.0.2.7 (192.0.2.7)\nadded 10.0.0.1 (10.0.0.1)\n"},
      {{"add", "10.0.0.1"}, 4, "10.0.0.1 (10.0.0.1) is in " + db_ + " already"},
      {{"add", "127.0.0.1", "10.0.0.1"}, 4, "already"},
      {{"add", "www", "--address", "10.0.0.3"}, 0, "added www (10.0.0.3)\n"},
      {{"add", "www", "--address", "10.0.0.4"}, 0, "added www (10.0.0.4)\n"},
      {{"add", "no-such-host.invalid"}, 1, "does not resolve"},
      {{"show", "10.0.0.9"}, 3, "no system '10.0.0.9'"},
      {{"show", "www"}, 1, "10.0.0.3, 10.0.0.4"},
      {{"delete", "--yes", "www"}, 1, "2 systems"},
      {{"delete", "--yes", "a\nb\x1b[31m"}, 3, "no system 'a?b?[31m'"},
      {{"move", "192.0.2.7", "10.0.0.1"}, 4, "already"},
      {{"move", "192.0.2.7", "192.0.2.8"}, 0, "moved 192.0.2.7 (192.0.2.7) to 192.0.2.8\n"},
      {{"rename", "127.0.0.1", "localhost"}, 0, "renamed 127.0.0.1 (127.0.0.1) to localhost\n"},
      {{"rename", "10.0.0.1", "10.0.0.3"}, 1, "'10.0.0.3' is not the address of 10.0.0.1"},
      {{"rename", "10.0.0.1", "spare"}, 0, "renamed 10.0.0.1 (10.0.0.1) to spare\n"},
      {{"set", "localhost", "10.0.0.1", "--group", "-", "--type", "1", "--alarms", "on"},
       0,
       "changed localhost (127.0.0.1)\nchanged spare (10.0.0.1)\n"},
      {{"set", "10.0.0.4", "--alarms", "off", "--group", "db"}, 0, "changed www (10.0.0.4)\n"},
      {{"delete", "--yes", "10.0.0.1", "10.0.0.3"},
       0,
       "deleted spare (10.0.0.1)\n"
       "deleted www (10.0.0.3)\n"},
      {{"list", "--sort", "name"},
       0,
       "NAME       ADDRESS    GROUP  TYPE   ALARMS    STATUS\n"
       "192.0.2.7  192.0.2.8  web    DNX    disabled  NOT MONITORING\n"
       "localhost  127.0.0.1  -      ALDER  enabled   NOT MONITORING\n"
       "www        10.0.0.4   db     -      disabled  NOT MONITORING\n"},
      {{"list", "--csv", "--sort", "address", "--match", "*w*"},
       0,
       "name,address,group,type\nwww,10.0.0.4,db,\n"},
      {{"list", "--csv", "--group", "-", "--type", "alder"},
       0,
       "name,address,group,type\nlocalhost,127.0.0.1,,ALDER\n"},
      {{"show", "-n", "www"}, 0, "    Group           : db\n    Type            : <none>"},
      {{"show", "--short", "localhost"}, 0, "localhost (localhost): Key=127.0.0.1\n Status"},
      {{"alarms", "-n"}, 0, "U = unused"},
      {{"info"},
       0,
       "  Systems           : 3\n  Slots             : 6, 2 of them holes\n"
       "  Size              : 3006 octets"},
      {{"verify"}, 0, db_ + ": 0 findings\n"},
      {{"backup", folder_ / "copy"}, 0, "copied " + db_ + " to " + folder_ / "copy" + "\n"},
      {{"backup", folder_ / "./ztdb"}, 2, "is the database itself"},
      {{"backup", folder_ / "datafiles"}, 1, "not a plain file"},
  });
  EXPECT_EQ(test::ReadFile(folder_ / "copy"), test::ReadFile(db_));
  EXPECT_EQ(test::ReadFile(db_ + ".sem"), std::string("\x08\0\0\0", 4)) << "once for each";
  // The installation's own database, and words of the workstation's form.
  EXPECT_EQ(Run({"add", "10.0.0.1"}).status, 0);
  EXPECT_NE(Run({"--db", folder_.path() + "\\datafiles\\ztdb", "info"})
                .out.find(folder_ / "datafiles/ztdb" + "\n"),
            std::string::npos);
}

TEST_F(Ztsys, RefusesWrongUsageWithStatusTwoAndMakesNothing) {
  const struct {
    Words words;
    const char* part;
  } cases[] = {{{"show"}, "NAME|ADDRESS"},
               {{"add", "x", "--type", "8"}, "unknown type '8'"},
               {{"add", "x", "--group", std::string(20, 'g')}, "longer than 19 octets"},
               {{"add", std::string(257, 'n')}, "longer than 256"},
               {{"add", "a\nb"}, "control characters"},
               {{"add", "10.0.0.7 "}, "begins or ends with a blank"},
               {{"rename", "10.0.0.7", " x"}, "begins or ends with a blank"},
               {{"add", "010.0.0.1"}, "is no address"},
               {{"add", "7"}, "is no address"},
               {{"add", "10.0.0.256"}, "is no address"},
               {{"add", "0x7f000001"}, "is no address"},
               {{"add", "0.0.0.0"}, "0.0.0.0/8"},
               {{"add", "x", "--address", "224.0.0.1"}, "224.0.0.0/4"},
               {{"add", "255.255.255.255"}, "240.0.0.0/4"},
               {{"add", "x", "y", "--address", "10.0.0.1"}, "one name"},
               {{"move", "x", "y"}, "is no address"},
               {{"set", "x"}, "nothing to set"},
               {{"set", "x", "--alarms", "maybe"}, "on|off"},
               {{"list", "--json", "--csv"}, "exclude"},
               {{"list", "--sort", "size"}, "name|address|group|updated"},
               {{"delete", "x"}, "--yes"}};
  for (const auto& c : cases) {
    const Outcome outcome = Run(c.words);
    EXPECT_EQ(outcome.status, 2) << c.part << outcome.err;
    EXPECT_NE(outcome.err.find(c.part), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder_ / "datafiles"));
}

TEST_F(Ztsys, ImportsWhatListWritesAndNamesEachBadLine) {
  const std::string csv = folder_ / "in";  // standard input, too
  test::WriteFile(csv,
                  "\xEF\xBB\xBFType, Name ,ADDRESS,group\r\n"
                  "DNX,\"a, \"\"b\"\"\",10.0.0.1,web\r\n"
                  "9,plain,10.0.0.2,\r\n\r\n"
                  "8x,c,10.0.0.3,\r\n,,10.0.0.4,\r\n,d,10.0.0.05,\r\n"
                  ",twice,10.0.0.1,\r\n,\"open,10.0.0.6,\r\n,127.0.0.1,,\r\n"
                  ",e,10.0.0.7,a group of 20 octets\r\n,f,10.0.0.8,,more\r\n");
  Follow({{{"import", "--dry-run", "-"}, 1, "standard input:5: unknown type '8x'"},
          {{"list"}, 5, "No such file"},
          {{"import", folder_ / "none.csv"}, 1, "No such file"},
          {{"import", csv}, 1, csv + ":6: no name\nztsys: " + csv + ":7: '10.0.0.05' is no"},
          {{"import", csv}, 1, csv + ":2: a, \"b\" (10.0.0.1) is in the database already"}});
  const char* const all_failed = "0 added, 0 updated, 0 unchanged, 10 failed\n";
  EXPECT_EQ(Db({"import", csv}).out, all_failed);
  EXPECT_EQ(Run({"--db", folder_ / "none/ztdb", "import", csv}).out, all_failed);
  const std::string listed = Db({"list", "--csv"}).out;
  EXPECT_EQ(listed,
            "name,address,group,type\n\"a, \"\"b\"\"\",10.0.0.1,web,DNX\nplain,10.0.0.2,,9\n"
            "127.0.0.1,127.0.0.1,,\n");
  // What was listed goes into another database and comes out the same, and changes nothing here.
  test::WriteFile(csv, listed);
  Follow({{{"import", "--update", csv}, 0, "0 added, 0 updated, 3 unchanged, 0 failed\n"},
          {{"delete", "--yes", "10.0.0.2"}, 0, "deleted"}});
  test::WriteFile(folder_ / "changed", "name,address,group\nnew,10.0.0.9,\nz,10.0.0.1,-\n");
  Follow({{{"import", "--update", folder_ / "changed"}, 0, "1 added, 1 updated, 0 unchanged, 0"},
          {{"list", "--csv"},
           0,
           "name,address,group,type\nz,10.0.0.1,,DNX\nnew,10.0.0.9,,\n127.0.0.1,127.0.0.1,,\n"}});
  remove(db_.c_str());
  EXPECT_EQ(Db({"import", csv}).status, 0);
  EXPECT_EQ(Db({"list", "--csv"}).out, listed);
  // A list, and files that are neither.
  const std::pair<const char*, const char*> others[] = {
      {"# names\n10.1.0.1\n  10.1.0.2\n", "2 added, 0 updated, 0 unchanged, 0 failed\n"},
      {"name,color\n", ""},
      {"a,b\n", ""},
      {"", "0 added, 0 updated, 0 unchanged, 0 failed\n"}};
  for (const auto& [text, says] : others) {
    test::WriteFile(csv, text);
    const Outcome outcome = Db({"import", csv});
    EXPECT_EQ(outcome.out, says) << text;
    EXPECT_EQ(outcome.status, *says == 0 ? 2 : 0) << text;
  }
}

TEST_F(Ztsys, ListsOneJsonObjectALineWhateverTheFileHolds) {
  test::Bytes slot =
      test::SystemSlot(test::Key(10, 0, 0, 1), "a\"b\\c\x1b[31m\xc3\xa4\xc2\x9b\xff\xe2\x82");
  slot.Number(test::kRecordAt + 284, -1, 4).Number(test::kRecordAt + 292, 0x21, 1);
  Store({test::VersionSlot(4), slot});
  test::WriteFile(folder_ / "datafiles/ztsysxref", "other name\n");
  const std::string states = "12" + std::string(398, '0');
  const std::string json =
      "{\"name\": \"a\\\"b\\\\c\\u001b[31m\xc3\xa4\\u009b\\ufffd\\ufffd\\ufffd\", "
      "\"address\": \"10.0.0.1\", \"group\": \"\", \"type\": 0, \"type_name\": \"UNKNOWN\", "
      "\"alarms\": \"disabled\", \"status\": 0, \"status_text\": \"NOT MONITORING\", "
      "\"last_error\": 0, \"sequence\": 0, \"alarm_count\": 0, \"alarm_states\": \"" +
      states +
      "\", \"symbols\": false, \"old_agent\": false, \"updated\": 4294967295, "
      "\"back_connect\": null}\n";
  const std::string shown = "a\"b\\c?[31m\xc3\xa4?\xff\xe2?";
  Follow({{{"list", "--json"}, 0, json},
          {{"show", "--json", "10.0.0.1"}, 0, json},
          {{"list"}, 0, shown},
          {{"show", "-n", "10.0.0.1"}, 0, shown},
          {{"alarms", "-n", "10.0.0.1"}, 0, shown}});
}

TEST_F(Ztsys, VerifiesAndRepairsWhatIsCertain) {
  using test::Bytes;
  const auto system = [](int i) { return test::SystemSlot(test::Key(10, 0, 0, i), "s"); };
  Bytes version = test::VersionSlot(4);
  version.Text(1, test::Key(1, 2, 3, 4));
  Bytes odd = test::VersionSlot(4);
  odd.Number(0, 2, 1);
  Bytes endless = system(5);
  endless.Text(test::kRecordAt, std::string(257, 'n'));
  Bytes later = system(1);
  later.Number(test::kRecordAt + 284, 77, 4);
  const struct {
    std::string file;
    const char* finding;
    int left;
  } cases[] = {
      {system(1) + "half a slot", "slot 2: 11 octets behind", 0},
      {version + system(1), "slot 0: the version record has the key 1.2.3.4", 0},
      {odd + system(1), "slot 0: the version record has the status 2", 0},
      {system(1) + later, "slot 2: a second record of 10.0.0.1", 0},
      {system(1) + test::SystemSlot(test::Key(10, 0, 0, 1), "other"), "slot 2: a second", 1},
      {endless, "slot 1: the name of 10.0.0.5 has no end", 0},
      {Bytes(system(3)).Number(test::kRecordAt + 492, 8, 2), "unknown type 8 of 10.0.0.3", 1},
      {Bytes(system(3)).Number(test::kRecordAt + 257, 7, 1), "unknown monitor status 7", 1},
      {Bytes(system(3)).Number(test::kRecordAt + 300, 0x50, 1), "unknown alarm states", 1},
      {Bytes(system(3)).Number(0, 7, 1), "slot 1: impossible status 7", 0},
      {Bytes(system(3)).Number(0, 0x33, 1), "slot 1: impossible status 51", 0},
      {system(1) + test::SystemSlot(std::string(4, '\0'), "zero"), "a record of 0.0.0.0", 0},
      {test::SystemSlot(std::string(4, '\xff'), "none"), "a record of 255.255.255.255", 0},
      {Bytes(system(3)).Number(0, 1, 1), "slot 1: neither live nor free", 0}};
  for (const auto& c : cases) {
    const bool whole = c.file.size() > test::kSlotSize && c.file[test::kRecordAt] == 4;
    const std::string damaged = whole ? c.file : test::VersionSlot(4) + c.file;
    test::WriteFile(db_, damaged);
    const Outcome found = Db({"verify"});
    EXPECT_EQ(found.status, 1) << c.finding;
    EXPECT_NE(found.out.find(c.finding), std::string::npos) << found.out;
    EXPECT_EQ(test::ReadFile(db_), damaged);
    const Outcome repaired = Db({"verify", "--repair"});
    EXPECT_EQ(repaired.status, c.left) << repaired.out << repaired.err;
    EXPECT_EQ(test::ReadFile(db_ + ".before-repair"), damaged);
    remove((db_ + ".before-repair").c_str());
    EXPECT_EQ(Db({"verify"}).status, c.left) << c.finding;
  }
  test::WriteFile(folder_ / "datafiles/ztsysxref", "a b\nweb-1 c\n");
  EXPECT_NE(Db({"verify"}).err.find("ztsysxref:2: a hyphen"), std::string::npos);
}

// A killed change and a file that was cut look the same: whoever reads fails, whoever changes goes
// on.
TEST_F(Ztsys, TellsWhereTheFileEndsWithinARecord) {
  Store({test::VersionSlot(4), test::SystemSlot(test::Key(10, 0, 0, 1), "s"), "half a slot"});
  const std::string why = db_ + ": it ends within a record (11 of 501 octets)";
  Follow({{{"list"}, 7, why},
          {{"list", "--csv"}, 7, why},
          {{"show", "-n", "s"}, 7, why},
          {{"show", "-n", "other"}, 1, why},
          {{"alarms", "-n"}, 7, why},
          {{"info"}, 7, why},
          {{"backup", folder_ / "copy"}, 7, why},
          {{"check", "--plugin"}, 3, why}});
  EXPECT_EQ(Db({"list", "--csv"}).out, "name,address,group,type\ns,10.0.0.1,,\n");
  EXPECT_EQ(test::ReadFile(folder_ / "copy"), test::ReadFile(db_));
  const Outcome changed = Db({"set", "s", "--group", "g"});
  EXPECT_EQ(changed.status, 0);
  EXPECT_NE(changed.err.find(why), std::string::npos) << changed.err;
  Follow({{{"add", "10.0.0.2"}, 0, ""}, {{"list"}, 0, ""}});
}

TEST_F(Ztsys, ConvertsTheOlderLayoutAloudAndOnlyToChangeIt) {
  const std::string older = test::VersionSlot(3) + test::SystemSlot(test::Key(10, 0, 0, 1), "old");
  Store({older});
  EXPECT_NE(Db({"list"}).out.find("old  "), std::string::npos);
  EXPECT_EQ(test::ReadFile(db_), older);
  test::WriteFile(db_ + ".v3", "kept before");
  const Outcome added = Db({"add", "10.0.0.2"});
  EXPECT_EQ(added.status, 0);
  EXPECT_NE(added.err.find("kept as " + db_ + ".v3.1"), std::string::npos) << added.err;
  EXPECT_EQ(test::ReadFile(db_ + ".v3.1"), older);
  EXPECT_EQ(test::ReadFile(db_ + ".v3"), "kept before");
  EXPECT_EQ(test::ReadFile(db_)[test::kRecordAt], 4);
}

// Of an earlier version that was killed: told once, never redone.
TEST_F(Ztsys, TellsALeftNoteAndLeavesTheRecordAlone) {
  const std::string before = test::SystemSlot(test::Key(10, 0, 0, 1), "before");
  const std::string after = test::SystemSlot(test::Key(10, 0, 0, 1), "after");
  const std::string note = "ztj1" + std::string("\xf5\x01\0\0", 4) + before + after;
  const std::pair<std::string, const char*> cases[] = {
      {before, "was not stored"},
      {after, "which was stored"},
      {test::SystemSlot(test::Key(10, 0, 0, 1), "aftore"), "mixture"},
      {test::DeletedSlot(), "used for something else"}};
  for (const auto& [slot, says] : cases) {
    Store({test::VersionSlot(4), slot});
    test::WriteFile(db_ + ".jn", note);
    const Outcome told = Db({"add", "10.0.0.9"});
    EXPECT_NE(told.err.find(says), std::string::npos) << told.err;
    EXPECT_NE(told.err.find("before (10.0.0.1)"), std::string::npos) << told.err;
    EXPECT_EQ(Db({"delete", "--yes", "10.0.0.9"}).err, "");
    EXPECT_EQ(test::ReadFile(db_).substr(test::kSlotSize, test::kSlotSize), slot);
  }
}

TEST_F(Ztsys, AsksOnATerminalBeforeItDeletes) {
  const std::string question = "Delete 10.0.0.1 (10.0.0.1) from " + db_ + "? [y/N] ";
  const std::pair<const char*, int> answers[] = {
      {"n\n", 1}, {"yellow\n", 1}, {"\n", 1}, {"y\4\4", 1}, {"Y\n", 1}, {"y\n", 0}, {"yes\n", 0}};
  for (const auto& [answer, status] : answers) {
    Db({"add", "10.0.0.1"});
    const Outcome outcome = DbOnTerminal({"delete", "10.0.0.1"}, answer);
    EXPECT_EQ(outcome.status, status) << answer;
    EXPECT_TRUE(outcome.err.starts_with(question)) << outcome.err;
  }
}

// Files are looked at as nobody, to whom permissions apply also where tests run as root.
TEST_F(Ztsys, ReadsWhatMayOnlyBeReadAndNamesTheFileThatKeepsFromChanging) {
  constexpr rlim_t kAnySize = RLIM_INFINITY;
  Db({"add", "10.0.0.1"});
  const auto files = [&] {
    std::string names;
    for (const auto& file : std::filesystem::directory_iterator(folder_.path()))
      names += file.path().filename().string() + ' ';
    return names;
  };
  const struct {
    const char* file;
    mode_t mode;
  } cases[] = {{"", 0644}, {".lk", 0444}, {".sem", 0444}};
  for (const auto& c : cases) {
    for (const auto& other : cases)
      chmod((db_ + other.file).c_str(), 0666);
    chmod((db_ + c.file).c_str(), c.mode);
    const std::string there = files();
    for (const char* command : {"list", "info", "verify", "alarms"})
      EXPECT_EQ(Db({command}, kAnySize, true).status, 0) << command << c.file;
    EXPECT_EQ(Db({"backup", folder_ / "copy"}, kAnySize, true).status, 0) << c.file;
    remove((folder_ / "copy").c_str());
    const Outcome refused = Db({"add", "10.0.0.2"}, kAnySize, true);
    EXPECT_EQ(refused.status, 5) << c.file;
    EXPECT_EQ(refused.err, "ztsys: " + db_ + c.file +
                               ": Permission denied; its owner and its group (ls -l) may\n");
    EXPECT_EQ(files(), there);
  }
  chmod(db_.c_str(), 0);
  EXPECT_EQ(Db({"list"}, kAnySize, true).err,
            "ztsys: " + db_ + ": Permission denied; its owner and its group (ls -l) may\n");
  Store({""});
  for (const char* left : {".lk", ".sem"})
    remove((db_ + left).c_str());
  chmod(db_.c_str(), 0666);
  EXPECT_EQ(Db({"list"}).status, 0) << "an empty file is a database without systems";
  EXPECT_EQ(test::ReadFile(db_), "");
  EXPECT_FALSE(std::filesystem::exists(db_ + ".lk"));
}

TEST_F(Ztsys, NamesTheFileThatIsNoneAndLeavesNothingBeside) {
  EXPECT_EQ(Run({"--db", folder_.path(), "add", "10.0.0.1"}).status, 5);
  EXPECT_EQ(Run({"--db", folder_ / "none/ztdb", "add", "10.0.0.1"}).status, 5);
  for (const std::string& bytes :
       {std::string(600, '\xA5'), std::string("half"), std::string(test::VersionSlot(9))}) {
    test::WriteFile(db_, bytes);
    Follow({{{"add", "10.0.0.1"}, 7, db_ + ": cannot open: not a system database"},
            {{"list"}, 7, "not a system database"}});
    EXPECT_EQ(test::ReadFile(db_), bytes);
    EXPECT_FALSE(std::filesystem::exists(db_ + ".lk"));
  }
}

TEST_F(Ztsys, AFullDiskLeavesTheDatabaseAsItWas) {
  EXPECT_EQ(Db({"add", "10.0.0.1"}, 300).status, 1);
  EXPECT_EQ(test::ReadFile(db_), "") << "no half version record";
  Db({"add", "10.0.0.1", "10.0.0.2"});
  const std::string before = test::ReadFile(db_);
  test::WriteFile(folder_ / "list", "10.0.0.3\n10.0.0.4\n");
  for (const Words& words : {Words{"add", "10.0.0.3"}, Words{"import", folder_ / "list"}}) {
    const Outcome outcome = Db(words, before.size() + 77);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("no room"), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.out, words[0] == "add" ? "" : "0 added, 0 updated, 0 unchanged, 2 failed\n");
    EXPECT_EQ(test::ReadFile(db_), before);
  }
}

// The same on a file system without room, which only root can make.
TEST_F(Ztsys, AFullOrReadOnlyFileSystemLeavesTheDatabaseAsItWas) {
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
    Follow({{{"add", "10.0.0.16"}, 1, "no room"}});
    EXPECT_EQ(test::ReadFile(db_), before);
    // A hole on both pages needs none.
    Follow({{{"delete", "--yes", "10.0.0.8"}, 0, "deleted"}, {{"add", "10.0.0.16"}, 0, "added"}});
    db_ += "2";
    Follow({{{"add", "10.0.0.1"}, 1, "no room"}});
    EXPECT_EQ(test::ReadFile(db_), "");
    // Nor does one that is mounted for reading keep anybody from reading.
    db_.pop_back();
    EXPECT_EQ(mount(nullptr, (folder_ / "small").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, ""), 0);
    Follow({{{"list"}, 0, "10.0.0.16"},
            {{"info"}, 0, "read; changes need write permission for " + db_},
            {{"delete", "--yes", "10.0.0.1"}, 5, db_ + ": Read-only file system"}});
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

TEST_F(Ztsys, WaitsForTheWritersLockAndSaysWhoHasIt) {
  Db({"add", "10.0.0.1"});
  sys::tBINFILE lock(nullptr, 1);
  lock.SetName((db_ + ".lk").c_str());
  ASSERT_EQ(lock.OpenAlways(sys::tFILEDEFS::cREADWRITE, 0, sys::tFILEDEFS::cALL_RWX), 0);
  ASSERT_EQ(lock.LockRegion(1, 0), 0);
  lock.MarkLockHolder(1);
  EXPECT_EQ(Db({"list"}).status, 0) << "readers do not wait";
  Follow({{{"add", "10.0.0.2", "--wait", "0"}, 6, "another process holds the lock"},
          {{"backup", folder_ / "copy", "--wait", "2"},
           6,
           "waiting for the lock " + db_ + ".lk, which process " + std::to_string(getpid()) +
               " holds\n"}});
  const pid_t child = fork();
  if (child == 0) {
    lock.Close();
    StandardStreamsTo(folder_ / "out", folder_ / "err");
    Exec({"--db", db_, "add", "10.0.0.2"});
  }
  int wait_status = 0;
  usleep(200'000);
  EXPECT_EQ(waitpid(child, &wait_status, WNOHANG), 0);
  lock.Close();
  waitpid(child, &wait_status, 0);
  EXPECT_EQ(test::ExitStatus(wait_status), 0);
}

TEST_F(Ztsys, TheVersionGoesToStandardOutput) {
  EXPECT_EQ(Run({"--version"}).out, "ztsys " ZT_VERSION "\n");
}

}  // namespace
