// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/model_scope.h"

#include <algorithm>
#include <array>
#include <iterator>

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

constexpr std::string_view kCppKeywords[] = {"alignas",       "alignof",      "and",
                                             "and_eq",        "asm",          "auto",
                                             "bitand",        "bitor",        "bool",
                                             "break",         "case",         "catch",
                                             "char",          "char16_t",     "char32_t",
                                             "char8_t",       "class",        "co_await",
                                             "co_return",     "co_yield",     "compl",
                                             "concept",       "const",        "const_cast",
                                             "consteval",     "constexpr",    "constinit",
                                             "continue",      "decltype",     "default",
                                             "delete",        "do",           "double",
                                             "dynamic_cast",  "else",         "enum",
                                             "explicit",      "export",       "extern",
                                             "false",         "float",        "for",
                                             "friend",        "goto",         "if",
                                             "inline",        "int",          "long",
                                             "mutable",       "namespace",    "new",
                                             "noexcept",      "not",          "not_eq",
                                             "nullptr",       "operator",     "or",
                                             "or_eq",         "private",      "protected",
                                             "public",        "register",     "reinterpret_cast",
                                             "requires",      "return",       "short",
                                             "signed",        "sizeof",       "static",
                                             "static_assert", "static_cast",  "std",
                                             "struct",        "switch",       "template",
                                             "this",          "thread_local", "throw",
                                             "true",          "try",          "typedef",
                                             "typeid",        "typename",     "union",
                                             "unsigned",      "using",        "virtual",
                                             "void",          "volatile",     "wchar_t",
                                             "while",         "xor",          "xor_eq"};

// Names that generated files and skeletons have for themselves.
constexpr std::string_view kGeneratedNames[] = {"Handler",
                                                "call",
                                                "decode",
                                                "decode_targets",
                                                "dispatch",
                                                "encode",
                                                "encode_targets",
                                                "entered",
                                                "failure",
                                                "i",
                                                "in",
                                                "kHandlers",
                                                "kInterface",
                                                "kOperations",
                                                "limit",
                                                "ndr",
                                                "operation",
                                                "out",
                                                "refuse",
                                                "reply",
                                                "returned",
                                                "rpc",
                                                "server",
                                                "spec",
                                                "target",
                                                "value"};

// Types and macros of the headers that generated files include.
constexpr std::string_view kLibraryNames[] = {
    "FILE",     "alloca", "assert",   "errno",     "int16_t",  "int32_t", "int64_t",   "int8_t",
    "intptr_t", "linux",  "offsetof", "ptrdiff_t", "size_t",   "ssize_t", "stderr",    "stdin",
    "stdout",   "time_t", "uint16_t", "uint32_t",  "uint64_t", "uint8_t", "uintptr_t", "unix"};

template <typename Table>
bool holds(const Table& table, std::string_view name) {
  return std::find(std::begin(table), std::end(table), name) != std::end(table);
}

// "part1": what is read at one distance.
bool is_part(std::string_view name) {
  return name.starts_with("part") &&
         name.find_first_not_of("0123456789", 4) == std::string_view::npos;
}

// The library's macros are written in capitals, which is more than a list could hold.
bool may_be_macro(std::string_view name) {
  return name.size() > 1 &&
         name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") == std::string_view::npos;
}

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

std::string Scope::objection(std::string_view name) {
  if (holds(kCppKeywords, name))
    return "is a word of C++ and cannot be a name";
  if (name.find("__") != std::string_view::npos || holds(kGeneratedNames, name) || is_part(name) ||
      name.starts_with("serve_") || name.ends_with("_Server") || name.ends_with("_c_ifspec"))
    return "is a name that generated code keeps for itself";
  if (holds(kLibraryNames, name) || may_be_macro(name) ||
      (name.size() > 1 && name[0] == '_' && name[1] >= 'A' && name[1] <= 'Z'))
    return "may be a type or macro of the C library and cannot be a name";
  if (basic(name) != nullptr)
    return "is a name of the language";
  return "";
}

void Scope::check_name(const syntax::Name& name) {
  const std::string wrong = objection(name.text);
  if (!wrong.empty())
    error(name.at, quoted(name.text) + " " + wrong);
}

void Scope::check_member(const syntax::Name& name) {
  check_name(name);
  if (const auto known = declared_.find(name.text); known != declared_.end())
    error(name.at, quoted(name.text) + " was declared before, in line " +
                       std::to_string(known->second.line));
}

void Scope::declare(const syntax::Name& name) {
  check_member(name);
  declared_.emplace(name.text, name.at);
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
