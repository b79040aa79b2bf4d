// SPDX-License-Identifier: Apache-2.0
// Skeletons of the product's interfaces that note what arrives and answer with values that differ
// from parameter to parameter. They fault when the client has no room for their results.

#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "ag_server.h"
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

// The operations that the three view interfaces share.
#define DEFINE_VIEW_OPERATIONS(interface)                                                       \
  void Destroy(const rpc::server::CallInfo&, rpc::WireContext* viewContext,                     \
               error_status_t* status) override {                                               \
    note("Destroy");                                                                            \
    note_context(*viewContext);                                                                 \
    *viewContext = {};                                                                          \
    *status = 31;                                                                               \
  }                                                                                             \
  void GetFirstPosition(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,      \
                        std::uint32_t* where, error_status_t* status) override {                \
    answer("GetFirstPosition", viewContext, where, status, 32);                                 \
  }                                                                                             \
  void GetLastPosition(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,       \
                       std::uint32_t* where, error_status_t* status) override {                 \
    answer("GetLastPosition", viewContext, where, status, 33);                                  \
  }                                                                                             \
  void GetPosition(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,           \
                   std::uint32_t* where, error_status_t* status) override {                     \
    answer("GetPosition", viewContext, where, status, 34);                                      \
  }                                                                                             \
  void SetPosition(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,           \
                   std::uint32_t* where, error_status_t* status) override {                     \
    answer("SetPosition", viewContext, where, status, 35);                                      \
  }                                                                                             \
  void GetXInterval(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,          \
                    std::uint32_t* interval, error_status_t* status) override {                 \
    answer("GetXInterval", viewContext, interval, status, 36);                                  \
  }                                                                                             \
  void Read(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,                  \
            std::uint32_t maxPositionIndex, std::uint32_t* lastPositionIndex,                   \
            std::uint32_t maxIntResultsIndex, std::uint32_t* lastIntResultsIndex,               \
            std::uint32_t maxCharResultsIndex, std::uint32_t* lastCharResultsIndex,             \
            std::uint32_t* positions, std::uint32_t* intResults, char* charResults,             \
            error_status_t* status) override {                                                  \
    require_room(maxPositionIndex >= 1 && maxIntResultsIndex >= 2 && maxCharResultsIndex >= 4); \
    note("Read", maxPositionIndex, maxIntResultsIndex, maxCharResultsIndex);                    \
    note_context(viewContext);                                                                  \
    *lastPositionIndex = 1;                                                                     \
    *lastIntResultsIndex = 2;                                                                   \
    *lastCharResultsIndex = 4;                                                                  \
    positions[0] = 0x11223344;                                                                  \
    positions[1] = 0xFFFFFFFF;                                                                  \
    for (std::uint32_t i = 0; i < 3; ++i)                                                       \
      intResults[i] = 0x01020300 + i;                                                           \
    std::memcpy(charResults, "ab\0c", 5);                                                       \
    *status = 37;                                                                               \
  }

class ViewNotes : public Notes {
 protected:
  void answer(const char* name, const rpc::WireContext& context, std::uint32_t* value,
              error_status_t* status, std::uint32_t number) {
    note(name, *value);
    note_context(context);
    *value += 1000 + number;
    *status = number;
  }
  void note_ids(std::uint32_t last, const std::uint32_t* ids) {
    for (std::uint32_t i = 0; i != last + 1; ++i)
      note_more(ids[i]);
  }
};

class ViewServer : public repView_Server, public ViewNotes {
 public:
  void Create(const rpc::server::CallInfo&, std::uint32_t tableId, std::uint32_t lastMetricIndex,
              const std::uint32_t* metricIds, rpc::WireContext* viewContext,
              error_status_t* status) override {
    note("Create", tableId, lastMetricIndex);
    note_ids(lastMetricIndex, metricIds);
    *viewContext = kView;
    *status = 30;
  }
  DEFINE_VIEW_OPERATIONS(repView)
};

class FilteredViewServer : public repFilteredView_Server, public ViewNotes {
 public:
  void Create(const rpc::server::CallInfo&, std::uint32_t tableId,
              const rpc::WireContext& filterObjId, std::uint32_t lastMetricIndex,
              const std::uint32_t* metricIds, rpc::WireContext* viewContext,
              error_status_t* status) override {
    note("Create", tableId, lastMetricIndex);
    note_ids(lastMetricIndex, metricIds);
    note_context(filterObjId);
    *viewContext = kView;
    *status = 30;
  }
  DEFINE_VIEW_OPERATIONS(repFilteredView)
};

class TemporalViewServer : public repTemporalView_Server, public ViewNotes {
 public:
  void Create(const rpc::server::CallInfo&, std::uint32_t tableId,
              const rpc::WireContext& filterContext, std::uint32_t interval,
              std::uint32_t lastInstanceIndex, const std::uint32_t* instanceIds,
              std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
              rpc::WireContext* viewContext, error_status_t* status) override {
    note("Create", tableId, interval, lastInstanceIndex);
    note_ids(lastInstanceIndex, instanceIds);
    note_more(lastMetricIndex);
    note_ids(lastMetricIndex, metricIds);
    note_context(filterContext);
    *viewContext = kView;
    *status = 30;
  }
  void SetXInterval(const rpc::server::CallInfo&, const rpc::WireContext& viewContext,
                    std::uint32_t* interval, error_status_t* status) override {
    answer("SetXInterval", viewContext, interval, status, 38);
  }
  DEFINE_VIEW_OPERATIONS(repTemporalView)
};

