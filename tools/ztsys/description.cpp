// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/description.h"

#include <array>

#include "source/sysdb/ZTbackConnect.h"
#include "tools/ztsys/fields.h"
#include "tools/ztsys/json.h"

namespace ztsys {

BackConnectNames ReadBackConnectNames() {
  BackConnectNames names;
  BackConnectFile::OfInstallation().ForEach([&](const char* system, const char* name) {
    names.emplace(system, name);
    return true;
  });
  return names;
}

std::string JsonOf(const zt_SystemInfo_class& info, const BackConnectNames& names) {
  char address[kKeyTextSize];
  FormatSystemKey(info.ReturnSystemKey(), address);
  std::array<int, kMaxAlarms> states{};
  info.GetAlarmArray(states.data());
  std::array<char, kMaxAlarms> digits{};
  for (std::size_t i = 0; i < states.size(); ++i)
    digits[i] = "0123456789abcdef"[states[i] & 0xF];

  JsonObject object;
  object.Text("name", info.ReturnSystemName());
  object.Text("address", address);
  object.Text("group", info.ReturnGroupName());
  object.Number("type", info.ReturnSystemType());
  object.Text("type_name", info.ReturnSystemTypeName());
  object.Text("alarms", MonitoringText(info.ReturnMonitorAlarms()));
  object.Number("status", info.ReturnAlarmMonitorStatus());
  object.Text("status_text", info.ReturnAlarmMgrStatusText());
  object.Number("last_error", info.ReturnAlarmMgrError());
  object.Number("sequence", info.ReturnAlarmSequence());
  object.Number("alarm_count", info.ReturnAlarmCount());
  object.Text("alarm_states", {digits.data(), digits.size()});
  object.Truth("symbols", info.ReturnMapEnabled());
  object.Truth("old_agent", info.ReturnIsZTAgent());
  object.Number("updated", static_cast<std::uint32_t>(info.ReturnRecUpdateTime()));
  if (const auto name = names.find(info.ReturnSystemName()); name != names.end())
    object.Text("back_connect", name->second);
  else
    object.Null("back_connect");
  return object.Take();
}

}  // namespace ztsys
