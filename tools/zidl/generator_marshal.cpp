// SPDX-License-Identifier: Apache-2.0
// Structures: one encode or decode function each. Fields at fixed distances are read with one
// check of the bounds.

#include <algorithm>

#include "tools/zidl/generator_parts.h"

namespace zidl {

namespace {

using Structures = std::vector<const Structure*>;

// Adds a structure behind those that it holds.
void collect(const Structure& structure, Structures& found) {
  if (std::find(found.begin(), found.end(), &structure) != found.end())
    return;
  for (const Field& field : structure.fields) {
    if (field.type.structure != nullptr)
      collect(*field.type.structure, found);
  }
  found.push_back(&structure);
}

Structures used(const Interface& interface, bool of_in_parameters) {
  Structures found;
  for (const Operation& operation : interface.operations) {
    for (const Parameter& parameter : operation.parameters) {
      if (!operation.nocode && parameter.type.structure != nullptr &&
          (of_in_parameters ? parameter.in : parameter.out))
        collect(*parameter.type.structure, found);
    }
  }
  return found;
}

// Consecutive fields whose distances do not depend on the data.
struct Run {
  std::size_t alignment = 1;
  std::size_t size = 0;
  std::vector<std::string> statements;
};

// Empty when every value of the type is in the range: compilers warn of what is always true.
std::string range_check(const Field& field) {
  if (!field.range)
    return "";
  const auto [low, high] = *field.range;
  const std::string value = "value." + field.name;
  std::string text;
  if (low != 0)
    text = value + " >= " + std::to_string(low) + "u";
  if (high >> (8 * field.type.greatest_size - 1) != 1 || (high & (high + 1)) != 0)
    text += (text.empty() ? "" : " && ") + value + " <= " + std::to_string(high) + "u";
  return text.empty() ? "" : "ndr::require(" + text + ");";
}

class DecoderWriter {
 public:
  DecoderWriter(Source& source, const Structure& structure)
      : source_(source), structure_(structure) {}

  void write() {
    source_.line();
    source_.line("void decode(ndr::Decoder& in, " + structure_.name + "& value) {");
    run_.alignment = structure_.alignment;
    if (structure_.conformant)
      maximum_ = take("std::uint32_t", 4, 4);
    for (const Field& field : structure_.fields)
      write_field(field);
    flush();
    source_.line("}");
    if (structure_.targets_size != 0)
      write_targets();
  }

 private:
  std::string part() const { return "part" + std::to_string(parts_); }

  // The text that reads the next value of the run; the run is ended when the value's distance
  // would depend on the data.
  std::string take(const std::string& type, std::size_t alignment, std::size_t size) {
    if (alignment > run_.alignment) {
      flush();
      run_.alignment = alignment;
    }
    const std::size_t offset = round_up(run_.size, alignment);
    run_.size = offset + size;
    return part() + ".get<" + type + ">(" + std::to_string(offset) + ")";
  }

  // Writes the run. What follows begins at any alignment.
  void flush() {
    if (run_.size != 0) {
      source_.line("const ndr::Fields " + part() + " = in.fields(" +
                   std::to_string(run_.alignment) + ", " + std::to_string(run_.size) + ");");
      for (const std::string& statement : run_.statements)
        source_.line(statement);
      ++parts_;
    } else if (run_.alignment > 1) {
      source_.line("in.align(" + std::to_string(run_.alignment) + ");");
    }
    run_ = {};
  }

  void write_field(const Field& field) {
    const std::string target = "value." + field.name;
    std::vector<std::string>& statements = run_.statements;
    switch (field.shape) {
      case Field::Shape::value:
        write_value(field, target);
        break;
      case Field::Shape::text: {
        const std::string offset = take("std::uint32_t", 4, 4);
        const std::string count = take("std::uint32_t", 4, 4);
        const std::string length = length_text(field.length, NameStyle::field);
        statements.push_back("in.get_text(" + target + ", " + offset + ", " + count + ", " +
                             length + ");");
        flush();
        break;
      }
      case Field::Shape::string:
        flush();
        source_.line("in.get_string(" + target + ");");
        break;
      case Field::Shape::octets:
        statements.push_back("in.get_octets(" + target + ", " + maximum_ + ", " +
                             length_text(field.length, NameStyle::field) + ");");
        flush();
        break;
      case Field::Shape::pointer: {
        const std::string referent = take("std::uint32_t", 4, 4);
        statements.push_back("in.defer_pointer(" + referent + ");");
        break;
      }
    }
  }

