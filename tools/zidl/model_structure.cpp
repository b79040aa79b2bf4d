// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/model_structure.h"

#include <algorithm>
#include <set>

#include "tools/zidl/model_attributes.h"

namespace zidl {

namespace {

// The longest fixed array of characters that a definition may have.
constexpr std::uint64_t kGreatestBound = 65536;

class StructureChecker {
 public:
  StructureChecker(bool full_pointers, Scope& scope)
      : scope_(scope), full_pointers_(full_pointers) {}

  Structure run(const syntax::Structure& tree) {
    structure_.name = tree.name.text;
    std::set<std::string> names;
    for (const syntax::Member& member : tree.fields) {
      const syntax::Name& name = member.declarator.name;
      scope_.check_member(name);
      if (!names.insert(name.text).second)
        error(name.at, quoted(name.text) + " is a field already");
      if (structure_.conformant)
        error(name.at, "a conformant array must be the last field");
      if (std::optional<Field> field = check_field(member)) {
        lay_out(*field);
        structure_.fields.push_back(std::move(*field));
      }
    }
    if (tree.fields.empty())
      error(tree.name.at, "the structure has no fields");
    return std::move(structure_);
  }

 private:
  void error(Location at, const std::string& message) { scope_.error(at, message); }

  std::optional<Field> check_field(const syntax::Member& member) {
    const Attributes attributes(
        member.attributes, {"length_is", "size_is", "string", "ptr", "range"}, "a field", scope_);
    const syntax::Name& name = member.declarator.name;
    const std::optional<Type> type = scope_.value_type(member.type);
    if (!type)
      return std::nullopt;
    Field field;
    field.name = name.text;
    field.type = *type;
    if (type->structure != nullptr && type->structure->conformant &&
        member.declarator.pointers == 0) {
      error(member.type.at,
            "a structure with a conformant array is supported behind a pointer only");
      return std::nullopt;
    }
    if (member.declarator.array)
      return array_field(member, attributes, std::move(field));
    if (member.declarator.pointers > 0)
      return pointer_field(member, attributes, std::move(field));
    for (const char* attribute : {"length_is", "size_is", "string", "ptr"}) {
      if (const syntax::Attribute* found = attributes.find(attribute)) {
        error(found->name.at, "attribute " + quoted(attribute) + " needs " +
                                  (found->name.text == "ptr" ? "a pointer" : "an array"));
        return std::nullopt;
      }
    }
    return range_field(attributes, std::move(field));
  }

  std::optional<Field> range_field(const Attributes& attributes, Field field) {
    const syntax::Attribute* range = attributes.find("range");
    if (range == nullptr || range->arguments.size() != 2)
      return field;
    if (!field.type.is_unsigned) {
      error(range->name.at, "a range needs an unsigned integer of at most 32 bits");
      return std::nullopt;
    }
    const std::optional<std::uint64_t> low = scope_.constant(range->arguments[0]);
    const std::optional<std::uint64_t> high = scope_.constant(range->arguments[1]);
    if (!low || !high)
      return std::nullopt;
    if (*low > *high || *high >> (8 * field.type.greatest_size) != 0) {
      error(range->name.at, "the range is empty or does not fit the type");
      return std::nullopt;
    }
    field.range = {*low, *high};
    return field;
  }

  std::optional<Field> pointer_field(const syntax::Member& member, const Attributes& attributes,
                                     Field field) {
    const syntax::Name& name = member.declarator.name;
    if (member.declarator.pointers > 1) {
      error(name.at, "a pointer to a pointer is not supported");
    } else if (!full_pointers_ && !attributes.has("ptr")) {
      error(name.at, "a pointer inside a structure needs the attribute ptr");
    } else if (field.type.kind != Type::Kind::structure) {
      error(name.at, "a pointer inside a structure must point to a structure");
    } else if (field.type.structure->targets_size != 0) {
      error(name.at, "pointers behind a pointer are not supported");
    } else if (attributes.has_none_of({"length_is", "size_is", "string", "range"}, "a pointer")) {
      field.shape = Field::Shape::pointer;
      return field;
    }
    return std::nullopt;
  }

