// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/string_binding.h"

#include <iterator>
#include <optional>
#include <utility>

#include "platform/rpc/handed_out_text.h"

namespace rpc {
namespace {

constexpr std::string_view kQuoted = "@:\\[], =";
constexpr std::string_view kQuotedInOptions = "@:\\[] ";
constexpr std::string_view kEndpointOption = "endpoint";

// Walks over a text and takes it apart at delimiters that are not quoted.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  // The text up to the first unquoted character of `delimiters`, without its quoting. Nothing when
  // the text ends in a lone backslash. The delimiter itself is not taken.
  std::optional<std::string> take_until(std::string_view delimiters) {
    std::string taken;
    while (position_ < text_.size()) {
      char c = text_[position_];
      if (delimiters.find(c) != std::string_view::npos)
        break;
      if (c == '\\') {
        if (++position_ == text_.size())
          return std::nullopt;
        c = text_[position_];
      }
      taken.push_back(c);
      ++position_;
    }
    return taken;
  }

  bool at_end() const { return position_ == text_.size(); }

  bool take(char expected) {
    if (at_end() || text_[position_] != expected)
      return false;
    ++position_;
    return true;
  }

 private:
  std::string_view text_;
  std::size_t position_ = 0;
};

// One item between the brackets: an endpoint (only the first can be one) or name=value.
bool parse_item(Scanner& scanner, bool first, StringBinding& parts) {
  std::optional<std::string> name = scanner.take_until("[]@,=");
  if (!name)
    return false;
  if (!scanner.take('=')) {
    parts.endpoint = std::move(*name);
    return first;
  }
  const std::optional<std::string> value = scanner.take_until("[]@,");
  // The options are handed out without quoting, as one text: nothing in them may look like the
  // punctuation between them.
  if (!value || name->empty() || name->find_first_of(",=") != std::string::npos ||
      value->find(',') != std::string::npos)
    return false;
  if (*name == kEndpointOption) {
    if (!parts.endpoint.empty())
      return false;
    parts.endpoint = *value;
    return true;
  }
  if (!parts.options.empty())
    parts.options += ',';
  parts.options += *name + '=' + *value;
  return true;
}

bool parse_brackets(Scanner& scanner, StringBinding& parts) {
  if (!scanner.take('['))
    return false;
  bool first = true;
  do {
    if (!parse_item(scanner, first, parts))
      return false;
    first = false;
  } while (scanner.take(','));
  return scanner.take(']');
}

bool parse_parts(std::string_view text, StringBinding& parts) {
  Scanner scanner(text);
  std::optional<std::string> head = scanner.take_until("@:[]");
  if (!head)
    return false;
  if (scanner.take('@')) {
    if (head->empty())
      return false;
    parts.object = std::move(*head);
    head = scanner.take_until("@:[]");
  }
  if (!head || head->empty() || !scanner.take(':'))
    return false;
  parts.protocol_sequence = std::move(*head);

  std::optional<std::string> address = scanner.take_until("@:[]");
  if (!address)
    return false;
  parts.network_address = std::move(*address);
  return scanner.at_end() || (parse_brackets(scanner, parts) && scanner.at_end());
}

void append_quoted(std::string& text, std::string_view part, std::string_view quoted) {
  for (const char c : part) {
    if (quoted.find(c) != std::string_view::npos)
      text.push_back('\\');
    text.push_back(c);
  }
}

std::string compose_parts(const StringBinding& parts) {
  std::string text;
  if (!parts.object.empty()) {
    append_quoted(text, parts.object, kQuoted);
    text.push_back('@');
  }
  append_quoted(text, parts.protocol_sequence, kQuoted);
  text.push_back(':');
  append_quoted(text, parts.network_address, kQuoted);
  if (parts.endpoint.empty() && parts.options.empty())
    return text;
  text.push_back('[');
  append_quoted(text, parts.endpoint, kQuoted);
  if (!parts.options.empty()) {
    text.push_back(',');
    append_quoted(text, parts.options, kQuotedInOptions);
  }
  text.push_back(']');
  return text;
}

std::string_view view_of(const char* text) {
  return text == nullptr ? std::string_view{} : std::string_view{text};
}

}  // namespace

RPC_STATUS parse_string_binding(std::string_view text, StringBinding* parts) {
  StringBinding parsed;
  if (text.size() > kMaxStringBinding || !parse_parts(text, parsed))
    return RPC_S_INVALID_STRING_BINDING;
  if (!parsed.object.empty() && !uuid_from_text(parsed.object))
    return RPC_S_INVALID_STRING_UUID;
  *parts = std::move(parsed);
  return RPC_S_OK;
}

RPC_STATUS compose_string_binding(const StringBinding& parts, std::string* text) {
  std::string composed = compose_parts(parts);
  StringBinding ignored;
  const RPC_STATUS status = parse_string_binding(composed, &ignored);
  if (status == RPC_S_OK)
    *text = std::move(composed);
  return status;
}

}  // namespace rpc

RPC_STATUS RpcStringBindingComposeA(const char* object, const char* protocol_sequence,
                                    const char* network_address, const char* endpoint,
                                    const char* options, char** string_binding) {
  if (string_binding == nullptr)
    return RPC_S_INVALID_ARG;
  *string_binding = nullptr;
  rpc::StringBinding parts;
  parts.object = rpc::view_of(object);
  parts.protocol_sequence = rpc::view_of(protocol_sequence);
  parts.network_address = rpc::view_of(network_address);
  parts.endpoint = rpc::view_of(endpoint);
  parts.options = rpc::view_of(options);
  std::string text;
  const RPC_STATUS status = rpc::compose_string_binding(parts, &text);
  return status == RPC_S_OK ? rpc::hand_out_text(text, string_binding) : status;
}

RPC_STATUS RpcStringBindingParseA(const char* string_binding, char** object,
                                  char** protocol_sequence, char** network_address, char** endpoint,
                                  char** options) {
  char** const wanted[] = {object, protocol_sequence, network_address, endpoint, options};
  for (char** out : wanted)
    if (out != nullptr)
      *out = nullptr;

  rpc::StringBinding parts;
  RPC_STATUS status = rpc::parse_string_binding(rpc::view_of(string_binding), &parts);
  const std::string* const found[] = {&parts.object, &parts.protocol_sequence,
                                      &parts.network_address, &parts.endpoint, &parts.options};
  for (std::size_t i = 0; status == RPC_S_OK && i < std::size(wanted); ++i)
    if (wanted[i] != nullptr)
      status = rpc::hand_out_text(*found[i], wanted[i]);
  if (status != RPC_S_OK)
    for (char** out : wanted)
      if (out != nullptr)
        RpcStringFreeA(out);
  return status;
}