  void write_value(const Field& field, const std::string& target) {
    if (field.type.kind == Type::Kind::structure || field.type.kind == Type::Kind::character) {
      flush();
      write_get(source_, field.type, target);
      return;
    }
    const std::string value = take(field.type.cpp, field.type.alignment, field.type.greatest_size);
    run_.statements.push_back(target + " = " + value + ";");
    if (const std::string check = range_check(field); !check.empty())
      run_.statements.push_back(check);
  }

  void write_targets() {
    source_.line();
    source_.line("void decode_targets(ndr::Decoder& in, " + structure_.name + "& value) {");
    for (const Field& field : structure_.fields) {
      if (field.shape == Field::Shape::pointer)
        source_.line("value." + field.name + " = in.get_deferred<" + field.type.cpp + ">([&](" +
                     field.type.cpp + "& target) { decode(in, target); });");
      else if (field.type.structure != nullptr && field.type.structure->targets_size != 0)
        source_.line("decode_targets(in, value." + field.name + ");");
    }
    source_.line("}");
  }

  Source& source_;
  const Structure& structure_;
  Run run_;
  unsigned parts_ = 1;
  std::string maximum_;
};

void write_encoder(Source& source, const Structure& structure) {
  source.line();
  source.line("void encode(ndr::Encoder& out, const " + structure.name + "& value) {");
  source.line("out.align(" + std::to_string(structure.alignment) + ");");
  if (structure.conformant) {
    const Field& octets = structure.fields.back();
    source.line("ndr::require(value." + octets.name +
                ".size() == " + length_text(octets.length, NameStyle::field) + ");");
    source.line("out.put(" + length_text(octets.length, NameStyle::field) + ");");
  }
  for (const Field& field : structure.fields) {
    const std::string value = "value." + field.name;
    switch (field.shape) {
      case Field::Shape::value:
        if (const std::string check = range_check(field); !check.empty())
          source.line(check);
        write_put(source, field.type, value);
        break;
      case Field::Shape::text:
        source.line("out.put_text(" + value + ", " + length_text(field.length, NameStyle::field) +
                    ");");
        break;
      case Field::Shape::string:
        source.line("out.put_string(" + value + ");");
        break;
      case Field::Shape::octets:
        source.line("out.put_array(" + value + ".data(), " +
                    length_text(field.length, NameStyle::field) + ");");
        break;
      case Field::Shape::pointer:
        source.line("out.defer_referent(" + value + ".get());");
        break;
    }
  }
  source.line("}");
}

void write_encoder_targets(Source& source, const Structure& structure) {
  source.line();
  source.line("void encode_targets(ndr::Encoder& out, const " + structure.name + "& value) {");
  for (const Field& field : structure.fields) {
    if (field.shape == Field::Shape::pointer) {
      source.line("if (out.next_deferred())");
      source.line("  encode(out, *value." + field.name + ");");
    } else if (field.type.structure != nullptr && field.type.structure->targets_size != 0) {
      source.line("encode_targets(out, value." + field.name + ");");
    }
  }
  source.line("}");
}

void write_loop(Source& source, const std::string& count, const std::string& statement) {
  source.line("for (std::uint32_t i = 0; i < " + count + "; ++i)");
  source.line("  " + statement);
}

}  // namespace

void write_encoders(Source& source, const Interface& interface, bool of_in_parameters) {
  for (const Structure* structure : used(interface, of_in_parameters)) {
    write_encoder(source, *structure);
    if (structure->targets_size != 0)
      write_encoder_targets(source, *structure);
  }
}

void write_decoders(Source& source, const Interface& interface, bool of_in_parameters) {
  for (const Structure* structure : used(interface, of_in_parameters))
    DecoderWriter(source, *structure).write();
}

void write_put(Source& source, const Type& type, const std::string& value) {
  source.line(type.structure != nullptr ? "encode(out, " + value + ");"
                                        : "out.put(" + value + ");");
}

void write_get(Source& source, const Type& type, const std::string& value) {
  source.line(type.structure != nullptr ? "decode(in, " + value + ");"
                                        : value + " = in.get<" + type.cpp + ">();");
}

void write_put_elements(Source& source, const Type& type, const std::string& array,
                        const std::string& count) {
  if (type.structure == nullptr) {
    source.line("out.put_array(" + array + ", " + count + ");");
    return;
  }
  write_loop(source, count, "encode(out, " + array + "[i]);");
  if (type.structure->targets_size != 0)
    write_loop(source, count, "encode_targets(out, " + array + "[i]);");
}

void write_get_elements(Source& source, const Type& type, const std::string& array,
                        const std::string& count) {
  if (type.structure == nullptr) {
    source.line("in.get_array(" + array + ", " + count + ");");
    return;
  }
  write_loop(source, count, "decode(in, " + array + "[i]);");
  if (type.structure->targets_size != 0)
    write_loop(source, count, "decode_targets(in, " + array + "[i]);");
}

}  // namespace zidl
