// SPDX-License-Identifier: Apache-2.0
// The records of the system database's file, and one system in memory (zt_SystemInfo_class).
//
// Strings in a record are terminated inside their field; what follows the terminator is zero when
// we write and ignored when we read. Integers are little-endian in the file.

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "shared/general/SHsysNameConv.h"

static_assert(std::endian::native == std::endian::little,
              "records are stored as they stand in memory");

inline constexpr int kSystemNameSize = 257;  // sizes of text fields, terminator included
inline constexpr int kGroupNameSize = 20;
inline constexpr int kMaxAlarms = 400;
inline constexpr int kBitsPerAlarm = 4;
inline constexpr int kSystemRecordSize = 496;

// Statuses of the database operations, next to those of the indexed file and the file library.
// Other positive values are errno values of the change counter or the back-connect file.
enum : int {
  kSysDbNoKey = 2000,  // a record to store has no key
  kSysDbNoMoreSystems = 2002,
  kSysDbNameUnknown = 2005,  // a name does not resolve to an address
  kSysDbBadVersion = 2006,   // the version record names a version that we do not know
  kSysDbNoLockFile = 2008,   // the lock file could not be opened
};

// The file: slots of a status octet, a key and a record, the first of which holds the version.
inline constexpr std::int32_t kVersionLocation = 0;
inline constexpr std::int32_t kSlotSize = 1 + sizeof(SystemKey) + kSystemRecordSize;
inline constexpr int kCurrentSysDBVersion = 4;
inline constexpr int kPreviousSysDBVersion = 3;
// The status octet of a slot that a conversion from the older layout has still to do.
inline constexpr char kSlotInOlderLayout = 0x33;

// The record of one system.
struct zt_SystemInfo_struct {
  char fSystemName[kSystemNameSize];
  signed char fAlarmMonitorStatus;  // 0 to 6, see ReturnAlarmMgrStatusText
  char fReserved2;
  char fMapEnabled;  // 1: the system's map symbols exist
  char fGroupName[kGroupNameSize];
  std::int32_t fAlarmSequenceNumber;  // of the last alarm received
  std::int32_t fRecUpdateTime;        // when the record was last stored, seconds since 1970 UTC
  std::int16_t fAlarmMgrError;        // the alarm manager's last error; 0: none
  std::int16_t fAlarmCount;
  // 4 bits an alarm, the even one in the low half: 0 unused, 1 normal, 2 warning, 3 critical, 4
  // acknowledged.
  unsigned char fAlarmStates[kMaxAlarms * kBitsPerAlarm / 8];
  std::int16_t fSystemType;    // 1 to 7; other values are unknown types
  char fOldSystem;             // 1: the system runs the 3.0 agent
  signed char fMonitorAlarms;  // 1: alarms are monitored, 0: not, -1: the system is to be deleted
};
static_assert(sizeof(zt_SystemInfo_struct) == kSystemRecordSize);
static_assert(offsetof(zt_SystemInfo_struct, fAlarmMonitorStatus) == 257);
static_assert(offsetof(zt_SystemInfo_struct, fReserved2) == 258);
static_assert(offsetof(zt_SystemInfo_struct, fMapEnabled) == 259);
static_assert(offsetof(zt_SystemInfo_struct, fGroupName) == 260);
static_assert(offsetof(zt_SystemInfo_struct, fAlarmSequenceNumber) == 280);
static_assert(offsetof(zt_SystemInfo_struct, fRecUpdateTime) == 284);
static_assert(offsetof(zt_SystemInfo_struct, fAlarmMgrError) == 288);
static_assert(offsetof(zt_SystemInfo_struct, fAlarmCount) == 290);
static_assert(offsetof(zt_SystemInfo_struct, fAlarmStates) == 292);
static_assert(offsetof(zt_SystemInfo_struct, fSystemType) == 492);
static_assert(offsetof(zt_SystemInfo_struct, fOldSystem) == 494);
static_assert(offsetof(zt_SystemInfo_struct, fMonitorAlarms) == 495);

