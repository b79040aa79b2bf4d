// SPDX-License-Identifier: Apache-2.0
// The system database: the systems whose agents the console watches. Here stand the manager of the
// file and its companions (zt_SystemDBMgt_class), and the facade that everyone uses
// (zt_SystemDBAccess_class). The records are in ZTsysRecords.h.

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shared/general/SHindexObj.h"
#include "shared/general/SHsysNameConv.h"
#include "source/shared/nt/SHsemObj.h"
#include "source/sysdb/ZTbackConnect.h"
#include "source/sysdb/ZTsysInfoObj_xref.h"
#include "source/sysdb/ZTsysRecords.h"

// What a process wants of its database beyond the file.
struct zt_SystemDBOptions {
  // How long a change waits for the writers' lock.
  std::chrono::milliseconds lock_wait{60'000};
  // Takes one line on what a user should know: a wait for the lock, a conversion, a note that an
  // earlier version has left. By default it goes to standard error.
  std::function<void(const std::string& line)> tell;
};

// The manager of one database file, its change counter, its cross-reference table and the
// back-connect file. Operations return a status (0: success) and keep it for ReturnError. When
// ValidObj is 0 nothing but ValidObj, ReturnError and the destructor may be used. Nothing but the
// opening of a file in the older layout takes the database lock: callers bracket their changes with
// Lock and Unlock. Files that this user may only read are opened for reading: nothing is made or
// converted, and every change fails with cACCESS. Not thread-safe.
class zt_SystemDBMgt_class {
 public:
  enum zt_ModLevel_enum {
    zt_DBStructure_const = 0,     // has the set of systems changed
    zt_DBModification_const = 1,  // has the file been written
  };

  explicit zt_SystemDBMgt_class(const char* system_file_name, zt_SystemDBOptions options = {});
  ~zt_SystemDBMgt_class() = default;
  zt_SystemDBMgt_class(const zt_SystemDBMgt_class&) = delete;
  zt_SystemDBMgt_class& operator=(const zt_SystemDBMgt_class&) = delete;

  int ValidObj() const { return fValidObject; }
  int ReturnError() const { return fError; }
  const char* ReturnFileName() const { return fSystemFileName.c_str(); }
  bool ReturnReadOnly() const { return fReadOnly; }
  // Whether the opening has made the file.
  bool ReturnMade() const { return fMade; }

  // Makes the record at location 0 a version record of the current version.
  int InitializeDB();

  // The record of a key or name; 1005 when there is none.
  int GetSystemRec(SystemKey key, zt_SystemInfo_class& info);
  int GetSystemRec(const char* name, zt_SystemInfo_class& info);
  int PositionAtSystem(SystemKey key);
  // Reads the record into the manager, for the operations that go by the record last read.
  int GetSystemInfo(SystemKey key);
  int GetSystemInfo(const char* system_name, SystemKey& key);

  // All systems in file order; 2002 at the end, the file's status when a read fails.
  int GetFirstSystemRec(zt_SystemInfo_class& info);
  int GetNextSystemRec(zt_SystemInfo_class& info);

  // Inserts the system or replaces the record of its key, stamped with the present time.
  int PutSystemRec(const zt_SystemInfo_class& info);
  int DeleteSystemRec(SystemKey key);
  // Gives a system another address in one write, all else kept. 1005: there is no such system.
  int MoveSystemRec(SystemKey key, SystemKey new_key);
  // Many at once, under the lock and after SyncWithFile: the device is waited for once. Inserts
  // systems whose keys are not in the database; `next` gives one after the other, false behind the
  // last. `added` counts those that are stored.
  int AddSystemRecs(const std::function<bool(SystemKey&, zt_SystemInfo_struct&)>& next, int& added);
  // The same for changes of systems that are there; null behind the last.
  int UpdateSystemRecs(const std::function<const zt_SystemInfo_class*()>& next, int& updated);
  // Makes the table certainly that of the file, whatever the change counter says.
  int SyncWithFile();
  // For repairs of single slots: the file, and what tells every process that it has changed.
  SlotFile& File() { return fIndexDataObj->File(); }
  void TellChange() { RaiseChangeCounter(); }
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
  int SearchXrefTable(SystemKey key);
  int SearchXrefTable(const char* system_name);
  void SetTableName(SystemKey key, const char* name);

