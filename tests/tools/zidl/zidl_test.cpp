// SPDX-License-Identifier: Apache-2.0
// zidl on definitions that it must understand and on those that it must refuse.

#include <gtest/gtest.h>

#include <span>
#include <sstream>

#include "tools/zidl/generator.h"
#include "tools/zidl/lexer.h"
#include "tools/zidl/model.h"
#include "tools/zidl/parser.h"

namespace zidl {
namespace {

struct Compiled {
  std::unique_ptr<const Interface> model;
  std::vector<std::string> errors;  // "line:column: message"
};

class Collector : public Reporter {
 public:
  explicit Collector(std::vector<std::string>& errors) : errors_(errors) {}
  void error(Location at, const std::string& message) override {
    errors_.push_back(std::to_string(at.line) + ":" + std::to_string(at.column) + ": " + message);
  }

 private:
  std::vector<std::string>& errors_;
};

Compiled compile(const std::string& source) {
  Compiled result;
  Collector reporter(result.errors);
  const auto tree = parse(tokenize(source, reporter), reporter);
  if (tree)
    result.model = check(*tree, reporter);
  if (!result.errors.empty())
    result.model = nullptr;
  return result;
}

constexpr char kHead[] =
    "[uuid(01234567-89ab-cdef-0123-456789abcdef), version(2.1)] interface t {\n";
constexpr char kPing[] = "void ping([in] handle_t h);\n";

// The definitions, from line 2 on, in an interface that has nothing else but an operation.
Compiled compile_body(const std::string& body) {
  return compile(kHead + body + "\n" + kPing + "}");
}

TEST(ZidlModel, ReadsTheHeader) {
  const Compiled compiled = compile_body("");
  ASSERT_NE(compiled.model, nullptr);
  EXPECT_EQ(compiled.model->name, "t");
  EXPECT_EQ(compiled.model->uuid, "01234567-89ab-cdef-0123-456789abcdef");
  EXPECT_EQ(compiled.model->major, 2);
  EXPECT_EQ(compiled.model->minor, 1);
}

TEST(ZidlModel, LaysStructuresOutAsTheyTravel) {
  const Compiled compiled = compile_body(
      "const unsigned long size = 4 + 2 * 3;\n"
      "typedef struct { short a; long b; } fixed;\n"
      "typedef struct { char c; unsigned hyper h; } wide;\n"
      "typedef struct { unsigned short n; [length_is(n + 1)] char text[size]; } varying;\n"
      "typedef struct { varying v; fixed f; } nested;\n"
      "typedef struct { [range(0, 100)] unsigned long n; [size_is(n)] byte data[]; } conformant;\n"
      "typedef struct { [ptr] conformant* p; [string] char s[3]; } pointing;\n");
  ASSERT_EQ(compiled.errors, std::vector<std::string>{});
  const struct {
    const char* name;
    std::size_t alignment, least, greatest, targets;
  } cases[] = {
      {"fixed", 4, 8, 8, 0},
      {"wide", 8, 16, 16, 0},
      {"varying", 4, 4 + 8, 4 + 8 + 10, 0},
      {"nested", 4, 12 + 8, 24 + 8, 0},
      {"conformant", 4, 8, 108, 0},
      {"pointing", 4, 4 + 8, 4 + 8 + 3, 112},
  };
  ASSERT_EQ(compiled.model->structures.size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const Structure& structure = compiled.model->structures[i];
    EXPECT_EQ(structure.name, cases[i].name);
    EXPECT_EQ(structure.alignment, cases[i].alignment) << structure.name;
    EXPECT_EQ(structure.least_size, cases[i].least) << structure.name;
    EXPECT_EQ(structure.greatest_size, cases[i].greatest) << structure.name;
    EXPECT_EQ(structure.targets_size, cases[i].targets) << structure.name;
  }
}

TEST(ZidlModel, NumbersOperationsInOrder) {
  const Compiled compiled = compile_body(
      "[idempotent] void a([in] handle_t h);\n"
      "[nocode] void b([in] handle_t h);\n"
      "unsigned long c([in] handle_t h);\n");
  ASSERT_NE(compiled.model, nullptr);
  ASSERT_EQ(compiled.model->operations.size(), 4u);
  EXPECT_TRUE(compiled.model->operations[0].idempotent);
  EXPECT_TRUE(compiled.model->operations[1].nocode);
  EXPECT_EQ(compiled.model->operations[2].result->cpp, "std::uint32_t");
  EXPECT_EQ(compiled.model->operations[3].opnum, 3);
}

TEST(ZidlParser, TakesCommentsAndFreeLayout) {
  const Compiled compiled = compile_body(
      "/* one\n   two */ typedef struct{long a;}s; // three\n"
      "void op(\n[in]handle_t h,[in]s*p,[in]unsigned   long\n n);");
  EXPECT_EQ(compiled.errors, std::vector<std::string>{});
}

struct Refused {
  const char* source;
  const char* error;
};

void expect_refused(std::span<const Refused> cases, const std::string& before,
                    const std::string& behind) {
  for (const Refused& c : cases) {
    const Compiled compiled = compile_body(before + c.source + behind);
    ASSERT_FALSE(compiled.errors.empty()) << c.source;
    EXPECT_EQ(compiled.errors.front(), c.error) << c.source;
    EXPECT_EQ(compiled.model, nullptr);
  }
}

// One construct each; what stands in the table begins in line 2.
TEST(ZidlRefuses, WhatItDoesNotTranslate) {
  const Refused cases[] = {
      // characters
      {"#include <x>", "2:1: preprocessor directives are not supported"},
      {"const long a = \"x\";", "2:16: string literals are not supported"},
      {"const long a = 1x;", "2:16: '1x' is not a number"},
      {"const long a = 99999999999999999999;", "2:16: '99999999999999999999' is not a number"},
      {"  @", "2:3: unexpected character '@'"},
      {"\x01", "2:1: unexpected character 0x01"},
      // grammar
      {"typedef union { long a; } u;", "2:9: 'union' is not supported"},
      {"import x;", "2:1: 'import' is not supported"},
      {"typedef struct tag { long a; } s;", "2:16: a struct tag is not supported"},
      {"typedef [ptr] long* p;", "2:9: attributes of a typedef are not supported"},
      {"typedef long* p;", "2:13: a typedef of a pointer is not supported"},
      {"typedef long a[4];", "2:15: a typedef of an array is not supported"},
      {"typedef enum { a = 1 } e;", "2:18: enumerators with a value are not supported"},
      {"void* f([in] handle_t h);", "2:5: an operation that returns a pointer is not supported"},
      {"const long a = 1", "3:1: expected ';', found 'void'"},
      {"void f([in] struct s* p);", "2:13: 'struct' is supported in a typedef only"},
      // names
      {"typedef long x; typedef short x;", "2:31: 'x' was declared before, in line 2"},
      {"typedef nothing x;", "2:9: unknown type 'nothing'"},
      {"typedef unsigned x;", "2:9: 'unsigned' is not a type"},
      {"typedef long long x;", "2:9: 'long long' is not a type"},
      {"const long kOperations = 1;",
       "2:12: 'kOperations' is a name that generated code keeps for itself"},
      {"const long part7 = 1;", "2:12: 'part7' is a name that generated code keeps for itself"},
      {"typedef long t_Server;", "2:14: 't_Server' is a name that generated code keeps for itself"},
      {"typedef enum { NULL } e;",
       "2:16: 'NULL' may be a type or macro of the C library and cannot be a name"},
      {"typedef long size_t;",
       "2:14: 'size_t' may be a type or macro of the C library and cannot be a name"},
      {"typedef long reinterpret_cast;",
       "2:14: 'reinterpret_cast' is a word of C++ and cannot be a name"},
      {"typedef long s; void f([in] handle_t h, [in] s s);",
       "2:48: 's' was declared before, in line 2"},
      {"void t_delete([in] handle_t h);",
       "2:6: 'delete' cannot be the operation's name in the skeleton"},
      {"void t_1([in] handle_t h);", "2:6: '1' cannot be the operation's name in the skeleton"},
      {"typedef long s; void t_s([in] handle_t h);",
       "2:22: 's' cannot be the operation's name in the skeleton"},
      {"void t_ping([in] handle_t h);",
       "2:6: 'ping' cannot be the operation's name in the skeleton"},
      // constants
      {"const unsigned short a = 65536;", "2:26: the value does not fit 'unsigned short'"},
      {"const short a = 32768;", "2:17: the value does not fit 'short'"},
      {"const boolean a = 1;", "2:7: a constant is of an integer type"},
      {"const long a = b;", "2:16: unknown name 'b'"},
      {"const long a = 1 - 2;", "2:18: the value of the expression is out of range"},
      // fields
      {"typedef struct { unsigned long n; [size_is(n)] byte a[]; } s;",
       "2:60: the size of 'a' must be a field with a range"},
      {"typedef struct { long a; } t1; typedef struct { t1* p; } s;",
       "2:53: a pointer inside a structure needs the attribute ptr"},
      {"typedef struct { } s;", "2:20: the structure has no fields"},
      // operations
      {"[broadcast] void f([in] handle_t h);",
       "2:2: attribute 'broadcast' is not supported on an operation"},
      {"void f([in] long a);",
       "2:6: the operation needs a handle_t or a context handle as in-parameter"},
      {"void f([in] long a, [in] handle_t h);",
       "2:35: a handle_t is the first parameter and in alone"},
      {"void f([in] handle_t h, [in] unsigned long a_size, [in, size_is(a_size), "
       "length_is(a_size)] long a[]);",
       "2:6: 'a_size' and 'a' cannot be parameters of one operation"},
      {"boolean f([in] handle_t h, [in, size_is] unsigned long n);",
       "2:33: attribute 'size_is' takes 1 argument"},
  };
  expect_refused(cases, "", "");
}

// In line 3, as the next.
TEST(ZidlRefuses, FieldsThatItDoesNotTranslate) {
  const Refused cases[] = {
      {"long a, b;", "3:7: one field in a declaration"},
      {"float a;", "3:1: 'float' is not supported"},
      {"long a[2][3];", "3:10: arrays of more than one dimension are not supported"},
      {"long class;", "3:6: 'class' is a word of C++ and cannot be a name"},
      {"long a; short a;", "3:15: 'a' is a field already"},
      {"long a[4];", "3:6: a fixed array must be of char and have either length_is or string"},
      {"[string] long a[4];",
       "3:15: a fixed array must be of char and have either length_is or string"},
      {"[string] char a[0];", "3:17: an array has 1 to 65536 elements"},
      {"[length_is(n)] char a[4]; unsigned long n;", "3:12: unknown name 'n'"},
      {"long n; [length_is(n)] char a[4];",
       "3:20: 'n' must be an unsigned integer of at most 32 bits"},
      {"unsigned long n; [length_is(*n)] char a[4];", "3:30: 'n' is not a pointer"},
      {"[range(0, 9)] unsigned long n; [size_is(n)] byte a[]; long b;",
       "3:60: a conformant array must be the last field"},
      {"[range(5, 4)] unsigned long n;", "3:2: the range is empty or does not fit the type"},
      {"[ptr] long* p;", "3:13: a pointer inside a structure must point to a structure"},
      {"[unique] long* p;", "3:2: attribute 'unique' is not supported on a field"},
      {"[string, string] char a[4];", "3:10: attribute 'string' given twice"},
  };
  expect_refused(cases, "typedef struct {\n", "\n} s;");
}

TEST(ZidlRefuses, ParametersThatItDoesNotTranslate) {
  const Refused cases[] = {
      {"[in] long reply", "3:11: 'reply' is a name that generated code keeps for itself"},
      {"long a", "3:6: a parameter needs in or out"},
      {"[out] long a", "3:12: out-parameters, structures, ref and ptr need a pointer: write *a"},
      {"[in] long** a", "3:13: a pointer to a pointer is not supported"},
      {"[out, ptr] long* a", "3:18: a full pointer as out-parameter is not supported"},
      {"[in, out, context_handle] void* c",
       "3:33: a context handle is written [out, context_handle] void** c"},
      {"[out, comm_status] long* s",
       "3:26: comm_status stands on one [out] error_status_t* of an operation"},
      {"[out, size_is(4)] long a[]",
       "3:24: an array parameter is in or out, conformant, and has size_is and length_is"},
      {"[out] unsigned long* n, [out, size_is(4), length_is(n)] long a[]",
       "3:53: 'n' is a pointer: write *n"},
      // A size must be known before the call.
      {"[out] unsigned long* n, [out, size_is(*n), length_is(*n)] long a[]",
       "3:40: unknown name 'n'"},
  };
  expect_refused(cases, "void f([in] handle_t h,\n", ");");
}

TEST(ZidlRefuses, BrokenInterfaces) {
  const struct {
    std::string source;
    const char* error;
  } cases[] = {
      {"", "1:1: expected 'interface', found end of file"},
      {"interface t { void f([in] handle_t h); }", "1:11: the interface has no uuid"},
      {"[uuid(0123)] interface t {}",
       "1:7: expected a UUID as 8-4-4-4-12 hexadecimal digits, found '0123'"},
      {"[uuid(01234567-89ab-cdef-0123-456789abcdef)] interface t {}",
       "1:56: the interface has no operations"},
      {"[uuid(01234567-89ab-cdef-0123-456789abcdef), version(70000)] interface t {" +
           std::string(kPing) + "}",
       "1:46: a version number is at most 65535"},
      {"[uuid(01234567-89ab-cdef-0123-456789abcdef), endpoint(1)] interface t {" +
           std::string(kPing) + "}",
       "1:46: attribute 'endpoint' is not supported on an interface"},
      {kHead + std::string(kPing), "3:1: expected '}', found end of file"},
      {kHead + std::string(kPing) + "} interface u {}",
       "3:3: one interface in a file; unexpected 'interface'"},
      {kHead + std::string(kPing) + "/*", "3:1: comment without end"},
  };
  for (const auto& c : cases) {
    const Compiled compiled = compile(c.source);
    ASSERT_FALSE(compiled.errors.empty()) << c.source;
    EXPECT_EQ(compiled.errors.front(), c.error) << c.source;
  }
}

TEST(ZidlRefuses, ExpressionsWithoutBound) {
  std::string sum = "1";
  for (int i = 0; i < 100000; ++i)
    sum += "+1";
  EXPECT_EQ(compile_body("const long a = " + sum + ";").errors.at(0).substr(0, 2), "2:");
  const std::string nested(100000, '(');
  EXPECT_EQ(compile_body("const long a = " + nested + ";").errors.at(0),
            "2:48: expression is too long");
}

TEST(ZidlReporter, FindsSeveralErrorsInOneRunAndGoesOnBehindThem) {
  const Compiled compiled = compile_body(
      "typedef struct { long a; union b; short c; } s;\n"
      "typedef float x;\n"
      "void f([in] long);\n"
      "typedef nothing y;\n");
  const std::vector<std::string> expected = {
      "2:26: 'union' is not supported", "3:9: 'float' is not supported",
      "4:17: expected a name, found ')'", "5:9: unknown type 'nothing'"};
  EXPECT_EQ(compiled.errors, expected);
}

TEST(ZidlReporter, ShowsLinesWithCaretsInTheOrderOfTheSource) {
  const std::string source = "one\n\ttwo three\n";
  std::ostringstream stream;
  SourceReporter reporter("x.idl", source);
  reporter.error({2, 6}, "wrong");
  reporter.error({1, 2}, "earlier");
  EXPECT_EQ(reporter.print(stream), 2u);
  EXPECT_EQ(stream.str(),
            "x.idl:1:2: error: earlier\none\n ^\n"
            "x.idl:2:6: error: wrong\n\ttwo three\n\t    ^\n");
}

TEST(ZidlReporter, ShowsOfAFileWithoutEndWhatCanBeRead) {
  const std::string source(5000, '$');
  std::ostringstream stream;
  SourceReporter reporter("x.idl", source);
  for (unsigned column = 5000; column > 0; --column)
    reporter.error({1, column}, "wrong");
  EXPECT_EQ(reporter.print(stream), 5000u);
  const std::string text = stream.str();
  EXPECT_LT(text.size(), 100 * 350u);
  EXPECT_NE(text.find('\n' + std::string(10, ' ') + "^\n"), std::string::npos);
  EXPECT_TRUE(text.ends_with("^\nx.idl: 4900 further errors are not shown\n"));
}

TEST(ZidlGenerator, WritesPrefixesOnClientNamesOnly) {
  const Compiled compiled = compile_body(
      "typedef struct { long a; } s;\nvoid t_pong([in] handle_t h);\n"
      "[nocode] void t_none([in] handle_t h);");
  ASSERT_NE(compiled.model, nullptr);
  const std::string header = generate_header(*compiled.model, {"p_"});
  EXPECT_NE(header.find("extern const RPC_IF_HANDLE p_t_v2_1_c_ifspec;"), std::string::npos);
  EXPECT_NE(header.find("void p_ping(\n    handle_t h);"), std::string::npos);
  EXPECT_NE(header.find("struct s {\n  std::int32_t a;\n};"), std::string::npos);
  const std::string server = generate_server_header(*compiled.model);
  EXPECT_NE(server.find("virtual void ping("), std::string::npos);
  EXPECT_NE(server.find("virtual void pong("), std::string::npos);
  EXPECT_EQ(server.find("none("), std::string::npos);
  EXPECT_EQ(header.find("none("), std::string::npos);
}

// A field that needs a greater alignment than its run began with begins a new run.
TEST(ZidlGenerator, EndsARunWhereDistancesDependOnTheData) {
  const Compiled compiled = compile_body(
      "typedef struct { unsigned short n; [length_is(n + 1)] char text[8]; short a; long b; } s;\n"
      "void f([in] handle_t h, [out] s* p);");
  ASSERT_NE(compiled.model, nullptr);
  const std::string client = generate_client(*compiled.model, {});
  EXPECT_NE(client.find("part1 = in.fields(4, 12);"), std::string::npos);
  EXPECT_NE(client.find("part2 = in.fields(2, 2);"), std::string::npos);
  EXPECT_NE(client.find("part3 = in.fields(4, 4);"), std::string::npos);
}

}  // namespace
}  // namespace zidl
