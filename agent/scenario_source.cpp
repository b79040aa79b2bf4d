// SPDX-License-Identifier: Apache-2.0
// [source.KEY]: a repository with its classes, metrics, instances and rows.

#include <algorithm>
#include <limits>
#include <set>

#include "agent/scenario_parser.h"

namespace agent {

namespace {

constexpr Range kValueRange{std::numeric_limits<std::int32_t>::min(),
                            std::numeric_limits<std::uint32_t>::max()};

class SourceParser {
 public:
  SourceParser(std::string key, std::uint32_t now, Budget& budget, ErrorList& errors)
      : name_("source." + std::move(key)), now_(now), budget_(budget), errors_(errors) {}

  DataSource parse(const toml::table& table, const std::string& key);

 private:
  void parse_class(const toml::table& table, DataSource& source);
  void parse_metrics(TableReader& reader, ClassData& data);
  void parse_instances(TableReader& reader, ClassData& data);
  void parse_model(TableReader& reader, Metric& metric, bool explicit_rows);
  void parse_schedule(TableReader& reader, ClassData& data);
  void parse_rows(TableReader& reader, ClassData& data);
  std::optional<ExplicitRow> parse_row(const toml::array& cells, const ClassData& data);
  void parse_extent(TableReader& reader, ClassData& data);

  // Adds `count` copies whose identifiers rise and whose names carry a number.
  template <typename Element>
  void add_copies(TableReader& reader, std::vector<Element>& all, std::set<std::uint32_t>& ids,
                  const Element& element, std::uint32_t count, std::size_t most);

