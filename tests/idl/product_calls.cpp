// SPDX-License-Identifier: Apache-2.0
#include "tests/idl/product_calls.h"

#include <algorithm>
#include <array>

#include "platform/rpc/stub/ndr.h"
#include "platform/rpc/stub/skeleton.h"
#include "platform/rpc/stub/stub.h"
#include "rep.h"
#include "repTemporalView.h"
#include "repTimeFilter.h"
#include "tests/support/rpc_bytes.h"

namespace stub_test {

namespace {

using rpc::WireContext;

const std::vector<agent::Shift> kShifts = {{agent::ShiftKind::daily, 8, 17},
                                           {agent::ShiftKind::absolute, -1, 1}};

std::string bytes_of(const WireContext& context) {
  rpc::ndr::Encoder out(true);
  out.put(context);
  return rpc::test::hex_text(out.body());
}

// A client's handle of a context, for one call.
class Handle {
 public:
  explicit Handle(const WireContext& wire = {}) {
    if (!wire.null())
      handle_ = issued_context(wire);
  }
  ~Handle() {
    if (handle_ != nullptr)
      rpc::store_context(&handle_, {}, {});
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  operator RPC_CONTEXT_HANDLE() const { return handle_; }
  RPC_CONTEXT_HANDLE* out() { return &handle_; }
  WireContext wire() const {
    return handle_ == nullptr ? WireContext{} : rpc::wire_context(handle_);
  }

 private:
  RPC_CONTEXT_HANDLE handle_ = nullptr;
};

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
  // What a filter that the agent holds has, or that it holds none.
  Results& add_filter(agent::ViewContexts& contexts, const WireContext& wire) {
    try {
      for (const agent::Shift& shift : contexts.filter({}, wire))
        add(shift.start, shift.stop, static_cast<int>(shift.kind));
    } catch (const rpc::server::Fault&) {
      text_ += wire.null() ? " null" : " ?";
    }
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

// What a look-up from `lookup` on gives that has room for so many.
template <typename Descriptor, typename Call, typename Add>
Results looked_up(std::uint32_t lookup, std::uint32_t most, Call call, Add add) {
  std::uint32_t last = 0;
  std::vector<Descriptor> found(most);
  error_status_t status = 0;
  call(&lookup, most - 1, &last, found.data(), &status);
  Results results(status);
  results.add(lookup, last);
  for (std::uint32_t i = 0; i <= last && i < most; ++i) {
    add_descriptor(results, found[i].Descriptor);
    add(results, found[i]);
  }
  return results;
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

std::shared_ptr<agent::DataSource> data_source() {
  auto source = std::make_shared<agent::DataSource>();
  // Texts as long as they can be.
  *source = {7, std::string(255, 'n'), std::string(63, 'l'), -3, std::string(1023, 'p'), {}};
  agent::Metric number{.id = 40,
                       .name = "CPU",
                       .label = "Processor",
                       .denominator = 77,
                       .data_type = 1,
                       .length = 2,
                       .column_width = 3,
                       .summary = 4,
                       .base_scale = -5,
                       .scale10 = -6,
                       .headings = {"", std::string(79, '%')},
                       .model = agent::ValuesModel{{0x01020300, -1}}};
  agent::Metric text = number;
  text.id = 41;
  text.data_type = agent::kTextType;
  text.headings[0] = "CPU";
  text.model = agent::TextsModel{{"ab", "c"}};
  for (std::uint32_t i = 0; i < 3; ++i) {
    agent::ClassData& each = source->classes.emplace_back();
    each.id = 10 + i;
    each.name = "TABLE" + std::string(i, '_');
    each.label = std::string(i, 'x');
    each.type_id = 100 + i;
    each.interval_units = -2;
    each.flags = 3;
    each.first_x = -1;
    each.last_x = 1;
    each.first_time = 1000;
    each.row_count = 2;
    each.metrics = {number, text};
  }
  source->classes[1].instances = {{6, "other", "", 0, 9999}, {5, "root", "", 500, 2000000}};
  return source;
}

Product::Product() : agent_(data_source(), alarm_settings()) {
  const std::uint32_t metrics[] = {40, 41};
  agent::ViewRequest request;
  request.kind = agent::ViewKind::temporal;
  request.table = 10;
  request.metrics = metrics;
  agent_.contexts().create_view({}, request, {}, &view_);
  agent_.contexts().create_filter({}, kShifts, &filter_);
  add_rep();
  add_views();
  add_time_filter();
  add_alarms();
}

void Product::add(std::string name, rpc::server::Interface& server, const std::string& request,
                  const std::string& results, std::function<std::string()> run) {
  calls_.push_back({std::move(name), &server, std::move(run), request, results});
}

void Product::add_rep() {
  add("rep LookupRepository", agent_.metadata(), "",
      "0 7 255 63 '" + std::string(255, 'n') + "' '" + std::string(63, 'l') + "' -3 1023 '" +
          std::string(1023, 'p') + "'",
      [this] {
        rep_sRepositoryDescriptor result;
        error_status_t status = 0;
        zt_v2_rep_LookupRepository(binding_, &result, &status);
        Results results(status);
        add_descriptor(results, result.Descriptor);
        return results.add(result.Version, result.PathNameLength).add_text(result.PathName);
      });
  // Two of all from the second on.
  add("rep LookupTable", agent_.metadata(), "00000000 01000000 01000000",
      "0 0 1 11 6 1 'TABLE_' 'x' 101 4294967295 300 -1 1 3 -2"
      " 12 7 2 'TABLE__' 'xx' 102 4294967295 300 -1 1 3 -2",
      [this] {
        return looked_up<rep_sTableDescriptor>(
            1, 2, [this](auto... rest) { zt_v2_rep_LookupTable(binding_, 0, rest...); },
            [](Results& results, const rep_sTableDescriptor& t) {
              results.add(t.TableTypeId, t.DiscriminatorId, t.fInterval, t.FirstX, t.LastX, t.Flags,
                          t.IntervalUnits);
            });
      });
  add("rep LookupInstance", agent_.metadata(), "0b000000 05000000 01000000 04000000",
      "0 0 0 5 4 0 'root' '' 101 500 2000000", [this] {
        return looked_up<rep_sInstanceDescriptor>(
            1, 5, [this](auto... rest) { zt_v2_rep_LookupInstance(binding_, 11, 5, rest...); },
            [](Results& results, const rep_sInstanceDescriptor& i) {
              results.add(i.TableTypeId, i.BirthTime, i.DeathTime);
            });
      });
  const std::string percents = " '" + std::string(79, '%') + "'";
  add("rep LookupMetric", agent_.metadata(), "0c000000 00000000 00000000 04000000",
      "0 0 1 40 3 9 'CPU' 'Processor' 77 1 2 3 4 -5 -6 ''" + percents +
          " 41 3 9 'CPU' 'Processor' 77 3 2 3 4 -5 -6 'CPU'" + percents,
      [this] {
        return looked_up<rep_sMetricDescriptor>(
            0, 5, [this](auto... rest) { zt_v2_rep_LookupMetric(binding_, 12, 0, rest...); },
            [](Results& results, const rep_sMetricDescriptor& m) {
              results.add(m.DenominatorId, m.DataType, m.Length, m.ColumnWidth, m.SumType,
                          m.BaseScale, m.Scale10);
              results.add_text(m.HeadingOne).add_text(m.HeadingTwo);
            });
      });
}

// The operations of one view interface, by shapes: the others have the same.
void Product::add_views() {
  rpc::server::Interface& server = agent_.temporal_views();
  const std::string view = bytes_of(view_);
  add("repTemporalView Create", server,
      "0b000000 " + bytes_of(filter_) +
          " 2c010000 00000000 01000000 00000000 01000000 05000000"
          " 01000000 02000000 00000000 02000000 28000000 29000000",
      "0 11", [this] {
        const std::uint32_t metrics[] = {40, 41};
        const std::uint32_t instance = 5;
        const Handle filter(filter_);
        Handle made;
        error_status_t status = 0;
        zt_v2_repTemporalView_Create(binding_, 11, filter, 300, 0, &instance, 1, metrics,
                                     made.out(), &status);
        Results results(status);
        try {
          agent_.contexts().view({}, made.wire(), agent::ViewKind::temporal);
          results.add(11);
        } catch (const rpc::server::Fault&) {
          results.add_text("no view");
        }
        return results;
      });
  // The value goes in where the operation takes one and comes back.
  const auto number = [this](auto entry) {
    return [this, entry] {
      agent_.contexts().view({}, view_).set_position(0);
      const Handle handle(view_);
      std::uint32_t value = 1300;
      error_status_t status = 0;
      entry(handle, &value, &status);
      return Results(status).add(value);
    };
  };
  add("repTemporalView GetPosition", server, view, "0 900",
      number(zt_v2_repTemporalView_GetPosition));
  add("repTemporalView SetPosition", server, view + " 14050000", "0 1200",
      number(zt_v2_repTemporalView_SetPosition));
  add("repTemporalView Read", server, view + " 03000000 07000000 0f000000",
      "0 2 3 4 900 1200 4294967295 0 16909056 0 4294967295 3 0 0 0 0 '" + std::string("ab\0c", 4) +
          "' 0",
      [this] {
        agent_.contexts().view({}, view_).set_position(0);
        return read_view(Handle(view_));
      });
}

void Product::add_time_filter() {
  rpc::server::Interface& server = agent_.filters();
  const std::string filter = bytes_of(filter_);
  // The second element begins on a boundary of 4; nothing is behind the last one.
  add("repTimeFilter Create", server,
      "01000000 02000000 00000000 02000000 08000000 11000000 01000000 ffffffff 01000000 0000",
      "0 8 17 1 -1 1 0", [this] {
        const std::array<repTimeFilter_sShiftDescriptor, 2> shifts = {
            {{8, 17, repTimeFilter_cShiftDaily}, {-1, 1, repTimeFilter_cShiftAbsolute}}};
        Handle made;
        error_status_t status = 0;
        zt_v2_repTimeFilter_Create(binding_, 1, shifts.data(), made.out(), &status);
        return Results(status).add_filter(agent_.contexts(), made.wire());
      });
  add("repTimeFilter Copy", server, filter, "0 8 17 1 -1 1 0", [this] {
    const Handle from(filter_);
    Handle copy;
    error_status_t status = 0;
    zt_v2_repTimeFilter_Copy(from, copy.out(), &status);
    return Results(status).add_filter(agent_.contexts(), copy.wire());
  });
  // Each run destroys one of its own.
  add("repTimeFilter Destroy", server, filter, "0 null", [this, at = calls_.size()] {
    rpc::WireContext own;
    agent_.contexts().create_filter({}, kShifts, &own);
    calls_[at].request = bytes_of(own);
    Handle handle(own);
    error_status_t status = 0;
    zt_v2_repTimeFilter_Destroy(handle.out(), &status);
    return Results(status).add_filter(agent_.contexts(), handle.wire());
  });
}

// By shapes, answered by the simulated alarm server.
void Product::add_alarms() {
  const auto simple = [this](auto entry, auto... values) {
    return [this, entry, values...] {
      error_status_t status = 0;
      entry(binding_, values..., &status);
      return Results(status);
    };
  };
  add("ag Register", agent_.alarms(), "feffffff 0100", "0",
      simple(zt_v2_ag_Register, -2, ag_cSystemSNMP));
  add("ag SetInterval", agent_.alarms(), "03000000", "0", simple(zt_v2_ag_SetInterval, 3u));
  add("ag GetInterval", agent_.alarms(), "", "0 3", [this] {
    std::uint32_t value = 0;
    error_status_t status = 0;
    zt_v2_ag_GetInterval(binding_, &value, &status);
    return Results(status).add(value);
  });
  add("ag GetGeneralInfo", agent_.alarms(), "", "0 1 16909060 1286 1800 9 10 11 16 2 4 3 5",
      [this] {
        ag_GeneralInfo_struct info{};
        error_status_t status = 0;
        zt_v2_ag_GetGeneralInfo(binding_, &info, &status);
        const uuid_t& id = info.ObjectId;
        return Results(status).add(info.Version, id.time_low, id.time_mid, id.time_hi_and_version,
                                   id.clock_seq_hi_and_reserved, id.clock_seq_low, id.node[0],
                                   id.node[5], info.EvC, info.Exec, info.Interval, info.EvCError);
      });
  add("ag SetSNMPError", agent_.alarms(), "feffffff 06000000", "0",
      simple(zt_v2_ag_SetSNMPError, -2, 6u));
  // The value that goes out is a constant: a stub that wrote to it would not compile.
  add("ag GetSNMPError", agent_.alarms(), "feffffff 06000000", "0 6", [this] {
    const std::uint32_t value = 6;
    error_status_t status = 0;
    zt_v2_ag_GetSNMPError(binding_, -2, &value, &status);
    return Results(status).add(value);
  });
  // The second of three.
  add("ag GetSystems", agent_.alarms(), "00000000 01000000 0300",
      "0 2 0 1 -16777206 1 2 1 4 11 '#10.0.0.255'", [this] {
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
          results.add(s.SystemKey, s.ZTSystem, s.ZTError, s.SNMPSystem, s.SNMPError,
                      s.SocketStrLen);
          results.add_text(s.SocketString);
        }
        return results;
      });
  add("ag Ping", agent_.alarms(), "", "0", simple(zt_v2_ag_Ping));
}

}  // namespace stub_test
