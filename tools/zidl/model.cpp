// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/model.h"

#include <set>

#include "tools/zidl/model_attributes.h"
#include "tools/zidl/model_operation.h"
#include "tools/zidl/model_scope.h"
#include "tools/zidl/model_structure.h"

namespace zidl {

namespace {

class Checker {
 public:
  explicit Checker(Reporter& reporter) : scope_(reporter) {}

  std::unique_ptr<const Interface> run(const syntax::Interface& tree) {
    check_header(tree);
    for (const syntax::Definition& definition : tree.definitions)
      std::visit([this](const auto& d) { add(d); }, definition);
    check_methods();
    if (result_->operations.empty())
      scope_.error(tree.name.at, "the interface has no operations");
    return scope_.errors() == 0 ? std::move(result_) : nullptr;
  }

 private:
  void check_header(const syntax::Interface& tree) {
    const Attributes attributes(tree.attributes, {"uuid", "version", "pointer_default"},
                                "an interface", scope_);
    scope_.declare(tree.name);
    result_->name = tree.name.text;
    if (const syntax::Attribute* uuid = attributes.find("uuid"); uuid && !uuid->uuid.empty())
      result_->uuid = uuid->uuid;
    else
      scope_.error(tree.name.at, "the interface has no uuid");
    if (const syntax::Attribute* version = attributes.find("version")) {
      if (version->major > 0xFFFF || version->minor > 0xFFFF)
        scope_.error(version->name.at, "a version number is at most 65535");
      result_->major = static_cast<std::uint16_t>(version->major);
      result_->minor = static_cast<std::uint16_t>(version->minor);
    }
    if (const syntax::Expression* pointer = attributes.argument("pointer_default")) {
      if (pointer->name.text != "ref" && pointer->name.text != "ptr")
        scope_.error(pointer->name.at, "pointer_default is ref or ptr");
      full_pointers_ = pointer->name.text == "ptr";
    }
  }

  void add(const syntax::Constant& tree) {
    scope_.declare(tree.name);
    const std::optional<Type> type = scope_.value_type(tree.type);
    const std::optional<std::uint64_t> value = scope_.constant(tree.value);
    if (!type || !value)
      return;
    if (!is_integer_type(tree.type.text)) {
      scope_.error(tree.type.at, "a constant is of an integer type");
      return;
    }
    const bool is_signed = type->cpp.starts_with("std::int");
    const unsigned bits = static_cast<unsigned>(8 * type->greatest_size) - is_signed;
    if (bits < 64 && *value >> bits != 0) {
      scope_.error(tree.value.name.at, "the value does not fit " + quoted(tree.type.text));
      return;
    }
    scope_.add_constant(tree.name.text, *value);
    result_->definitions.emplace_back(Constant{tree.name.text, type->cpp, *value});
  }

  void add(const syntax::Alias& tree) {
    scope_.declare(tree.name);
    std::optional<Type> type = scope_.value_type(tree.type);
    if (!type)
      return;
    result_->definitions.emplace_back(Alias{tree.name.text, type->cpp});
    scope_.add_type(tree.name.text, *type);
  }

  void add(const syntax::Enumeration& tree) {
    scope_.declare(tree.name);
    Enumeration enumeration{tree.name.text, {}};
    for (const syntax::Name& enumerator : tree.enumerators) {
      scope_.declare(enumerator);
      enumeration.enumerators.push_back(enumerator.text);
    }
    if (enumeration.enumerators.size() > 0x8000)
      scope_.error(tree.name.at, "an enumeration has at most 32768 enumerators");
    Type type;
    type.cpp = tree.name.text;
    type.alignment = type.least_size = type.greatest_size = 2;
    scope_.add_type(tree.name.text, type);
    result_->definitions.emplace_back(std::move(enumeration));
  }

  void add(const syntax::Structure& tree) {
    scope_.declare(tree.name);
    const Structure& kept =
        result_->structures.emplace_back(check_structure(tree, full_pointers_, scope_));
    Type type;
    type.kind = Type::Kind::structure;
    type.cpp = kept.name;
    type.alignment = kept.alignment;
    type.least_size = kept.least_size;
    type.greatest_size = kept.greatest_size;
    type.structure = &kept;
    scope_.add_type(kept.name, type);
    result_->definitions.emplace_back(&kept);
  }

  void add(const syntax::Operation& tree) {
    scope_.declare(tree.name);
    const std::size_t opnum = result_->operations.size();
    if (opnum > 0xFFFF)
      scope_.error(tree.name.at, "an interface has at most 65536 operations");
    Operation operation = check_operation(tree, static_cast<std::uint16_t>(opnum), scope_);
    const std::string prefix = result_->name + "_";
    operation.method =
        operation.name.substr(operation.name.starts_with(prefix) ? prefix.size() : 0);
    result_->operations.push_back(std::move(operation));
  }

  // Skeletons call operations by names that the definition does not have.
  void check_methods() {
    std::set<std::string> methods;
    for (const Operation& operation : result_->operations) {
      const std::string& method = operation.method;
      const bool renamed = method != operation.name;
      if (renamed && (method.empty() || (method[0] >= '0' && method[0] <= '9') ||
                      !Scope::objection(method).empty() || scope_.declared(method)))
        scope_.error(scope_.place(operation.name),
                     quoted(method) + " cannot be the operation's name in the skeleton");
      else if (!methods.insert(method).second)
        scope_.error(scope_.place(operation.name),
                     "another operation is " + quoted(method) + " in the skeleton, too");
    }
  }

  Scope scope_;
  std::unique_ptr<Interface> result_ = std::make_unique<Interface>();
  bool full_pointers_ = false;
};

}  // namespace

std::unique_ptr<const Interface> check(const syntax::Interface& tree, Reporter& reporter) {
  return Checker(reporter).run(tree);
}

}  // namespace zidl
