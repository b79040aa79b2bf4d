// SPDX-License-Identifier: Apache-2.0
// The installation's settings for the whole process: directories, file names, locale formats and
// named resources. They exist from the construction of the first control object to the destruction
// of the last; a getter called at any other time gives a null pointer.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

// A named value. Each kind answers for its own kind and name only.
class RESOURCE_OBJ {
 public:
  explicit RESOURCE_OBJ(const char* resource_name) : ResourceName(resource_name) {}
  virtual ~RESOURCE_OBJ() = default;

  // 1 and the value (the resource's own text), or 0 and a null pointer or 0.
  virtual int GetResourceValue(const char* name, const char** value) = 0;
  virtual int GetResourceValue(const char* name, int& value) = 0;

 protected:
  std::string ResourceName;
};

class STRING_RESOURCE_OBJ : public RESOURCE_OBJ {
 public:
  STRING_RESOURCE_OBJ(const char* resource_name, const char* resource_value)
      : RESOURCE_OBJ(resource_name), ResourceValue(resource_value) {}
  int GetResourceValue(const char* name, const char** value) override;
  int GetResourceValue(const char* name, int& value) override;

 private:
  std::string ResourceValue;
};

class INT_RESOURCE_OBJ : public RESOURCE_OBJ {
 public:
  INT_RESOURCE_OBJ(const char* resource_name, int resource_value)
      : RESOURCE_OBJ(resource_name), ResourceValue(resource_value) {}
  int GetResourceValue(const char* name, const char** value) override;
  int GetResourceValue(const char* name, int& value) override;

 private:
  int ResourceValue;
};

class BASE_CONTROL_OBJ {
 public:
  BASE_CONTROL_OBJ(const BASE_CONTROL_OBJ&) = delete;
  BASE_CONTROL_OBJ& operator=(const BASE_CONTROL_OBJ&) = delete;
  virtual ~BASE_CONTROL_OBJ();

  // Directories end in a path separator or are empty, so that a file name is appended directly.
  static const char* GetProductDirectory() { return text(ProductDirectory); }
  static const char* GetProgramName() { return text(ProgramName); }
  static const char* GetCatalogDirectory() { return text(CatalogDirectory); }
  static const char* GetObjDirectory() { return text(ObjDirectory); }
  static const char* GetTempDirectory() { return text(TempDirectory); }
  static const char* GetConfigDirectory() { return text(ConfigDirectory); }
  static const char* GetDataDirectory() { return text(DataDirectory); }
  static const char* GetHelpDirectory() { return text(HelpDirectory); }
  static const char* GetMetricHelpDirectory() { return text(MetricHelpDirectory); }
  static const char* GetDatabaseDirectory() { return text(DatabaseDirectory); }
  static const char* GetReportDirectory() { return text(ReportDirectory); }
  static const char* GetIconDirectory() { return text(IconDirectory); }
  static const char* GetExeDirectory() { return text(ExeDirectory); }
  static const char* GetLibDirectory() { return text(LibDirectory); }
  static const char* GetRasterizerDirectory() { return text(RasterDirectory); }

  static const char* GetControlFileName() { return text(ControlFileName); }
  static const char* GetParmFileName() { return text(ParmFileName); }
  static const char* GetAlarmdefFileName() { return text(AlarmdefFileName); }
  static const char* GetFlowdConfFileName() { return text(FlowdConfFileName); }
  static const char* GetHublnkdFileName() { return text(HublnkdFileName); }

  // The formats are strftime pictures; '#' behind the percent sign means without leading zero.
  static char GetRadixCharacter() { return RadixCharacter; }
  static const char* GetTimeFormatString() { return text(TimeFormatString); }
  static const char* GetDateFormatString() { return text(DateFormatString); }
  static const char* GetLongDateFormatString() { return text(LongDateFormatString); }
  static const char* GetDateTimeFormatString() { return text(DateTimeFormatString); }
  static const char* GetAMString() { return text(AMString); }
  static const char* GetPMString() { return text(PMString); }

  // Appends a resource; an earlier one of that name stays and is asked first.
  static void SetResource(const char* resource_name, const char* resource_value);
  static void SetResource(const char* resource_name, int resource_value);
  static void SetResource(std::unique_ptr<RESOURCE_OBJ> resource);  // null: nothing is appended
  // 1 and the value of the first resource of that name and kind, else 0.
  static int GetResource(const char* resource_name, const char** resource_value);
  static int GetResource(const char* resource_name, int& resource_value);

  // Every directory becomes this one; a null name makes them empty. Forgets all resources.
  static void SetDirectory(const char* directory_name);

  static int IsPathSeparator(char Ch) { return Ch == '\\' || Ch == '/' || Ch == ':'; }
  // 1 when the text is not empty and does not end in a separator.
  static int NeedsSeparator(const std::string& Dir);
  static void AddSeparator(std::string& Dir);

 protected:
  using Setting = std::optional<std::string>;

  BASE_CONTROL_OBJ() = default;

  static const char* text(const Setting& setting) { return setting ? setting->c_str() : nullptr; }

  static int UseCount;
  static Setting ProductDirectory, ProgramName;
  static Setting CatalogDirectory, ObjDirectory, TempDirectory, ConfigDirectory, DataDirectory,
      HelpDirectory, MetricHelpDirectory, DatabaseDirectory, ReportDirectory, IconDirectory,
      ExeDirectory, LibDirectory, RasterDirectory;
  static Setting ControlFileName, ParmFileName, AlarmdefFileName, FlowdConfFileName,
      HublnkdFileName;
  static char RadixCharacter;
  static Setting TimeFormatString, DateFormatString, LongDateFormatString, DateTimeFormatString,
      AMString, PMString;
  static std::vector<std::unique_ptr<RESOURCE_OBJ>> Resources;
};
