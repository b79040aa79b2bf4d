// SPDX-License-Identifier: Apache-2.0
// What the command line asks for, its echo, and the usage.

#include "source/domain/ZTcommandLine.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

CommandLine parse(std::vector<std::string> words) {
  std::vector<char*> pointers;
  for (std::string& word : words)
    pointers.push_back(word.data());
  return read_command_line(pointers);
}

// The selected checks in the order in which they run.
std::string checks(const CommandLine& line) {
  std::string letters;
  if (line.Breakout)
    letters += 'b';
  if (line.ShowConfiguration)
    letters += 'c';
  if (line.QueryServer)
    letters += 'd';
  if (line.CheckZTDBConnections)
    letters += 'z';
  if (line.ListAllRegistered)
    letters += 'r';
  return letters;
}

TEST(CommandLine, UnderstandsItsOptions) {
  struct Case {
    std::vector<std::string> words;
    const char* echo;
    bool good, use_default;
    const char* selected;
    const char* system;
    const char* data_source;
    const char* directory;
  };
  const Case cases[] = {
      {{}, "ztcomm", true, true, "", "", "", ""},
      {{"-s", "node1"}, "ztcomm -s node1", true, true, "", "node1", "", ""},
      {{"-b", "-r"}, "ztcomm -b -r", true, false, "br", "", "", ""},
      {{"-b"}, "ztcomm -b", true, true, "b", "", "", ""},
      {{"-r"}, "ztcomm -r", true, false, "r", "", "", ""},
      {{"-c", "-zt"}, "ztcomm -c -zt", true, false, "cz", "", "", ""},
      {{"-ds", "TAMBO"}, "ztcomm -ds TAMBO", true, false, "d", "", "TAMBO", ""},
      {{"-trace"}, "ztcomm -trace", true, true, "", "", "", ""},
      {{"-dir", "/opt/cat"}, "ztcomm -dir /opt/cat", true, true, "", "", "", "/opt/cat/"},
      {{"-dir", "/opt/cat/"}, "ztcomm -dir /opt/cat/", true, true, "", "", "", "/opt/cat/"},
      {{"-dir", "c:\\cat\\"}, "ztcomm -dir c:\\cat\\", true, true, "", "", "", "c:\\cat\\/"},
      {{"-s", "a", "-s", "b"}, "ztcomm -s a -s b", true, true, "", "b", "", ""},
      {{"-s"}, "ztcomm -s", false, true, "", "", "", ""},
      {{"-s", "-r"}, "ztcomm -s -r", false, false, "r", "", "", ""},
      {{"-ds", "-c"}, "ztcomm -ds -c", false, false, "c", "", "", ""},
      {{"-r", "-dir"}, "ztcomm -r -dir", false, false, "r", "", "", ""},
      {{"node1"}, "ztcomm node1", false, true, "", "", "", ""},
      {{"-S", "node1"}, "ztcomm -S node1", false, true, "", "", "", ""},
      {{"-bx", "-r"}, "ztcomm -bx -r", false, false, "r", "", "", ""},
      {{"-s", ""}, "ztcomm -s ", true, true, "", "", "", ""},
  };
  for (const Case& test : cases) {
    const CommandLine line = parse(test.words);
    EXPECT_EQ(test.echo, line.CmdLine);
    EXPECT_EQ(test.good, line.GoodCommand) << test.echo;
    EXPECT_EQ(test.use_default, line.UseDefault) << test.echo;
    EXPECT_EQ(test.selected, checks(line)) << test.echo;
    EXPECT_EQ(test.system, line.System) << test.echo;
    EXPECT_EQ(test.data_source, line.DataSource) << test.echo;
    EXPECT_EQ(test.directory, line.CatDir) << test.echo;
    EXPECT_EQ("", line.Refusal) << test.echo;
  }
  EXPECT_TRUE(parse({"-trace"}).Trace);
  EXPECT_FALSE(parse({"-b"}).Trace);
}

TEST(CommandLine, RefusesValuesThatAreTooLong) {
  struct Case {
    const char* option;
    std::size_t longest;
  };
  for (const Case& test : {Case{"-s", 255}, Case{"-ds", 63}, Case{"-dir", 254}}) {
    EXPECT_TRUE(parse({test.option, std::string(test.longest, 'x')}).GoodCommand) << test.option;
    const CommandLine line = parse({test.option, std::string(test.longest + 1, 'x')});
    EXPECT_FALSE(line.GoodCommand) << test.option;
    EXPECT_NE(std::string::npos, line.Refusal.find(test.option)) << line.Refusal;
  }
  EXPECT_TRUE(parse({"-dir", std::string(254, 'x') + "/"}).GoodCommand);
}

TEST(Usage, IsFortyNineLinesOfSeventyThreeCharacters) {
  std::ifstream file(ZT_TEST_DATA "/usage.txt");
  const std::string expected{std::istreambuf_iterator<char>(file), {}};
  ASSERT_EQ(49U * 74U, expected.size());
  EXPECT_EXIT((PrintUsage(), std::exit(1)), ::testing::ExitedWithCode(1), ::testing::Eq(expected));
}

}  // namespace
