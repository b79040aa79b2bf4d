// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHcontrolObj.h"

#include <utility>

int BASE_CONTROL_OBJ::UseCount = 0;
BASE_CONTROL_OBJ::Setting BASE_CONTROL_OBJ::ProductDirectory, BASE_CONTROL_OBJ::ProgramName;
BASE_CONTROL_OBJ::Setting BASE_CONTROL_OBJ::CatalogDirectory, BASE_CONTROL_OBJ::ObjDirectory,
    BASE_CONTROL_OBJ::TempDirectory, BASE_CONTROL_OBJ::ConfigDirectory,
    BASE_CONTROL_OBJ::DataDirectory, BASE_CONTROL_OBJ::HelpDirectory,
    BASE_CONTROL_OBJ::MetricHelpDirectory, BASE_CONTROL_OBJ::DatabaseDirectory,
    BASE_CONTROL_OBJ::ReportDirectory, BASE_CONTROL_OBJ::IconDirectory,
    BASE_CONTROL_OBJ::ExeDirectory, BASE_CONTROL_OBJ::LibDirectory,
    BASE_CONTROL_OBJ::RasterDirectory;
BASE_CONTROL_OBJ::Setting BASE_CONTROL_OBJ::ControlFileName, BASE_CONTROL_OBJ::ParmFileName,
    BASE_CONTROL_OBJ::AlarmdefFileName, BASE_CONTROL_OBJ::FlowdConfFileName,
    BASE_CONTROL_OBJ::HublnkdFileName;
char BASE_CONTROL_OBJ::RadixCharacter = '.';
BASE_CONTROL_OBJ::Setting BASE_CONTROL_OBJ::TimeFormatString, BASE_CONTROL_OBJ::DateFormatString,
    BASE_CONTROL_OBJ::LongDateFormatString, BASE_CONTROL_OBJ::DateTimeFormatString,
    BASE_CONTROL_OBJ::AMString, BASE_CONTROL_OBJ::PMString;
std::vector<std::unique_ptr<RESOURCE_OBJ>> BASE_CONTROL_OBJ::Resources;

int STRING_RESOURCE_OBJ::GetResourceValue(const char* name, const char** value) {
  const bool mine = ResourceName == name;
  *value = mine ? ResourceValue.c_str() : nullptr;
  return mine;
}

int STRING_RESOURCE_OBJ::GetResourceValue(const char*, int& value) {
  value = 0;
  return 0;
}

int INT_RESOURCE_OBJ::GetResourceValue(const char*, const char** value) {
  *value = nullptr;
  return 0;
}

int INT_RESOURCE_OBJ::GetResourceValue(const char* name, int& value) {
  const bool mine = ResourceName == name;
  value = mine ? ResourceValue : 0;
  return mine;
}

BASE_CONTROL_OBJ::~BASE_CONTROL_OBJ() {
  if (--UseCount > 0)
    return;
  for (Setting* const setting : {&ProductDirectory,
                                 &ProgramName,
                                 &CatalogDirectory,
                                 &ObjDirectory,
                                 &TempDirectory,
                                 &ConfigDirectory,
                                 &DataDirectory,
                                 &HelpDirectory,
                                 &MetricHelpDirectory,
                                 &DatabaseDirectory,
                                 &ReportDirectory,
                                 &IconDirectory,
                                 &ExeDirectory,
                                 &LibDirectory,
                                 &RasterDirectory,
                                 &ControlFileName,
                                 &ParmFileName,
                                 &AlarmdefFileName,
                                 &FlowdConfFileName,
                                 &HublnkdFileName,
                                 &TimeFormatString,
                                 &DateFormatString,
                                 &LongDateFormatString,
                                 &DateTimeFormatString,
                                 &AMString,
                                 &PMString})
    setting->reset();
  Resources.clear();
}

void BASE_CONTROL_OBJ::SetResource(const char* resource_name, const char* resource_value) {
  SetResource(std::make_unique<STRING_RESOURCE_OBJ>(resource_name, resource_value));
}

void BASE_CONTROL_OBJ::SetResource(const char* resource_name, int resource_value) {
  SetResource(std::make_unique<INT_RESOURCE_OBJ>(resource_name, resource_value));
}

void BASE_CONTROL_OBJ::SetResource(std::unique_ptr<RESOURCE_OBJ> resource) {
  if (resource)
    Resources.push_back(std::move(resource));
}

int BASE_CONTROL_OBJ::GetResource(const char* resource_name, const char** resource_value) {
  *resource_value = nullptr;
  for (const auto& resource : Resources) {
    if (resource->GetResourceValue(resource_name, resource_value))
      return 1;
  }
  return 0;
}

int BASE_CONTROL_OBJ::GetResource(const char* resource_name, int& resource_value) {
  resource_value = 0;
  for (const auto& resource : Resources) {
    if (resource->GetResourceValue(resource_name, resource_value))
      return 1;
  }
  return 0;
}

void BASE_CONTROL_OBJ::SetDirectory(const char* directory_name) {
  std::string directory = directory_name == nullptr ? "" : directory_name;
  AddSeparator(directory);
  for (Setting* const setting :
       {&DataDirectory, &DatabaseDirectory, &ReportDirectory, &ConfigDirectory, &CatalogDirectory,
        &ObjDirectory, &TempDirectory, &IconDirectory, &ExeDirectory, &LibDirectory,
        &RasterDirectory, &HelpDirectory, &MetricHelpDirectory})
    *setting = directory;
  if (directory_name != nullptr)
    ControlFileName = directory + "ztctrl";
  Resources.clear();
}

int BASE_CONTROL_OBJ::NeedsSeparator(const std::string& Dir) {
  return !Dir.empty() && !IsPathSeparator(Dir.back());
}

void BASE_CONTROL_OBJ::AddSeparator(std::string& Dir) {
  if (NeedsSeparator(Dir))
    Dir += '\\';
}
