// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/registry.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <string_view>

#include "platform/sys/registry_file.h"

namespace {

using registry::ParsedFile;

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00\r\n";
constexpr const char kKey[] = "HKEY_LOCAL_MACHINE\\Software\\Maker\\Product";

ParsedFile parse(std::string_view text) {
  return registry::parse_registry_file(std::as_bytes(std::span(text)));
}

// A file with one key that holds these lines.
ParsedFile parse_values(std::string_view lines) {
  return parse(std::string(kHeader) + "[" + kKey + "]\r\n" + std::string(lines));
}

std::string value(const ParsedFile& file, const char* name, const char* key = kKey) {
  const auto values = file.keys.find(std::string_view(key));
  if (values == file.keys.end())
    return "<no key>";
  const auto found = values->second.find(std::string_view(name));
  return found == values->second.end() ? "<no value>" : found->second.data;
}

TEST(RegistryFile, ReadsEveryKindOfValue) {
  const struct {
    const char* line;
    const char* name;
    std::uint32_t type;
    std::string data;
  } cases[] = {
      {R"("Path"="C:\\prog\\")", "Path", registry::REG_SZ, "C:\\prog\\"},
      {R"(  "Path" = "x" ; comment)", "path", registry::REG_SZ, "x"},
      {R"("Quote"="a \"b\" ; c")", "QUOTE", registry::REG_SZ, "a \"b\" ; c"},
      {R"("Typed"="C:\prog\data")", "Typed", registry::REG_SZ, "C:\\prog\\data"},
      {R"("a\"=b"="x")", "a\"=b", registry::REG_SZ, "x"},
      {R"(@="default")", "", registry::REG_SZ, "default"},
      {R"("Empty"="")", "Empty", registry::REG_SZ, ""},
      {R"("N"=dword:0000012c)", "N", registry::REG_DWORD, std::string("\x2c\x01\0\0", 4)},
      {R"("B"=hex:01,fF, 00)", "B", registry::REG_BINARY, std::string("\x01\xff\0", 3)},
      {R"("B"=hex:)", "B", registry::REG_BINARY, ""},
      {"\"E\"=hex(2):43,00,\\\r\n  3a,00,e9,00,\\\r\n  00,00 ; end", "E", registry::REG_EXPAND_SZ,
       "C:\xC3\xA9"},
      {R"("S"=hex(1):3d,d8,00,de,00,00)", "S", registry::REG_SZ, "\xF0\x9F\x98\x80"},
      {R"("Q"=hex(b):01,00,00,00,00,00,00,00)", "Q", 0xB, std::string("\x01\0\0\0\0\0\0\0", 8)},
  };
  for (const auto& c : cases) {
    const ParsedFile file = parse_values(c.line);
    EXPECT_TRUE(file.complaints.empty()) << c.line;
    ASSERT_EQ(value(file, c.name), c.data) << c.line;
    EXPECT_EQ(file.keys.at(kKey).at(c.name).type, c.type) << c.line;
  }
}

TEST(RegistryFile, SkipsAMalformedLineAndSaysWhichItWas) {
  const char* const bad_lines[] = {
      "no quotes=1",        "\"Name\"",           "\"Name\"=",
      "\"Name\"=text",      "\"Name\"=\"open",    "\"Name=\"x\"",
      "\"Name\"=\"x\" y",   "\"Name\"=dword:",    "\"Name\"=dword:123456789",
      "\"Name\"=dword:xyz", "\"Name\"=hex:1,100", "\"Name\"=hex:1,,2",
      "\"Name\"=hex(zz):1", "\"Name\"=qword:1"};
  for (const char* line : bad_lines) {
    const ParsedFile file =
        parse_values("\"Before\"=\"1\"\r\n" + std::string(line) + "\r\n\"After\"=\"2\"\r\n");
    ASSERT_EQ(file.complaints.size(), 1U) << line;
    EXPECT_EQ(file.complaints[0].line, 4U) << line;
    EXPECT_NE(file.complaints[0].text.find(line), std::string::npos) << line;
    EXPECT_EQ(value(file, "Before"), "1");
    EXPECT_EQ(value(file, "After"), "2");
    EXPECT_EQ(value(file, "Name"), "<no value>") << line;
  }
}

TEST(RegistryFile, BlamesNothingForTheValuesOfAMalformedKey) {
  for (const char* key : {"[HKEY_LOCAL_MACHINE\\Other", "[Software]", "[HKEY_LOCAL_MACHINE\\]",
                          "[HKEY_LOCAL_MACHINE\\\\a]", "[]"}) {
    const ParsedFile file = parse_values(std::string("\"A\"=\"1\"\n") + key + "\n\"A\"=\"2\"\n");
    EXPECT_EQ(file.complaints.size(), 1U) << key;
    EXPECT_EQ(value(file, "A"), "1") << key;
  }
}

