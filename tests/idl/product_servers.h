// SPDX-License-Identifier: Apache-2.0
// Skeletons of the product's interfaces that note what arrives and answer with values that differ
// from parameter to parameter. They fault when the client has no room for their results.

#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "repFilteredView_server.h"
#include "repTemporalView_server.h"
#include "repTimeFilter_server.h"
#include "repView_server.h"
#include "rep_server.h"
#include "tests/idl/stub_runtime.h"

namespace stub_test {

// "name value value ...", written by every operation of the servers below.
class Notes {
 public:
  const std::string& heard() const { return heard_; }

 protected:
  template <typename... Values>
  void note(const char* name, Values... values) {
    heard_ = name;
    ((heard_ += ' ' + std::to_string(static_cast<std::int64_t>(values))), ...);
  }
  void note_more(std::int64_t value) { heard_ += ' ' + std::to_string(value); }
  void note_ids(std::uint32_t last, const std::uint32_t* ids) {
    for (std::uint32_t i = 0; i != last + 1; ++i)
      note_more(ids[i]);
  }
  void note_context(const rpc::WireContext& context) {
    heard_ += context == kView ? " view" : context == kFilter ? " filter" : " unknown";
  }

 private:
  std::string heard_;
};

inline void set_text(std::uint16_t& length, char* text, const std::string& value) {
  length = static_cast<std::uint16_t>(value.size());
  std::memcpy(text, value.c_str(), value.size() + 1);
}

inline void describe(rep_sDescriptor& descriptor, std::uint32_t id, const std::string& name,
                     const std::string& label) {
  descriptor.fId = id;
  set_text(descriptor.NameLength, descriptor.fName, name);
  set_text(descriptor.LabelLength, descriptor.Label, label);
}

inline void require_room(bool enough) {
  if (!enough)
    throw rpc::server::Fault(rpc::nca::kOutArgumentsTooBig);
}

class RepServer : public rep_Server, public Notes {
 public:
  using CallInfo = rpc::server::CallInfo;

  void LookupRepository(const CallInfo&, rep_sRepositoryDescriptor* result,
                        error_status_t* status) override {
    note("LookupRepository");
    // Texts as long as they can be.
    describe(result->Descriptor, 7, std::string(255, 'n'), std::string(63, 'l'));
    result->Version = -3;
    set_text(result->PathNameLength, result->PathName, std::string(1023, 'p'));
    *status = 11;
  }
  void LookupTable(const CallInfo&, std::uint32_t tableId, std::uint32_t* lookupHandle,
                   std::uint32_t maxIndex, std::uint32_t* lastIndex, rep_sTableDescriptor* results,
                   error_status_t* status) override {
    require_room(maxIndex >= 2);
    note("LookupTable", tableId, *lookupHandle, maxIndex);
    *lookupHandle = 21;
    *lastIndex = 2;
    for (std::uint32_t i = 0; i <= 2; ++i) {
      results[i] = {{}, 100 + i, 0xFFFFFFFF, 300, -1, 1, 3, -2};
      describe(results[i].Descriptor, i, "TABLE" + std::string(i, '_'), std::string(i, 'x'));
    }
    *status = 12;
  }
  void LookupInstance(const CallInfo&, std::uint32_t tableId, std::uint32_t instanceId,
                      std::uint32_t* lookupHandle, std::uint32_t maxIndex, std::uint32_t* lastIndex,
                      rep_sInstanceDescriptor* results, error_status_t* status) override {
    note("LookupInstance", tableId, instanceId, *lookupHandle, maxIndex);
    *lookupHandle = 22;
    *lastIndex = 0;
    results[0] = {{}, 9, 1000000, 2000000};
    describe(results[0].Descriptor, 5, "root", "");
    *status = 13;
  }
  void LookupMetric(const CallInfo&, std::uint32_t tableId, std::uint32_t metricId,
                    std::uint32_t* lookupHandle, std::uint32_t maxIndex, std::uint32_t* lastIndex,
                    rep_sMetricDescriptor* results, error_status_t* status) override {
    require_room(maxIndex >= 1);
    note("LookupMetric", tableId, metricId, *lookupHandle, maxIndex);
    *lookupHandle = 23;
    *lastIndex = 1;
    for (std::uint32_t i = 0; i <= 1; ++i) {
      results[i] = {{}, 77, 1, 2, 3, 4, -5, -6, 0, 0, {}, {}};
      describe(results[i].Descriptor, 40 + i, "CPU", "Processor");
      set_text(results[i].HeadOneLength, results[i].HeadingOne, i == 0 ? "" : "CPU");
      set_text(results[i].HeadTwoLength, results[i].HeadingTwo, std::string(79, '%'));
    }
    *status = 14;
  }
};

template <typename Skeleton>
class ViewNotes : public Skeleton, public Notes {
 public:
  using CallInfo = rpc::server::CallInfo;
  using Context = rpc::WireContext;