  std::optional<Field> array_field(const syntax::Member& member, const Attributes& attributes,
                                   Field field) {
    const syntax::Declarator& declarator = member.declarator;
    const bool sized = attributes.has("size_is");
    const bool counted = attributes.has("length_is");
    const bool string = attributes.has("string");
    const Location at = declarator.name.at;
    const Scope::Lookup fields = [&](const std::string& wanted) -> std::optional<Scope::Variable> {
      for (const Field& known : structure_.fields) {
        if (known.name == wanted && known.shape == Field::Shape::value)
          return Scope::Variable{&known.type, false};
      }
      return std::nullopt;
    };
    if (declarator.pointers > 0 || attributes.has("ptr") || attributes.has("range")) {
      error(at, "arrays of pointers and arrays with ptr or range are not supported");
      return std::nullopt;
    }
    if (!declarator.bound) {
      if (field.type.cpp != "std::uint8_t" || !sized || counted || string) {
        error(at, "a conformant array inside a structure must be of bytes and have size_is alone");
        return std::nullopt;
      }
      return with_length(attributes.argument("size_is"), fields, Field::Shape::octets,
                         std::move(field));
    }
    if (field.type.kind != Type::Kind::character || sized || counted == string) {
      error(at, "a fixed array must be of char and have either length_is or string");
      return std::nullopt;
    }
    const std::optional<std::uint64_t> bound = scope_.constant(*declarator.bound);
    if (!bound)
      return std::nullopt;
    if (*bound == 0 || *bound > kGreatestBound) {
      error(declarator.bound->name.at,
            "an array has 1 to " + std::to_string(kGreatestBound) + " elements");
      return std::nullopt;
    }
    field.bound = *bound;
    if (string) {
      field.shape = Field::Shape::string;
      return field;
    }
    return with_length(attributes.argument("length_is"), fields, Field::Shape::text,
                       std::move(field));
  }

  std::optional<Field> with_length(const syntax::Expression* tree, const Scope::Lookup& lookup,
                                   Field::Shape shape, Field field) {
    std::optional<Expression> length;
    if (tree != nullptr)
      length = scope_.resolve(*tree, lookup);
    if (!length)
      return std::nullopt;
    field.shape = shape;
    field.length = std::move(*length);
    return field;
  }

  // Adds a field's alignment and sizes to its structure's (C706 14.3).
  void lay_out(const Field& field) {
    std::size_t alignment = field.type.alignment;
    std::size_t least = field.type.least_size;
    std::size_t greatest = field.type.greatest_size;
    switch (field.shape) {
      case Field::Shape::value:
        if (field.type.structure != nullptr)
          structure_.targets_size += field.type.structure->targets_size;
        break;
      case Field::Shape::text:
      case Field::Shape::string:
        alignment = 4;
        least = 8;
        greatest = 8 + field.bound;
        break;
      case Field::Shape::octets:
        structure_.conformant = true;
        greatest = greatest_octets(field);
        least = 0;
        alignment = 4;
        structure_.least_size += 4;  // the maximum count, in front
        structure_.greatest_size += 4;
        break;
      case Field::Shape::pointer:
        alignment = least = greatest = 4;
        structure_.targets_size += round_up(field.type.greatest_size, 8);
        break;
    }
    const std::size_t packed = field.shape == Field::Shape::octets ? 1 : alignment;
    structure_.alignment = std::max(structure_.alignment, alignment);
    structure_.least_size = round_up(structure_.least_size, packed) + least;
    structure_.greatest_size = round_up(structure_.greatest_size, packed) + greatest;
  }

  // A definition must bound its octets, or no reply could be refused for its length.
  std::size_t greatest_octets(const Field& field) {
    for (const Field& known : structure_.fields) {
      if (known.name == field.length.name && known.range && !field.length.left)
        return known.range->second;
    }
    error(scope_.place(structure_.name),
          "the size of " + quoted(field.name) + " must be a field with a range");
    return 0;
  }

  Scope& scope_;
  const bool full_pointers_;
  Structure structure_;  // with the fields so far
};

}  // namespace

Structure check_structure(const syntax::Structure& tree, bool full_pointers, Scope& scope) {
  return StructureChecker(full_pointers, scope).run(tree);
}

}  // namespace zidl
