// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/scenario_writer.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <string_view>

#include "agent/recorder/file_texts.h"
#include "agent/scenario_names.h"
#include "agent/scenario_parser.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/uuid.h"
#include "platform/sys/printable.h"

namespace agent::recorder {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto octet = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (octet < 0x20 || octet == 0x7F) {
      out += "\\u00";
      out += {kHexDigits[octet >> 4], kHexDigits[octet & 0xF]};
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string hex(const std::vector<std::byte>& octets) {
  std::string out;
  for (const std::byte octet : octets) {
    const auto value = std::to_integer<unsigned>(octet);
    out += {kHexDigits[value >> 4], kHexDigits[value & 0xF]};
  }
  return out;
}

// One of the product's names, or the UUID.
std::string interface_name(const uuid_t& id) {
  std::string text = rpc::uuid_to_text(id);
  for (const auto& known : kInterfaces)
    if (text == known.value)
      return std::string(known.name);
  return text;
}

// Keys and values of one table, as lines or within braces; what has its default is left out.
class Table {
 public:
  explicit Table(std::string_view separator) : separator_(separator) {}

  void raw(std::string_view key, std::string_view value) {
    if (!text_.empty())
      text_ += separator_;
    ((text_ += key) += " = ") += value;
  }
  void text(std::string_view key, std::string_view value, std::string_view otherwise = {}) {
    if (value != otherwise)
      raw(key, quoted(value));
  }
  template <typename Integer>
  void number(std::string_view key, Integer value, Integer otherwise = 0) {
    if (value != otherwise)
      raw(key, std::to_string(value));
  }
  void uuid(std::string_view key, const uuid_t& value) {
    if (value != uuid_t{})
      raw(key, quoted(rpc::uuid_to_text(value)));
  }
  void status(std::string_view key, const std::optional<std::uint32_t>& value) {
    char text[16];
    if (!value)
      return;
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(*value));
    raw(key, text);
  }
  void flag(std::string_view key, bool value, bool otherwise) {
    if (value != otherwise)
      raw(key, value ? "true" : "false");
  }
  const std::string& lines() const { return text_; }
  std::string braces() const { return "{" + text_ + "}"; }

