// SPDX-License-Identifier: Apache-2.0
// The forms in which `ztsys check` tells its results.

#include <algorithm>
#include <ctime>
#include <map>
#include <string_view>

#include "source/support/ZTformat.h"
#include "source/support/ZTprintable.h"
#include "tools/ztsys/check.h"
#include "tools/ztsys/check_html.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/json.h"

namespace ztsys {

namespace {

constexpr RoadState kStates[] = {RoadState::succeeded, RoadState::failed, RoadState::no_halvex,
                                 RoadState::not_supported, RoadState::not_available};

// A byte that is no UTF-8 becomes U+FFFD.
std::string ValidUtf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    result += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result;
}

std::string AddressOf(const SweepSystem& system) {
  return system.key == kNoSystemKey ? "" : AddressText(system.key);
}

std::string PlaceText(const RoadAddress& at) {
  return AddressText(at.key) + (at.port != 0 ? ':' + std::to_string(at.port) : "");
}

// The lines of a sweep, in the order of the list, each as soon as all before it are there.
class PeoplesWriter : public CheckWriter {
 public:
  PeoplesWriter(std::FILE* out, bool failed_only) : out_(out), failed_only_(failed_only) {}

  void Begin() override {
    std::fputs(
        "Checking connection to all systems in Zentrace system database:\n"
        "\n"
        "  Status            System\n"
        "  ----------------- ------------------------------------------\n",
        out_);
  }

  void System(std::size_t index, const SweepResult& result) override {
    std::string line;
    if (!failed_only_ || result.report.failure) {
      line = "  " + zt_SweepField(result.report.state()) + ' ' + printable(result.system.name);
      if (result.report.failure)
        line += "  " + std::string(road_link_name(result.report.failure->link)) + ": " +
                printable(result.report.failure->text);
      line += '\n';
    }
    Place(index, std::move(line));
  }

  void LeftOut(std::size_t index) override { Place(index, ""); }

  void Stopped(const CheckTotals& totals) override { End(totals); }

  void End(const CheckTotals& totals) override {
    for (const auto& [index, line] : waiting_)  // of a check that was stopped
      std::fputs(line.c_str(), out_);
    constexpr const char* kWords[] = {"succeeded", "failed", "no Halvex", "not supported",
                                      "not available"};
    std::string text = format_text("%zu system%s:", totals.done, totals.done == 1 ? "" : "s");
    const char* separator = " ";
    for (const RoadState state : kStates) {
      if (totals.of(state) == 0)
        continue;
      text += separator + std::to_string(totals.of(state)) + ' ' +
              kWords[static_cast<std::size_t>(state)];
      separator = ", ";
    }
    std::fprintf(out_, "\n%s; %.1f s\n", text.c_str(), totals.seconds);
  }

 private:
  void Place(std::size_t index, std::string line) {
    waiting_.emplace(index, std::move(line));
    for (auto first = waiting_.begin(); first != waiting_.end() && first->first == next_; ++next_) {
      std::fputs(first->second.c_str(), out_);
      first = waiting_.erase(first);
    }
    std::fflush(out_);
  }

  std::FILE* out_;
  bool failed_only_;
  std::size_t next_ = 0;
  std::map<std::size_t, std::string> waiting_;
};

class JsonWriter : public CheckWriter {
 public:
  JsonWriter(std::FILE* out, bool failed_only) : out_(out), failed_only_(failed_only) {}

  void System(std::size_t, const SweepResult& result) override {
    const auto& failure = result.report.failure;
    if (failed_only_ && !failure)
      return;
    JsonObject object(kNoBlanks);
    object.Text("system", result.system.name);
    if (const std::string address = AddressOf(result.system); !address.empty())
      object.Text("address", address);
    object.Text("group", result.system.group);
    object.Text("state", road_state_name(result.report.state()));
    if (failure)
      AddFailure(*failure, &object);
    std::string list;
    for (const RoadRepository& each : result.report.repositories)
      list += (list.empty() ? "" : ",") + Repository(each);
    object.Raw("repositories", '[' + list + ']');
    object.Raw("alarm_server",
               result.report.alarm ? Place(result.report.alarm->at).Take() : "null");
    object.Raw("milliseconds", format_text("%.1f", result.took.count() * 1000));
    std::fprintf(out_, "%s\n", object.Take().c_str());
    std::fflush(out_);
  }

  void End(const CheckTotals&) override {}

 private:
  static constexpr bool kNoBlanks = false;

