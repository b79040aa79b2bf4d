// SPDX-License-Identifier: Apache-2.0
// What is known at one place of a definition: the types and constants before it, and what names and
// expressions mean there. Every member reports what is wrong.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "tools/zidl/model.h"

namespace zidl {

// True for the language's own integer types, without names that were given to them.
bool is_integer_type(std::string_view name);

class Scope : public Reporter {
 public:
  // The reporter is not owned.
  explicit Scope(Reporter& reporter) : reporter_(reporter) {}

  void error(Location at, const std::string& message) override;
  unsigned errors() const { return errors_; }

  // Why generated code could not carry a name; empty when it can.
  static std::string objection(std::string_view name);
  void check_name(const syntax::Name& name);
  // The name of a field or parameter, which hides nothing of the interface.
  void check_member(const syntax::Name& name);
  // A name of the interface, which stands for one thing only.
  void declare(const syntax::Name& name);
  bool declared(const std::string& name) const { return declared_.contains(name); }
  // Where a declared name stands.
  Location place(const std::string& name) const { return declared_.at(name); }

  void add_type(const std::string& name, const Type& type) { types_[name] = type; }
  void add_constant(const std::string& name, std::uint64_t value) { constants_[name] = value; }
  // A type that has a value on the wire. Reports and returns nothing for every other.
  std::optional<Type> value_type(const syntax::Name& name);

  // What a name in a size, length or range stands for.
  struct Variable {
    const Type* type;
    bool behind_pointer;
  };
  // Answers nothing for an unknown name.
  using Lookup = std::function<std::optional<Variable>(const std::string&)>;

  // Constants become numbers, and so do operations on numbers.
  std::optional<Expression> resolve(const syntax::Expression& tree, const Lookup& lookup);
  std::optional<std::uint64_t> constant(const syntax::Expression& tree);

 private:
  std::optional<Expression> variable(const syntax::Expression& tree, const Lookup& lookup);
  std::optional<Expression> fold(Expression tree, Location at);

  Reporter& reporter_;
  unsigned errors_ = 0;
  std::map<std::string, Location> declared_;
  std::map<std::string, Type> types_;
  std::map<std::string, std::uint64_t> constants_;
};

}  // namespace zidl
