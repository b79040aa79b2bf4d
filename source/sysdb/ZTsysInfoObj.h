// SPDX-License-Identifier: Apache-2.0
// The system database: the systems whose agents the console watches. Here stand the records of its
// file, one system in memory (zt_SystemInfo_class), the manager of the file and its companions
// (zt_SystemDBMgt_class), and the facade that everyone uses (zt_SystemDBAccess_class).
//
// Strings in a record are terminated inside their field; what follows the terminator is zero when
// we write and ignored when we read. Integers are little-endian in the file.

#pragma once

#include <sys/stat.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "present/util/util.h"
#include "shared/general/SHindexObj.h"
#include "shared/general/SHsysNameConv.h"
#include "source/shared/nt/SHsemObj.h"
#include "source/sysdb/ZTsysInfoObj_xref.h"

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
  void PrintAlarmStates() const;
  const char* ReturnAlarmMgrStatusText() const;
  const char* ReturnSystemTypeName() const;

 private:
  SystemKey fSystemKey = kNoSystemKey;
  zt_SystemInfo_struct fSystemInfo{};
};

// The manager of one database file, its change counter, its cross-reference table and the
// back-connect file. Operations return a status (0: success) and keep it for ReturnError. When
// ValidObj is 0 nothing but ValidObj, ReturnError and the destructor may be used. Nothing but the
// opening of a file in the older layout takes the database lock: callers bracket their changes with
// Lock and Unlock. Not thread-safe.
class zt_SystemDBMgt_class {
 public:
  enum zt_ModLevel_enum {
    zt_DBStructure_const = 0,     // has the set of systems changed
    zt_DBModification_const = 1,  // has the file been written
  };

  explicit zt_SystemDBMgt_class(const char* system_file_name);
  ~zt_SystemDBMgt_class();
  zt_SystemDBMgt_class(const zt_SystemDBMgt_class&) = delete;
  zt_SystemDBMgt_class& operator=(const zt_SystemDBMgt_class&) = delete;

  int ValidObj() const { return fValidObject; }
  int ReturnError() const { return fError; }
  const char* ReturnFileName() const { return fSystemFileName.c_str(); }

  // Makes the record at location 0 a version record of the current version.
  int InitializeDB();

  // The record of a key or name; 1005 when there is none.
  int GetSystemRec(SystemKey key, zt_SystemInfo_class& info);
  int GetSystemRec(const char* name, zt_SystemInfo_class& info);
  int PositionAtSystem(SystemKey key);
  // Reads the record into the manager, for the operations that go by the record last read.
  int GetSystemInfo(SystemKey key);
  int GetSystemInfo(const char* system_name, SystemKey& key);

  // All systems in file order; 2002 at the end.
  int GetFirstSystemRec(zt_SystemInfo_class& info);
  int GetNextSystemRec(zt_SystemInfo_class& info);

  // Inserts the system or replaces the record of its key, stamped with the present time.
  int PutSystemRec(const zt_SystemInfo_class& info);
  int DeleteSystemRec(SystemKey key);
  // Systems at the last build of the table.
  int GetSystemRecCount();

  // Null when unknown. Good until the next operation.
  const char* ReturnSystemName(SystemKey key);
  const char* ReturnGroupName(SystemKey key);
  const char* ReturnBackConnectName(SystemKey key);
  const char* ReturnCurrentBackConnectName();

  void Lock();
  void Unlock();
  int ReturnLockHeld() const { return fLockHeld; }
  unsigned char DBChanged(zt_ModLevel_enum mod_level);

  // The cross-reference table. Check rebuilds it when the change counter has moved (result 1).
  // After an insert under the lock it need only take in that system. A search gives an index from
  // 1, or -1.
  int CheckSystemXrefTable();
  void InitSystemXrefTable();
  int SearchXrefTable(SystemKey key) const;
  int SearchXrefTable(const char* system_name) const;
  void SetTableName(SystemKey key, const char* name);

  void PrintGeneralInfo();

 private:
  enum { kCurrentSysDBVersion = 4, kPreviousSysDBVersion = 3 };
  static constexpr std::int32_t kVersionLocation = 0;
  static constexpr std::int32_t kSlotSize = 1 + sizeof(SystemKey) + kSystemRecordSize;

  int OpenVersionRecord();
  int ReadVersion(SYSTEM_VERSION_ENTRY& version);
  int StoreVersion(char state);
  bool IsUnfinishedNewFile() const;
  int ConvertOlderFile();
  int MarkOlderRecords();
  int ConvertMarkedRecords();
  int WalkStatus() const;
  void OpenChangeCounter();
  void RaiseChangeCounter();
  void BuildSystemXrefTable(const zt_SystemInfo_class& first);
  void GrowSystemXrefTable();
  void TakeInInsertedSystem();
  bool FileIsAsSeen() const;
  bool TableIsCurrent() const;
  int ReadAtIndex(int index);
  int SearchSyncedTable(SystemKey key);
  bool OpenBackConnectFile();

