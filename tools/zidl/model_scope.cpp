// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/model_scope.h"

#include <algorithm>
#include <array>

#include "tools/zidl/model_attributes.h"

namespace zidl {

namespace {

struct BasicType {
  std::string_view idl;
  const char* cpp;
  std::size_t size;
  Type::Kind kind;
  bool is_integer;
  bool is_unsigned;  // and can be a length
};

constexpr std::array<BasicType, 17> kBasicTypes = {{
    {"unsigned long", "std::uint32_t", 4, Type::Kind::scalar, true, true},
    {"long", "std::int32_t", 4, Type::Kind::scalar, true, false},
    {"unsigned short", "std::uint16_t", 2, Type::Kind::scalar, true, true},
    {"short", "std::int16_t", 2, Type::Kind::scalar, true, false},
    {"unsigned small", "std::uint8_t", 1, Type::Kind::scalar, true, true},
    {"unsigned char", "std::uint8_t", 1, Type::Kind::scalar, true, true},
    {"small", "std::int8_t", 1, Type::Kind::scalar, true, false},
    {"unsigned hyper", "std::uint64_t", 8, Type::Kind::scalar, true, false},
    {"hyper", "std::int64_t", 8, Type::Kind::scalar, true, false},
    {"byte", "std::uint8_t", 1, Type::Kind::scalar, true, false},
    {"boolean", "bool", 1, Type::Kind::scalar, false, false},
    {"char", "char", 1, Type::Kind::character, false, false},
    {"error_status_t", "error_status_t", 4, Type::Kind::scalar, false, false},
    {"uuid_t", "uuid_t", 16, Type::Kind::uuid, false, false},
    {"handle_t", "handle_t", 0, Type::Kind::scalar, false, false},
    {"void", "void", 0, Type::Kind::scalar, false, false},
    {"unsigned", "", 0, Type::Kind::scalar, false, false},
}};

constexpr std::array<std::string_view, 78> kCppKeywords = {
    "alignas",   "alignof",   "and",        "asm",      "auto",     "bool",      "break",
    "case",      "catch",     "char",       "class",    "concept",  "const",     "consteval",
    "constexpr", "constinit", "const_cast", "continue", "co_await", "co_return", "co_yield",
    "decltype",  "default",   "delete",     "do",       "double",   "else",      "enum",
    "explicit",  "export",    "extern",     "false",    "float",    "for",       "friend",
    "goto",      "if",        "inline",     "int",      "long",     "mutable",   "namespace",
    "new",       "noexcept",  "not",        "nullptr",  "operator", "or",        "private",
    "protected", "public",    "register",   "requires", "return",   "short",     "signed",
    "sizeof",    "static",    "struct",     "switch",   "template", "this",      "throw",
    "true",      "try",       "typedef",    "typeid",   "typename", "union",     "unsigned",
    "using",     "virtual",   "void",       "volatile", "wchar_t",  "while",     "xor",
    "std"};

// Names of variables in generated functions.
constexpr std::array<std::string_view, 12> kGeneratedNames = {
    "call", "entered", "failure",  "i",      "in",     "limit",
    "out",  "reply",   "returned", "server", "target", "value"};

const BasicType* basic(std::string_view name) {
  const auto found = std::find_if(kBasicTypes.begin(), kBasicTypes.end(),
                                  [&](const BasicType& type) { return type.idl == name; });
  return found == kBasicTypes.end() || found->cpp[0] == '\0' ? nullptr : &*found;
}

Type type_of(const BasicType& basic) {
  Type type;
  type.kind = basic.kind;
  type.cpp = basic.cpp;
  type.alignment = basic.kind == Type::Kind::uuid ? 4 : std::max<std::size_t>(basic.size, 1);
  type.least_size = type.greatest_size = basic.size;
  type.is_unsigned = basic.is_unsigned;
  return type;
}

}  // namespace

bool is_integer_type(std::string_view name) {
  const BasicType* found = basic(name);
  return found != nullptr && found->is_integer;
}

void Scope::error(Location at, const std::string& message) {
  ++errors_;
  reporter_.error(at, message);
}

void Scope::check_name(const syntax::Name& name) {
  const std::string& text = name.text;
  if (std::find(kCppKeywords.begin(), kCppKeywords.end(), text) != kCppKeywords.end())
    error(name.at, quoted(text) + " is a word of C++ and cannot be a name");
  else if (text.find("__") != std::string::npos ||
           std::find(kGeneratedNames.begin(), kGeneratedNames.end(), text) != kGeneratedNames.end())
    error(name.at, quoted(text) + " is a name that generated code keeps for itself");
}

void Scope::declare(const syntax::Name& name) {
  check_name(name);
  const auto [known, fresh] = declared_.emplace(name.text, name.at);
  if (!fresh)
    error(name.at, quoted(name.text) + " was declared before, in line " +
                       std::to_string(known->second.line));
  else if (basic(name.text) != nullptr || name.text == "rpc" || name.text == "ndr")
    error(name.at, quoted(name.text) + " is a name of the language");
}

std::optional<Type> Scope::value_type(const syntax::Name& name) {
  if (const BasicType* found = basic(name.text); found != nullptr && found->size != 0)
    return type_of(*found);
  if (const auto found = types_.find(name.text); found != types_.end())
    return found->second;
  if (name.text == "handle_t" || name.text == "void")
    error(name.at, quoted(name.text) + " has no value here");
  else if (name.text.find(' ') != std::string::npos || name.text == "unsigned")
    error(name.at, quoted(name.text) + " is not a type");
  else
    error(name.at, "unknown type " + quoted(name.text));
  return std::nullopt;
}

std::optional<Expression> Scope::resolve(const syntax::Expression& tree, const Lookup& lookup) {
  Expression result;
  result.kind = tree.kind;
  result.value = tree.value;
  if (tree.left) {
    std::optional<Expression> left = resolve(*tree.left, lookup);
    std::optional<Expression> right = resolve(*tree.right, lookup);
    if (!left || !right)
      return std::nullopt;
    result.left = std::make_unique<Expression>(std::move(*left));
    result.right = std::make_unique<Expression>(std::move(*right));
    return fold(std::move(result), tree.name.at);
  }
  if (tree.kind == Expression::Kind::number)
    return result;
  if (const auto constant = constants_.find(tree.name.text);
      constant != constants_.end() && tree.kind == Expression::Kind::name) {
    result.kind = Expression::Kind::number;
    result.value = constant->second;
    return result;
  }
  return variable(tree, lookup);
}

std::optional<Expression> Scope::variable(const syntax::Expression& tree, const Lookup& lookup) {
  const std::optional<Variable> found = lookup(tree.name.text);
  if (!found) {
    error(tree.name.at, "unknown name " + quoted(tree.name.text));
    return std::nullopt;
  }
  const bool dereferenced = tree.kind == Expression::Kind::dereference;
  if (found->behind_pointer != dereferenced) {
    error(tree.name.at, dereferenced
                            ? quoted(tree.name.text) + " is not a pointer"
                            : quoted(tree.name.text) + " is a pointer: write *" + tree.name.text);
    return std::nullopt;
  }
  if (!found->type->is_unsigned) {
    error(tree.name.at, quoted(tree.name.text) + " must be an unsigned integer of at most 32 bits");
    return std::nullopt;
  }
  Expression result;
  result.kind = tree.kind;
  result.name = tree.name.text;
  result.narrow = found->type->greatest_size < 4;
  return result;
}

// Two numbers become one.
std::optional<Expression> Scope::fold(Expression tree, Location at) {
  if (tree.left->kind != Expression::Kind::number || tree.right->kind != Expression::Kind::number)
    return tree;
  const std::uint64_t left = tree.left->value;
  const std::uint64_t right = tree.right->value;
  Expression result;
  bool overflow = false;
  if (tree.kind == Expression::Kind::add)
    overflow = __builtin_add_overflow(left, right, &result.value);
  else if (tree.kind == Expression::Kind::subtract)
    overflow = __builtin_sub_overflow(left, right, &result.value);
  else
    overflow = __builtin_mul_overflow(left, right, &result.value);
  if (overflow) {
    error(at, "the value of the expression is out of range");
    return std::nullopt;
  }
  return result;
}

std::optional<std::uint64_t> Scope::constant(const syntax::Expression& tree) {
  const std::optional<Expression> value =
      resolve(tree, [](const std::string&) { return std::nullopt; });
  if (!value)
    return std::nullopt;
  return value->value;
}

}  // namespace zidl