TEST(RegistryFile, TakesAnyLineEndAndCharacterSetWithAMark) {
  constexpr std::u16string_view kText =
      u"Windows Registry Editor Version 5.00\r\n; a comment\r\n\r\n"
      u"[HKEY_LOCAL_MACHINE\\Software\\Maker\\Product]\r\n\"Path\"=\"C:\\\\caf\u00E9\"\r\n";
  std::string lines;
  std::string little_endian = "\xFF\xFE";
  std::string big_endian = "\xFE\xFF";
  for (const char16_t unit : kText) {
    lines += unit == u'\u00E9' ? "\xC3\xA9" : std::string(1, static_cast<char>(unit));
    little_endian += {static_cast<char>(unit), '\0'};
    big_endian += {'\0', static_cast<char>(unit)};
  }
  const auto with_line_end = [&lines](const char* end) {
    return std::regex_replace(lines, std::regex("\r\n"), end);
  };
  for (const std::string& text :
       {lines, with_line_end("\n"), with_line_end("\r"), "\xEF\xBB\xBF" + lines, little_endian,
        big_endian, lines.substr(0, lines.size() - 2)}) {
    const ParsedFile file = parse(text);
    EXPECT_TRUE(file.complaints.empty());
    EXPECT_EQ(value(file, "Path"), "C:\\caf\xC3\xA9");
  }
}

TEST(RegistryFile, ReadsTextsOfTheOlderVersionAsBytes) {
  const ParsedFile file = parse("REGEDIT4\n[HKEY_LOCAL_MACHINE\\A]\n\"E\"=hex(2):43,3a,00\n");
  EXPECT_TRUE(file.complaints.empty());
  EXPECT_EQ(value(file, "E", "HKEY_LOCAL_MACHINE\\A"), "C:");
}

TEST(RegistryFile, ReadsOnWithoutAHeader) {
  const ParsedFile file = parse("[HKEY_LOCAL_MACHINE\\A]\n\"B\"=\"1\"\n");
  ASSERT_EQ(file.complaints.size(), 1U);
  EXPECT_EQ(file.complaints[0].line, 1U);
  EXPECT_EQ(value(file, "B", "HKEY_LOCAL_MACHINE\\A"), "1");
}

TEST(RegistryFile, LaterLinesReplaceAndRemove) {
  const ParsedFile file =
      parse(std::string(kHeader) +
            "[HKEY_LOCAL_MACHINE\\A]\n\"x\"=\"1\"\n\"X\"=\"2\"\n\"y\"=\"1\"\n"
            "\"y\"=-\n"
            "[HKEY_LOCAL_MACHINE\\B\\C]\n\"x\"=\"1\"\n[HKEY_LOCAL_MACHINE\\BX]\n"
            "[-hkey_local_machine\\b]\n\"x\"=\"9\"\n");
  EXPECT_TRUE(file.complaints.empty());
  EXPECT_EQ(value(file, "x", "HKEY_LOCAL_MACHINE\\A"), "2");
  EXPECT_EQ(value(file, "y", "HKEY_LOCAL_MACHINE\\A"), "<no value>");
  EXPECT_EQ(value(file, "x", "HKEY_LOCAL_MACHINE\\B\\C"), "<no key>");
  EXPECT_EQ(value(file, "x", "HKEY_LOCAL_MACHINE\\B"), "<no key>");
  EXPECT_EQ(value(file, "x", "HKEY_LOCAL_MACHINE\\BX"), "<no value>");
}

TEST(RegistryFile, ATextThatEndsInABackslashKeepsTheNextLine) {
  const ParsedFile file = parse_values("\"A\"=\"C:\\\n\"B\"=\"2\"\n");
  EXPECT_EQ(file.complaints.size(), 1U);
  EXPECT_EQ(value(file, "B"), "2");
}

TEST(RegistryFile, BoundsWhatAFileCanCost) {
  std::string deep = "[HKEY_LOCAL_MACHINE";
  for (int i = 0; i < 200; ++i)
    deep += "\\a";
  EXPECT_EQ(parse(std::string(kHeader) + deep + "]\n").complaints.size(), 1U);

  std::string rubbish(kHeader);
  for (int i = 0; i < 1000; ++i)
    rubbish += "rubbish\n";
  EXPECT_EQ(parse(rubbish).complaints.size(), registry::kMostComplaints + 1);

  const std::string large(registry::kLargestFile + 1, ' ');
  const ParsedFile refused = parse(large);
  ASSERT_EQ(refused.complaints.size(), 1U);
  EXPECT_EQ(refused.complaints[0].line, 0U);
}

