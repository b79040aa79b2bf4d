// SPDX-License-Identifier: Apache-2.0
#include "shared/general/nt/SHderControlObj.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/sys/locale.h"
#include "platform/sys/native_path.h"
#include "platform/sys/registry.h"

int CONTROL_OBJ::Platform = 0;
CONTROL_OBJ::Setting CONTROL_OBJ::HyperHelpPath, CONTROL_OBJ::XEnvironmentPath,
    CONTROL_OBJ::XFileSearchPath;

namespace {

constexpr int kPlatformNT = 7;
constexpr const char kNoRegistryDirectory[] = "c:\\";

constexpr const char kZentraceKey[] = "Software\\Moraine\\Zentrace Analyzer\\CurrentVersion";
constexpr const char kHalvexKey[] = "Software\\Moraine\\Halvex Agent\\CurrentVersion";
constexpr const char kTallymanKey[] = "Software\\Moraine\\Tallyman\\CurrentVersion";

// The keys that a product asks, in order; none for a product of another name.
std::vector<const char*> ProductKeys(std::string_view product_directory) {
  if (product_directory.starts_with("hx"))
    return {kHalvexKey, kZentraceKey, kTallymanKey};
  if (product_directory.starts_with("zt"))
    return {kZentraceKey, kHalvexKey, kTallymanKey};
  return {};
}

std::string ProductName(std::string_view product_directory_name) {
  if (product_directory_name.starts_with("hx"))
    return "hxa";
  if (product_directory_name.starts_with("zt"))
    return "zt";
  return std::string(product_directory_name);
}

// A text value of an open key; nothing for a value that is missing or no text.
std::optional<std::string> TextValue(registry::HKEY key, const char* name) {
  std::uint32_t type = registry::REG_NONE;
  std::uint32_t size = 0;
  if (registry::RegQueryValueExA(key, name, &type, nullptr, &size) != registry::ERROR_SUCCESS ||
      (type != registry::REG_SZ && type != registry::REG_EXPAND_SZ))
    return std::nullopt;
  std::vector<std::uint8_t> bytes(size);
  if (registry::RegQueryValueExA(key, name, &type, bytes.data(), &size) != registry::ERROR_SUCCESS)
    return std::nullopt;
  return std::string(reinterpret_cast<const char*>(bytes.data()));
}

std::optional<std::string> LocaleItem(locale::LCTYPE item) {
  const locale::LCID user = locale::GetUserDefaultLCID();
  const int size = locale::GetLocaleInfoA(user, item, nullptr, 0);
  std::vector<char> text(static_cast<std::size_t>(size));
  if (size == 0 || locale::GetLocaleInfoA(user, item, text.data(), size) == 0)
    return std::nullopt;
  return std::string(text.data());
}

// The language's name for directories: "C" where the catalogs are in English.
std::string Language() {
  const std::optional<std::string> name = LocaleItem(locale::LOCALE_SABBREVLANGNAME);
  return !name || *name == "ENU" ? "C" : *name;
}

std::string TemporaryDirectory() {
  std::vector<char> path(sys::GetTempPathA(0, nullptr));
  const std::uint32_t size = static_cast<std::uint32_t>(path.size());
  const std::uint32_t length = sys::GetTempPathA(size, path.data());
  return length > 0 && length < size ? std::string(path.data()) : std::string();
}

struct PictureCode {
  std::string_view picture;
  std::string_view strftime;
};

// Longer codes stand before their own beginnings.
constexpr PictureCode kPictureCodes[] = {
    {"dddd", "%A"}, {"ddd", "%a"}, {"dd", "%d"},   {"d", "%#d"},  {"MMMM", "%B"}, {"MMM", "%b"},
    {"MM", "%m"},   {"M", "%#m"},  {"yyyy", "%Y"}, {"yyy", "%y"}, {"yy", "%y"},   {"y", "%y"},
    {"gg", "%N"},   {"g", "g"},    {"hh", "%I"},   {"h", "%#I"},  {"HH", "%H"},   {"H", "%#H"},
    {"mm", "%M"},   {"m", "%#M"},  {"ss", "%S"},   {"s", "%#S"},  {"tt", "%p"},   {"t", "%p"},
};

}  // namespace

CONTROL_OBJ::CONTROL_OBJ(const char* product_directory_name, const char* program_name) {
  if (++UseCount == 1)
    BuildObject(product_directory_name, program_name);
}

CONTROL_OBJ::~CONTROL_OBJ() {
  if (UseCount > 1)
    return;
  HyperHelpPath.reset();
  XEnvironmentPath.reset();
  XFileSearchPath.reset();
}

void CONTROL_OBJ::GetPlatformName() {
  Platform = kPlatformNT;
}

std::string CONTROL_OBJ::GetDirName(const char* pEnvVar, const char* pBaseDir,
                                    const char* pRelativeDir, const char* pLocalDir) {
  const char* const value = pEnvVar == nullptr ? nullptr : std::getenv(pEnvVar);
  std::string directory;
  if (value != nullptr) {
    directory = value;
    AddSeparator(directory);
    return directory;
  }
  for (const char* const part : {pBaseDir, pRelativeDir, pLocalDir}) {
    if (part == nullptr)
      continue;
    directory += part;
    AddSeparator(directory);
  }
  return directory;
}

