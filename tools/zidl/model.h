// SPDX-License-Identifier: Apache-2.0
// Third step: a syntax tree to a checked model. What the model holds can be generated; everything
// else has been reported. Pointers inside a model live as long as the model.

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/zidl/reporter.h"
#include "tools/zidl/syntax.h"

namespace zidl {

struct Structure;

struct Type {
  enum class Kind { scalar, character, uuid, structure };
  Kind kind = Kind::scalar;
  std::string cpp;                // name in generated code
  std::size_t alignment = 1;      // on the wire
  std::size_t least_size = 1;     // on the wire
  std::size_t greatest_size = 1;  // on the wire, from an aligned position; targets not included
  bool is_unsigned = false;       // an unsigned integer of at most 32 bits: can be a length
  const Structure* structure = nullptr;
};

// An expression whose names are fields, or parameters of the same operation.
struct Expression {
  using Kind = syntax::Expression::Kind;
  Kind kind = Kind::number;
  std::uint64_t value = 0;
  std::string name;
  bool narrow = false;  // of a name: less than 32 bits
  std::unique_ptr<Expression> left;
  std::unique_ptr<Expression> right;
};

struct Field {
  enum class Shape {
    value,
    text,    // fixed array of characters with a length, terminated
    string,  // fixed array of characters, terminated
    octets,  // conformant array at the end of the structure
    pointer  // full pointer to a structure
  };
  Shape shape = Shape::value;
  std::string name;
  Type type;                // of the value, the elements or the target
  std::uint64_t bound = 0;  // of text and string
  Expression length;        // of text; of octets the size
  std::optional<std::pair<std::uint64_t, std::uint64_t>> range;
};

struct Structure {
  std::string name;
  std::vector<Field> fields;
  std::size_t alignment = 1;
  std::size_t least_size = 0;
  std::size_t greatest_size = 0;
  std::size_t targets_size = 0;  // greatest size of what its pointers point to
  bool conformant = false;       // ends with octets
};

struct Enumeration {
  std::string name;
  std::vector<std::string> enumerators;
};

struct Alias {
  std::string name;
  std::string cpp;
};

struct Constant {
  std::string name;
  std::string cpp;
  std::uint64_t value = 0;
};

using TypeDefinition = std::variant<Constant, Alias, Enumeration, const Structure*>;

struct Parameter {
  enum class Shape {
    binding,  // handle_t, not transmitted
    value,
    reference,
    pointer,  // full pointer, in only
    array,    // conformant varying, in or out
    context
  };
  Shape shape = Shape::value;
  std::string name;
  bool in = false;
  bool out = false;
  bool comm_status = false;
  Type type;
  Expression size;
  Expression length;
};

struct Operation {
  std::string name;
  std::string method;  // its name in the skeleton: without that of the interface in front
  std::uint16_t opnum = 0;
  bool idempotent = false;
  bool nocode = false;         // keeps its number, has neither stub nor skeleton
  std::optional<Type> result;  // nothing for void
  std::vector<Parameter> parameters;
};

struct Interface {
  std::string name;
  std::string uuid;
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  std::vector<TypeDefinition> definitions;  // in the order of the source
  std::vector<Operation> operations;
  std::deque<Structure> structures;
};

// Null when an error was reported.
std::unique_ptr<const Interface> check(const syntax::Interface& tree, Reporter& reporter);

constexpr std::size_t round_up(std::size_t size, std::size_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace zidl
