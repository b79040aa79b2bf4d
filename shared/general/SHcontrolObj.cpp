// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHcontrolObj.h"

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

int BASE_CONTROL_OBJ::NeedsSeparator(const std::string& Dir) {
  return !Dir.empty() && !IsPathSeparator(Dir.back());
}

void BASE_CONTROL_OBJ::AddSeparator(std::string& Dir) {
  if (NeedsSeparator(Dir))
    Dir += '\\';
}
