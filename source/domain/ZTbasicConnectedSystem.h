// SPDX-License-Identifier: Apache-2.0
// A connected system: which servers it has and which of them is current.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "shared/general/SHsysNameConv.h"
#include "source/domain/ZTbasicServerInfoObj.h"

enum SYSTEM_CONNECTION_STATUS : std::int32_t {
  CONNECTION_NOT_MADE = 0,
  CONNECTION_STARTED = 1,
  CONNECTION_COMPLETE = 2,
  CONNECTION_BUSY = 3,
  CONNECTION_BAD = 4,
  CONNECTION_GONE = 5,
};

class BASIC_CONNECTED_SYSTEM_OBJ {
 public:
  BASIC_CONNECTED_SYSTEM_OBJ(SystemKey system_key, const char* system_name, SystemKey server_key);
  virtual ~BASIC_CONNECTED_SYSTEM_OBJ() = default;
  virtual int ReturnSocketFile() { return -1; }
  BASIC_CONNECTED_SYSTEM_OBJ(const BASIC_CONNECTED_SYSTEM_OBJ&) = delete;
  BASIC_CONNECTED_SYSTEM_OBJ& operator=(const BASIC_CONNECTED_SYSTEM_OBJ&) = delete;

  int ValidObj() const { return objValidObject; }  // 1 once fully connected
  // Parallel lists, an entry for each server in the order of the endpoint map. The texts are the
  // server's own.
  const std::vector<std::string>& ReturnDataSourceNames() const { return objServerNames; }
  const std::vector<std::string>& ReturnRepositoryPaths() const { return objRepositoryPaths; }
  const std::vector<std::string>& ReturnRepositoryEndPoints() const {
    return objRepositoryEndPoints;
  }
  int ReturnServerCount() const { return objServerCount; }
  // 1 when the server record names a collector that begins with "TAMBO"; 0 without a record.
  int IsTAMBO() const;

 protected:
  int objError = 0;
  int objSpecificError = 0;
  int objValidObject = 0;
  SYSTEM_CONNECTION_STATUS objConnectionStatus = CONNECTION_NOT_MADE;
  SystemKey objSystemKey;
  SystemKey objServerKey;  // of the current server
  std::string objSystemID;
  std::string objServerFullName;  // system name, colon, server name
  std::string objServerName;      // data source name of the current server
  std::string objSystemName;
  std::vector<std::string> objServerNames;
  std::vector<std::string> objServerFullNames;
  std::vector<std::string> objRepositoryPaths;
  std::vector<std::string> objRepositoryEndPoints;  // ports, as text
  std::vector<SystemKey> objServerKeys;
  int objServerCount = 0;
  std::unique_ptr<BASIC_SERVER_INFO_OBJ> objServerInfo;
};
