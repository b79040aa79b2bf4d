// SPDX-License-Identifier: Apache-2.0
// name_server.h and name_server.cpp: the skeleton class and its dispatch.

#include <algorithm>

#include "tools/zidl/generator.h"
#include "tools/zidl/generator_parts.h"

namespace zidl {

namespace {

using Shape = Parameter::Shape;

std::string class_name(const Interface& interface) {
  return interface.name + "_Server";
}

std::string parameter_text(const Parameter& p) {
  if (p.shape == Shape::context)
    return (p.out ? "rpc::WireContext* " : "const rpc::WireContext& ") + p.name;
  if (p.shape == Shape::value)
    return p.type.cpp + " " + p.name;
  if (p.shape == Shape::array && p.out)
    return "rpc::server::Results<" + p.type.cpp + ">& " + p.name;
  return (p.out ? "" : "const ") + p.type.cpp + "* " + p.name;
}

void write_method(Source& source, const Operation& operation) {
  std::vector<std::string> parameters = {"const rpc::server::CallInfo& call"};
  for (const Parameter& p : operation.parameters) {
    if (p.shape != Shape::binding)
      parameters.push_back(parameter_text(p));
  }
  const std::string result = operation.result ? operation.result->cpp : "void";
  source.call("virtual " + result + " " + operation.method, parameters, " = 0;");
}

class HandlerWriter {
 public:
  HandlerWriter(Source& source, const Operation& operation) : source_(source), op_(operation) {}

  void write(const std::string& server) {
    const bool reads =
        std::any_of(op_.parameters.begin(), op_.parameters.end(),
                    [](const Parameter& p) { return p.in && p.shape != Shape::binding; });
    const bool writes = op_.result || std::any_of(op_.parameters.begin(), op_.parameters.end(),
                                                  [](const Parameter& p) { return p.out; });
    source_.line();
    source_.call("void serve_" + op_.name,
                 {server + "& server", "const rpc::server::CallInfo& call",
                  std::string("ndr::Decoder&") + (reads ? " in" : ""),
                  std::string("ndr::Encoder&") + (writes ? " out" : ""), "bool& entered"},
                 " {");
    for (const Parameter& p : op_.parameters) {
      if (p.in)
        write_in(p);
    }
    for (const Parameter& p : op_.parameters) {
      if (!p.in)
        write_room(p);
    }
    write_record();
    write_call();
    write_recorded_status();
    for (const Parameter& p : op_.parameters) {
      if (p.out)
        write_out(p);
    }
    if (op_.result)
      source_.line("out.put(returned);");
    source_.line("}");
  }

 private:
  void write_in(const Parameter& p) {
    switch (p.shape) {
      case Shape::binding:
        break;
      case Shape::value:
      case Shape::reference:
        if (p.type.structure == nullptr) {
          source_.line((p.out ? "auto " : "const auto ") + p.name + " = in.get<" + p.type.cpp +
                       ">();");
        } else {
          source_.line(p.type.cpp + " " + p.name + "{};");
          write_get(source_, p.type, p.name);
        }
        break;
      case Shape::pointer:
        source_.line("const std::shared_ptr<" + p.type.cpp + "> " + p.name + " =");
        source_.line("    in.get_pointer<" + p.type.cpp + ">([&](" + p.type.cpp + "& value) {");
        write_get(source_, p.type, "value");
        source_.line("});");
        break;
      case Shape::array:
        source_.line("const std::uint32_t " + p.name + "_count = in.get_exact_conformant_varying(");
        source_.line("    " + size_text(p.size, NameStyle::local) + ", " +
                     length_text(p.length, NameStyle::local) + ", " +
                     std::to_string(p.type.least_size) + ");");
        source_.line("std::vector<" + p.type.cpp + "> " + p.name + "(" + p.name + "_count);");
        write_get_elements(source_, p.type,
                           p.type.structure != nullptr ? p.name : p.name + ".data()",
                           p.name + "_count");
        break;
      case Shape::context:
        source_.line(std::string(p.out ? "" : "const ") + "auto " + p.name +
                     " = in.get<rpc::WireContext>();");
        if (!p.out)
          source_.line("rpc::server::require_context(" + p.name + ");");
        break;
    }
  }

  void write_room(const Parameter& p) {
    if (p.shape == Shape::context) {
      source_.line("rpc::WireContext " + p.name + ";");
    } else if (p.shape == Shape::array) {
      source_.line("const std::uint64_t " + p.name +
                   "_size = " + size_text(p.size, NameStyle::local) + ";");
      source_.line("rpc::server::Results<" + p.type.cpp + "> " + p.name + "(" + p.name + "_size);");
    } else {
      source_.line(p.type.cpp + " " + p.name + "{};");
    }
  }

  std::string argument(const Parameter& p) const {
    switch (p.shape) {
      case Shape::value:
      case Shape::binding:
        return p.name;
      case Shape::array:
        return p.out ? p.name : p.name + ".data()";
      case Shape::context:
        return (p.out ? "&" : "") + p.name;
      case Shape::reference:
        return "&" + p.name;
      case Shape::pointer:
        return p.name + ".get()";
    }
    return p.name;
  }

  void write_call() {
    std::string arguments = "call";
    for (const Parameter& p : op_.parameters) {
      if (p.shape != Shape::binding)
        arguments += ", " + argument(p);
    }
    source_.line("entered = true;");
    for (const Parameter& p : op_.parameters) {
      if (p.comm_status)
        source_.line("if (!server.refuse(call, &" + p.name + "))");
    }
    source_.line((op_.result ? "const " + op_.result->cpp + " returned = " : std::string()) +
                 "server." + op_.method + "(" + arguments + ");");
  }

