#include "tools/zidl/model.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <set>

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

// The longest fixed array of characters that a definition may have.
constexpr std::uint64_t kGreatestBound = 65536;

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

// The attributes of one thing, looked up by name; `allowed` bounds what may be there.
class Attributes {
 public:
  Attributes(const std::vector<syntax::Attribute>& attributes,
             std::initializer_list<std::string_view> allowed, const char* owner, Reporter& reporter)
      : attributes_(attributes) {
    std::set<std::string_view> seen;
    for (const syntax::Attribute& attribute : attributes) {
      const std::string& name = attribute.name.text;
      if (std::find(allowed.begin(), allowed.end(), name) == allowed.end())
        reporter.error(attribute.name.at,
                       "attribute " + quoted(name) + " is not supported on " + owner);
      else if (!seen.insert(name).second)
        reporter.error(attribute.name.at, "attribute " + quoted(name) + " given twice");
      else if (attribute.arguments.size() != arguments_of(name))
        reporter.error(attribute.name.at, "attribute " + quoted(name) + " takes " +
                                              std::to_string(arguments_of(name)) + " argument" +
                                              (arguments_of(name) == 1 ? "" : "s"));
    }
  }

  const syntax::Attribute* find(std::string_view name) const {
    for (const syntax::Attribute& attribute : attributes_) {
      if (attribute.name.text == name)
        return &attribute;
    }
    return nullptr;
  }
  bool has(std::string_view name) const { return find(name) != nullptr; }
  // The one argument; null when the attribute or its argument is missing.
  const syntax::Expression* argument(std::string_view name) const {
    const syntax::Attribute* attribute = find(name);
    return attribute == nullptr || attribute->arguments.size() != 1 ? nullptr
                                                                    : &attribute->arguments[0];
  }

 private:
  static std::size_t arguments_of(std::string_view name) {
    if (name == "size_is" || name == "length_is" || name == "pointer_default")
      return 1;
    return name == "range" ? 2 : 0;
  }

  const std::vector<syntax::Attribute>& attributes_;
};

class Checker {
 public:
  explicit Checker(Reporter& reporter) : reporter_(reporter) {}

  std::unique_ptr<const Interface> run(const syntax::Interface& tree) {
    check_header(tree);
    for (const syntax::Definition& definition : tree.definitions)
      std::visit([this](const auto& d) { add(d); }, definition);
    if (result_->operations.empty())
      error(tree.name.at, "the interface has no operations");
    return reporter_.count() == 0 ? std::move(result_) : nullptr;
  }

 private:
  // Counts what is reported through it.
  class Counting : public Reporter {
   public:
    explicit Counting(Reporter& next) : next_(next) {}
    void error(Location at, const std::string& message) override {
      ++count_;
      next_.error(at, message);
    }
    unsigned count() const { return count_; }

   private:
    Reporter& next_;
    unsigned count_ = 0;
  };

  // Answers what a name in a size, length or range stands for; null when it is unknown.
  struct Variable {
    const Type* type;
    bool behind_pointer;
  };
  using Lookup = std::function<std::optional<Variable>(const std::string&)>;

  void error(Location at, const std::string& message) { reporter_.error(at, message); }

  // Names that generated code could not carry.
  void check_name(const syntax::Name& name) {
    const std::string& text = name.text;
    if (std::find(kCppKeywords.begin(), kCppKeywords.end(), text) != kCppKeywords.end())
      error(name.at, quoted(text) + " is a word of C++ and cannot be a name");
    else if (text.find("__") != std::string::npos ||
             std::find(kGeneratedNames.begin(), kGeneratedNames.end(), text) !=
                 kGeneratedNames.end())
      error(name.at, quoted(text) + " is a name that generated code keeps for itself");
  }

  void declare(const syntax::Name& name) {
    check_name(name);
    const auto [known, fresh] = declared_.emplace(name.text, name.at);
    if (!fresh)
      error(name.at, quoted(name.text) + " was declared before, in line " +
                         std::to_string(known->second.line));
    else if (basic(name.text) != nullptr || name.text == "rpc" || name.text == "ndr")
      error(name.at, quoted(name.text) + " is a name of the language");
  }

