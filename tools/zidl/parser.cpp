// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/parser.h"

#include <algorithm>
#include <array>

namespace zidl {

namespace {

using namespace syntax;

// Unwinds to the definition that holds the error, which has been reported.
struct SyntaxError {};

// Words of the language that begin or qualify something that zidl does not translate.
constexpr std::array<std::string_view, 18> kUnsupported = {
    "union",   "import",        "include", "cpp_quote", "pipe",    "float",
    "double",  "wchar_t",       "switch",  "interface", "library", "importlib",
    "coclass", "dispinterface", "module",  "volatile",  "static",  "signed"};

// Words that make up the names of basic types.
constexpr std::array<std::string_view, 8> kTypeWords = {"unsigned", "long",    "short", "small",
                                                        "hyper",    "boolean", "char",  "byte"};

constexpr unsigned kMostOperators = 32;
constexpr unsigned kMostErrors = 20;

template <std::size_t N>
bool among(const std::array<std::string_view, N>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

class Parser {
 public:
  Parser(const std::vector<Token>& tokens, Reporter& reporter)
      : next_(tokens.data()), reporter_(reporter) {}

  std::optional<Interface> run() {
    Interface result;
    try {
      result.attributes = attributes();
      expect_word("interface");
      result.name = name("the interface's name");
      expect("{");
    } catch (const SyntaxError&) {
      return std::nullopt;
    }
    unsigned errors = 0;
    while (!at("}") && next_->kind != TokenKind::end) {
      try {
        result.definitions.push_back(definition());
      } catch (const SyntaxError&) {
        if (++errors == kMostErrors)
          return result;
        skip_definition();
      }
    }
    try {
      expect("}");
      if (at(";"))
        ++next_;
      if (next_->kind != TokenKind::end)
        fail("one interface in a file; unexpected " + quoted());
    } catch (const SyntaxError&) {
    }
    return result;
  }

 private:
  bool at(std::string_view punctuation) const {
    return next_->kind == TokenKind::punctuation && next_->text == punctuation;
  }
  bool at_word(std::string_view word) const {
    return next_->kind == TokenKind::identifier && next_->text == word;
  }
  std::string quoted() const {
    return next_->kind == TokenKind::end ? "end of file" : "'" + std::string(next_->text) + "'";
  }
  [[noreturn]] void fail(const std::string& message) {
    reporter_.error(next_->at, message);
    throw SyntaxError();
  }
  void expect(std::string_view punctuation) {
    if (!at(punctuation))
      fail("expected '" + std::string(punctuation) + "', found " + quoted());
    ++next_;
  }
  void expect_word(std::string_view word) {
    if (!at_word(word))
      fail("expected '" + std::string(word) + "', found " + quoted());
    ++next_;
  }
  Name name(const char* what) {
    if (next_->kind != TokenKind::identifier)
      fail(std::string("expected ") + what + ", found " + quoted());
    if (among(kUnsupported, next_->text))
      fail(quoted() + " is not supported");
    Name result{std::string(next_->text), next_->at};
    ++next_;
    return result;
  }
  std::uint64_t number(const char* what) {
    if (next_->kind != TokenKind::number)
      fail(std::string("expected ") + what + ", found " + quoted());
    return next_++->value;
  }

  // To behind the semicolon that ends the broken definition, or to the interface's end.
  void skip_definition() {
    unsigned depth = 0;
    for (; next_->kind != TokenKind::end; ++next_) {
      if (at("{")) {
        ++depth;
      } else if (at("}")) {
        if (depth == 0 && !(next_[1].kind == TokenKind::identifier))
          return;
        depth -= depth > 0;
      } else if (at(";") && depth == 0) {
        ++next_;
        if (!inside_braces())
          return;
      }
    }
  }
  // After a broken field, the rest of its structure is skipped as well: a line that ends with
  // "} name ;" closes a definition that was opened before the error.
  bool inside_braces() const {
    unsigned depth = 0;
    for (const Token* token = next_; token->kind != TokenKind::end; ++token) {
      if (token->text == "{")
        ++depth;
      else if (token->text == "}" && depth > 0)
        --depth;
      else if (token->text == "}")
        return token[1].kind == TokenKind::identifier;
    }
    return false;
  }

  std::vector<Attribute> attributes() {
    std::vector<Attribute> result;
    if (!at("["))
      return result;
    do {
      ++next_;
      result.push_back(attribute());
    } while (at(","));
    expect("]");
    return result;
  }

  Attribute attribute() {
    Attribute result;
    result.name = name("an attribute");
    if (!at("(") && result.name.text != "uuid" && result.name.text != "version")
      return result;
    expect("(");
    if (result.name.text == "uuid") {
      if (next_->kind != TokenKind::uuid)
        fail("expected a UUID as 8-4-4-4-12 hexadecimal digits, found " + quoted());
      result.uuid = next_++->text;
    } else if (result.name.text == "version") {
      result.major = number("a version number");
      if (at(".")) {
        ++next_;
        result.minor = number("a minor version number");
      }
    } else {
      result.arguments.push_back(expression());
      while (at(",")) {
        ++next_;
        result.arguments.push_back(expression());
      }
    }
    expect(")");
    return result;
  }

  // Operators and parentheses are counted, which bounds the depth of the tree.
  Expression expression() {
    operators_ = 0;
    return sum();
  }
  Expression sum() {
    Expression result = product();
    while (at("+") || at("-")) {
      const auto kind = at("+") ? Expression::Kind::add : Expression::Kind::subtract;
      const Location place = next_++->at;
      Expression right = product();
      result = combine(kind, place, std::move(result), std::move(right));
    }
    return result;
  }
  Expression product() {
    Expression result = operand();
    while (at("*")) {
      const Location place = next_++->at;
      Expression right = operand();
      result = combine(Expression::Kind::multiply, place, std::move(result), std::move(right));
    }
    return result;
  }
  Expression operand() {
    Expression result;
    result.name.at = next_->at;
    if (at("(")) {
      count_operator();
      ++next_;
      result = sum();
      expect(")");
    } else if (at("*")) {
      ++next_;
      result.kind = Expression::Kind::dereference;
      result.name = name("a name");
    } else if (next_->kind == TokenKind::number) {
      result.value = next_++->value;
    } else {
      result.kind = Expression::Kind::name;
      result.name = name("a number or a name");
    }
    return result;
  }
  void count_operator() {
    if (++operators_ > kMostOperators)
      fail("expression is too long");
  }
  Expression combine(Expression::Kind kind, Location place, Expression left, Expression right) {
    count_operator();
    Expression result;
    result.kind = kind;
    result.name.at = place;
    result.left = std::make_unique<Expression>(std::move(left));
    result.right = std::make_unique<Expression>(std::move(right));
    return result;
  }

  // A name of a type: one identifier, or the words of a basic type.
  Name type() {
    if (at_word("struct") || at_word("enum"))
      fail(quoted() + " is supported in a typedef only");
    Name result = name("a type");
    if (!among(kTypeWords, result.text))
      return result;
    while (next_->kind == TokenKind::identifier && among(kTypeWords, next_->text)) {
      result.text += ' ';
      result.text += next_++->text;
    }
    return result;
  }

  Declarator declarator() {
    Declarator result;
    for (; at("*"); ++next_)
      ++result.pointers;
    result.name = name("a name");
    if (at("[")) {
      ++next_;
      result.array = true;
      if (!at("]"))
        result.bound = expression();
      expect("]");
      if (at("["))
        fail("arrays of more than one dimension are not supported");
    }
    return result;
  }

  Member member() {
    Member result;
    result.attributes = attributes();
    result.type = type();
    result.declarator = declarator();
    return result;
  }

  Definition definition() {
    if (at_word("const"))
      return constant();
    if (at_word("typedef"))
      return type_definition();
    return operation();
  }

  Constant constant() {
    ++next_;
    Constant result;
    result.type = type();
    result.name = name("the constant's name");
    expect("=");
    result.value = expression();
    expect(";");
    return result;
  }

  Definition type_definition() {
    ++next_;
    if (at("["))
      fail("attributes of a typedef are not supported");
    Definition result;
    if (at_word("struct"))
      result = structure();
    else if (at_word("enum"))
      result = enumeration();
    else
      result = alias();
    expect(";");
    return result;
  }

  Alias alias() {
    Alias result;
    result.type = type();
    if (at("*"))
      fail("a typedef of a pointer is not supported");
    result.name = name("the type's name");
    if (at("["))
      fail("a typedef of an array is not supported");
    return result;
  }

  Enumeration enumeration() {
    ++next_;
    Enumeration result;
    expect_open_brace("enum");
    do {
      ++next_;
      result.enumerators.push_back(name("an enumerator"));
      if (at("="))
        fail("enumerators with a value are not supported");
    } while (at(","));
    expect("}");
    result.name = name("the type's name");
    return result;
  }

  Structure structure() {
    ++next_;
    Structure result;
    expect_open_brace("struct");
    ++next_;
    while (!at("}")) {
      result.fields.push_back(member());
      if (at(","))
        fail("one field in a declaration");
      expect(";");
    }
    ++next_;
    result.name = name("the type's name");
    return result;
  }

  void expect_open_brace(const char* what) {
    if (next_->kind == TokenKind::identifier)
      fail(std::string("a ") + what + " tag is not supported");
    if (!at("{"))
      fail("expected '{', found " + quoted());
  }

  Operation operation() {
    Operation result;
    result.attributes = attributes();
    result.result = type();
    if (at("*"))
      fail("an operation that returns a pointer is not supported");
    result.name = name("the operation's name");
    expect("(");
    if (at(")") || (at_word("void") && next_[1].text == ")")) {
      next_ += at(")") ? 0 : 1;
    } else {
      result.parameters.push_back(member());
      while (at(",")) {
        ++next_;
        result.parameters.push_back(member());
      }
    }
    expect(")");
    expect(";");
    return result;
  }

  const Token* next_;
  Reporter& reporter_;
  unsigned operators_ = 0;
};

}  // namespace

std::optional<syntax::Interface> parse(const std::vector<Token>& tokens, Reporter& reporter) {
  return Parser(tokens, reporter).run();
}

}  // namespace zidl