  // What a log can tell of the in-parameters: numbers, contexts, and how long arrays are.
  void write_record() {
    std::vector<std::string> lines;
    const auto note = [&](const Parameter& p, const std::string& value) {
      lines.push_back("call.record->argument(\"" + p.name + "\", " + value + ");");
    };
    for (const Parameter& p : op_.parameters) {
      if (!p.in)
        continue;
      const bool number = p.type.structure == nullptr && p.type.cpp != "uuid_t";
      if ((p.shape == Shape::value || p.shape == Shape::reference) && number)
        note(p, p.name);
      else if (p.shape == Shape::context)
        note(p, p.name + ".id");
      else if (p.shape == Shape::array)
        note(p, p.name + "_count");
    }
    if (lines.empty())
      return;
    source_.line("if (call.record != nullptr) {");
    for (const std::string& line : lines)
      source_.line(line);
    source_.line("}");
  }

  void write_recorded_status() {
    for (const Parameter& p : op_.parameters) {
      if (!p.comm_status)
        continue;
      source_.line("if (call.record != nullptr)");
      source_.line("  call.record->status = " + p.name + ";");
    }
  }

  void write_out(const Parameter& p) {
    if (p.shape == Shape::array) {
      const std::string count = p.name + "_count";
      source_.line("const std::uint32_t " + count + " = " +
                   length_text(p.length, NameStyle::local) + ";");
      source_.line("out.put_conformant_varying(" + p.name + "_size, " + count + ");");
      write_put_elements(
          source_, p.type,
          p.type.structure != nullptr ? p.name : p.name + ".first(" + count + ").data()", count);
    } else if (p.shape == Shape::context) {
      source_.line("out.put(" + p.name + ");");
    } else {
      write_put(source_, p.type, p.name);
    }
  }

  Source& source_;
  const Operation& op_;
};

void write_handlers(Source& source, const Interface& interface) {
  source.line();
  source.line("using Handler = void (*)(" + class_name(interface) +
              "&, const rpc::server::CallInfo&, ndr::Decoder&, ndr::Encoder&, bool&);");
  source.line();
  source.line("// By operation number; null for one that is not served.");
  source.line("constexpr Handler kHandlers[] = {");
  for (const Operation& operation : interface.operations)
    source.line(operation.nocode ? "nullptr," : "serve_" + operation.name + ",");
  source.line("};");
}

void write_members(Source& source, const Interface& interface) {
  const std::string name = class_name(interface);
  source.line();
  source.line("const rpc::InterfaceSpec& " + name + "::spec() const {");
  source.line("return kInterface;");
  source.line("}");
  source.line();
  source.line("const rpc::OperationSpec* " + name + "::operation(std::uint16_t opnum) const {");
  source.line("const bool served = opnum < std::size(kHandlers) && kHandlers[opnum] != nullptr;");
  source.line("return served ? &kOperations[opnum] : nullptr;");
  source.line("}");
  source.line();
  source.call("rpc::server::Outcome " + name + "::dispatch",
              {"const rpc::server::CallInfo& call", "std::uint16_t opnum",
               "std::span<const std::byte> request", "rpc::DataRepresentation representation",
               "bool reply_little_endian"},
              " {");
  source.line("if (operation(opnum) == nullptr)");
  source.line("  return rpc::server::Outcome::reject(rpc::nca::kOperationRange);");
  source.line("return rpc::server::answer(");
  source.line("    call, request, representation, reply_little_endian,");
  source.line("    [&](ndr::Decoder& in, ndr::Encoder& out, bool& entered) {");
  source.line("kHandlers[opnum](*this, call, in, out, entered);");
  source.line("});");
  source.line("}");
}

}  // namespace

std::string generate_server_header(const Interface& interface) {
  Source source;
  source.line(head_comment(interface));
  source.line();
  source.line("#pragma once");
  source.line();
  source.line("#include \"" + interface.name + ".h\"");
  source.line("#include \"platform/rpc/server/exported_interface.h\"");
  source.line("#include \"platform/rpc/stub/results.h\"");
  source.line("#include \"platform/rpc/stub/wire_context.h\"");
  source.line();
  source.line("class " + class_name(interface) + " : public rpc::server::Interface {");
  source.line("public:");
  for (const Operation& operation : interface.operations) {
    if (operation.nocode)
      continue;
    write_method(source, operation);
    source.line();
  }
  source.line("const rpc::InterfaceSpec& spec() const override;");
  source.line("const rpc::OperationSpec* operation(std::uint16_t opnum) const override;");
  source.call("rpc::server::Outcome dispatch",
              {"const rpc::server::CallInfo& call", "std::uint16_t opnum",
               "std::span<const std::byte> request", "rpc::DataRepresentation representation",
               "bool reply_little_endian"},
              " override;");
  source.line("};");
  return source.take();
}

std::string generate_server(const Interface& interface) {
  Source source;
  source.line(head_comment(interface));
  source.line();
  source.line("#include \"" + interface.name + "_server.h\"");
  source.line();
  source.line("#include <iterator>");
  source.line();
  source.line("#include \"platform/rpc/stub/ndr.h\"");
  source.line("#include \"platform/rpc/stub/skeleton.h\"");
  source.line();
  source.line("namespace ndr = rpc::ndr;");
  source.line();
  // The indentation follows the braces; a namespace indents nothing.
  std::string text = source.take() + "namespace {\n\n";
  Source local;
  write_specs(local, interface);
  write_decoders(local, interface, true);
  write_encoders(local, interface, false);
  for (const Operation& operation : interface.operations) {
    if (!operation.nocode)
      HandlerWriter(local, operation).write(class_name(interface));
  }
  write_handlers(local, interface);
  text += local.take() + "\n}  // namespace\n";
  Source members;
  write_members(members, interface);
  return text + members.take();
}

}  // namespace zidl
