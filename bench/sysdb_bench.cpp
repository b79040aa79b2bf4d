// SPDX-License-Identifier: Apache-2.0
// The system database against SQLite with a write-ahead log, and against reads of its file. The
// database files are made in the folder named on the command line, by default the current one: for
// the insertions it should be on a disk.

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "bench/large_database.h"
#include "bench/measure.h"
#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr int kSystems = 100'000;
constexpr std::size_t kBlock = 64 * 1024;

class Sqlite {
 public:
  explicit Sqlite(const std::string& path) {
    for (const char* companion : {"", "-wal", "-shm", "-journal"})
      std::filesystem::remove(path + companion);
    bench::require(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "sqlite3_open");
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=FULL");
    Run("PRAGMA cache_size=-65536");  // 64 MiB
    Run("CREATE TABLE systems (key INTEGER PRIMARY KEY, record BLOB NOT NULL)");
    select_ = Prepare("SELECT record FROM systems WHERE key = ?");
    insert_ = Prepare("INSERT INTO systems VALUES (?, ?)");
  }
  ~Sqlite() {
    sqlite3_finalize(select_);
    sqlite3_finalize(insert_);
    sqlite3_close(db_);
  }
  Sqlite(const Sqlite&) = delete;
  Sqlite& operator=(const Sqlite&) = delete;