// The older record, found in files whose version record says 3.
struct V3_SYSTEM_ALARM_INFO {
  std::int32_t fTime;
  std::int32_t fNumber;
  std::int32_t fLogIndex;
  std::int16_t fCurrentCount;
  std::int32_t fSeverity;
  std::int32_t fVariety;
  char fClass[9];
};
static_assert(sizeof(V3_SYSTEM_ALARM_INFO) == 36);
static_assert(offsetof(V3_SYSTEM_ALARM_INFO, fSeverity) == 16);
static_assert(offsetof(V3_SYSTEM_ALARM_INFO, fClass) == 24);

struct V3_SYSTEM_INFO {
  char fSystemName[kSystemNameSize];
  char fGlobalGraphEnv[41];
  char fApplGraphEnv[41];
  char fApplCompareGraphEnv[41];
  char fWorkGroup[41];
  std::int32_t fAlarmSequenceNumber;
  std::int32_t fRecUpdateTime;
  std::int16_t fSystemType;
  std::int16_t fAlarmMgrError;
  std::int16_t fAlarmMonitorStatus;
  V3_SYSTEM_ALARM_INFO fAlarmInfo;
  char fDataCommInfo[20];
};
static_assert(sizeof(V3_SYSTEM_INFO) == kSystemRecordSize);
static_assert(offsetof(V3_SYSTEM_INFO, fGlobalGraphEnv) == 257);
static_assert(offsetof(V3_SYSTEM_INFO, fWorkGroup) == 380);
static_assert(offsetof(V3_SYSTEM_INFO, fAlarmSequenceNumber) == 424);
static_assert(offsetof(V3_SYSTEM_INFO, fSystemType) == 432);
static_assert(offsetof(V3_SYSTEM_INFO, fAlarmMgrError) == 434);
static_assert(offsetof(V3_SYSTEM_INFO, fAlarmMonitorStatus) == 436);
static_assert(offsetof(V3_SYSTEM_INFO, fAlarmInfo) == 440);
static_assert(offsetof(V3_SYSTEM_INFO, fDataCommInfo) == 476);

// The start of the record at location 0, whose key is 0.
struct SYSTEM_VERSION_ENTRY {
  std::int32_t fVersion;
  std::int32_t fCheckSum;
  std::int16_t fUpdateFlag;
  char fReserved[396];
};
static_assert(sizeof(SYSTEM_VERSION_ENTRY) == 408);
static_assert(offsetof(SYSTEM_VERSION_ENTRY, fCheckSum) == 4);
static_assert(offsetof(SYSTEM_VERSION_ENTRY, fUpdateFlag) == 8);
static_assert(offsetof(SYSTEM_VERSION_ENTRY, fReserved) == 10);

union SYSTEM_DB_RECORD {
  zt_SystemInfo_struct uSystemInfo;
  SYSTEM_VERSION_ENTRY uVersionEntry;
};
static_assert(sizeof(SYSTEM_DB_RECORD) == kSystemRecordSize);

using KEY_CONVERSION = ptc_KeyConversion_struct;

// What a file that begins with these octets (a slot's, or fewer if there are no more) is.
enum class FileKind {
  kNew,      // empty, or the start of a version record whose writer did not get further
  kCurrent,  // the present layout
  kOlder,    // the older one, or its conversion was interrupted
  kForeign,  // no system database, or of a version that we do not know
};
FileKind KindOfFile(std::string_view start);

// The four bytes at system_key as a key.
SystemKey ConvertSystemKey(const char* system_key);
// The dotted address into a buffer of kKeyTextSize characters.
void FormatSystemKey(SystemKey system_key, char* format_buffer);
// The host name of a key's address. 1; 0 and the buffer untouched when there is none or it does not
// fit.
int GetHostName(SystemKey system_key, char* system_name, int system_name_size);

// The tables of system types (by type - 1) and of agent types, and their sizes.
int ReturnSupportedSystemTypeCount();
int ReturnSupportedAgentCount();
const char* const* ReturnSystemTypeNames();
const char* const* ReturnSystemTypeCodes();
const char* const* ReturnAgentTypeCodes();
const char* const* ReturnAgentTypeNames();
const char* ReturnSystemTypeCode(int system_type);  // null for an unknown type