  void Destroy(const CallInfo&, Context* view, error_status_t* status) override {
    note("Destroy");
    note_context(*view);
    *view = {};
    *status = 31;
  }
  void GetFirstPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                        error_status_t* status) override {
    answer("GetFirstPosition", view, where, status, 32);
  }
  void GetLastPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                       error_status_t* status) override {
    answer("GetLastPosition", view, where, status, 33);
  }
  void GetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                   error_status_t* status) override {
    answer("GetPosition", view, where, status, 34);
  }
  void SetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                   error_status_t* status) override {
    answer("SetPosition", view, where, status, 35);
  }
  void GetXInterval(const CallInfo&, const Context& view, std::uint32_t* interval,
                    error_status_t* status) override {
    answer("GetXInterval", view, interval, status, 36);
  }
  void Read(const CallInfo&, const Context& view, std::uint32_t max_position,
            std::uint32_t* last_position, std::uint32_t max_integer, std::uint32_t* last_integer,
            std::uint32_t max_character, std::uint32_t* last_character, std::uint32_t* positions,
            std::uint32_t* integers, char* characters, error_status_t* status) override {
    require_room(max_position >= 1 && max_integer >= 2 && max_character >= 4);
    note("Read", max_position, max_integer, max_character);
    note_context(view);
    *last_position = 1;
    *last_integer = 2;
    *last_character = 4;
    positions[0] = 0x11223344;
    positions[1] = 0xFFFFFFFF;
    for (std::uint32_t i = 0; i < 3; ++i)
      integers[i] = 0x01020300 + i;
    std::memcpy(characters, "ab\0c", 5);
    *status = 37;
  }

 protected:
  void answer(const char* name, const Context& context, std::uint32_t* value,
              error_status_t* status, std::uint32_t number) {
    note(name, *value);
    note_context(context);
    *value += 1000 + number;
    *status = number;
  }
};

class ViewServer : public ViewNotes<repView_Server> {
 public:
  void Create(const CallInfo&, std::uint32_t table, std::uint32_t last_metric,
              const std::uint32_t* metrics, Context* view, error_status_t* status) override {
    note("Create", table, last_metric);
    note_ids(last_metric, metrics);
    *view = kView;
    *status = 30;
  }
};

class TemporalViewServer : public ViewNotes<repTemporalView_Server> {
 public:
  void Create(const CallInfo&, std::uint32_t table, const Context& filter, std::uint32_t interval,
              std::uint32_t last_instance, const std::uint32_t* instances,
              std::uint32_t last_metric, const std::uint32_t* metrics, Context* view,
              error_status_t* status) override {
    note("Create", table, interval, last_instance);
    note_ids(last_instance, instances);
    note_more(last_metric);
    note_ids(last_metric, metrics);
    note_context(filter);
    *view = kView;
    *status = 30;
  }
  void SetXInterval(const CallInfo&, const Context& view, std::uint32_t* interval,
                    error_status_t* status) override {
    answer("SetXInterval", view, interval, status, 38);
  }
};

class TimeFilterServer : public repTimeFilter_Server, public Notes {
 public:
  void Create(const rpc::server::CallInfo&, std::uint32_t lastShiftIndex,
              const repTimeFilter_sShiftDescriptor* shifts, rpc::WireContext* filterContext,
              error_status_t* status) override {
    note("Create", lastShiftIndex);
    for (std::uint32_t i = 0; i != lastShiftIndex + 1; ++i) {
      note_more(shifts[i].fStart);
      note_more(shifts[i].fStop);
      note_more(shifts[i].fShiftType);
    }
    *filterContext = kFilter;
    *status = 40;
  }
  void Destroy(const rpc::server::CallInfo&, rpc::WireContext* filterContext,
               error_status_t* status) override {
    note("Destroy");
    note_context(*filterContext);
    *filterContext = {};
    *status = 41;
  }
  void Copy(const rpc::server::CallInfo&, const rpc::WireContext& fromFilterContext,
            rpc::WireContext* toFilterContext, error_status_t* status) override {
    note("Copy");
    note_context(fromFilterContext);
    *toFilterContext = kFilter;
    *status = 42;
  }
};

}  // namespace stub_test
