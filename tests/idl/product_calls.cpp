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

std::string read_view(RPC_CONTEXT_HANDLE view) {
  std::uint32_t last_position = 0;
  std::uint32_t last_int = 0;
  std::uint32_t last_char = 0;
  std::array<std::uint32_t, 4> positions{};
  std::array<std::uint32_t, 8> ints{};
  std::array<char, 16> chars{};
  error_status_t status = 0;
  zt_v2_repTemporalView_Read(view, 3, &last_position, 7, &last_int, 15, &last_char,
                             positions.data(), ints.data(), chars.data(), &status);
  Results results(status);
  results.add(last_position, last_int, last_char);
  for (const std::uint32_t position : positions)
    results.add(position);
  for (const std::uint32_t value : ints)
    results.add(value);
  return results.add_text({chars.data(), std::min<std::size_t>(last_char, chars.size())})
      .add(chars[15]);
}

agent::AlarmServer alarm_settings() {
  agent::AlarmServer settings;
  settings.version = 1;
  settings.object = {0x01020304, 0x0506, 0x0708, 9, 10, {11, 12, 13, 14, 15, 16}};
  settings.evc_flag = 2;
  settings.exec_flag = 4;
  settings.evc_error = 5;
  settings.systems = {
      {.address = 0x0A000001},
      {.address = 0x0A0000FF, .console = true, .console_error = 2, .snmp = true, .snmp_error = 4}};
  return settings;
}

}  // namespace

Product::Product()
    : view_(issued_context(kView)),
      filter_(issued_context(kFilter)),
      agent_(std::make_shared<agent::DataSource>(), alarm_settings()) {
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

// The operations of one view interface, by shapes: the others have the same.
void Product::add_views() {
  const std::string view = kViewBytes;
  const std::string filter = kFilterBytes;
  const auto add = [this](const char* name, const std::string& request, const char* heard,
                          const std::string& results, std::function<std::string()> run) {
    calls_.push_back({std::string("repTemporalView ") + name, &view_server_, &view_server_,
                      std::move(run), request, heard, results});
  };
  add("Create",
      "05000000 " + filter +
          " 2c010000 00000000 01000000 00000000 01000000 07000000"
          " 01000000 02000000 00000000 02000000 09000000 08000000",
      "Create 5 300 0 7 1 9 8 filter", "30 view", [this] {
        const std::uint32_t metrics[] = {9, 8};
        const std::uint32_t instance = 7;
        RPC_CONTEXT_HANDLE context = nullptr;
        error_status_t status = 0;
        zt_v2_repTemporalView_Create(binding_, 5, filter_, 300, 0, &instance, 1, metrics, &context,
                                     &status);
        return Results(status).add_context(context);
      });
  add("Destroy", view, "Destroy view", "31 null", destroying(zt_v2_repTemporalView_Destroy, kView));
  // The value goes in where the operation takes one and comes back.
  const auto number = [this](auto entry) {
    return [this, entry] {
      std::uint32_t value = 600;
      error_status_t status = 0;
      entry(view_, &value, &status);
      return Results(status).add(value);
    };
  };
  add("GetPosition", view, "GetPosition 0 view", "34 1034",
      number(zt_v2_repTemporalView_GetPosition));
  add("SetPosition", view + " 58020000", "SetPosition 600 view", "35 1635",
      number(zt_v2_repTemporalView_SetPosition));
  add("Read", view + " 03000000 07000000 0f000000", "Read 3 7 15 view",
      "37 1 2 4 287454020 4294967295 0 0 16909056 16909057 16909058 0 0 0 0 0 '" +
          std::string("ab\0c", 4) + "' 0",
      [this] { return read_view(view_); });
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

// By shapes, answered by the simulated alarm server.
void Product::add_alarms() {
  const auto add = [this](const char* name, const char* request, const char* results,
                          std::function<std::string()> run) {
    calls_.push_back({std::string("ag ") + name, &agent_.alarms(), nullptr, std::move(run), request,
                      "", results});
  };
  const auto simple = [this](auto entry, auto... values) {
    return [this, entry, values...] {
      error_status_t status = 0;
      entry(binding_, values..., &status);
      return Results(status);
    };
  };
  add("Register", "feffffff 0100", "0", simple(zt_v2_ag_Register, -2, ag_cSystemSNMP));
  add("SetInterval", "03000000", "0", simple(zt_v2_ag_SetInterval, 3u));
  add("GetInterval", "", "0 3", [this] {
    std::uint32_t value = 0;
    error_status_t status = 0;
    zt_v2_ag_GetInterval(binding_, &value, &status);
    return Results(status).add(value);
  });
  add("GetGeneralInfo", "", "0 1 16909060 1286 1800 9 10 11 16 2 4 3 5", [this] {
    ag_GeneralInfo_struct info{};
    error_status_t status = 0;
    zt_v2_ag_GetGeneralInfo(binding_, &info, &status);
    const uuid_t& id = info.ObjectId;
    return Results(status).add(info.Version, id.time_low, id.time_mid, id.time_hi_and_version,
                               id.clock_seq_hi_and_reserved, id.clock_seq_low, id.node[0],
                               id.node[5], info.EvC, info.Exec, info.Interval, info.EvCError);
  });
  add("SetSNMPError", "feffffff 06000000", "0", simple(zt_v2_ag_SetSNMPError, -2, 6u));
  // The value that goes out is a constant: a stub that wrote to it would not compile.
  add("GetSNMPError", "feffffff 06000000", "0 6", [this] {
    const std::uint32_t value = 6;
    error_status_t status = 0;
    zt_v2_ag_GetSNMPError(binding_, -2, &value, &status);
    return Results(status).add(value);
  });
  // The second of three.
  add("GetSystems", "00000000 01000000 0300", "0 2 0 1 -16777206 1 2 1 4 11 '#10.0.0.255'", [this] {
    std::uint16_t lookup = 1;
    std::uint16_t last = 3;
    std::uint16_t number = 0;
    std::array<ag_SystemInfo_struct, 3> systems{};
    error_status_t status = 0;
    zt_v2_ag_GetSystems(binding_, 0, &lookup, 0, &last, &number, systems.data(), &status);
    Results results(status);
    results.add(lookup, last, number);
    for (std::uint32_t i = 0; i < number && i < systems.size(); ++i) {
      const ag_SystemInfo_struct& s = systems[i];
      results.add(s.SystemKey, s.ZTSystem, s.ZTError, s.SNMPSystem, s.SNMPError, s.SocketStrLen);
      results.add_text(s.SocketString);
    }
    return results;
  });
  add("Ping", "", "0", simple(zt_v2_ag_Ping));
}

}  // namespace stub_test