  static void AddFailure(const RoadFailure& failure, JsonObject* object) {
    object->Text("link", road_link_name(failure.link));
    object->Text("cause", road_cause_name(failure.cause));
    if (const error_status_t status = failure.call != 0 ? failure.call : failure.status;
        status != 0)
      object->Number("status", status);
    if (failure.at.key != kNoSystemKey)
      object->Text("at", PlaceText(failure.at));
    object->Text("text", failure.text);
    object->Text("try", failure.advice);
  }

  static JsonObject Place(const RoadAddress& at) {
    JsonObject object(kNoBlanks);
    object.Text("address", AddressText(at.key));
    object.Number("port", at.port);
    return object;
  }

  static std::string Repository(const RoadRepository& repository) {
    JsonObject object(kNoBlanks);
    object.Text("label", repository.name);
    object.Text("path", repository.path);
    object.Text("address", AddressText(repository.at.key));
    object.Number("port", repository.at.port);
    return object.Take();
  }

  std::FILE* out_;
  bool failed_only_;
};

// Samples are kept by metric, since the format wants each metric's samples together.
class PrometheusWriter : public CheckWriter {
 public:
  explicit PrometheusWriter(std::FILE* out) : out_(out) {}

  void System(std::size_t, const SweepResult& result) override {
    const auto& failure = result.report.failure;
    const std::string labels = Label("system", result.system.name) + ',' +
                               Label("address", AddressOf(result.system)) + ',' +
                               Label("group", result.system.group);
    Sample(kSuccess, labels, failure ? "0" : "1");
    Sample(kState, labels + ',' + Label("state", road_state_name(result.report.state())), "1");
    if (failure)
      Sample(kBroken,
             labels + ',' + Label("link", road_link_name(failure->link)) + ',' +
                 Label("cause", road_cause_name(failure->cause)),
             "1");
    Sample(kDuration, labels, format_text("%.6f", result.took.count()));
    Sample(kServers, labels, std::to_string(result.report.repositories.size()));
    Sample(kAlarm, labels, result.report.alarm ? "1" : "0");
  }

  void End(const CheckTotals& totals) override {
    for (std::size_t i = 0; i < kMetrics; ++i)
      if (!samples_[i].empty())
        Metric(kHeads[i], samples_[i]);
    const auto single = [&](const Head& head, const std::string& value) {
      Metric(head, std::string(head.name) + ' ' + value + '\n');
    };
    single({"zentrace_check_run_timestamp_seconds", "When the run ended."},
           std::to_string(std::time(nullptr)));
    single({"zentrace_check_run_duration_seconds", "How long the run took."},
           format_text("%.6f", totals.seconds));
    single({"zentrace_check_systems", "Systems that were checked."}, std::to_string(totals.done));
  }

 private:
  struct Head {
    const char* name;
    const char* help;
  };
  enum Which : std::size_t { kSuccess, kState, kBroken, kDuration, kServers, kAlarm, kMetrics };
  static constexpr Head kHeads[kMetrics] = {
      {"zentrace_check_success", "Whether the system succeeded."},
      {"zentrace_check_state", "The state that the system is in."},
      {"zentrace_check_broken_link", "The first link to the system that is broken, and why."},
      {"zentrace_check_duration_seconds", "How long the check of the system took."},
      {"zentrace_repository_servers", "Repository servers that live."},
      {"zentrace_alarm_server", "Whether an alarm server lives."},
  };

  static std::string Label(const char* name, std::string_view value) {
    std::string text = std::string(name) + "=\"";
    for (const char c : ValidUtf8(value)) {
      if (c == '\n')
        text += "\\n";
      else if (c == '"' || c == '\\')
        text.append(1, '\\').append(1, c);
      else
        text += c;
    }
    return text + '"';
  }

  void Sample(Which which, const std::string& labels, const std::string& value) {
    samples_[which] += std::string(kHeads[which].name) + '{' + labels + "} " + value + '\n';
  }

  void Metric(const Head& head, const std::string& samples) {
    std::fprintf(out_, "# HELP %s %s\n# TYPE %s gauge\n%s", head.name, head.help, head.name,
                 samples.c_str());
  }

  std::FILE* out_;
  std::array<std::string, kMetrics> samples_;
};

class PluginWriter : public CheckWriter {
 public:
  PluginWriter(const Arguments& arguments, std::FILE* out) : arguments_(arguments), out_(out) {}