  const std::string name_;
  const std::uint32_t now_;
  Budget& budget_;
  ErrorList& errors_;
};

// How many parts of the budget a copy costs.
std::size_t weight(const Instance&) {
  return 1;
}

std::size_t weight(const Metric& metric) {
  if (const auto* values = std::get_if<ValuesModel>(&metric.model))
    return 1 + values->values.size();
  if (const auto* texts = std::get_if<TextsModel>(&metric.model))
    return 1 + texts->texts.size();
  return 1;
}

std::size_t weight(const ClassData& data) {
  std::size_t sum = 1 + data.instances.size();
  for (const Metric& metric : data.metrics)
    sum += weight(metric);
  return sum;
}

// Rows that the file spells out are bounded by the file; only further copies of them cost.
template <typename Element>
std::size_t weight_of_rows(const Element&) {
  return 0;
}

std::size_t weight_of_rows(const ClassData& data) {
  return data.rows.size() * (1 + data.metrics.size());
}

// Identifier, name and label: the common head of every descriptor.
template <typename Element>
void parse_head(TableReader& reader, Element& element) {
  reader.required_integer("id", element.id);
  reader.required_text("name", element.name, kNameLength);
  element.label = element.name.substr(0, kLabelLength);
  reader.text("label", element.label, kLabelLength);
}

template <typename Element>
void SourceParser::add_copies(TableReader& reader, std::vector<Element>& all,
                              std::set<std::uint32_t>& ids, const Element& element,
                              std::uint32_t count, std::size_t most) {
  if (all.size() + count > most)
    return reader.refuse("count", "expected at most " + std::to_string(most) + " in all");
  if (!budget_.take(weight(element), count) || !budget_.take(weight_of_rows(element), count - 1))
    return reader.refuse("count", "expected at most " + std::to_string(Budget::kMostParts) +
                                      " parts in the whole scenario");
  for (std::uint32_t i = 0; i < count; ++i) {
    Element& copy = all.emplace_back(element);
    copy.id = element.id + i;
    if (!ids.insert(copy.id).second)
      return reader.refuse(
          "id", "expected an identifier of its own, but " + std::to_string(copy.id) + " is taken");
    if (count > 1) {
      const std::string suffix = "_" + std::to_string(i + 1);
      copy.name = copy.name.substr(0, kNameLength - suffix.size()) + suffix;
      copy.label = copy.label.substr(0, kLabelLength - suffix.size()) + suffix;
    }
  }
}

DataSource SourceParser::parse(const toml::table& table, const std::string& key) {
  TableReader reader(table, name_, errors_);
  DataSource source;
  source.label = key.substr(0, kLabelLength);
  source.name = key.substr(0, kNameLength);
  reader.required_integer("id", source.id);
  reader.text("name", source.name, kNameLength);
  reader.text("label", source.label, kLabelLength);
  reader.integer("version", source.version);
  reader.text("path", source.path, kPathLength);
  for (const toml::table* one : reader.tables("class", kMostClasses)) {
    parse_class(*one, source);
    if (errors_.full())
      break;
  }
  reader.finish();
  return source;
}

void SourceParser::parse_class(const toml::table& table, DataSource& source) {
  TableReader reader(table, name_ + ".class", errors_);
  ClassData data;
  std::uint32_t count = 1;
  parse_head(reader, data);
  data.type_id = data.id;
  reader.integer("type_id", data.type_id);
  reader.integer("discriminator", data.discriminator);
  reader.integer("interval", data.interval, {1, std::numeric_limits<std::int32_t>::max()});
  reader.integer("interval_units", data.interval_units);
  reader.integer("count", count, {1, static_cast<std::int64_t>(kMostClasses)});
  parse_instances(reader, data);
  parse_metrics(reader, data);
  const bool discriminated =
      data.discriminator == kNoDiscriminator ||
      std::any_of(data.metrics.begin(), data.metrics.end(),
                  [&data](const Metric& metric) { return metric.id == data.discriminator; });
  if (!discriminated)
    reader.refuse("discriminator", "expected the identifier of a metric of the class, found " +
                                       std::to_string(data.discriminator));
  parse_rows(reader, data);
  parse_schedule(reader, data);
  parse_extent(reader, data);

  bool summarizable = true;
  reader.flag("summarizable", summarizable);
  data.flags = static_cast<std::int16_t>((summarizable ? kSummarizableFlag : 0) |
                                         (data.instances.empty() ? 0 : kInstancesFlag));
  reader.integer("flags", data.flags);
  reader.finish();

  std::set<std::uint32_t> ids;
  for (const ClassData& other : source.classes)
    ids.insert(other.id);
  add_copies(reader, source.classes, ids, data, count, kMostClasses);
}

void SourceParser::parse_instances(TableReader& reader, ClassData& data) {
  std::set<std::uint32_t> ids;
  for (const toml::table* table : reader.tables("instance", kMostInstances)) {
    TableReader one(*table, reader.name() + ".instance", errors_);
    Instance instance;
    std::uint32_t count = 1;
    parse_head(one, instance);
    one.integer("birth", instance.birth);
    one.integer("death", instance.death);
    one.integer("count", count, {1, static_cast<std::int64_t>(kMostInstances)});
    one.finish();
    add_copies(one, data.instances, ids, instance, count, kMostInstances);
  }
}

void SourceParser::parse_metrics(TableReader& reader, ClassData& data) {
  std::set<std::uint32_t> ids;
  const bool explicit_rows = reader.has("rows") && reader.node("rows")->is_array();
  for (const toml::table* table : reader.tables("metric", kMostMetrics)) {
    TableReader one(*table, reader.name() + ".metric", errors_);
    Metric metric;
    std::uint32_t count = 1;
    parse_head(one, metric);
    one.integer("denominator", metric.denominator);
    if (one.has_text("type"))
      one.choice<std::int16_t>("type", metric.data_type,
                               {{"integer", 0}, {"counter", 1}, {"gauge", 2}, {"text", kTextType}});
    else
      one.integer("type", metric.data_type);
    one.integer("length", metric.length);
    one.integer("width", metric.column_width);
    if (one.has_text("summary"))
      one.choice<std::int16_t>(
          "summary", metric.summary,
          {{"average", 0}, {"sum", 1}, {"greatest", 2}, {"least", 3}, {"last", 4}});
    else
      one.integer("summary", metric.summary);
    one.integer("base_scale", metric.base_scale);
    one.integer("scale10", metric.scale10);
    one.text("heading1", metric.headings[0], kHeadingLength);
    one.text("heading2", metric.headings[1], kHeadingLength);
    one.integer("count", count, {1, static_cast<std::int64_t>(kMostMetrics)});
    parse_model(one, metric, explicit_rows);
    one.finish();
    add_copies(one, data.metrics, ids, metric, count, kMostMetrics);
  }
}

ConstantModel constant_model(TableReader& reader) {
  ConstantModel model;
  reader.integer("constant", model.value, kValueRange);
  return model;
}

RampModel ramp_model(TableReader& reader, const toml::table& table) {
  TableReader ramp(table, reader.name() + ".ramp", reader.errors());
  RampModel model;
  ramp.required_integer("from", model.from, kValueRange);
  ramp.required_integer("to", model.to, kValueRange);
  ramp.integer("step", model.step, {1, std::numeric_limits<std::uint32_t>::max()});
  if (model.to < model.from)
    ramp.refuse("to", "expected a number not below \"from\"");
  ramp.finish();
  return model;
}

WaveModel wave_model(TableReader& reader, const toml::table& table) {
  TableReader wave(table, reader.name() + ".wave", reader.errors());
  WaveModel model;
  wave.required_integer("low", model.low, kValueRange);
  wave.required_integer("high", model.high, kValueRange);
  wave.required_integer("period", model.period, {1, 1'000'000});
  if (model.high < model.low)
    wave.refuse("high", "expected a number not below \"low\"");
  wave.finish();
  return model;
}

ValuesModel values_model(TableReader& reader) {
  ValuesModel model;
  if (const toml::array* values = reader.array("values"))
    for (const toml::node& value : *values) {
      const auto* number = value.as_integer();
      if (number == nullptr || number->get() < kValueRange.least ||
          number->get() > kValueRange.greatest)
        reader.errors().add(value.source(),
                            reader.name() +
                                ".values: expected whole numbers from -2147483648 to "
                                "4294967295");
      else
        model.values.push_back(number->get());
    }
  if (model.values.empty()) {
    model.values.push_back(0);
    reader.refuse("values", "expected at least one number");
  }
  return model;
}

TextsModel texts_model(TableReader& reader) {
  TextsModel model;
  if (const toml::array* texts = reader.array("texts"))
    for (const toml::node& text : *texts) {
      const auto* string = text.as_string();
      if (string == nullptr || string->get().find('\0') != std::string::npos)
        reader.errors().add(text.source(),
                            reader.name() + ".texts: expected texts without zero characters");
      else
        model.texts.push_back(string->get());
    }
  if (model.texts.empty()) {
    model.texts.emplace_back();
    reader.refuse("texts", "expected at least one text");
  }
  return model;
}

void SourceParser::parse_model(TableReader& reader, Metric& metric, bool explicit_rows) {
  struct Kind {
    std::string_view key;
    bool text;
  };
  constexpr Kind kKinds[] = {{"constant", false}, {"ramp", false}, {"wave", false},
                             {"values", false},   {"texts", true}, {"instance", true}};
  std::string_view chosen;
  for (const Kind& kind : kKinds) {
    if (reader.node(kind.key) == nullptr)
      continue;
    if (!chosen.empty())
      return reader.refuse(kind.key,
                           "expected one model, but " + quoted(chosen) + " is there as well");
    if (explicit_rows)
      return reader.refuse(kind.key, "expected no model where the class gives its rows");
    if (kind.text != metric.is_text())
      return reader.refuse(kind.key, metric.is_text() ? "expected \"texts\" or \"instance\" for a "
                                                        "text metric"
                                                      : "expected a model of numbers, or type "
                                                        "\"text\"");
    chosen = kind.key;
  }
  if (chosen.empty() && metric.is_text())
    metric.model = TextsModel{{""}};
  else if (chosen == "constant")
    metric.model = constant_model(reader);
  else if (chosen == "values")
    metric.model = values_model(reader);
  else if (chosen == "texts")
    metric.model = texts_model(reader);
  else if (chosen == "ramp") {
    if (const toml::table* table = reader.table(chosen))
      metric.model = ramp_model(reader, *table);
  } else if (chosen == "wave") {
    if (const toml::table* table = reader.table(chosen))
      metric.model = wave_model(reader, *table);
  } else if (chosen == "instance") {
    InstanceModel model;
    reader.choice<bool>("instance", model.label, {{"name", false}, {"label", true}});
    metric.model = model;
  }
}

void SourceParser::parse_rows(TableReader& reader, ClassData& data) {
  const toml::node* rows = reader.node("rows");
  if (rows == nullptr || rows->is_integer())
    return;
  const toml::array* all = reader.array("rows");
  if (all == nullptr)
    return;
  if (all->size() > kMostRows)
    return reader.refuse("rows", "expected at most " + std::to_string(kMostRows) + " rows");
  for (const toml::node& node : *all) {
    const toml::array* cells = node.as_array();
    std::optional<ExplicitRow> row;
    if (cells != nullptr && cells->size() == data.metrics.size() + 1)
      row = parse_row(*cells, data);
    if (!row) {
      errors_.add(node.source(), reader.name() +
                                     ".rows: expected an array of a time (seconds since 1970, or "
                                     "below 0: seconds before now) and one value for each of the " +
                                     std::to_string(data.metrics.size()) + " metrics");
      if (errors_.full())
        return;
      continue;
    }
    if (!data.rows.empty() && row->time < data.rows.back().time)
      errors_.add(node.source(), reader.name() + ".rows: expected times in rising order");
    data.rows.push_back(std::move(*row));
  }
}

std::optional<ExplicitRow> SourceParser::parse_row(const toml::array& cells,
                                                   const ClassData& data) {
  ExplicitRow row;
  const auto* time = cells[0].as_integer();
  if (time == nullptr)
    return std::nullopt;
  const std::int64_t seconds =
      time->get() < 0 ? now_ + std::max<std::int64_t>(time->get(), -0x7FFFFFFF) : time->get();
  if (seconds < 0 || seconds >= std::numeric_limits<std::int32_t>::max())
    return std::nullopt;
  row.time = static_cast<std::uint32_t>(seconds);
  for (std::size_t i = 0; i < data.metrics.size(); ++i) {
    const toml::node& cell = cells[i + 1];
    if (data.metrics[i].is_text()) {
      const auto* text = cell.as_string();
      if (text == nullptr || text->get().find('\0') != std::string::npos)
        return std::nullopt;
      row.cells.emplace_back(text->get());
    } else {
      const auto* number = cell.as_integer();
      if (number == nullptr || number->get() < kValueRange.least ||
          number->get() > kValueRange.greatest)
        return std::nullopt;
      row.cells.emplace_back(number->get());
    }
  }
  return row;
}

// `rows` = how many, ending at `last` (default: now, on a whole interval) or starting at `first`.
void SourceParser::parse_schedule(TableReader& reader, ClassData& data) {
  std::optional<std::uint32_t> first;
  std::optional<std::uint32_t> last;
  reader.time("first", now_, first);
  reader.time("last", now_, last);
  if (!data.rows.empty() || (reader.has("rows") && !reader.node("rows")->is_integer())) {
    if (first || last)
      reader.refuse(first ? "first" : "last", "expected no time where the rows are given");
    if (reader.has("live"))
      reader.refuse("live", "expected a number of rows beside it: rows that are given do not grow");
    return;
  }
  reader.integer("rows", data.row_count, {0, static_cast<std::int64_t>(kMostRows)});
  if (first && last)
    return reader.refuse("last", "expected either \"first\" or \"last\"");
  if (data.row_count == 0) {
    if (reader.node("live") != nullptr)
      reader.refuse("live", "expected \"rows\" beside it: without a row there is no next one");
    return;
  }
  const auto interval = static_cast<std::uint32_t>(data.interval);
  const std::uint64_t extent = std::uint64_t{interval} * (data.row_count - 1);
  const std::uint64_t end = first ? *first + extent : last.value_or(now_ / interval * interval);
  if (end >= static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()) || end < extent)
    return reader.refuse("rows", "expected rows between 1970 and 2038");
  data.first_time = static_cast<std::uint32_t>(end - extent);
  reader.flag("live", data.live);
}

// What the descriptor says of the first and last position; `first_x` and `last_x` say otherwise.
void SourceParser::parse_extent(TableReader& reader, ClassData& data) {
  if (!data.rows.empty()) {
    data.first_x = static_cast<std::int32_t>(data.rows.front().time);
    data.last_x = static_cast<std::int32_t>(data.rows.back().time);
  } else if (data.row_count > 0) {
    data.first_x = static_cast<std::int32_t>(data.first_time);
    data.last_x = static_cast<std::int32_t>(
        data.first_time + static_cast<std::uint32_t>(data.interval) * (data.row_count - 1));
  }
  reader.integer("first_x", data.first_x);
  reader.integer("last_x", data.last_x);
}

}  // namespace

DataSource parse_source(const toml::table& table, const std::string& key, std::uint32_t now,
                        Budget& budget, ErrorList& errors) {
  return SourceParser(key, now, budget, errors).parse(table, key);
}

}  // namespace agent
