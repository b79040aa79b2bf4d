// SPDX-License-Identifier: Apache-2.0
// name_client.cpp: one function for each operation.

#include "tools/zidl/generator_client.h"

#include <algorithm>

namespace zidl {

namespace {

using Shape = Parameter::Shape;

std::string parameter_text(const Parameter& parameter) {
  switch (parameter.shape) {
    case Shape::binding:
      return "handle_t " + parameter.name;
    case Shape::context:
      return std::string("RPC_CONTEXT_HANDLE") + (parameter.out ? "* " : " ") + parameter.name;
    case Shape::value:
      return parameter.type.cpp + " " + parameter.name;
    case Shape::reference:
    case Shape::pointer:
    case Shape::array:
      break;
  }
  return (parameter.out ? "" : "const ") + parameter.type.cpp + "* " + parameter.name;
}

// A bound of the reply's length: the sum of the greatest sizes, with the gaps that alignment can
// make.
class ReplyLimit {
 public:
  void add(std::size_t alignment, std::size_t size) {
    if (granule_ % alignment == 0)
      constant_ = round_up(constant_, alignment) + size;
    else
      constant_ += alignment - 1 + size;
  }
  // `size` is the text of the number of elements, `element` the greatest size of one.
  void add_array(const std::string& size, const Type& type) {
    add(4, 12);
    add(type.alignment, 0);
    const std::size_t element = round_up(type.greatest_size, type.alignment);
    terms_ += " + ndr::limit(" + size + ", " + std::to_string(element) + ")";
    while (element % granule_ != 0)
      granule_ /= 2;
    if (type.structure != nullptr && type.structure->targets_size != 0) {
      add(8, 0);
      terms_ += " + ndr::limit(" + size + ", " + std::to_string(type.structure->targets_size) + ")";
    }
  }
  std::string text() const { return std::to_string(constant_) + terms_; }

 private:
  std::size_t constant_ = 0;
  std::size_t granule_ = 8;  // divides the length of all arrays
  std::string terms_;
};

class ClientWriter {
 public:
  ClientWriter(Source& source, const Operation& operation) : source_(source), op_(operation) {}

  void write(const Options& options) {
    const auto comm_status = std::find_if(op_.parameters.begin(), op_.parameters.end(),
                                          [](const Parameter& p) { return p.comm_status; });
    source_.line();
    write_client_head(source_, op_, options, " {");
    write_checks();
    if (comm_status == op_.parameters.end()) {
      write_body();
    } else {
      source_.line("try {");
      write_body();
      source_.line("} catch (const rpc::RpcException& failure) {");
      source_.line("if (failure.kind() != rpc::FailureKind::communication)");
      source_.line("  throw;");
      source_.line("*" + comm_status->name + " = failure.status();");
      if (op_.result)
        source_.line("return {};");
      source_.line("}");
    }
    source_.line("}");
  }

 private:
  bool has_binding() const {
    return !op_.parameters.empty() && op_.parameters.front().shape == Shape::binding;
  }

  void write_checks() {
    for (const Parameter& p : op_.parameters) {
      const bool is_reference = p.shape == Shape::reference || p.shape == Shape::array ||
                                (p.shape == Shape::context && p.out);
      if (is_reference)
        source_.line("rpc::require_reference(" + p.name + ");");
    }
    for (const Parameter& p : op_.parameters) {
      if (p.shape == Shape::context && p.in && p.out && !has_binding())
        write_null_context(p);
    }
  }

  // Without a binding a null context names no server: there is nothing to call.
  void write_null_context(const Parameter& context) {
    source_.line("if (*" + context.name + " == nullptr) {");
    for (const Parameter& p : op_.parameters) {
      if (p.shape == Shape::reference && p.out && !p.in)
        source_.line("*" + p.name + " = {};");
    }
    source_.line(op_.result ? "return {};" : "return;");
    source_.line("}");
  }

  void write_body() {
    source_.line("const rpc::CallTarget target = rpc::target_of(" + target_text() + ");");
    for (const Parameter& p : op_.parameters) {
      if (p.shape == Shape::array)
        source_.line("const std::uint64_t " + p.name +
                     "_size = " + size_text(p.size, NameStyle::parameter) + ";");
    }
    source_.line("ndr::Encoder out;");
    for (const Parameter& p : op_.parameters) {
      if (p.in)
        write_in(p);
    }
    source_.line("const std::size_t limit = " + limit_text() + ";");
    const bool replies = op_.result || std::any_of(op_.parameters.begin(), op_.parameters.end(),
                                                   [](const Parameter& p) { return p.out; });
    const std::string call =
        "rpc::invoke(target, kOperations[" + std::to_string(op_.opnum) + "], out.body(), limit);";
    if (!replies) {
      source_.line(call);
      return;
    }
    source_.line("const rpc::Reply reply = " + call);
    source_.line("ndr::Decoder in(reply.body, reply.representation);");
    for (const Parameter& p : op_.parameters) {
      if (p.out)
        write_out(p);
    }
    if (op_.result)
      source_.line("const auto returned = in.get<" + op_.result->cpp + ">();");
    write_contexts();
    if (op_.result)
      source_.line("return returned;");
  }