  void PrintGeneralInfo();

 private:
  int OpenVersionRecord();
  int ReadVersion(SYSTEM_VERSION_ENTRY& version);
  int StoreVersion(char state);
  int ConvertOlderFile();
  int KeepOlderFile();
  int MarkOlderRecords();
  int ConvertMarkedRecords();
  int WalkStatus() const;
  void ReportNote();
  void OpenChangeCounter();
  int CounterValue() const;
  void RaiseChangeCounter();
  int InsertSystem(SystemKey key, const zt_SystemInfo_struct& record, bool follows);
  using NextSlot = std::function<bool(std::vector<char>&)>;
  int FillHoles(const NextSlot& next_slot, int& added);
  int MakeLive(std::vector<std::uint32_t>& filled, int& added);
  int AppendSystems(const NextSlot& next_slot, int& added);
  void BuildSystemXrefTable();
  void GrowSystemXrefTable();
  void TakeInInsertedSystem();
  void OrderXrefTable();
  int IndexOf(SystemKey key) const;
  bool FileIsAsSeen() const;
  bool TableIsCurrent() const;
  int ReadAtIndex(int index);
  void Tell(const std::string& line) const;

  int fError = 0;
  int fBuildingXrefTable = 0;
  int fLockHeld = 0;
  int fSemaphoreValue = -1;
  int fSystemRecCount = -1;
  int fOrderedCount = 0;  // of them, the first that are in the order of their keys
  int fValidObject = 1;
  int fXrefEntriesAvail = 0;
  std::string fSystemFileName;
  zt_SystemDBOptions fOptions;
  bool fMade;
  bool fReadOnly = false;
  std::int32_t fCurrentLocation = -1;
  std::int64_t fLastModifyTime = 0;
  unsigned char fXrefSynced = 0;
  int fTableStatus = 0;            // why the table could not be built
  sys::tFILE_STAMP fFileStamp;     // before the table was built, or after our last write since
  std::int32_t fNoHoleBefore = 0;  // no deleted slot before it when the stamp was taken
  // The system that we have inserted since the table was in step.
  std::optional<SYSTEM_XREF_ENTRY> fInsertedSystem;
  std::unique_ptr<BackConnectFile> fBackConnect;
  std::unique_ptr<INDEX_DATA_OBJ> fIndexDataObj;
  std::unique_ptr<SEM_OBJ> fSemaphoreObj;
  NameStore fNames;
  std::vector<SYSTEM_XREF_ENTRY> fSystemXrefTable;
  std::vector<SystemKey> fKeys;  // of entries 1 to fSystemRecCount, side by side for the search
  zt_SystemInfo_struct fSystemInfo{};
};

// What a status of the database means and what to try: a clause without a full stop.
std::string SystemDatabaseText(int status);
// The same of a file that ends with so many octets of a record.
std::string CutDatabaseText(std::int64_t octets);

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
  // On "ztdb" in the database directory, if there is no manager yet.
  explicit zt_SystemDBAccess_class(zt_SystemDBOptions options = {});
  // As the only user, replaces any manager by one on this file.
  explicit zt_SystemDBAccess_class(const char* system_file_name, zt_SystemDBOptions options = {});
  ~zt_SystemDBAccess_class();
  zt_SystemDBAccess_class(const zt_SystemDBAccess_class&) = delete;
  zt_SystemDBAccess_class& operator=(const zt_SystemDBAccess_class&) = delete;

  int ValidObj() const { return fValidObject; }
  int ReturnError() const { return fError; }
  const char* ReturnFileName() const;
  // Which file a status of an operation is about and what it means, for a user.
  std::string ReturnTrouble(int status) const;
  // Octets of a record that is not whole at the end of the file.
  std::int64_t ReturnTail() const;
  // The shared manager, for what this facade does not forward.
  zt_SystemDBMgt_class& Manager();

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
  std::string TextOf(int status) const;

  int fError = 0;
  int fValidObject = 0;
  SystemKey fSavedSystemKey = kNoSystemKey;
  char fSavedSystemName[kSystemNameSize] = "";
  zt_SystemFilters fFilters;
};