class Registry : public testing::Test {
 protected:
  void SetUp() override {
    char directory[] = "/tmp/registry_test.XXXXXX";
    ASSERT_NE(::mkdtemp(directory), nullptr);
    directory_ = directory;
    registry::use_settings_file("TEST_REGISTRY", "no-such-settings-file.reg");
  }
  void TearDown() override {
    ::unsetenv("TEST_REGISTRY");
    std::filesystem::remove_all(directory_);
  }
  std::string use(const std::string& name, std::string_view text) {
    const std::string path = directory_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    ::setenv("TEST_REGISTRY", path.c_str(), 1);
    return path;
  }
  // Opens the key and gives what was reported meanwhile.
  std::string open_and_capture(std::int32_t expected) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(registry::RegOpenKeyA(registry::HKEY_LOCAL_MACHINE, "SOFTWARE\\maker\\Product", &key),
              expected);
    return testing::internal::GetCapturedStderr();
  }

  std::string directory_;
  registry::HKEY key = 0;
};

TEST_F(Registry, HandsOutValuesThroughOpenKeys) {
  use("a.reg", std::string(kHeader) + "[" + kKey + "]\n\"Path\"=\"abc\"\n");
  EXPECT_EQ(open_and_capture(registry::ERROR_SUCCESS), "");

  std::uint8_t data[4];
  std::uint32_t type = 0;
  std::uint32_t size = 3;
  EXPECT_EQ(registry::RegQueryValueExA(key, "path", &type, data, &size), registry::ERROR_MORE_DATA);
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(registry::RegQueryValueExA(key, "path", &type, data, &size), registry::ERROR_SUCCESS);
  EXPECT_STREQ(reinterpret_cast<char*>(data), "abc");
  EXPECT_EQ(type, registry::REG_SZ);
  EXPECT_EQ(registry::RegQueryValueExA(key, "other", &type, data, &size),
            registry::ERROR_FILE_NOT_FOUND);

  EXPECT_EQ(registry::RegCloseKey(key), registry::ERROR_SUCCESS);
  EXPECT_EQ(registry::RegCloseKey(key), registry::ERROR_INVALID_HANDLE);
  EXPECT_EQ(registry::RegQueryValueExA(key, "path", &type, data, &size),
            registry::ERROR_INVALID_HANDLE);
}

TEST_F(Registry, OpensTheParentsOfAKeyThatIsNamed) {
  use("p.reg", std::string(kHeader) + "[" + kKey + "]\n");
  registry::HKEY parent = 0;
  ASSERT_EQ(registry::RegOpenKeyA(registry::HKEY_LOCAL_MACHINE, "Software", &parent), 0);
  EXPECT_EQ(registry::RegOpenKeyA(parent, "Maker\\Product", &key), 0);
  EXPECT_EQ(registry::RegOpenKeyA(parent, "Makers", &key), registry::ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(registry::RegOpenKeyA(parent + 1000, "Maker", &key), registry::ERROR_INVALID_HANDLE);
}

TEST_F(Registry, ReportsAMalformedLineOnce) {
  const std::string path =
      use("bad.reg", std::string(kHeader) + "[" + kKey + "]\nrub\x1b[bish\n\"Path\"=\"abc\"\n");
  const std::string report = open_and_capture(registry::ERROR_SUCCESS);
  EXPECT_EQ(report, path + ":3: expected \"name\"=value, found rub?[bish\n");
  EXPECT_EQ(open_and_capture(registry::ERROR_SUCCESS), "");
}

TEST_F(Registry, ReportsAFileThatCannotBeRead) {
  const std::string missing = directory_ + "/missing.reg";
  ::setenv("TEST_REGISTRY", missing.c_str(), 1);
  EXPECT_NE(open_and_capture(registry::ERROR_FILE_NOT_FOUND).find(missing), std::string::npos);

  const std::string pipe = directory_ + "/pipe.reg";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  ::setenv("TEST_REGISTRY", pipe.c_str(), 1);
  EXPECT_NE(open_and_capture(registry::ERROR_FILE_NOT_FOUND).find(pipe), std::string::npos);

  ::setenv("TEST_REGISTRY", directory_.c_str(), 1);
  EXPECT_NE(open_and_capture(registry::ERROR_FILE_NOT_FOUND).find("directory"), std::string::npos);
}

TEST_F(Registry, IsSilentWhereNoFileIsNamedOrInstalled) {
  ::unsetenv("TEST_REGISTRY");
  EXPECT_EQ(registry::settings_path(), "");
  EXPECT_EQ(open_and_capture(registry::ERROR_FILE_NOT_FOUND), "");
}

TEST_F(Registry, LooksBesideTheProgramsOwnDirectory) {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  const std::filesystem::path etc = program.parent_path().parent_path() / "etc";
  const bool made = std::filesystem::create_directory(etc);
  const std::string name = "registry_test_" + std::to_string(::getpid()) + ".reg";
  std::ofstream(etc / name) << kHeader;
  registry::use_settings_file("TEST_REGISTRY", name);
  ::setenv("TEST_REGISTRY", "", 1);
  EXPECT_TRUE(std::filesystem::equivalent(registry::settings_path(), etc / name));
  std::filesystem::remove(etc / name);
  if (made)
    std::filesystem::remove(etc);
}

}  // namespace