std::string CONTROL_OBJ::GetRegDir(const char* pPathDescriptor) {
  registry::use_settings_file("ZT_REGISTRY", "zentrace.reg");
  for (const char* const path : ProductKeys(ProductDirectory.value_or(""))) {
    registry::HKEY key = 0;
    if (registry::RegOpenKeyA(registry::HKEY_LOCAL_MACHINE, path, &key) != registry::ERROR_SUCCESS)
      continue;
    std::string directory = TextValue(key, pPathDescriptor).value_or(kNoRegistryDirectory);
    registry::RegCloseKey(key);
    AddSeparator(directory);
    return directory;
  }
  return kNoRegistryDirectory;
}

std::string CONTROL_OBJ::GetApplDir() {
  return GetRegDir("CommonApplicationPath");
}

std::string CONTROL_OBJ::GetDataDir() {
  return GetRegDir("CommonDataPath");
}

void CONTROL_OBJ::BuildObject(const char* product_directory_name, const char* program_name) {
  GetPlatformName();
  XEnvironmentPath = XFileSearchPath = RasterDirectory = HyperHelpPath = "";
  ProgramName = program_name == nullptr ? Setting() : Setting(program_name);

  const std::string product =
      ProductName(product_directory_name == nullptr ? "" : product_directory_name);
  ProductDirectory = product + '\\';
  BuildDirectories(product);

  ControlFileName = GetDirName(nullptr, ConfigDirectory->c_str(), "ztctrl", nullptr);
  ParmFileName = "parm.hxc";
  AlarmdefFileName = "alarmdef.hxc";
  FlowdConfFileName = "flowdconf.hxc";
  HublnkdFileName = "hublnkd.hxc";
  GetOtherLocalInfo();
}

void CONTROL_OBJ::BuildDirectories(const std::string& product) {
  const std::string application = GetApplDir();
  const std::string data = GetDataDir();
  const char* const appl = application.c_str();

  std::string language = Language();
  CatalogDirectory = GetDirName("PTC_CATDIR", appl, "msg", language.c_str());
  const std::string catalog = *CatalogDirectory + (product == "zt" ? "ztmsgs" : "tambomsgs");
  if (sys::_access(catalog.c_str(), 0) < 0) {
    language = "C";
    CatalogDirectory = GetDirName("PTC_CATDIR", appl, "msg", language.c_str());
  }

  ObjDirectory = GetDirName(nullptr, appl, "bin", nullptr);
  TempDirectory = TemporaryDirectory();
  ConfigDirectory = GetDirName(nullptr, data.c_str(), "", "");
  DataDirectory = GetDirName("PTC_LOGDIR", data.c_str(), "datafiles", "");
  std::string product_help = product;
  AddSeparator(product_help);
  HelpDirectory = GetDirName("PTC_HELPDIR", appl, "help", (product_help + language).c_str());
  MetricHelpDirectory =
      GetDirName("PTC_HELPDIR", appl, "help", (language + "\\metricfiles").c_str());
  DatabaseDirectory = GetDirName(nullptr, data.c_str(), "datafiles", "");
  ReportDirectory = GetDirName("PTC_DBDIR", data.c_str(), "", nullptr);
  IconDirectory = GetDirName(nullptr, appl, "bitmaps", language.c_str());
  ExeDirectory = GetDirName(nullptr, appl, "bin", nullptr);
  LibDirectory = GetDirName(nullptr, appl, "lib", nullptr);
}

void CONTROL_OBJ::GetOtherLocalInfo() {
  const std::optional<std::string> radix = LocaleItem(locale::LOCALE_SDECIMAL);
  RadixCharacter = radix && !radix->empty() ? radix->front() : '.';

  const auto format = [](locale::LCTYPE item, const char* usual) {
    const std::optional<std::string> picture = LocaleItem(item);
    return picture ? NTtoUnix(picture->c_str()) : std::string(usual);
  };
  LongDateFormatString = format(locale::LOCALE_SLONGDATE, "%a %b %d %Y");
  DateFormatString = format(locale::LOCALE_SSHORTDATE, "%m/%d/%y");
  TimeFormatString = format(locale::LOCALE_STIMEFORMAT, "%H:%M:%S");
  DateTimeFormatString = *DateFormatString + ' ' + *TimeFormatString;
  AMString = LocaleItem(locale::LOCALE_S1159).value_or("AM");
  PMString = LocaleItem(locale::LOCALE_S2359).value_or("PM");
}

std::string CONTROL_OBJ::NTtoUnix(const char* NTFormat) {
  std::string format;
  std::string_view rest = NTFormat;
  while (!rest.empty()) {
    const PictureCode* match = nullptr;
    for (const PictureCode& code : kPictureCodes) {
      if (match == nullptr && rest.starts_with(code.picture))
        match = &code;
    }
    format += match == nullptr ? rest.substr(0, 1) : match->strftime;
    rest.remove_prefix(match == nullptr ? 1 : match->picture.size());
  }
  return format;
}
