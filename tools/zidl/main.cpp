// SPDX-License-Identifier: Apache-2.0
// zidl: compiles an interface definition to a client stub and a server skeleton.

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>

#include "tools/zidl/command_line.h"
#include "tools/zidl/generator.h"
#include "tools/zidl/lexer.h"
#include "tools/zidl/model.h"
#include "tools/zidl/parser.h"

namespace {

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

int compile(const zidl::Arguments& arguments, const std::string& path) {
  // A directory opens like a file and reads like an empty one.
  if (std::error_code ignored; std::filesystem::is_directory(path, ignored))
    return fail(path + " is a directory");
  std::ifstream file(path, std::ios::binary);
  const std::string source{std::istreambuf_iterator<char>(file), {}};
  if (!file)
    return fail("cannot read " + path + ": " + std::strerror(errno));
  zidl::SourceReporter reporter(path, source);
  const auto tree = zidl::parse(zidl::tokenize(source, reporter), reporter);
  const auto model = tree ? zidl::check(*tree, reporter) : nullptr;
  if (reporter.print(std::cerr) != 0 || model == nullptr)
    return 1;
  const std::string stem = std::filesystem::path(path).stem().string();
  if (model->name != stem)
    return fail(path + " defines the interface " + model->name + "; the file must have its name");
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
  zidl::Arguments arguments;
  const sys::Command program = zidl::command_line(arguments);
  sys::CommandLine line = sys::read_command_line(program, argc, argv);
  zidl::check_prefix(arguments, line);
  if (const auto status = sys::answer_command_line(program, line, ZT_VERSION))
    return *status;
  return compile(arguments, line.operands.front());
}