  int fError = 0;
  int fBuildingXrefTable = 0;
  int fLockHeld = 0;
  int fSemaphoreValue = -1;
  int fSystemRecCount = -1;
  int fValidObject = 1;
  int fXrefEntriesAvail = 0;
  std::string fSystemFileName;
  std::string fBackConnectXRefFileName;
  char fSystemBackConnectName[kSystemNameSize] = "";
  std::int32_t fCurrentLocation = -1;
  std::int64_t fLastModifyTime = 0;
  unsigned char fXrefSynced = 0;
  sys::tFILE_STAMP fFileStamp;     // before the table was built, or after our last write since
  std::int32_t fNoHoleBefore = 0;  // no deleted slot before it when the stamp was taken
  // The system that we have inserted since the table was in step.
  std::optional<SYSTEM_XREF_ENTRY> fInsertedSystem;
  DateTime fBackConnectXRefOpenTime;
  struct stat fBackConnectXRefStat {};  // as it was opened
  std::FILE* fBackConnectXRef = nullptr;
  std::unique_ptr<INDEX_DATA_OBJ> fIndexDataObj;
  std::unique_ptr<SEM_OBJ> fSemaphoreObj;
  std::vector<SYSTEM_XREF_ENTRY> fSystemXrefTable;
  zt_SystemInfo_struct fSystemInfo{};
};

enum FILTER_TYPE {
  GLOBAL_ID = 0,
  SYSTEM_TYPE = 1,
  GLOBAL_GRAPH_ENVIRONMENT = 2,
  GENERIC_GRAPH_ENVIRONMENT = 3,
  ALARM_MGR_ERROR = 4,
  ALARM_MONITOR_STATUS = 5,
};

// Criteria that a user of the database keeps with its access object. No operation applies them.
struct zt_SystemFilters {
  char fSystemNameFilter[kSystemNameSize] = "";
  int fFiltersSet = 0;
  int fSystemTypeFilter = 0;
  int fAlarmMgrErrorFilter = -1;
  int fAlarmMgrStatusFilter = -1;
};

// What users of the database construct. All access objects of a process share one manager, made by
// the first of them and kept until the process ends. Each operation is the manager's of that name;
// ValidObj and ReturnError tell the manager's state after it.
class zt_SystemDBAccess_class {
 public:
  zt_SystemDBAccess_class();  // on "ztdb" in the database directory, if there is no manager yet
  // As the only user, replaces any manager by one on this file.
  explicit zt_SystemDBAccess_class(const char* system_file_name);
  ~zt_SystemDBAccess_class();
  zt_SystemDBAccess_class(const zt_SystemDBAccess_class&) = delete;
  zt_SystemDBAccess_class& operator=(const zt_SystemDBAccess_class&) = delete;

  int ValidObj() const { return fValidObject; }
  int ReturnError() const { return fError; }
  const char* ReturnFileName() const;

  // The key of a name's address, -1 (and error 2005) when it does not resolve. The database is not
  // asked. The first form remembers the last name.
  SystemKey ReturnSystemKey(const char* system_name);
  SystemKey ReturnSystemKey(const char* system_name, int& error);

  const char* ReturnSystemName(SystemKey key);
  const char* ReturnGroupName(SystemKey key);
  const char* ReturnBackConnectName(SystemKey key);
  int GetSystemRec(SystemKey key, zt_SystemInfo_class& info);
  int GetSystemRec(const char* name, zt_SystemInfo_class& info);
  int PositionAtSystem(SystemKey key);
  int GetFirstSystemRec(zt_SystemInfo_class& info);
  int GetNextSystemRec(zt_SystemInfo_class& info);
  int PutSystemRec(const zt_SystemInfo_class& info);
  int DeleteSystemRec(SystemKey key);
  int GetSystemRecCount();
  void Lock();
  void Unlock();
  unsigned char DBChanged(zt_SystemDBMgt_class::zt_ModLevel_enum mod_level);
  void PrintGeneralInfo();

  // 0 when stored (or nothing to store); -1 when the type takes the other kind of value. Any call
  // with a known type marks filters as set.
  int SetFilter(FILTER_TYPE type, const char* text);
  int SetFilter(FILTER_TYPE type, int number);
  void ClearFilter() { fFilters = {}; }
  const zt_SystemFilters& ReturnFilters() const { return fFilters; }

  // Turns a status into the number of the console's message for it.
  void TranslateSysInfoError(int& error) const;

 private:
  // Runs an operation of the shared manager and takes over its state.
  template <typename Operation>
  auto Forward(Operation operation);
  void TakeState();

  int fError = 0;
  int fValidObject = 0;
  SystemKey fSavedSystemKey = kNoSystemKey;
  char fSavedSystemName[kSystemNameSize] = "";
  zt_SystemFilters fFilters;
};
