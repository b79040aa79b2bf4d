// SPDX-License-Identifier: Apache-2.0
// The configuration of one server, as a connected system may hold it.

#pragma once

#include "present/util/util.h"
#include "shared/general/SHsysNameConv.h"

enum SERVER_INFO_OBJ_STATE : std::int32_t {
  NULL_STATE = 0,
  EXPECTING_OLD_GLOBAL_INFO = 1,
  EXPECTING_OLD_APPL_INFO = 2,
  EXPECTING_DATA_SOURCE_INFO = 3,
  EXPECTING_STATUS = 4,
  EXPECTING_SYSTEM_ID = 5,
};

// Texts are terminated in fields of a fixed size; numbers that are not known are -1.
class BASIC_SERVER_INFO_OBJ {
 public:
  // A null name counts as empty; a longer one is cut to the field.
  BASIC_SERVER_INFO_OBJ(const char* system_name, SystemKey system_key);
  virtual ~BASIC_SERVER_INFO_OBJ() = default;
  virtual int ReturnUserCount() { return 0; }
  virtual void Disconnect() {}

  const char* ReturnSystemID() const { return objSystemID; }
  const char* ReturnSystemTypeName() const { return objSystemTypeName; }
  const char* ReturnSystemModel() const { return objSystemModel; }
  const char* ReturnSystemParmFileID() const { return objSystemParmFileID; }
  const char* ReturnSystemHostName() const { return objSystemHostName; }
  const char* ReturnSystemSerial() const { return objSystemSerial; }
  const char* ReturnSystemOS() const { return objSystemOS; }
  const char* ReturnSystemOSRev() const { return objSystemOSRev; }
  const char* ReturnSystemOSRelease() const { return objSystemOSRelease; }
  const char* ReturnServerTypeName() const { return objServerTypeName; }
  const char* ReturnServerVersion() const { return objServerVersion; }
  const char* ReturnServerName() const { return objServerName; }
  const char* ReturnRepositoryPath() const { return objRepositoryPath; }
  const char* ReturnCollector() const { return objCollector; }

 protected:
  SERVER_INFO_OBJ_STATE objState = NULL_STATE;
  SystemKey objSystemKey;
  int objValidObject = 1;
  int objError = 0;
  int objDataSourcesOrphaned = 0;
  int objApplicationCount = 0;
  int objDataObjCount = 0;
  int objServerType = 0;
  int objNumberOfDisks = -1;
  int objNumberOfLANs = -1;
  int objMemorySize = -1;
  char objSystemID[41] = {};
  char objSystemTypeName[13] = {};
  char objSystemModel[13] = {};
  char objSystemParmFileID[41] = {};
  char objSystemHostName[41] = {};
  char objSystemSerial[13] = {};
  char objSystemOS[13] = {};
  char objSystemOSRev[13] = {};
  char objSystemOSRelease[11] = {};
  char objServerTypeName[41] = {};
  char objServerVersion[25] = {};
  char objServerName[41] = {};
  char objRepositoryPath[81] = {};
  char objCollector[41] = {};
  DateTime objConnectTime;
  DateTime objFirstAvailableDataTime;
};