#undef DEFINE_VIEW_OPERATIONS

class TimeFilterServer : public repTimeFilter_Server, public ViewNotes {
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

class AlarmServer : public ag_Server, public Notes {
 public:
  using CallInfo = rpc::server::CallInfo;
  using Key = std::int32_t;
  using Number = std::uint32_t;

  void Register(const CallInfo&, Key key, ag_eSystemType type, error_status_t* s) override {
    end(s, 50, "Register", key, type);
  }
  void Unregister(const CallInfo&, Key key, ag_eSystemType type, error_status_t* s) override {
    end(s, 51, "Unregister", key, type);
  }
  void SetEvCFlag(const CallInfo&, Number flag, error_status_t* s) override {
    end(s, 52, "SetEvCFlag", flag);
  }
  void GetEvCFlag(const CallInfo&, Number* flag, error_status_t* s) override {
    *flag = 153;
    end(s, 53, "GetEvCFlag");
  }
  void SetExecFlag(const CallInfo&, Number flag, error_status_t* s) override {
    end(s, 54, "SetExecFlag", flag);
  }
  void GetExecFlag(const CallInfo&, Number* flag, error_status_t* s) override {
    *flag = 155;
    end(s, 55, "GetExecFlag");
  }
  void SetInterval(const CallInfo&, Number interval, error_status_t* s) override {
    end(s, 56, "SetInterval", interval);
  }
  void GetInterval(const CallInfo&, Number* interval, error_status_t* s) override {
    *interval = 157;
    end(s, 57, "GetInterval");
  }
  void SetEvCError(const CallInfo&, Number error, error_status_t* s) override {
    end(s, 58, "SetEvCError", error);
  }
  void GetEvCError(const CallInfo&, Number* error, error_status_t* s) override {
    *error = 159;
    end(s, 59, "GetEvCError");
  }
  void GetGeneralInfo(const CallInfo&, ag_GeneralInfo_struct* info, error_status_t* s) override {
    *info = {1, {0x01020304, 0x0506, 0x0708, 9, 10, {11, 12, 13, 14, 15, 16}}, 2, 3, 4, 5};
    end(s, 60, "GetGeneralInfo");
  }
  void RegisterZT(const CallInfo&, Key key, error_status_t* s) override {
    end(s, 61, "RegisterZT", key);
  }
  void UnregisterZT(const CallInfo&, Key key, error_status_t* s) override {
    end(s, 62, "UnregisterZT", key);
  }
  void RegisterSNMP(const CallInfo&, Key key, error_status_t* s) override {
    end(s, 63, "RegisterSNMP", key);
  }
  void UnregisterSNMP(const CallInfo&, Key key, error_status_t* s) override {
    end(s, 64, "UnregisterSNMP", key);
  }
  void SetZTError(const CallInfo&, Key key, Number error, error_status_t* s) override {
    end(s, 65, "SetZTError", key, error);
  }
  void GetZTError(const CallInfo&, Key key, const Number* error, error_status_t* s) override {
    end(s, 66, "GetZTError", key, *error);
  }
  void SetSNMPError(const CallInfo&, Key key, Number error, error_status_t* s) override {
    end(s, 67, "SetSNMPError", key, error);
  }
  void GetSNMPError(const CallInfo&, Key key, const Number* error, error_status_t* s) override {
    end(s, 68, "GetSNMPError", key, *error);
  }
  void GetSystems(const CallInfo&, Key key, std::uint16_t* lookup_handle, std::uint16_t max_index,
                  std::uint16_t* last_index, std::uint16_t* num_results,
                  ag_SystemInfo_struct* results, error_status_t* s) override {
    require_room(max_index >= 1);
    end(s, 69, "GetSystems", key, *lookup_handle, max_index, *last_index);
    *lookup_handle = 169;
    *last_index = 1;
    *num_results = 2;
    for (std::uint32_t i = 0; i < 2; ++i) {
      results[i] = {-static_cast<Key>(i), i + 1, i + 2, i + 3, i + 4, 0, {}};
      set_text(results[i].SocketStrLen, results[i].SocketString,
               i == 0 ? "10.0.0.1:9" : std::string(19, 's'));
    }
  }
  void Ping(const CallInfo&, error_status_t* s) override { end(s, 70, "Ping"); }
  void DBChanged(const CallInfo&, std::int32_t* db_changed, error_status_t* s) override {
    *db_changed = -171;
    end(s, 71, "DBChanged");
  }
  void DeleteZT(const CallInfo&, Key key, error_status_t* s) override {
    end(s, 72, "DeleteZT", key);
  }

 private:
  template <typename... Values>
  void end(error_status_t* status, std::uint32_t number, const char* name, Values... values) {
    note(name, values...);
    *status = number;
  }
};

}  // namespace stub_test
