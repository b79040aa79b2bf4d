// SPDX-License-Identifier: Apache-2.0
// zidl: compiles an interface definition to a client stub and a server skeleton.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "tools/zidl/generator.h"
#include "tools/zidl/lexer.h"
#include "tools/zidl/model.h"
#include "tools/zidl/parser.h"

namespace {

constexpr const char* kUsage =
    "Usage: zidl [--prefix PREFIX] [--out DIRECTORY] FILE.idl\n"
    "Writes NAME.h, NAME_client.cpp, NAME_server.h and NAME_server.cpp for FILE's name.\n"
    "  --prefix PREFIX  begins the names of client entries and of the interface handle\n"
    "  --out DIRECTORY  where to write; the current directory by default\n";

struct Arguments {
  zidl::Options options;
  std::filesystem::path directory = ".";
  std::string file;
};

bool parse_arguments(int argc, char** argv, Arguments& arguments) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if ((word == "--prefix" || word == "--out") && i + 1 < argc) {
      const std::string value = argv[++i];
      if (word == "--prefix")
        arguments.options.prefix = value;
      else
        arguments.directory = value;
    } else if (!word.starts_with('-') && arguments.file.empty()) {
      arguments.file = word;
    } else {
      return false;
    }
  }
  return !arguments.file.empty();
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
  const std::filesystem::path base = arguments.directory / stem;
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
  if (!parse_arguments(argc, argv, arguments)) {
    std::cerr << kUsage;
    return 2;
  }
  return compile(arguments);
}
