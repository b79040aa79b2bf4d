// SPDX-License-Identifier: Apache-2.0
// The control object that takes the settings from the environment, the registry and the locale.

#pragma once

#include <string>

#include "shared/general/SHcontrolObj.h"

class CONTROL_OBJ : public BASE_CONTROL_OBJ {
 public:
  // The first object of the process fills the settings; later ones change nothing. The product
  // directory name ("zt/", "hxa/") decides which registry key is asked first.
  explicit CONTROL_OBJ(const char* product_directory_name, const char* program_name = nullptr);
  // Without a product every directory is the one that no registry key could name.
  CONTROL_OBJ();
  ~CONTROL_OBJ() override;

  static int ReturnPlatform() { return Platform; }
  static const char* GetHyperHelpPath() { return text(HyperHelpPath); }
  static const char* GetXEnvironmentPath() { return text(XEnvironmentPath); }
  static const char* GetXFileSearchPath() { return text(XFileSearchPath); }

  // The environment variable's value where one is named and set; else the parts that are present,
  // joined. The result ends in a separator or is empty.
  static std::string GetDirName(const char* pEnvVar, const char* pBaseDir, const char* pRelativeDir,
                                const char* pLocalDir);
  // A value of the first of the product's registry keys that opens; "c:\" when there is none.
  static std::string GetRegDir(const char* pPathDescriptor);
  static std::string GetApplDir();
  static std::string GetDataDir();

  // A picture of the workstation as a strftime picture: M/d/yyyy gives %#m/%#d/%Y.
  static std::string NTtoUnix(const char* NTFormat);

 private:
  static void BuildObject(const char* product_directory_name, const char* program_name);
  static void BuildDirectories(const std::string& product);
  static void GetOtherLocalInfo();
  static void GetPlatformName();

  static int Platform;
  static Setting HyperHelpPath, XEnvironmentPath, XFileSearchPath;
};
