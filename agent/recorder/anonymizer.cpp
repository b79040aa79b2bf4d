// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/anonymizer.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "agent/recorder/word_list.h"
#include "agent/scenario_parser.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/socket_address.h"

namespace agent::recorder {

namespace {

constexpr std::string_view kCollector = "TAMBO";
constexpr std::string_view kSystemIdentifier = "GBL_SYSTEM_ID";
constexpr std::string_view kPipe = "\\pipe\\";
constexpr std::size_t kIpxDigits = 20;

bool address_character(char c) {
  return (c >= '0' && c <= '9') || c == '.';
}
bool long_address_character(char c) {
  return address_character(c) || c == ':' || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool domain_character(char c) {
  return word_character(c) || c == '-' || c == '.';
}
bool path_character(char c) {
  return static_cast<unsigned char>(c) > ' ' &&
         std::string_view("\"'`,;()<>|=").find(c) == std::string_view::npos;
}

// The characters of a kind from a place on, without full stops at the end.
template <typename Kind>
std::string_view run_of(const std::string& text, std::size_t at, const Kind& kind) {
  const auto from = text.begin() + static_cast<std::ptrdiff_t>(at);
  std::string_view run(&*from,
                       static_cast<std::size_t>(std::find_if_not(from, text.end(), kind) - from));
  while (!run.empty() && run.back() == '.')
    run.remove_suffix(1);
  return run;
}

class Anonymizer {
 public:
  explicit Anonymizer(LoopbackAddresses& addresses) : addresses_(addresses) {}

  std::size_t run(std::vector<System>& systems) {
    for (const char* own : {"TAMBO", "almserver"})
      words_.keep(own);
    for (const System& system : systems)
      for (const RepositoryServer& repository : system.repositories)
        if (of_collector(*repository.source))
          keep_names(*repository.source);
    for (System& system : systems)
      replace_name(system);
    // First every text that has a place of its own, then those that may hold them.
    for (System& system : systems)
      for (RepositoryServer& repository : system.repositories) {
        auto source = std::make_shared<DataSource>(*repository.source);
        replace_descriptors(*source);
        repository.source = std::move(source);
      }
    for (System& system : systems)
      replace_map(system.mapper);
    for (System& system : systems)
      replace_servers(system);
    return dropped_;
  }

 private:
  static bool of_collector(const DataSource& source) { return source.name == kCollector; }

  void keep_names(const DataSource& source) {
    for (const ClassData& data : source.classes) {
      words_.keep(data.name);
      for (const Metric& metric : data.metrics)
        words_.keep(metric.name);
    }
  }

  // A host is known by its whole name and by the first part of it.
  void replace_name(System& system) {
    const std::string real = std::exchange(system.name, words_.made_up(system.name, "host-"));
    const std::string first = real.substr(0, real.find('.'));
    if (first.find_first_not_of("0123456789") != std::string::npos)
      words_.add(first, system.name);
  }

  void label(std::string& text) { text = words_.made_up(text, "label-"); }

  void replace_descriptors(DataSource& source) {
    const bool collector = of_collector(source);
    source.name = words_.made_up(source.name, "SOURCE_");
    source.label = words_.made_up(source.label, "SOURCE_");
    source.path = words_.made_up(source.path, "/path-");
    for (ClassData& data : source.classes) {
      data.name = words_.made_up(data.name, "CLASS_");
      label(data.label);
      for (Metric& metric : data.metrics) {
        metric.name = words_.made_up(metric.name, "METRIC_");
        label(metric.label);
        if (!collector)
          for (std::string& heading : metric.headings)
            label(heading);
      }
      for (Instance& instance : data.instances) {
        instance.name = words_.made_up(instance.name, "instance-");
        instance.label = words_.made_up(instance.label, "instance-");
      }
    }
  }

  void replace_map(EndpointMapper& mapper) {
    const auto unreadable = [](const MapElement& element) { return element.tower.has_value(); };
    dropped_ += std::erase_if(mapper.elements, unreadable);
    for (MapElement& element : mapper.elements) {
      element.annotation = words_.made_up(element.annotation, "annotation-");
      element.object = object(element.object);
      replace_place(element);
    }
  }

  void replace_place(MapElement& element) {
    const std::string& protocol = element.protocol;
    if (protocol == rpc::protseq::kIpx || protocol == rpc::protseq::kSpx) {
      const std::string number = words_.made_up(element.address, "");
      element.address = std::string(kIpxDigits - std::min(kIpxDigits, number.size()), '0') + number;
    } else if (!parse_address(element.address)) {
      const std::size_t begin =
          std::min(element.address.find_first_not_of('\\'), element.address.size());
      const std::string host = words_.made_up(element.address.substr(begin), "host-");
      element.address.resize(begin);
      element.address += host;
    }
    if (protocol == rpc::protseq::kNamedPipe && element.endpoint.starts_with(kPipe))
      element.endpoint =
          std::string(kPipe) + words_.made_up(element.endpoint.substr(kPipe.size()), "pipe-");
    else if (protocol == rpc::protseq::kLocal)
      element.endpoint = words_.made_up(element.endpoint, "pipe-");
  }

  void replace_servers(System& system) {
    for (RepositoryServer& repository : system.repositories) {
      repository.registration.object = object(repository.registration.object);
      auto source = std::make_shared<DataSource>(*repository.source);
      for (ClassData& data : source->classes)
        replace_rows(data);
      repository.source = std::move(source);
    }
    if (!system.alarm)
      return;
    system.alarm->registration.object = object(system.alarm->registration.object);
    system.alarm->object = object(system.alarm->object);
  }

  void replace_rows(ClassData& data) {
    for (ExplicitRow& row : data.rows)
      for (std::size_t i = 0; i < row.cells.size(); ++i)
        if (auto* text = std::get_if<std::string>(&row.cells[i]))
          *text = data.metrics[i].name == kSystemIdentifier ? words_.made_up(*text, "system-")
                                                            : row_text(*text);
  }

  std::string row_text(const std::string& text) {
    return words_.replaced(
        text, [this](const std::string& whole, std::size_t at, std::string& out) {
          for (const auto find : {&Anonymizer::host_with_domain, &Anonymizer::internet_address,
                                  &Anonymizer::long_address, &Anonymizer::path})
            if (const std::size_t taken = (this->*find)(whole, at, out))
              return taken;
          return std::size_t{0};
        });
  }

  // --- What is replaced inside a text though it is not known: how many characters, or 0.

  std::size_t internet_address(const std::string& text, std::size_t at, std::string& out) {
    const std::string_view run = run_of(text, at, address_character);
    const auto address = parse_address(run);
    const bool longer = at > 0 && text[at - 1] == '.';
    if (!address || longer || word_character_at(text, at + run.size()))
      return 0;
    out += rpc::dotted(addresses_.of(*address));
    return run.size();
  }

  // Of IPv6, or of hardware.
  std::size_t long_address(const std::string& text, std::size_t at, std::string& out) {
    const std::string_view run = run_of(text, at, long_address_character);
    const bool is_one =
        std::count(run.begin(), run.end(), ':') >= 5 || run.find("::") != std::string_view::npos;
    if (!is_one || run.size() < 3 || word_character_at(text, at + run.size()))
      return 0;
    out += words_.made_up(std::string(run), "fd00::");
    return run.size();
  }

  std::size_t path(const std::string& text, std::size_t at, std::string& out) {
    const bool after_word = at > 0 && path_character(text[at - 1]);
    const std::string_view run = run_of(text, at, path_character);
    const bool is_one = run.size() > 1 && (run.front() == '/' || run.starts_with("\\\\") ||
                                           run.substr(1).starts_with(":\\"));
    if (after_word || !is_one)
      return 0;
    out += words_.made_up(std::string(run), "/path-");
    return run.size();
  }

  // The name of a recorded host, with the domain that follows it.
  std::size_t host_with_domain(const std::string& text, std::size_t at, std::string& out) {
    const std::string_view run = run_of(text, at, domain_character);
    const std::size_t dot = run.find('.');
    if (dot == std::string_view::npos)
      return 0;
    const auto host = words_.find(std::string(run.substr(0, dot)));
    if (!host || !host->starts_with("host-"))
      return 0;
    out += *host;
    return run.size();
  }

  static bool word_character_at(const std::string& text, std::size_t at) {
    return at < text.size() && word_character(text[at]);
  }

  uuid_t object(const uuid_t& real) {
    if (real == uuid_t{})
      return real;
    const auto [found, fresh] = objects_.try_emplace(real);
    if (fresh)
      found->second.time_low = static_cast<std::uint32_t>(objects_.size());
    return found->second;
  }

  LoopbackAddresses& addresses_;
  WordList words_;
  std::map<uuid_t, uuid_t> objects_;
  std::size_t dropped_ = 0;
};

}  // namespace

std::size_t anonymize(std::vector<System>& systems, LoopbackAddresses& addresses) {
  return Anonymizer(addresses).run(systems);
}

}  // namespace agent::recorder
