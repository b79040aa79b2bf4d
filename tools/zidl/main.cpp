// SPDX-License-Identifier: Apache-2.0
// zidl: compiles an interface definition to a client stub and a server skeleton.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>

#include "platform/sys/options.h"
#include "tools/zidl/generator.h"
#include "tools/zidl/lexer.h"
#include "tools/zidl/model.h"
#include "tools/zidl/parser.h"

namespace {

struct Arguments {
  zidl::Options options;
  std::string directory = ".";
  std::string file;
};

sys::Command command_line(Arguments& arguments) {
  return {.name = "zidl",
          .operands = "FILE.idl",
          .summary =
              "write NAME.h, NAME_client.cpp, NAME_server.h and NAME_server.cpp for the "
              "interface NAME that NAME.idl defines",
          .least_operands = 1,
          .most_operands = 1,
          .options = {{"--prefix", "-p", "PREFIX",
                       "begins the names of client entries and of the interface handle",
                       &arguments.options.prefix},
                      {"--out", "-o", "DIRECTORY", "where to write; default: the current directory",
                       &arguments.directory}}};
}

bool is_name_character(unsigned char character) {
  return std::isalnum(character) != 0 || character == '_';
}

int fail(const std::string& message) {
  std::cerr << "zidl: " << message << '\n';
  return 1;
}

bool write_file(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file)
    fail("cannot write " + path.string() + ": " + std::strerror(errno));
  return static_cast<bool>(file);
}

int compile(const Arguments& arguments) {
  // A directory opens like a file and reads like an empty one.
  if (std::error_code ignored; std::filesystem::is_directory(arguments.file, ignored))
    return fail(arguments.file + " is a directory");
  std::ifstream file(arguments.file, std::ios::binary);
  const std::string source{std::istreambuf_iterator<char>(file), {}};
  if (!file)
    return fail("cannot read " + arguments.file + ": " + std::strerror(errno));
  zidl::SourceReporter reporter(arguments.file, source);
  const auto tree = zidl::parse(zidl::tokenize(source, reporter), reporter);
  const auto model = tree ? zidl::check(*tree, reporter) : nullptr;
  if (reporter.print(std::cerr) != 0 || model == nullptr)
    return 1;
  const std::string stem = std::filesystem::path(arguments.file).stem().string();
  if (model->name != stem)
    return fail(arguments.file + " defines the interface " + model->name +
                "; the file must have its name");
  const std::filesystem::path base = std::filesystem::path(arguments.directory) / stem;
  const bool written =
      write_file(base.string() + ".h", zidl::generate_header(*model, arguments.options)) &&
      write_file(base.string() + "_client.cpp", zidl::generate_client(*model, arguments.options)) &&
      write_file(base.string() + "_server.h", zidl::generate_server_header(*model)) &&
      write_file(base.string() + "_server.cpp", zidl::generate_server(*model));
  return written ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  const sys::Command program = command_line(arguments);
  const sys::CommandLine line = sys::read_command_line(program, argc, argv);
  if (const auto status = sys::answer_command_line(program, line, ZT_VERSION))
    return *status;
  const std::string& prefix = arguments.options.prefix;
  if (!std::all_of(prefix.begin(), prefix.end(), is_name_character) ||
      (!prefix.empty() && std::isdigit(static_cast<unsigned char>(prefix[0])) != 0)) {
    fail("the prefix '" + prefix + "' cannot begin a name; see zidl --help");
    return sys::kExitUsage;
  }
  arguments.file = line.operands.front();
  return compile(arguments);
}