  void Run(const std::string& statement) {
    bench::require(sqlite3_exec(db_, statement.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
                   statement.c_str());
  }
  void Insert(SystemKey key, const zt_SystemInfo_struct& record) {
    sqlite3_bind_int(insert_, 1, key);
    sqlite3_bind_blob(insert_, 2, &record, sizeof record, SQLITE_STATIC);
    bench::require(sqlite3_step(insert_) == SQLITE_DONE, "INSERT");
    sqlite3_reset(insert_);
  }
  void Select(SystemKey key, zt_SystemInfo_struct& record) {
    sqlite3_bind_int(select_, 1, key);
    bench::require(sqlite3_step(select_) == SQLITE_ROW, "SELECT");
    std::memcpy(&record, sqlite3_column_blob(select_, 0), sizeof record);
    sqlite3_reset(select_);
  }
  void Fill(int systems) {
    Run("BEGIN");
    for (int i = 0; i < systems; ++i)
      Insert(bench::key_of(i), bench::record_of(i));
    Run("COMMIT");
  }
  // Writes until the log has begun anew from its start. From then on it is written over in place,
  // as in a process that has run for a while; before, each transaction makes its file longer.
  void FillLog() {
    Run("CREATE TABLE filling (octets BLOB)");
    for (int i = 0; i < 1200; ++i)  // pages; 1,000 fill the log
      Run("INSERT INTO filling VALUES (zeroblob(3000))");
    Run("DROP TABLE filling");
  }

 private:
  sqlite3_stmt* Prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    bench::require(sqlite3_prepare_v2(db_, text, -1, &statement, nullptr) == SQLITE_OK, text);
    return statement;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

void ReadInBlocks(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY);
  static char block[kBlock];
  std::size_t octets = 0;
  for (ssize_t got = 0; (got = read(file, block, sizeof block)) > 0;)
    octets += static_cast<std::size_t>(got);
  close(file);
  bench::require(octets == std::size_t{kSystems + 1} * kSlotSize, "reading the file");
}

void BenchOpening(const std::string& path) {
  bench::report({.what = "opening a database of 100,000 systems",
                 .ours =
                     [&] {
                       return bench::seconds_of([&] {
                         zt_SystemDBMgt_class manager(path.c_str());
                         bench::require(manager.GetSystemRecCount() == kSystems, "opening");
                       });
                     },
                 .against = "one read of the file in blocks of 64 KiB",
                 .baseline = [&] { return bench::seconds_of([&] { ReadInBlocks(path); }); },
                 .unit = bench::kMilliseconds,
                 .goal = "3 or less"});
}

void BenchLookup(const std::string& path, const std::string& folder) {
  constexpr int kLookups = 100'000;
  zt_SystemDBMgt_class manager(path.c_str());
  Sqlite sqlite(folder + "/bench.sqlite");
  sqlite.Fill(kSystems);
  std::vector<SystemKey> keys(kLookups);
  std::mt19937 random(1);
  for (SystemKey& key : keys)
    key = bench::key_of(static_cast<int>(random() % kSystems));
  const auto ours = [&] {
    zt_SystemInfo_class info;
    return bench::seconds_of([&] {
             for (const SystemKey key : keys)
               bench::require(manager.GetSystemRec(key, info) == 0, "GetSystemRec");
           }) /
           kLookups;
  };
  const auto theirs = [&] {
    zt_SystemInfo_struct record;
    return bench::seconds_of([&] {
             for (const SystemKey key : keys)
               sqlite.Select(key, record);
           }) /
           kLookups;
  };
  bench::report({.what = "look-up by key among 100,000",
                 .ours = ours,
                 .against = "SQLite's primary key",
                 .baseline = theirs,
                 .unit = bench::kNanoseconds,
                 .goal = "below 1"});
  // Neither side asks any more whether somebody else writes: our lock keeps others from it, their
  // snapshot does not show it.
  manager.Lock();
  sqlite.Run("BEGIN");
  bench::report({.what = "the same under the writers' lock",
                 .ours = ours,
                 .against = "SQLite within one transaction",
                 .baseline = theirs,
                 .unit = bench::kNanoseconds,
                 .goal = "below 1"});
  sqlite.Run("COMMIT");
  manager.Unlock();
}

// Both sides return from an insertion when its bytes are on the device: by fdatasync, of our data
// file and of SQLite's log (synchronous=FULL). A power failure after that
// costs neither a record. One within it costs neither a record that was there before; the new one
// is whole or absent, with SQLite by its check sums and with us because part of a slot at the end
// of the file is no record.
void BenchInsertion(const std::string& folder, int present) {
  constexpr int kInserts = 300;  // with at least one checkpoint of the log among them
  const std::string path = folder + "/bench-insert";
  bench::make_database(path, present);
  zt_SystemDBMgt_class manager(path.c_str());
  Sqlite sqlite(folder + "/bench.sqlite");
  sqlite.Fill(present);
  sqlite.FillLog();
  int ours_next = present;
  int theirs_next = present;
  bench::report(
      {.what = "insertion under lock, from " + std::to_string(present) + " systems on",
       .ours =
           [&] {
             return bench::seconds_of([&] {
                      for (int i = 0; i < kInserts; ++i, ++ours_next) {
                        manager.Lock();
                        bench::require(manager.PutSystemRec({bench::record_of(ours_next),
                                                             bench::key_of(ours_next)}) == 0,
                                       "PutSystemRec");
                        manager.Unlock();
                      }
                    }) /
                    kInserts;
           },
       .against = "SQLite, a transaction each",
       .baseline =
           [&] {
             return bench::seconds_of([&] {
                      for (int i = 0; i < kInserts; ++i, ++theirs_next)
                        sqlite.Insert(bench::key_of(theirs_next), bench::record_of(theirs_next));
                    }) /
                    kInserts;
           },
       .unit = bench::kMicroseconds,
       .goal = "below 1"});
}

// Many at once: both sides wait for the device at the end.
void BenchInsertionOfMany(const std::string& folder) {
  constexpr int kInserts = 10'000;
  const std::string path = folder + "/bench-insert";
  bench::make_database(path, kSystems);
  zt_SystemDBMgt_class manager(path.c_str());
  Sqlite sqlite(folder + "/bench.sqlite");
  sqlite.Fill(kSystems);
  int ours_next = kSystems;
  int theirs_next = kSystems;
  const auto ours = [&] {
    const int last = ours_next + kInserts;
    return bench::seconds_of([&] {
             manager.Lock();
             int added = 0;
             const auto next = [&](SystemKey& key, zt_SystemInfo_struct& record) {
               key = bench::key_of(ours_next);
               record = bench::record_of(ours_next);
               return ours_next++ < last;
             };
             bench::require(manager.SyncWithFile() == 0 &&
                                manager.AddSystemRecs(next, added) == 0 && added == kInserts,
                            "AddSystemRecs");
             manager.Unlock();
             ours_next = last;
           }) /
           kInserts;
  };
  const auto theirs = [&] {
    return bench::seconds_of([&] {
             sqlite.Run("BEGIN");
             for (int i = 0; i < kInserts; ++i, ++theirs_next)
               sqlite.Insert(bench::key_of(theirs_next), bench::record_of(theirs_next));
             sqlite.Run("COMMIT");
           }) /
           kInserts;
  };
  bench::report({.what = "insertion of 10,000 into 100,000 systems, each",
                 .ours = ours,
                 .against = "SQLite, in one transaction",
                 .baseline = theirs,
                 .unit = bench::kMicroseconds,
                 .goal = "below 1"});
}

using Table = std::vector<SYSTEM_XREF_ENTRY>;

bool BelowByKey(const SYSTEM_XREF_ENTRY& a, const SYSTEM_XREF_ENTRY& b) {
  return a.fKey < b.fKey;
}

void BenchSort(int count, const char* order) {
  Table unsorted(static_cast<std::size_t>(count) + 2);
  for (int i = 0; i < count; ++i)
    unsorted[static_cast<std::size_t>(i) + 1].fKey = *order == 'd' ? -i : i;
  if (*order == 'r')
    std::shuffle(unsorted.begin() + 1, unsorted.end() - 1, std::mt19937(7));
  // The time of sorting a fresh table.
  const auto sorted_by = [&](const std::function<void(Table&)>& sort) {
    Table table = unsorted;
    const double seconds = bench::seconds_of([&] { sort(table); });
    bench::require(std::is_sorted(table.begin() + 1, table.end() - 1, BelowByKey), "sorting");
    return seconds;
  };
  bench::report(
      {.what = "sorting " + std::to_string(count) + " keys, " + order,
       .ours =
           [&] { return sorted_by([count](Table& table) { SortSysList(table.data(), count); }); },
       .against = "std::sort",
       .baseline =
           [&] {
             return sorted_by(
                 [](Table& table) { std::sort(table.begin() + 1, table.end() - 1, BelowByKey); });
           },
       .unit = bench::kMilliseconds,
       .goal = "1.5 or less"});
}

// Of a fresh process, so that nothing of this one counts.
double PeakOfOpening(const std::string& path) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    execl("/proc/self/exe", "sysdb_bench", "--open", path.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  bench::require(status == 0, "opening in a process of its own");
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

}  // namespace

int main(int argc, char** argv) {
  const CONTROL_OBJ control;
  if (argc == 3 && std::string(argv[1]) == "--open") {
    zt_SystemDBMgt_class manager(argv[2]);
    return manager.GetSystemRecCount() == kSystems ? 0 : 1;
  }
  std::string folder = std::string(argc > 1 ? argv[1] : ".") + "/sysdb-bench-XXXXXX";
  bench::require(mkdtemp(folder.data()) != nullptr, "mkdtemp");
  const std::string path = folder + "/ztdb";
  bench::make_database(path, kSystems);

  BenchOpening(path);
  bench::report("peak memory of a process that opens 100,000 systems",
                bench::measure([&] { return PeakOfOpening(path); }), bench::kMebibytes,
                "40 or less");
  BenchLookup(path, folder);
  for (const int present : {100, 1000, 10'000, kSystems})
    BenchInsertion(folder, present);
  BenchInsertionOfMany(folder);
  for (const char* order : {"random", "ascending", "descending"})
    BenchSort(kSystems, order);
  std::filesystem::remove_all(folder);
  return 0;
}
