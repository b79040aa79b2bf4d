// SPDX-License-Identifier: Apache-2.0
#include "tests/idl/product_calls.h"

#include <algorithm>
#include <array>

#include "platform/rpc/stub/stub.h"

namespace stub_test {

namespace {

// The bytes of kView and kFilter, little-endian.
constexpr char kViewBytes[] = "00000000 14131211 22213231 41425152 53545556";
constexpr char kFilterBytes[] = "00000000 f4f3f2f1 e2e1d2d1 c1c2b1b2 b3b4b5b6";

class Results {
 public:
  explicit Results(std::int64_t status) : text_(std::to_string(status)) {}
  template <typename... Values>
  Results& add(Values... values) {
    ((text_ += ' ' + std::to_string(static_cast<std::int64_t>(values))), ...);
    return *this;
  }
  Results& add_text(const std::string& text) {
    text_ += " '" + text + "'";
    return *this;
  }
  // Whether a handle holds what the server issued, and frees the client's object.
  Results& add_context(RPC_CONTEXT_HANDLE context) {
    const rpc::WireContext wire =
        context == nullptr ? rpc::WireContext{} : rpc::wire_context(context);
    text_ += wire == kView ? " view" : wire == kFilter ? " filter" : wire.null() ? " null" : " ?";
    if (context != nullptr)
      rpc::store_context(&context, {}, {});
    return *this;
  }
  operator std::string() const { return text_; }