 private:
  std::string_view separator_;
  std::string text_;
};

constexpr std::string_view kLine = "\n";
constexpr std::string_view kComma = ", ";

// "key = [\n  {...},\n]"; nothing for an empty list.
template <typename Element, typename Write>
void write_list(std::string& out, std::string_view key, const std::vector<Element>& elements,
                const Write& write) {
  if (elements.empty())
    return;
  (out += key) += " = [\n";
  for (const Element& element : elements)
    (out += "  ") += write(element) += ",\n";
  out += "]\n";
}

void put_head(Table& table, std::uint32_t id, const std::string& name, const std::string& label,
              std::string_view label_otherwise) {
  table.raw("id", std::to_string(id));
  table.raw("name", quoted(name));
  table.text("label", label, label_otherwise);
}

template <typename Element>
void put_head(Table& table, const Element& element) {
  put_head(table, element.id, element.name, element.label,
           std::string_view(element.name).substr(0, kLabelLength));
}

std::string metric_text(const Metric& metric) {
  const Metric usual;
  Table table(kComma);
  put_head(table, metric);
  table.number("type", metric.data_type);
  table.number("length", metric.length, usual.length);
  table.number("width", metric.column_width, usual.column_width);
  table.number("summary", metric.summary);
  table.number("base_scale", metric.base_scale);
  table.number("scale10", metric.scale10);
  table.number("denominator", metric.denominator);
  table.text("heading1", metric.headings[0]);
  table.text("heading2", metric.headings[1]);
  return table.braces();
}

std::string instance_text(const Instance& instance) {
  const Instance usual;
  Table table(kComma);
  put_head(table, instance);
  table.number("birth", instance.birth);
  table.number("death", instance.death, usual.death);
  return table.braces();
}

std::string row_text(const ExplicitRow& row) {
  std::string out = "[" + std::to_string(row.time);
  for (const Cell& cell : row.cells) {
    const auto* text = std::get_if<std::string>(&cell);
    out += ", " + (text != nullptr ? quoted(*text) : std::to_string(std::get<std::int64_t>(cell)));
  }
  return out + "]";
}

void write_class(std::string& out, const std::string& key, const ClassData& data) {
  out += "\n[[source." + quoted(key) + ".class]]\n";
  Table table(kLine);
  put_head(table, data);
  table.number("type_id", data.type_id, data.id);
  table.number("discriminator", data.discriminator, kNoDiscriminator);
  table.number("interval", data.interval, ClassData{}.interval);
  table.number("interval_units", data.interval_units);
  table.raw("flags", std::to_string(data.flags));
  table.raw("first_x", std::to_string(data.first_x));
  table.raw("last_x", std::to_string(data.last_x));
  out += table.lines() + "\n";
  write_list(out, "metric", data.metrics, metric_text);
  write_list(out, "instance", data.instances, instance_text);
  write_list(out, "rows", data.rows, row_text);
}

void write_source(std::string& out, const std::string& key, const DataSource& source) {
  out += "\n[source." + quoted(key) + "]\n";
  Table table(kLine);
  put_head(table, source.id, source.name, source.label, key);
  table.number("version", source.version, DataSource{}.version);
  table.text("path", source.path);
  out += table.lines() + "\n";
  for (const ClassData& data : source.classes)
    write_class(out, key, data);
}

std::string element_text(const MapElement& element) {
  Table table(kComma);
  if (element.tower) {
    table.raw("tower", quoted(hex(*element.tower)));
  } else {
    table.raw("interface", quoted(interface_name(element.interface_id)));
    if (element.major != 2 || element.minor != 0)
      table.raw("version",
                quoted(std::to_string(element.major) + "." + std::to_string(element.minor)));
    table.text("protocol", element.protocol, MapElement{}.protocol);
    table.text("address", element.address);
    table.raw("endpoint", quoted(element.endpoint));
  }
  table.uuid("object", element.object);
  table.text("annotation", element.annotation);
  return table.braces();
}

std::string behaviour_text(const OperationBehaviour& rule) {
  Table table(kComma);
  table.text("operation", rule.operation);
  table.status("status", rule.status);
  table.status("fault", rule.fault);
  table.status("reject", rule.reject);
  table.number("cut", rule.cut);
  table.flag("silent", rule.silent, false);
  table.flag("die", rule.die, false);
  table.flag("restart", rule.restart, false);
  return table.braces();
}

void put_server(Table& table, const ServerSettings& server) {
  table.number("port", server.port);
  table.flag("registered", false, true);
  if (!server.little_endian)
    table.raw("byte_order", quoted("big"));
  if (server.state == ServerState::mute)
    table.raw("state", quoted("mute"));
  if (server.listening != Listening::yes)
    table.raw("listening", quoted(name_of(server.listening, kListenings)));
}

void write_broker(std::string& out, const LocationBroker& broker) {
  const LocationBroker usual;
  if (broker == usual)
    return;
  out += "[system.broker]\n";
  Table table(kLine);
  table.number("port", broker.port, usual.port);
  table.text("mode", name_of(broker.mode, kBrokerModes), name_of(usual.mode, kBrokerModes));
  if (broker.mode == BrokerMode::malformed)
    table.raw("malformation", quoted(name_of(broker.malformation, kMalformations)));
  if (broker.major != usual.major || broker.minor != usual.minor)
    table.raw("version", quoted(std::to_string(broker.major) + "." + std::to_string(broker.minor)));
  table.number("status", broker.status);
  out += table.lines() + "\n";
}

void write_mapper(std::string& out, const EndpointMapper& mapper) {
  out += "[system.mapper]\n";
  Table table(kLine);
  if (mapper.rejecting)
    table.raw("mode", quoted("rejecting"));
  else if (mapper.server.state != ServerState::alive)
    table.raw("mode", quoted(mapper.server.state == ServerState::dead ? "refused" : "silent"));
  if (!mapper.server.little_endian)
    table.raw("byte_order", quoted("big"));
  if (mapper.fail_after) {
    table.raw("fail_after", std::to_string(*mapper.fail_after));
    if (mapper.failure == MapperFailure::silent)
      table.raw("fail", quoted("silent"));
  }
  if (!table.lines().empty())
    out += table.lines() + "\n";
  write_list(out, "behaviour", mapper.server.behaviours, behaviour_text);
  write_list(out, "element", mapper.elements, element_text);
}

void write_server(std::string& out, Table& table, const ServerSettings& server) {
  out += table.lines() + "\n";
  write_list(out, "behaviour", server.behaviours, behaviour_text);
}

void write_system(std::string& out, const System& system) {
  out += "\n[[system]]\n";
  Table head(kLine);
  head.raw("name", quoted(system.name));
  head.raw("address", quoted(rpc::dotted(system.address)));
  out += head.lines() + "\n";
  write_broker(out, system.broker);
  write_mapper(out, system.mapper);
  for (const RepositoryServer& repository : system.repositories) {
    out += "[[system.repository]]\n";
    Table table(kLine);
    table.raw("source", quoted(repository.source_key));
    put_server(table, repository.server);
    table.uuid("object", repository.registration.object);
    write_server(out, table, repository.server);
  }
  if (!system.alarm)
    return;
  out += "[system.alarm]\n";
  const AlarmServer usual;
  Table table(kLine);
  put_server(table, system.alarm->server);
  table.uuid("object", system.alarm->registration.object);
  table.number("version", system.alarm->version, usual.version);
  table.uuid("general_object", system.alarm->object);
  table.number("evc_flag", system.alarm->evc_flag);
  table.number("exec_flag", system.alarm->exec_flag);
  table.number("interval", system.alarm->interval, usual.interval);
  table.number("evc_error", system.alarm->evc_error);
  write_server(out, table, system.alarm->server);
}

std::string fresh_key(std::string label, std::set<std::string>& keys) {
  if (label.empty())
    label = "unknown";
  std::string key = label;
  for (std::size_t i = 2; !keys.insert(key).second; ++i)
    key = label + "-" + std::to_string(i);
  return key;
}

}  // namespace

void give_source_keys(std::vector<System>& systems) {
  std::set<std::string> keys;
  for (System& system : systems)
    for (RepositoryServer& repository : system.repositories)
      repository.source_key = fresh_key(repository.source->label, keys);
}

std::string scenario_text(const std::vector<System>& systems,
                          std::span<const std::string> comments) {
  std::string out;
  for (std::string comment : comments) {
    make_utf8(comment);
    out += "# " + sys::printable(comment) + "\n";
  }
  std::set<std::string> written;
  for (const System& system : systems)
    for (const RepositoryServer& repository : system.repositories)
      if (written.insert(repository.source_key).second)
        write_source(out, repository.source_key, *repository.source);
  for (const System& system : systems)
    write_system(out, system);
  return out;
}

}  // namespace agent::recorder
