// SPDX-License-Identifier: Apache-2.0
// name.h: what both sides see of the types, and the client's declarations.

#include <algorithm>

#include "tools/zidl/generator.h"
#include "tools/zidl/generator_client.h"
#include "tools/zidl/generator_parts.h"

namespace zidl {

namespace {

std::string field_text(const Field& field) {
  switch (field.shape) {
    case Field::Shape::text:
    case Field::Shape::string:
      return "char " + field.name + "[" + std::to_string(field.bound) + "];";
    case Field::Shape::octets:
      return "std::vector<std::uint8_t> " + field.name + ";";
    case Field::Shape::pointer:
      return "std::shared_ptr<" + field.type.cpp + "> " + field.name + ";";
    case Field::Shape::value:
      break;
  }
  return field.type.cpp + " " + field.name + ";";
}

class DefinitionWriter {
 public:
  explicit DefinitionWriter(Source& source) : source_(source) {}

  void operator()(const Constant& constant) {
    const bool is_unsigned = constant.cpp.starts_with("std::uint");
    source_.line("inline constexpr " + constant.cpp + " " + constant.name + " = " +
                 std::to_string(constant.value) + (is_unsigned ? "u" : "") + ";");
  }
  void operator()(const Alias& alias) {
    source_.line("using " + alias.name + " = " + alias.cpp + ";");
  }
  void operator()(const Enumeration& enumeration) {
    source_.line("enum " + enumeration.name + " : std::uint16_t {");
    for (const std::string& enumerator : enumeration.enumerators)
      source_.line(enumerator + ",");
    source_.line("};");
  }
  void operator()(const Structure* structure) {
    source_.line();
    source_.line("struct " + structure->name + " {");
    for (const Field& field : structure->fields)
      source_.line(field_text(field));
    source_.line("};");
  }

 private:
  Source& source_;
};

}  // namespace

std::string generate_header(const Interface& interface, const Options& options) {
  Source source;
  source.line(head_comment(interface));
  source.line();
  source.line("#pragma once");
  source.line();
  source.line("#include <cstdint>");
  source.line("#include <memory>");
  source.line("#include <vector>");
  source.line();
  source.line("#include \"platform/rpc/rpc.h\"");
  source.line();
  DefinitionWriter write(source);
  for (const TypeDefinition& definition : interface.definitions)
    std::visit(write, definition);
  source.line();
  source.line("extern const RPC_IF_HANDLE " + interface_handle(interface, options) + ";");
  for (const Operation& operation : interface.operations) {
    if (operation.nocode)
      continue;
    source.line();
    write_client_head(source, operation, options, ";");
  }
  return source.take();
}

}  // namespace zidl
