// SPDX-License-Identifier: Apache-2.0
// What the parts of the generator share: written text, expressions, parameter lists and the
// marshalling of structures.

#pragma once

#include <string>
#include <vector>

#include "tools/zidl/model.h"

namespace zidl {

// Source text line by line; the indentation follows the braces.
class Source {
 public:
  // An empty line, or one that is indented. A line that ends with an opening brace indents what
  // follows; one that begins with a closing brace ends that.
  void line(const std::string& text = "");
  // "head(" and one parameter a line, then `tail`.
  void call(const std::string& head, const std::vector<std::string>& parameters,
            const std::string& tail);
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
  unsigned depth_ = 0;
};

// How the names in an expression are written.
enum class NameStyle {
  field,      // value.name
  parameter,  // name or *name, as declared
  local       // name, also where the definition has a pointer
};

// The expression in 32 bits, wrapping.
std::string length_text(const Expression& expression, NameStyle style);
// The expression in 64 bits.
std::string size_text(const Expression& expression, NameStyle style);

std::string head_comment(const Interface& interface);

// "constexpr rpc::InterfaceSpec kInterface = ...;" and the table of operations.
void write_specs(Source& source, const Interface& interface);

// encode and decode functions of all structures that parameters of the given direction hold. For
// a client the encoded ones are those of in-parameters, for a server those of out-parameters.
void write_encoders(Source& source, const Interface& interface, bool of_in_parameters);
void write_decoders(Source& source, const Interface& interface, bool of_in_parameters);

// Statements that encode one value or array; `value` is its text, an lvalue.
void write_put(Source& source, const Type& type, const std::string& value);
// Statements that decode one value into an lvalue.
void write_get(Source& source, const Type& type, const std::string& value);
// A loop over the first `count` elements.
void write_put_elements(Source& source, const Type& type, const std::string& array,
                        const std::string& count);
void write_get_elements(Source& source, const Type& type, const std::string& array,
                        const std::string& count);

}  // namespace zidl