  static const BasicType* basic(std::string_view name) {
    const auto found = std::find_if(kBasicTypes.begin(), kBasicTypes.end(),
                                    [&](const BasicType& type) { return type.idl == name; });
    return found == kBasicTypes.end() || found->cpp[0] == '\0' ? nullptr : &*found;
  }

  static Type type_of(const BasicType& basic) {
    Type type;
    type.kind = basic.kind;
    type.cpp = basic.cpp;
    type.alignment = basic.kind == Type::Kind::uuid ? 4 : std::max<std::size_t>(basic.size, 1);
    type.least_size = type.greatest_size = basic.size;
    type.is_integer = basic.is_integer;
    type.is_unsigned = basic.is_unsigned;
    return type;
  }

  // A type that has a value on the wire. Reports and returns nothing for every other.
  std::optional<Type> value_type(const syntax::Name& name) {
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

  // --- expressions

  std::optional<Expression> resolve(const syntax::Expression& tree, const Lookup& lookup) {
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

  std::optional<Expression> variable(const syntax::Expression& tree, const Lookup& lookup) {
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
      error(tree.name.at,
            quoted(tree.name.text) + " must be an unsigned integer of at most 32 bits");
      return std::nullopt;
    }
    Expression result;
    result.kind = tree.kind;
    result.name = tree.name.text;
    result.narrow = found->type->greatest_size < 4;
    return result;
  }

  // Two numbers become one.
  std::optional<Expression> fold(Expression tree, Location at) {
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

  std::optional<std::uint64_t> constant(const syntax::Expression& tree) {
    const std::optional<Expression> value =
        resolve(tree, [](const std::string&) { return std::nullopt; });
    if (!value)
      return std::nullopt;
    return value->value;
  }

  // --- header and simple definitions

  void check_header(const syntax::Interface& tree) {
    const Attributes attributes(tree.attributes, {"uuid", "version", "pointer_default"},
                                "an interface", reporter_);
    declare(tree.name);
    result_->name = tree.name.text;
    if (const syntax::Attribute* uuid = attributes.find("uuid"); uuid && !uuid->uuid.empty())
      result_->uuid = uuid->uuid;
    else
      error(tree.name.at, "the interface has no uuid");
    if (const syntax::Attribute* version = attributes.find("version")) {
      if (version->major > 0xFFFF || version->minor > 0xFFFF)
        error(version->name.at, "a version number is at most 65535");
      result_->major = static_cast<std::uint16_t>(version->major);
      result_->minor = static_cast<std::uint16_t>(version->minor);
    }
    if (const syntax::Expression* pointer = attributes.argument("pointer_default")) {
      if (pointer->name.text != "ref" && pointer->name.text != "ptr")
        error(pointer->name.at, "pointer_default is ref or ptr");
      full_pointers_ = pointer->name.text == "ptr";
    }
  }

  void add(const syntax::Constant& tree) {
    declare(tree.name);
    const std::optional<Type> type = value_type(tree.type);
    const std::optional<std::uint64_t> value = constant(tree.value);
    if (!type || !value)
      return;
    const BasicType* integer = basic(tree.type.text);
    if (integer == nullptr || !integer->is_integer) {
      error(tree.type.at, "a constant is of an integer type");
      return;
    }
    const bool is_signed = type->cpp.starts_with("std::int");
    const unsigned bits = static_cast<unsigned>(8 * type->greatest_size) - is_signed;
    if (bits < 64 && *value >> bits != 0) {
      error(tree.value.name.at, "the value does not fit " + quoted(tree.type.text));
      return;
    }
    constants_[tree.name.text] = *value;
    result_->definitions.emplace_back(Constant{tree.name.text, type->cpp, *value});
  }

  void add(const syntax::Alias& tree) {
    declare(tree.name);
    std::optional<Type> type = value_type(tree.type);
    if (!type)
      return;
    result_->definitions.emplace_back(Alias{tree.name.text, type->cpp});
    types_[tree.name.text] = *type;
  }

  void add(const syntax::Enumeration& tree) {
    declare(tree.name);
    Enumeration enumeration{tree.name.text, {}};
    for (const syntax::Name& enumerator : tree.enumerators) {
      declare(enumerator);
      enumeration.enumerators.push_back(enumerator.text);
    }
    if (enumeration.enumerators.size() > 0x8000)
      error(tree.name.at, "an enumeration has at most 32768 enumerators");
    Type type;
    type.cpp = tree.name.text;
    type.alignment = type.least_size = type.greatest_size = 2;
    types_[tree.name.text] = type;
    result_->definitions.emplace_back(std::move(enumeration));
  }

  // --- structures

  void add(const syntax::Structure& tree) {
    declare(tree.name);
    Structure structure;
    structure.name = tree.name.text;
    std::set<std::string> names;
    for (const syntax::Member& member : tree.fields) {
      check_name(member.declarator.name);
      if (!names.insert(member.declarator.name.text).second)
        error(member.declarator.name.at,
              quoted(member.declarator.name.text) + " is a field already");
      if (structure.conformant)
        error(member.declarator.name.at, "a conformant array must be the last field");
      if (std::optional<Field> field = check_field(member, structure)) {
        lay_out(*field, structure);
        structure.fields.push_back(std::move(*field));
      }
    }
    if (tree.fields.empty())
      error(tree.name.at, "the structure has no fields");
    add_type(std::move(structure));
  }

  void add_type(Structure structure) {
    const Structure& kept = result_->structures.emplace_back(std::move(structure));
    Type type;
    type.kind = Type::Kind::structure;
    type.cpp = kept.name;
    type.alignment = kept.alignment;
    type.least_size = kept.least_size;
    type.greatest_size = kept.greatest_size;
    type.structure = &kept;
    types_[kept.name] = type;
    result_->definitions.emplace_back(&kept);
  }

  std::optional<Field> check_field(const syntax::Member& member, const Structure& structure) {
    const Attributes attributes(member.attributes,
                                {"length_is", "size_is", "string", "ptr", "range"}, "a field",
                                reporter_);
    const syntax::Name& name = member.declarator.name;
    const std::optional<Type> type = value_type(member.type);
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
      return array_field(member, attributes, structure, std::move(field));
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
    const std::optional<std::uint64_t> low = constant(range->arguments[0]);
    const std::optional<std::uint64_t> high = constant(range->arguments[1]);
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
    } else {
      for (const char* attribute : {"length_is", "size_is", "string", "range"}) {
        if (const syntax::Attribute* found = attributes.find(attribute)) {
          error(found->name.at,
                "attribute " + quoted(attribute) + " is not supported on a pointer");
          return std::nullopt;
        }
      }
      field.shape = Field::Shape::pointer;
      return field;
    }
    return std::nullopt;
  }

  std::optional<Field> array_field(const syntax::Member& member, const Attributes& attributes,
                                   const Structure& structure, Field field) {
    const syntax::Declarator& declarator = member.declarator;
    const bool sized = attributes.has("size_is");
    const bool counted = attributes.has("length_is");
    const bool string = attributes.has("string");
    const Location at = declarator.name.at;
    const Lookup fields = [&](const std::string& wanted) -> std::optional<Variable> {
      for (const Field& known : structure.fields) {
        if (known.name == wanted && known.shape == Field::Shape::value)
          return Variable{&known.type, false};
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
    const std::optional<std::uint64_t> bound = constant(*declarator.bound);
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

  std::optional<Field> with_length(const syntax::Expression* tree, const Lookup& lookup,
                                   Field::Shape shape, Field field) {
    std::optional<Expression> length;
    if (tree != nullptr)
      length = resolve(*tree, lookup);
    if (!length)
      return std::nullopt;
    field.shape = shape;
    field.length = std::move(*length);
    return field;
  }

  // Adds a field's alignment and sizes to its structure's (C706 14.3).
  void lay_out(const Field& field, Structure& structure) {
    std::size_t alignment = field.type.alignment;
    std::size_t least = field.type.least_size;
    std::size_t greatest = field.type.greatest_size;
    switch (field.shape) {
      case Field::Shape::value:
        if (field.type.structure != nullptr)
          structure.targets_size += field.type.structure->targets_size;
        break;
      case Field::Shape::text:
      case Field::Shape::string:
        alignment = 4;
        least = 8;
        greatest = 8 + field.bound;
        break;
      case Field::Shape::octets:
        structure.conformant = true;
        greatest = greatest_octets(field, structure);
        least = 0;
        alignment = 4;
        structure.least_size += 4;  // the maximum count, in front
        structure.greatest_size += 4;
        break;
      case Field::Shape::pointer:
        alignment = least = greatest = 4;
        structure.targets_size += round_up(field.type.greatest_size, 8);
        break;
    }
    const std::size_t packed = field.shape == Field::Shape::octets ? 1 : alignment;
    structure.alignment = std::max(structure.alignment, alignment);
    structure.least_size = round_up(structure.least_size, packed) + least;
    structure.greatest_size = round_up(structure.greatest_size, packed) + greatest;
  }

  // A definition must bound its octets, or no reply could be refused for its length.
  std::size_t greatest_octets(const Field& field, const Structure& structure) {
    for (const Field& known : structure.fields) {
      if (known.name == field.length.name && known.range && !field.length.left)
        return known.range->second;
    }
    error(declared_.at(structure.name),
          "the size of " + quoted(field.name) + " must be a field with a range");
    return 0;
  }

  // --- operations

  void add(const syntax::Operation& tree) {
    declare(tree.name);
    const Attributes attributes(tree.attributes, {"idempotent", "nocode"}, "an operation",
                                reporter_);
    Operation operation;
    operation.name = tree.name.text;
    operation.opnum = static_cast<std::uint16_t>(result_->operations.size());
    operation.idempotent = attributes.has("idempotent");
    operation.nocode = attributes.has("nocode");
    if (tree.result.text != "void") {
      operation.result = value_type(tree.result);
      if (operation.result && operation.result->kind != Type::Kind::scalar)
        error(tree.result.at, "an operation returns an integer or nothing");
    }
    std::set<std::string> names;
    for (const syntax::Member& member : tree.parameters) {
      check_name(member.declarator.name);
      if (!names.insert(member.declarator.name.text).second)
        error(member.declarator.name.at,
              quoted(member.declarator.name.text) + " is a parameter already");
      if (std::optional<Parameter> parameter = check_parameter(member, operation))
        operation.parameters.push_back(std::move(*parameter));
      else
        broken_parameter_ = true;
    }
    check_derived_names(tree.name, operation);
    if (!broken_parameter_)
      check_target(tree.name, operation);
    broken_parameter_ = false;
    if (result_->operations.size() > 0xFFFF)
      error(tree.name.at, "an interface has at most 65536 operations");
    result_->operations.push_back(std::move(operation));
  }

  // Generated functions hold the size and count of an array and a received context beside it.
  void check_derived_names(const syntax::Name& name, const Operation& operation) {
    for (const Parameter& owner : operation.parameters) {
      for (const Parameter& other : operation.parameters) {
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

  void check_target(const syntax::Name& name, const Operation& operation) {
    const bool found = std::any_of(operation.parameters.begin(), operation.parameters.end(),
                                   [](const Parameter& p) {
                                     return p.shape == Parameter::Shape::binding ||
                                            (p.shape == Parameter::Shape::context && p.in);
                                   });
    if (!found)
      error(name.at, "the operation needs a handle_t or a context handle as in-parameter");
  }

  std::optional<Parameter> check_parameter(const syntax::Member& member,
                                           const Operation& operation) {
    const Attributes attributes(
        member.attributes,
        {"in", "out", "ref", "ptr", "size_is", "length_is", "context_handle", "comm_status"},
        "a parameter", reporter_);
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
      return binding_parameter(member, operation, std::move(parameter));
    if (attributes.has("context_handle") || member.type.text == "void")
      return context_parameter(member, attributes, std::move(parameter));
    const std::optional<Type> type = value_type(member.type);
    if (!type)
      return std::nullopt;
    parameter.type = *type;
    if (type->structure != nullptr && type->structure->conformant) {
      error(member.type.at, "a structure with a conformant array is no parameter");
      return std::nullopt;
    }
    if (parameter.comm_status && !check_comm_status(member, parameter, operation))
      return std::nullopt;
    if (declarator.array)
      return array_parameter(member, attributes, operation, std::move(parameter));
    for (const char* attribute : {"size_is", "length_is"}) {
      if (const syntax::Attribute* found = attributes.find(attribute)) {
        error(found->name.at, "attribute " + quoted(attribute) + " needs an array");
        return std::nullopt;
      }
    }
    return plain_parameter(member, attributes, std::move(parameter));
  }

  std::optional<Parameter> binding_parameter(const syntax::Member& member,
                                             const Operation& operation, Parameter parameter) {
    const syntax::Declarator& declarator = member.declarator;
    if (!operation.parameters.empty() || parameter.out || declarator.pointers > 0 ||
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
    for (const char* attribute : {"ptr", "size_is", "length_is", "comm_status"}) {
      if (const syntax::Attribute* found = attributes.find(attribute)) {
        error(found->name.at,
              "attribute " + quoted(attribute) + " is not supported on a context handle");
        return std::nullopt;
      }
    }
    parameter.shape = Parameter::Shape::context;
    return parameter;
  }

  bool check_comm_status(const syntax::Member& member, const Parameter& parameter,
                         const Operation& operation) {
    const bool twice = std::any_of(operation.parameters.begin(), operation.parameters.end(),
                                   [](const Parameter& p) { return p.comm_status; });
    if (member.type.text == "error_status_t" && parameter.out && !parameter.in && !twice &&
        member.declarator.pointers == 1 && !member.declarator.array)
      return true;
    error(member.declarator.name.at,
          "comm_status stands on one [out] error_status_t* of an operation");
    return false;
  }

  std::optional<Parameter> array_parameter(const syntax::Member& member,
                                           const Attributes& attributes, const Operation& operation,
                                           Parameter parameter) {
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
      return [&operation, &parameter,
              before_call](const std::string& wanted) -> std::optional<Variable> {
        for (const Parameter& known : operation.parameters) {
          const bool usable =
              known.shape == Parameter::Shape::value || known.shape == Parameter::Shape::reference;
          const bool in_time = before_call ? known.in : (parameter.in ? known.in : true);
          if (known.name == wanted && usable && in_time)
            return Variable{&known.type, known.shape == Parameter::Shape::reference};
        }
        return std::nullopt;
      };
    };
    const syntax::Expression* size_tree = attributes.argument("size_is");
    const syntax::Expression* length_tree = attributes.argument("length_is");
    if (size_tree == nullptr || length_tree == nullptr)
      return std::nullopt;
    std::optional<Expression> size = resolve(*size_tree, lookup(true));
    std::optional<Expression> length = resolve(*length_tree, lookup(false));
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

  Counting reporter_;
  std::unique_ptr<Interface> result_ = std::make_unique<Interface>();
  std::map<std::string, Location> declared_;
  std::map<std::string, Type> types_;
  std::map<std::string, std::uint64_t> constants_;
  bool full_pointers_ = false;
  bool broken_parameter_ = false;
};

}  // namespace

std::unique_ptr<const Interface> check(const syntax::Interface& tree, Reporter& reporter) {
  return Checker(reporter).run(tree);
}

}  // namespace zidl
