// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/file_texts.h"

#include <memory>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/sys/printable.h"

namespace agent::recorder {

namespace {

std::size_t mend(ClassData& data) {
  std::size_t count = make_utf8(data.name) + make_utf8(data.label);
  for (Metric& metric : data.metrics) {
    count += make_utf8(metric.name) + make_utf8(metric.label);
    for (std::string& heading : metric.headings)
      count += make_utf8(heading);
  }
  for (Instance& instance : data.instances)
    count += make_utf8(instance.name) + make_utf8(instance.label);
  for (ExplicitRow& row : data.rows)
    for (Cell& cell : row.cells)
      if (auto* text = std::get_if<std::string>(&cell))
        count += make_utf8(*text);
  return count;
}

std::size_t mend(EndpointMapper& mapper) {
  std::size_t count = 0;
  for (MapElement& element : mapper.elements)
    count +=
        make_utf8(element.address) + make_utf8(element.endpoint) + make_utf8(element.annotation);
  return count;
}

}  // namespace

std::size_t make_utf8(std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = sys::utf8_length(std::string_view(text).substr(at));
    if (length == 0) {
      text[at] = '?';
      ++count;
    }
    at += length == 0 ? 1 : length;
  }
  return count;
}

std::vector<ReplacedOctets> make_utf8(std::vector<System>& systems) {
  std::vector<ReplacedOctets> all;
  const auto note = [&](std::string where, std::size_t count) {
    if (count != 0)
      all.push_back({std::move(where), count});
  };
  for (System& system : systems) {
    make_utf8(system.name);
    note(system.name + ", endpoint map", mend(system.mapper));
    for (RepositoryServer& repository : system.repositories) {
      auto source = std::make_shared<DataSource>(*repository.source);
      const std::size_t head =
          make_utf8(source->name) + make_utf8(source->label) + make_utf8(source->path);
      const std::string where = system.name + ", data source " + source->name;
      note(where, head);
      for (ClassData& data : source->classes) {
        const std::size_t count = mend(data);
        note(where + ", class " + data.name, count);
      }
      repository.source = std::move(source);
    }
  }
  return all;
}

}  // namespace agent::recorder
