// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): named resources,
// and directories set at run time.

#include <utility>

#include "shared/general/nt/SHderControlObj.h"

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

CONTROL_OBJ::CONTROL_OBJ() {
  if (++UseCount == 1)
    SetDirectory(GetApplDir().c_str());
}
