// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/generator_parts.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace zidl {

void Source::line(const std::string& text) {
  if (text.empty()) {
    text_ += '\n';
    return;
  }
  if (text.front() == '}' && depth_ > 0)
    --depth_;
  const bool label = text == "public:" || text == "private:";
  text_.append(label && depth_ > 0 ? 2 * depth_ - 1 : 2 * depth_, ' ');
  text_ += text + '\n';
  if (text.back() == '{')
    ++depth_;
}

void Source::call(const std::string& head, const std::vector<std::string>& parameters,
                  const std::string& tail) {
  if (parameters.empty()) {
    line(head + "()" + tail);
    return;
  }
  const std::string indentation(2 * depth_, ' ');
  text_ += indentation + head + "(\n";
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    text_ += indentation + "    " + parameters[i];
    text_ += i + 1 < parameters.size() ? ",\n" : ")" + tail + "\n";
  }
  if (!tail.empty() && tail.back() == '{')
    ++depth_;
}

namespace {

std::string expression_text(const Expression& e, NameStyle style, bool wide) {
  using Kind = Expression::Kind;
  const auto operands = [&](const char* sign) {
    const auto part = [&](const Expression& operand, bool right) {
      const std::string text = expression_text(operand, style, wide);
      const bool sum = operand.kind == Kind::add || operand.kind == Kind::subtract;
      return sum && (right || e.kind == Kind::multiply) ? "(" + text + ")" : text;
    };
    return part(*e.left, false) + sign + part(*e.right, true);
  };
  switch (e.kind) {
    case Kind::number:
      return std::to_string(e.value) + (e.value > 0x7FFFFFFF ? "u" : "");
    case Kind::add:
      return operands(" + ");
    case Kind::subtract:
      return operands(" - ");
    case Kind::multiply:
      return operands(" * ");
    case Kind::name:
    case Kind::dereference:
      break;
  }
  std::string name = e.name;
  if (style == NameStyle::field)
    name = "value." + name;
  else if (style == NameStyle::parameter && e.kind == Kind::dereference)
    name = "*" + name;
  if (wide)
    return "std::uint64_t{" + name + "}";
  return e.narrow ? "std::uint32_t{" + name + "}" : name;
}

}  // namespace

std::string length_text(const Expression& expression, NameStyle style) {
  return expression_text(expression, style, false);
}

std::string size_text(const Expression& expression, NameStyle style) {
  return expression_text(expression, style, true);
}

std::string head_comment(const Interface& interface) {
  return "// Made by zidl from " + interface.name + ".idl. Not to be edited.";
}

void write_specs(Source& source, const Interface& interface) {
  unsigned f[11] = {};
  std::sscanf(interface.uuid.c_str(), "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &f[0], &f[1], &f[2],
              &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10]);
  char id[160];
  std::snprintf(id, sizeof(id),
                "{0x%08x, 0x%04x, 0x%04x, 0x%02x, 0x%02x, "
                "{0x%02x, 0x%02x, 0x%02x, 0x%02x, 0x%02x, 0x%02x}}",
                f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10]);
  source.line("constexpr rpc::InterfaceSpec kInterface = {");
  source.line(id + std::string(","));
  source.line(std::to_string(interface.major) + ", " + std::to_string(interface.minor) + ", \"" +
              interface.name + "\"");
  source.line("};");
  source.line();
  source.line("constexpr rpc::OperationSpec kOperations[] = {");
  for (const Operation& operation : interface.operations) {
    source.line("{&kInterface, " + std::to_string(operation.opnum) + ", " +
                (operation.idempotent ? "true" : "false") + ", \"" + operation.name + "\"},");
  }
  source.line("};");
}

}  // namespace zidl