 private:
  std::string text_;
};

void add_descriptor(Results& results, const rep_sDescriptor& descriptor) {
  results.add(descriptor.fId, descriptor.NameLength, descriptor.LabelLength)
      .add_text(descriptor.fName)
      .add_text(descriptor.Label);
}

// The entries that the three view interfaces share.
struct ViewEntries {
  const char* name;
  rpc::server::Interface* server;
  const Notes* notes;
  decltype(&zt_v2_repView_Destroy) destroy;
  decltype(&zt_v2_repView_GetPosition) get_first_position;
  decltype(&zt_v2_repView_GetPosition) get_last_position;
  decltype(&zt_v2_repView_GetPosition) get_position;
  decltype(&zt_v2_repView_SetPosition) set_position;
  decltype(&zt_v2_repView_GetXInterval) get_interval;
  decltype(&zt_v2_repView_Read) read;
};

// Destroys a context that the server issued as `wire`.
std::function<std::string()> destroying(decltype(&zt_v2_repView_Destroy) destroy,
                                        const rpc::WireContext& wire) {
  return [destroy, wire] {
    RPC_CONTEXT_HANDLE context = issued_context(wire);
    error_status_t status = 0;
    try {
      destroy(&context, &status);
    } catch (...) {
      rpc::store_context(&context, {}, {});
      throw;
    }
    return Results(status).add_context(context);
  };
}

std::string read_view(decltype(&zt_v2_repView_Read) read, RPC_CONTEXT_HANDLE view) {
  std::uint32_t last_position = 0;
  std::uint32_t last_int = 0;
  std::uint32_t last_char = 0;
  std::array<std::uint32_t, 4> positions{};
  std::array<std::uint32_t, 8> ints{};
  std::array<char, 16> chars{};
  error_status_t status = 0;
  read(view, 3, &last_position, 7, &last_int, 15, &last_char, positions.data(), ints.data(),
       chars.data(), &status);
  Results results(status);
  results.add(last_position, last_int, last_char);
  for (const std::uint32_t position : positions)
    results.add(position);
  for (const std::uint32_t value : ints)
    results.add(value);
  return results.add_text({chars.data(), std::min<std::size_t>(last_char, chars.size())})
      .add(chars[15]);
}

}  // namespace

Product::Product() : view_(issued_context(kView)), filter_(issued_context(kFilter)) {
  add_rep();
  add_views();
  add_time_filter();
  add_alarms();
}

Product::~Product() {
  rpc::store_context(&view_, {}, {});
  rpc::store_context(&filter_, {}, {});
}

void Product::add_rep() {
  const auto add = [this](const char* name, const char* request, const char* heard,
                          const std::string& results, std::function<std::string()> run) {
    calls_.push_back(
        {std::string("rep ") + name, &rep_, &rep_, std::move(run), request, heard, results});
  };
  add("LookupRepository", "", "LookupRepository",
      "11 7 255 63 '" + std::string(255, 'n') + "' '" + std::string(63, 'l') + "' -3 1023 '" +
          std::string(1023, 'p') + "'",
      [this] {
        rep_sRepositoryDescriptor result;
        error_status_t status = 0;
        zt_v2_rep_LookupRepository(binding_, &result, &status);
        Results results(status);
        add_descriptor(results, result.Descriptor);
        return results.add(result.Version, result.PathNameLength).add_text(result.PathName);
      });
  add("LookupTable", "01000000 02000000 03000000", "LookupTable 1 2 3",
      "12 21 2 0 5 0 'TABLE' '' 100 4294967295 300 -1 1 3 -2"
      " 1 6 1 'TABLE_' 'x' 101 4294967295 300 -1 1 3 -2"
      " 2 7 2 'TABLE__' 'xx' 102 4294967295 300 -1 1 3 -2",
      [this] {
        std::uint32_t lookup = 2;
        std::uint32_t last = 0;
        std::array<rep_sTableDescriptor, 4> tables{};
        error_status_t status = 0;
        zt_v2_rep_LookupTable(binding_, 1, &lookup, 3, &last, tables.data(), &status);
        Results results(status);
        results.add(lookup, last);
        for (std::uint32_t i = 0; i <= last && i < tables.size(); ++i) {
          const rep_sTableDescriptor& t = tables[i];
          add_descriptor(results, t.Descriptor);
          results.add(t.TableTypeId, t.DiscriminatorId, t.fInterval, t.FirstX, t.LastX, t.Flags,
                      t.IntervalUnits);
        }
        return results;
      });
  add("LookupInstance", "01000000 02000000 03000000 04000000", "LookupInstance 1 2 3 4",
      "13 22 0 5 4 0 'root' '' 9 1000000 2000000", [this] {
        std::uint32_t lookup = 3;
        std::uint32_t last = 0;
        std::array<rep_sInstanceDescriptor, 5> instances{};
        error_status_t status = 0;
        zt_v2_rep_LookupInstance(binding_, 1, 2, &lookup, 4, &last, instances.data(), &status);
        Results results(status);
        results.add(lookup, last);
        add_descriptor(results, instances[0].Descriptor);
        return results.add(instances[0].TableTypeId, instances[0].BirthTime,
                           instances[0].DeathTime);
      });
  const std::string percents = " '" + std::string(79, '%') + "'";
  add("LookupMetric", "01000000 02000000 03000000 04000000", "LookupMetric 1 2 3 4",
      "14 23 1 40 3 9 'CPU' 'Processor' 77 1 2 3 4 -5 -6 ''" + percents +
          " 41 3 9 'CPU' 'Processor' 77 1 2 3 4 -5 -6 'CPU'" + percents,
      [this] {
        std::uint32_t lookup = 3;
        std::uint32_t last = 0;
        std::array<rep_sMetricDescriptor, 5> metrics{};
        error_status_t status = 0;
        zt_v2_rep_LookupMetric(binding_, 1, 2, &lookup, 4, &last, metrics.data(), &status);
        Results results(status);
        results.add(lookup, last);
        for (std::uint32_t i = 0; i <= last && i < metrics.size(); ++i) {
          const rep_sMetricDescriptor& m = metrics[i];
          add_descriptor(results, m.Descriptor);
          results.add(m.DenominatorId, m.DataType, m.Length, m.ColumnWidth, m.SumType, m.BaseScale,
                      m.Scale10);
          results.add_text(m.HeadingOne).add_text(m.HeadingTwo);
        }
        return results;
      });
}

void Product::add_views() {
  const std::string view = kViewBytes;
  const std::string filter = kFilterBytes;
  const auto add = [this](const ViewEntries& of, const char* name, const std::string& request,
                          const std::string& heard, const std::string& results, auto run) {
    calls_.push_back({std::string(of.name) + " " + name, of.server, of.notes, std::move(run),
                      request, heard, results});
  };
  const auto create = [this](auto entry, auto... values) {
    return [this, entry, values...] {
      RPC_CONTEXT_HANDLE context = nullptr;
      error_status_t status = 0;
      entry(binding_, 5, values..., &context, &status);
      return Results(status).add_context(context);
    };
  };
  // The value goes in where the operation takes one and comes back.
  const auto number = [this](auto entry) {
    return [this, entry] {
      std::uint32_t value = 600;
      error_status_t status = 0;
      entry(view_, &value, &status);
      return Results(status).add(value);
    };
  };
  const ViewEntries all[] = {
      {"repView", &base_view_, &base_view_, zt_v2_repView_Destroy, zt_v2_repView_GetFirstPosition,
       zt_v2_repView_GetLastPosition, zt_v2_repView_GetPosition, zt_v2_repView_SetPosition,
       zt_v2_repView_GetXInterval, zt_v2_repView_Read},
      {"repFilteredView", &filtered_view_, &filtered_view_, zt_v2_repFilteredView_Destroy,
       zt_v2_repFilteredView_GetFirstPosition, zt_v2_repFilteredView_GetLastPosition,
       zt_v2_repFilteredView_GetPosition, zt_v2_repFilteredView_SetPosition,
       zt_v2_repFilteredView_GetXInterval, zt_v2_repFilteredView_Read},
      {"repTemporalView", &temporal_view_, &temporal_view_, zt_v2_repTemporalView_Destroy,
       zt_v2_repTemporalView_GetFirstPosition, zt_v2_repTemporalView_GetLastPosition,
       zt_v2_repTemporalView_GetPosition, zt_v2_repTemporalView_SetPosition,
       zt_v2_repTemporalView_GetXInterval, zt_v2_repTemporalView_Read}};
  static constexpr std::uint32_t kMetrics[] = {9, 8};
  static constexpr std::uint32_t kInstances[] = {7};
  add(all[0], "Create", "05000000 00000000 01000000 00000000 01000000 09000000", "Create 5 0 9",
      "30 view", create(zt_v2_repView_Create, 0u, kMetrics));
  const std::string two_metrics = " 01000000 02000000 00000000 02000000 09000000 08000000";
  add(all[1], "Create", "05000000 " + filter + two_metrics, "Create 5 1 9 8 filter", "30 view",
      create(zt_v2_repFilteredView_Create, filter_, 1u, kMetrics));
  add(all[2], "Create",
      "05000000 " + filter + " 2c010000 00000000 01000000 00000000 01000000 07000000" + two_metrics,
      "Create 5 300 0 7 1 9 8 filter", "30 view",
      create(zt_v2_repTemporalView_Create, filter_, 300u, 0u, kInstances, 1u, kMetrics));
  for (const ViewEntries& of : all) {
    add(of, "Destroy", view, "Destroy view", "31 null", destroying(of.destroy, kView));
    add(of, "GetFirstPosition", view, "GetFirstPosition 0 view", "32 1032",
        number(of.get_first_position));
    add(of, "GetLastPosition", view, "GetLastPosition 0 view", "33 1033",
        number(of.get_last_position));
    add(of, "GetPosition", view, "GetPosition 0 view", "34 1034", number(of.get_position));
    add(of, "SetPosition", view + " 58020000", "SetPosition 600 view", "35 1635",
        number(of.set_position));
    add(of, "GetXInterval", view, "GetXInterval 0 view", "36 1036", number(of.get_interval));
    add(of, "Read", view + " 03000000 07000000 0f000000", "Read 3 7 15 view",
        "37 1 2 4 287454020 4294967295 0 0 16909056 16909057 16909058 0 0 0 0 0 '" +
            std::string("ab\0c", 4) + "' 0",
        [this, read = of.read] { return read_view(read, view_); });
  }
  add(all[2], "SetXInterval", view + " 58020000", "SetXInterval 600 view", "38 1638",
      number(zt_v2_repTemporalView_SetXInterval));
}

void Product::add_time_filter() {
  const std::string filter = kFilterBytes;
  const auto add = [this](const char* name, const std::string& request, const char* heard,
                          const char* results, std::function<std::string()> run) {
    calls_.push_back({std::string("repTimeFilter ") + name, &time_filter_, &time_filter_,
                      std::move(run), request, heard, results});
  };
  // The second element begins on a boundary of 4; nothing is behind the last one.
  add("Create",
      "01000000 02000000 00000000 02000000 08000000 11000000 01000000 ffffffff 01000000 0000",
      "Create 1 8 17 1 -1 1 0", "40 filter", [this] {
        const std::array<repTimeFilter_sShiftDescriptor, 2> shifts = {
            {{8, 17, repTimeFilter_cShiftDaily}, {-1, 1, repTimeFilter_cShiftAbsolute}}};
        RPC_CONTEXT_HANDLE context = nullptr;
        error_status_t status = 0;
        zt_v2_repTimeFilter_Create(binding_, 1, shifts.data(), &context, &status);
        return Results(status).add_context(context);
      });
  add("Destroy", filter, "Destroy filter", "41 null",
      destroying(zt_v2_repTimeFilter_Destroy, kFilter));
  add("Copy", filter, "Copy filter", "42 filter", [this] {
    RPC_CONTEXT_HANDLE copy = nullptr;
    error_status_t status = 0;
    zt_v2_repTimeFilter_Copy(filter_, &copy, &status);
    return Results(status).add_context(copy);
  });
}

void Product::add_alarms() {
  const auto add = [this](const char* name, const char* request, const char* heard,
                          const char* results, std::function<std::string()> run) {
    calls_.push_back(
        {std::string("ag ") + name, &alarms_, &alarms_, std::move(run), request, heard, results});
  };
  const auto simple = [this](auto entry, auto... values) {
    return [this, entry, values...] {
      error_status_t status = 0;
      entry(binding_, values..., &status);
      return Results(status);
    };
  };
  const auto get = [this](auto entry) {
    return [this, entry] {
      std::uint32_t value = 0;
      error_status_t status = 0;
      entry(binding_, &value, &status);
      return Results(status).add(value);
    };
  };
  // The value that goes out is a constant: a stub that wrote to it would not compile.
  const auto get_error = [this](auto entry) {
    return [this, entry] {
      const std::uint32_t value = 6;
      error_status_t status = 0;
      entry(binding_, -2, &value, &status);
      return Results(status).add(value);
    };
  };
  add("Register", "feffffff 0100", "Register -2 1", "50",
      simple(zt_v2_ag_Register, -2, ag_cSystemSNMP));
  add("Unregister", "feffffff 0000", "Unregister -2 0", "51",
      simple(zt_v2_ag_Unregister, -2, ag_cSystemZT));
  add("SetEvCFlag", "03000000", "SetEvCFlag 3", "52", simple(zt_v2_ag_SetEvCFlag, 3u));
  add("GetEvCFlag", "", "GetEvCFlag", "53 153", get(zt_v2_ag_GetEvCFlag));
  add("SetExecFlag", "03000000", "SetExecFlag 3", "54", simple(zt_v2_ag_SetExecFlag, 3u));
  add("GetExecFlag", "", "GetExecFlag", "55 155", get(zt_v2_ag_GetExecFlag));
  add("SetInterval", "03000000", "SetInterval 3", "56", simple(zt_v2_ag_SetInterval, 3u));
  add("GetInterval", "", "GetInterval", "57 157", get(zt_v2_ag_GetInterval));
  add("SetEvCError", "03000000", "SetEvCError 3", "58", simple(zt_v2_ag_SetEvCError, 3u));
  add("GetEvCError", "", "GetEvCError", "59 159", get(zt_v2_ag_GetEvCError));
  add("GetGeneralInfo", "", "GetGeneralInfo", "60 1 16909060 1286 1800 9 10 11 16 2 3 4 5", [this] {
    ag_GeneralInfo_struct info{};
    error_status_t status = 0;
    zt_v2_ag_GetGeneralInfo(binding_, &info, &status);
    const uuid_t& id = info.ObjectId;
    return Results(status).add(info.Version, id.time_low, id.time_mid, id.time_hi_and_version,
                               id.clock_seq_hi_and_reserved, id.clock_seq_low, id.node[0],
                               id.node[5], info.EvC, info.Exec, info.Interval, info.EvCError);
  });
  add("RegisterZT", "feffffff", "RegisterZT -2", "61", simple(zt_v2_ag_RegisterZT, -2));
  add("UnregisterZT", "feffffff", "UnregisterZT -2", "62", simple(zt_v2_ag_UnregisterZT, -2));
  add("RegisterSNMP", "feffffff", "RegisterSNMP -2", "63", simple(zt_v2_ag_RegisterSNMP, -2));
  add("UnregisterSNMP", "feffffff", "UnregisterSNMP -2", "64", simple(zt_v2_ag_UnregisterSNMP, -2));
  add("SetZTError", "feffffff 06000000", "SetZTError -2 6", "65",
      simple(zt_v2_ag_SetZTError, -2, 6u));
  add("GetZTError", "feffffff 06000000", "GetZTError -2 6", "66 6", get_error(zt_v2_ag_GetZTError));
  add("SetSNMPError", "feffffff 06000000", "SetSNMPError -2 6", "67",
      simple(zt_v2_ag_SetSNMPError, -2, 6u));
  add("GetSNMPError", "feffffff 06000000", "GetSNMPError -2 6", "68 6",
      get_error(zt_v2_ag_GetSNMPError));
  add("GetSystems", "feffffff 01000200 0300", "GetSystems -2 1 2 3",
      "69 169 1 2 0 1 2 3 4 10 '10.0.0.1:9' -1 2 3 4 5 19 'sssssssssssssssssss'", [this] {
        std::uint16_t lookup = 1;
        std::uint16_t last = 3;
        std::uint16_t number = 0;
        std::array<ag_SystemInfo_struct, 3> systems{};
        error_status_t status = 0;
        zt_v2_ag_GetSystems(binding_, -2, &lookup, 2, &last, &number, systems.data(), &status);
        Results results(status);
        results.add(lookup, last, number);
        for (std::uint32_t i = 0; i < number && i < systems.size(); ++i) {
          const ag_SystemInfo_struct& s = systems[i];
          results.add(s.SystemKey, s.ZTSystem, s.ZTError, s.SNMPSystem, s.SNMPError,
                      s.SocketStrLen);
          results.add_text(s.SocketString);
        }
        return results;
      });
  add("Ping", "", "Ping", "70", simple(zt_v2_ag_Ping));
  add("DBChanged", "", "DBChanged", "71 -171", [this] {
    std::int32_t changed = 0;
    error_status_t status = 0;
    zt_v2_ag_DBChanged(binding_, &changed, &status);
    return Results(status).add(changed);
  });
  add("DeleteZT", "feffffff", "DeleteZT -2", "72", simple(zt_v2_ag_DeleteZT, -2));
}

}  // namespace stub_test
