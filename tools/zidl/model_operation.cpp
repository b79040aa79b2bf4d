// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/model_operation.h"

#include <algorithm>
#include <set>

#include "tools/zidl/model_attributes.h"

namespace zidl {

namespace {

class OperationChecker {
 public:
  explicit OperationChecker(Scope& scope) : scope_(scope) {}

  Operation run(const syntax::Operation& tree, std::uint16_t opnum) {
    const Attributes attributes(tree.attributes, {"idempotent", "nocode"}, "an operation", scope_);
    operation_.name = tree.name.text;
    operation_.opnum = opnum;
    operation_.idempotent = attributes.has("idempotent");
    operation_.nocode = attributes.has("nocode");
    if (tree.result.text != "void") {
      operation_.result = scope_.value_type(tree.result);
      if (operation_.result && operation_.result->kind != Type::Kind::scalar)
        error(tree.result.at, "an operation returns an integer or nothing");
    }
    const bool complete = add_parameters(tree);
    check_derived_names(tree.name);
    if (complete)
      check_target(tree.name);
    return std::move(operation_);
  }

 private:
  void error(Location at, const std::string& message) { scope_.error(at, message); }

  // False when a parameter had to be left out.
  bool add_parameters(const syntax::Operation& tree) {
    bool complete = true;
    std::set<std::string> names;
    for (const syntax::Member& member : tree.parameters) {
      const syntax::Name& name = member.declarator.name;
      scope_.check_member(name);
      if (!names.insert(name.text).second)
        error(name.at, quoted(name.text) + " is a parameter already");
      if (std::optional<Parameter> parameter = check_parameter(member))
        operation_.parameters.push_back(std::move(*parameter));
      else
        complete = false;
    }
    return complete;
  }

  // Generated functions hold the size and count of an array and a received context beside it.
  void check_derived_names(const syntax::Name& name) {
    for (const Parameter& owner : operation_.parameters) {
      for (const Parameter& other : operation_.parameters) {
        const bool derived =
            owner.shape == Parameter::Shape::array
                ? other.name == owner.name + "_size" || other.name == owner.name + "_count"
                : owner.shape == Parameter::Shape::context && other.name == owner.name + "_context";
        if (derived)
          error(name.at, quoted(other.name) + " and " + quoted(owner.name) +
                             " cannot be parameters of one operation");
      }
    }
  }

  void check_target(const syntax::Name& name) {
    const bool found = std::any_of(operation_.parameters.begin(), operation_.parameters.end(),
                                   [](const Parameter& p) {
                                     return p.shape == Parameter::Shape::binding ||
                                            (p.shape == Parameter::Shape::context && p.in);
                                   });
    if (!found)
      error(name.at, "the operation needs a handle_t or a context handle as in-parameter");
  }

  std::optional<Parameter> check_parameter(const syntax::Member& member) {
    const Attributes attributes(
        member.attributes,
        {"in", "out", "ref", "ptr", "size_is", "length_is", "context_handle", "comm_status"},
        "a parameter", scope_);
    const syntax::Declarator& declarator = member.declarator;
    Parameter parameter;
    parameter.name = declarator.name.text;
    parameter.in = attributes.has("in");
    parameter.out = attributes.has("out");
    parameter.comm_status = attributes.has("comm_status");
    if (!parameter.in && !parameter.out) {
      error(declarator.name.at, "a parameter needs in or out");
      return std::nullopt;
    }
    if (member.type.text == "handle_t")
      return binding_parameter(member, std::move(parameter));
    if (attributes.has("context_handle") || member.type.text == "void")
      return context_parameter(member, attributes, std::move(parameter));
    const std::optional<Type> type = scope_.value_type(member.type);
    if (!type)
      return std::nullopt;
    parameter.type = *type;
    if (type->structure != nullptr && type->structure->conformant) {
      error(member.type.at, "a structure with a conformant array is no parameter");
      return std::nullopt;
    }
    if (parameter.comm_status && !check_comm_status(member, parameter))
      return std::nullopt;
    if (declarator.array)
      return array_parameter(member, attributes, std::move(parameter));
    for (const char* attribute : {"size_is", "length_is"}) {
      if (const syntax::Attribute* found = attributes.find(attribute)) {
        error(found->name.at, "attribute " + quoted(attribute) + " needs an array");
        return std::nullopt;
      }
    }
    return plain_parameter(member, attributes, std::move(parameter));
  }

  std::optional<Parameter> binding_parameter(const syntax::Member& member, Parameter parameter) {
    const syntax::Declarator& declarator = member.declarator;
    if (!operation_.parameters.empty() || parameter.out || declarator.pointers > 0 ||
        declarator.array || member.attributes.size() != 1) {
      error(declarator.name.at, "a handle_t is the first parameter and in alone");
      return std::nullopt;
    }
    parameter.shape = Parameter::Shape::binding;
    return parameter;
  }