  std::string target_text() const {
    if (has_binding())
      return op_.parameters.front().name;
    const auto context = std::find_if(op_.parameters.begin(), op_.parameters.end(),
                                      [](auto& p) { return p.shape == Shape::context && p.in; });
    return (context->out ? "*" : "") + context->name;
  }

  std::string limit_text() const {
    ReplyLimit limit;
    for (const Parameter& p : op_.parameters) {
      if (!p.out)
        continue;
      if (p.shape == Shape::array)
        limit.add_array(p.name + "_size", p.type);
      else if (p.shape == Shape::context)
        limit.add(4, 20);
      else
        limit.add(p.type.alignment, p.type.greatest_size);
    }
    if (op_.result)
      limit.add(op_.result->alignment, op_.result->greatest_size);
    return limit.text();
  }

  void write_in(const Parameter& p) {
    switch (p.shape) {
      case Shape::binding:
        break;
      case Shape::value:
        write_put(source_, p.type, p.name);
        break;
      case Shape::reference:
        write_put(source_, p.type, "*" + p.name);
        break;
      case Shape::pointer:
        source_.line("if (out.put_referent(" + p.name + ")) {");
        write_put(source_, p.type, "*" + p.name);
        source_.line("}");
        break;
      case Shape::array: {
        const std::string count = p.name + "_count";
        source_.line("const std::uint32_t " + count + " = " +
                     length_text(p.length, NameStyle::parameter) + ";");
        source_.line("out.put_conformant_varying(" + p.name + "_size, " + count + ");");
        write_put_elements(source_, p.type, p.name, count);
        break;
      }
      case Shape::context:
        if (p.out && has_binding())
          source_.line("out.put(*" + p.name + " == nullptr ? rpc::WireContext{} : " +
                       "rpc::wire_context(*" + p.name + "));");
        else
          source_.line("out.put(rpc::wire_context(" + std::string(p.out ? "*" : "") + p.name +
                       "));");
        break;
    }
  }

  void write_out(const Parameter& p) {
    if (p.shape == Shape::context) {
      source_.line("const auto " + p.name + "_context = in.get<rpc::WireContext>();");
    } else if (p.shape == Shape::array) {
      const std::string count = p.name + "_count";
      source_.line("const std::uint32_t " + count + " = in.get_conformant_varying(");
      source_.line("    " + p.name + "_size, " + length_text(p.length, NameStyle::parameter) +
                   ");");
      write_get_elements(source_, p.type, p.name, count);
    } else {
      write_get(source_, p.type, "*" + p.name);
    }
  }

  // Last, so that a reply that cannot be decoded changes no handle.
  void write_contexts() {
    for (const Parameter& p : op_.parameters) {
      if (p.shape != Shape::context || !p.out)
        continue;
      if (!p.in)
        source_.line("*" + p.name + " = nullptr;");
      source_.line("rpc::store_context(" + p.name + ", " + p.name + "_context, target);");
    }
  }

  Source& source_;
  const Operation& op_;
};

}  // namespace

std::string interface_handle(const Interface& interface, const Options& options) {
  return options.prefix + interface.name + "_v" + std::to_string(interface.major) + "_" +
         std::to_string(interface.minor) + "_c_ifspec";
}

void write_client_head(Source& source, const Operation& operation, const Options& options,
                       const std::string& tail) {
  std::vector<std::string> parameters;
  for (const Parameter& parameter : operation.parameters)
    parameters.push_back(parameter_text(parameter));
  const std::string result = operation.result ? operation.result->cpp : "void";
  source.call(result + " " + options.prefix + operation.name, parameters, tail);
}

std::string generate_client(const Interface& interface, const Options& options) {
  Source source;
  source.line(head_comment(interface));
  source.line();
  source.line("#include \"" + interface.name + ".h\"");
  source.line();
  source.line("#include \"platform/rpc/stub/ndr.h\"");
  source.line("#include \"platform/rpc/stub/stub.h\"");
  source.line();
  source.line("namespace ndr = rpc::ndr;");
  source.line();
  source.line("namespace {");
  Source local;
  local.line();
  write_specs(local, interface);
  write_encoders(local, interface, true);
  write_decoders(local, interface, false);
  std::string text = source.take() + local.take();
  Source rest;
  rest.line();
  rest.line("}  // namespace");
  rest.line();
  rest.line("const RPC_IF_HANDLE " + interface_handle(interface, options) + " = &kInterface;");
  for (const Operation& operation : interface.operations) {
    if (!operation.nocode)
      ClientWriter(rest, operation).write(options);
  }
  return text + rest.take();
}

}  // namespace zidl
