// SPDX-License-Identifier: Apache-2.0
// zidl: compiles an interface definition to a client stub and a server skeleton.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

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

bool write_file(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file)
    std::cerr << "zidl: cannot write " << path.string() << "\n";
  return static_cast<bool>(file);
}

int compile(const Arguments& arguments) {
  std::ifstream file(arguments.file, std::ios::binary);
  const std::string source{std::istreambuf_iterator<char>(file), {}};
  if (!file) {
    std::cerr << "zidl: cannot read " << arguments.file << "\n";
    return 1;
  }
  zidl::SourceReporter reporter(arguments.file, source, std::cerr);
  const auto tree = zidl::parse(zidl::tokenize(source, reporter), reporter);
  const auto model = tree ? zidl::check(*tree, reporter) : nullptr;
  if (model == nullptr || reporter.errors() != 0)
    return 1;
  const std::string stem = std::filesystem::path(arguments.file).stem().string();
  if (model->name != stem) {
    std::cerr << "zidl: " << arguments.file << " defines the interface " << model->name
              << "; the file must have its name\n";
    return 1;
  }
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
  arguments.file = line.operands.front();
  return compile(arguments);
}