// One system of the database: its key and its record.
class zt_SystemInfo_class {
 public:
  zt_SystemInfo_class() = default;  // no key, an empty record
  zt_SystemInfo_class(const zt_SystemInfo_struct& info, SystemKey key);
  zt_SystemInfo_class(const V3_SYSTEM_INFO& info, SystemKey key);
  // The key is that of the name's address, -1 when the name is null or does not resolve. A name is
  // cut to 256 characters, a group to 19. They use the process's shared database manager.
  explicit zt_SystemInfo_class(const char* system_name);
  zt_SystemInfo_class(const char* system_name, const char* group_name);

  // Copies of the record in both layouts, and the key. The older one is stamped with the present
  // time and has status 1 (no contact).
  zt_SystemInfo_struct ReturnStruct(SystemKey& key) const;
  V3_SYSTEM_INFO ReturnV3Struct(SystemKey& key) const;

  SystemKey ReturnSystemKey() const { return fSystemKey; }
  const char* ReturnSystemName() const { return fSystemInfo.fSystemName; }
  const char* ReturnGroupName() const { return fSystemInfo.fGroupName; }
  int ReturnAlarmMonitorStatus() const { return fSystemInfo.fAlarmMonitorStatus; }
  int ReturnMonitorAlarms() const { return fSystemInfo.fMonitorAlarms; }
  int ReturnAlarmSequence() const { return fSystemInfo.fAlarmSequenceNumber; }
  int ReturnAlarmMgrError() const { return fSystemInfo.fAlarmMgrError; }
  int ReturnAlarmCount() const { return fSystemInfo.fAlarmCount; }
  int ReturnSystemType() const { return fSystemInfo.fSystemType; }
  std::int32_t ReturnRecUpdateTime() const { return fSystemInfo.fRecUpdateTime; }
  bool ReturnMapEnabled() const { return fSystemInfo.fMapEnabled == 1; }
  bool ReturnIsZTAgent() const { return fSystemInfo.fOldSystem == 1; }
  // The name under which the system connects to the alarm manager; null when there is none. Good
  // until the next such question to the database.
  const char* ReturnBackConnectName() const;

  // Takes another name of the same address; any other name, or a null one, changes nothing.
  void SetSystemName(const char* system_name);
  void SetGroupName(const char* group_name);  // null changes nothing
  void SetAlarmMonitorStatus(int status);     // 0 ends the monitoring of alarms as well
  void SetMonitorAlarms(int set);             // 0, or any positive or negative number: 1 or -1
  void SetAlarmSequence(int number) { fSystemInfo.fAlarmSequenceNumber = number; }
  void SetAlarmMgrError(int error);
  void SetAlarmCount(int count);
  void SetSystemType(int type);
  void SetMapEnabled(int enabled) { fSystemInfo.fMapEnabled = static_cast<char>(enabled); }
  void SetIsZTAgent(unsigned char old) { fSystemInfo.fOldSystem = static_cast<char>(old); }

  // The state of alarm 0 to 399; 0 for any other number.
  int ReturnAlarmState(int alarmnumber) const;
  void GetAlarmArray(int* alarm_array) const;  // kMaxAlarms ints
  // A number outside 0 to 399 or a state outside 0 to 15 changes nothing.
  void SetAlarmState(int alarm_state, int alarm_number);
  void ResetAlarmStates();

  // Reports on standard output.
  void PrintSystemInfo() const;
  void PrintSystemShortInfo() const;
  // The same with what the caller knows: the host name (empty: none), the back-connect name (null).
  void PrintSystemInfo(const std::string& host, const char* back_connect_name) const;
  void PrintSystemShortInfo(const std::string& host) const;
  void PrintAlarmStates() const;
  const char* ReturnAlarmMgrStatusText() const;
  const char* ReturnSystemTypeName() const;

 private:
  SystemKey fSystemKey = kNoSystemKey;
  zt_SystemInfo_struct fSystemInfo{};
};