  void System(std::size_t index, const SweepResult& result) override {
    const auto& failure = result.report.failure;
    if (!failure)
      return;
    // The first ones of the list, whichever are done first.
    named_.emplace(index, PluginText(result.system.name) + " (" +
                              std::string(road_link_name(failure->link)) + ' ' +
                              std::string(road_cause_name(failure->cause)) + ')');
    if (named_.size() > kMostNamed)
      named_.erase(std::prev(named_.end()));
  }

  void End(const CheckTotals& totals) override {
    constexpr const char* kWords[] = {"OK", "WARNING", "CRITICAL"};
    std::string text = format_text("ZENTRACE %s - ", kWords[PluginStatus(arguments_, totals)]);
    if (totals.failed() == 0)
      text += totals.done == 1 ? "the system succeeded"
                               : format_text("all %zu systems succeeded", totals.done);
    else
      text += format_text("%zu of %zu systems did not succeed: ", totals.failed(), totals.done);
    const char* separator = "";
    for (const auto& [index, name] : named_) {
      text += separator + name;
      separator = ", ";
    }
    if (totals.failed() > named_.size())
      text += format_text(", and %zu more", totals.failed() - named_.size());
    const std::string warning = arguments_.warning > 0 ? std::to_string(arguments_.warning) : "";
    text +=
        format_text(" | systems=%zu;;;0 succeeded=%zu;;;0;%zu failed=%zu;%s;%d;0;%zu time=%.3fs",
                    totals.done, totals.of(RoadState::succeeded), totals.done, totals.failed(),
                    warning.c_str(), arguments_.critical, totals.done, totals.seconds);
    std::fprintf(out_, "%s\n", text.c_str());
  }

  void Stopped(const CheckTotals& totals) override {
    std::fprintf(out_, "ZENTRACE UNKNOWN - stopped after %zu of %zu systems\n", totals.done,
                 totals.systems);
  }

 private:
  static constexpr std::size_t kMostNamed = 10;

  const Arguments& arguments_;
  std::FILE* out_;
  std::map<std::size_t, std::string> named_;
};

constexpr PageState page_state(RoadState state) {
  switch (state) {
    case RoadState::succeeded:
      return PageState::succeeded;
    case RoadState::no_halvex:
      return PageState::no_halvex;
    case RoadState::not_supported:
      return PageState::not_supported;
    case RoadState::not_available:
      return PageState::not_available;
    case RoadState::failed:
      break;
  }
  return PageState::failed;
}

// A page shows the systems in the order of the list.
class HtmlWriter : public CheckWriter {
 public:
  explicit HtmlWriter(std::FILE* out) : out_(out) {}

  void System(std::size_t index, const SweepResult& result) override {
    PageSystem system;
    system.name = result.system.name;
    system.address = AddressOf(result.system);
    system.group = result.system.group;
    system.state = page_state(result.report.state());
    system.milliseconds = result.took.count() * 1000;
    if (const auto& failure = result.report.failure) {
      system.link = road_link_name(failure->link);
      system.cause = road_cause_name(failure->cause);
      system.text = failure->text;
      system.advice = failure->advice;
    }
    systems_.emplace(index, std::move(system));
  }

  void End(const CheckTotals& totals) override {
    std::vector<PageSystem> list;
    for (auto& [index, system] : systems_)
      list.push_back(std::move(system));
    std::fputs(CheckPage(list, began_, totals.seconds).c_str(), out_);
  }

 private:
  std::FILE* out_;
  const std::time_t began_ = std::time(nullptr);
  std::map<std::size_t, PageSystem> systems_;
};

}  // namespace

std::unique_ptr<CheckWriter> MakeCheckWriter(const Arguments& arguments, std::FILE* out) {
  if (arguments.json)
    return std::make_unique<JsonWriter>(out, arguments.failed);
  if (arguments.html)
    return std::make_unique<HtmlWriter>(out);
  if (arguments.prometheus)
    return std::make_unique<PrometheusWriter>(out);
  if (arguments.plugin)
    return std::make_unique<PluginWriter>(arguments, out);
  return std::make_unique<PeoplesWriter>(out, arguments.failed);
}

int PluginStatus(const Arguments& arguments, const CheckTotals& totals) {
  const auto failed = totals.failed();
  if (failed >= static_cast<std::size_t>(arguments.critical))
    return 2;
  return arguments.warning > 0 && failed >= static_cast<std::size_t>(arguments.warning) ? 1 : 0;
}

}  // namespace ztsys