  std::optional<Parameter> context_parameter(const syntax::Member& member,
                                             const Attributes& attributes, Parameter parameter) {
    const syntax::Declarator& declarator = member.declarator;
    const unsigned pointers = parameter.out ? 2 : 1;
    if (!attributes.has("context_handle") || member.type.text != "void" || declarator.array ||
        declarator.pointers != pointers) {
      error(declarator.name.at,
            std::string("a context handle is written [") +
                (parameter.out ? "out, context_handle] void** " : "in, context_handle] void* ") +
                declarator.name.text);
      return std::nullopt;
    }
    if (!attributes.has_none_of({"ptr", "size_is", "length_is", "comm_status"}, "a context handle"))
      return std::nullopt;
    parameter.shape = Parameter::Shape::context;
    return parameter;
  }

  bool check_comm_status(const syntax::Member& member, const Parameter& parameter) {
    const bool twice = std::any_of(operation_.parameters.begin(), operation_.parameters.end(),
                                   [](const Parameter& p) { return p.comm_status; });
    if (member.type.text == "error_status_t" && parameter.out && !parameter.in && !twice &&
        member.declarator.pointers == 1 && !member.declarator.array)
      return true;
    error(member.declarator.name.at,
          "comm_status stands on one [out] error_status_t* of an operation");
    return false;
  }

  std::optional<Parameter> array_parameter(const syntax::Member& member,
                                           const Attributes& attributes, Parameter parameter) {
    const syntax::Declarator& declarator = member.declarator;
    if (declarator.bound || declarator.pointers > 0 || attributes.has("ptr") ||
        attributes.has("ref") || (parameter.in && parameter.out) || !attributes.has("size_is") ||
        !attributes.has("length_is")) {
      error(declarator.name.at,
            "an array parameter is in or out, conformant, and has size_is and length_is");
      return std::nullopt;
    }
    // Sizes must be known before the call; lengths before the elements arrive.
    const auto lookup = [&](bool before_call) {
      return [this, &parameter,
              before_call](const std::string& wanted) -> std::optional<Scope::Variable> {
        for (const Parameter& known : operation_.parameters) {
          const bool usable =
              known.shape == Parameter::Shape::value || known.shape == Parameter::Shape::reference;
          const bool in_time = before_call ? known.in : (parameter.in ? known.in : true);
          if (known.name == wanted && usable && in_time)
            return Scope::Variable{&known.type, known.shape == Parameter::Shape::reference};
        }
        return std::nullopt;
      };
    };
    const syntax::Expression* size_tree = attributes.argument("size_is");
    const syntax::Expression* length_tree = attributes.argument("length_is");
    if (size_tree == nullptr || length_tree == nullptr)
      return std::nullopt;
    std::optional<Expression> size = scope_.resolve(*size_tree, lookup(true));
    std::optional<Expression> length = scope_.resolve(*length_tree, lookup(false));
    if (!size || !length)
      return std::nullopt;
    if (parameter.in && parameter.type.structure != nullptr &&
        parameter.type.structure->targets_size != 0) {
      error(declarator.name.at, "an in-array of structures with pointers is not supported");
      return std::nullopt;
    }
    if (parameter.type.cpp == "bool" || parameter.type.kind == Type::Kind::uuid) {
      error(member.type.at, "an array of " + quoted(member.type.text) + " is not supported");
      return std::nullopt;
    }
    parameter.shape = Parameter::Shape::array;
    parameter.size = std::move(*size);
    parameter.length = std::move(*length);
    return parameter;
  }

  std::optional<Parameter> plain_parameter(const syntax::Member& member,
                                           const Attributes& attributes, Parameter parameter) {
    const syntax::Declarator& declarator = member.declarator;
    if (declarator.pointers > 1) {
      error(declarator.name.at, "a pointer to a pointer is not supported");
      return std::nullopt;
    }
    if (declarator.pointers == 0) {
      if (parameter.out || attributes.has("ref") || attributes.has("ptr") ||
          parameter.type.kind == Type::Kind::structure) {
        error(declarator.name.at,
              "out-parameters, structures, ref and ptr need a pointer: write *" +
                  declarator.name.text);
        return std::nullopt;
      }
      return parameter;
    }
    parameter.shape =
        attributes.has("ptr") ? Parameter::Shape::pointer : Parameter::Shape::reference;
    if (attributes.has("ref") && attributes.has("ptr")) {
      error(declarator.name.at, "a pointer is either ref or ptr");
      return std::nullopt;
    }
    if (parameter.shape == Parameter::Shape::pointer && parameter.out) {
      error(declarator.name.at, "a full pointer as out-parameter is not supported");
      return std::nullopt;
    }
    if (parameter.type.structure != nullptr && parameter.type.structure->targets_size != 0) {
      error(declarator.name.at, "a structure with pointers is supported in out-arrays only");
      return std::nullopt;
    }
    return parameter;
  }

  Scope& scope_;
  Operation operation_;  // with the parameters so far
};

}  // namespace

Operation check_operation(const syntax::Operation& tree, std::uint16_t opnum, Scope& scope) {
  return OperationChecker(scope).run(tree, opnum);
}

}  // namespace zidl
