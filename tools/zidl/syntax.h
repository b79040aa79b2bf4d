// SPDX-License-Identifier: Apache-2.0
// What the parser makes of a definition: its grammar, with nothing looked up or checked.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/zidl/lexer.h"

namespace zidl::syntax {

struct Name {
  std::string text;
  Location at;
};

struct Expression {
  enum class Kind { number, name, dereference, add, subtract, multiply };
  Kind kind = Kind::number;
  std::uint64_t value = 0;
  Name name;  // of a name or dereference; otherwise only the place is set
  std::unique_ptr<Expression> left;
  std::unique_ptr<Expression> right;
};

// name, name(argument, ...) or, for uuid and version, what stands in the parentheses.
struct Attribute {
  Name name;
  std::vector<Expression> arguments;
  std::string uuid;
  std::uint64_t major = 0;
  std::uint64_t minor = 0;
};

struct Declarator {
  unsigned pointers = 0;
  Name name;
  bool array = false;
  std::optional<Expression> bound;  // of an array; without: conformant
};

// A structure's field or an operation's parameter.
struct Member {
  std::vector<Attribute> attributes;
  Name type;  // its words, a single blank between
  Declarator declarator;
};

struct Constant {
  Name type;
  Name name;
  Expression value;
};

struct Alias {
  Name type;
  Name name;
};

struct Enumeration {
  Name name;
  std::vector<Name> enumerators;
};

struct Structure {
  Name name;
  std::vector<Member> fields;
};

struct Operation {
  std::vector<Attribute> attributes;
  Name result;
  Name name;
  std::vector<Member> parameters;
};

using Definition = std::variant<Constant, Alias, Enumeration, Structure, Operation>;

struct Interface {
  std::vector<Attribute> attributes;
  Name name;
  std::vector<Definition> definitions;
};

}  // namespace zidl::syntax
