// SPDX-License-Identifier: Apache-2.0
// The system database against SQLite and against plain reads of its file. Each line is a figure of
// ours, the baseline's of the same run, and their ratio. The database files are made in the folder
// named on the command line, by default the current one: for the insertions it should be on a disk.

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr int kSystems = 100'000;
constexpr std::size_t kSlotSize = 501;
constexpr int kRounds = 7;

void Check(bool good, const char* what) {
  if (!good) {
    std::fprintf(stderr, "sysdb_bench: %s failed\n", what);
    std::exit(1);
  }
}

double Seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The best of several rounds of two works, taken in turn so that both see the same machine.
std::pair<double, double> Best(const std::function<void()>& ours,
                               const std::function<void()>& theirs) {
  double best_ours = HUGE_VAL;
  double best_theirs = HUGE_VAL;
  for (int round = 0; round < kRounds; ++round) {
    best_theirs = std::min(best_theirs, Seconds(theirs));
    best_ours = std::min(best_ours, Seconds(ours));
  }
  return {best_ours, best_theirs};
}

void Report(const std::string& what, double ours, double theirs, double scale, const char* unit) {
  std::printf("%-62s %10.3f %10.3f %-10s ratio %.2f\n", what.c_str(), ours * scale, theirs * scale,
              unit, ours / theirs);
  std::fflush(stdout);
}

SystemKey KeyOf(int i) {
  return static_cast<SystemKey>(static_cast<std::uint32_t>(i + 1) * 2654435761U);
}

zt_SystemInfo_struct RecordOf(int i) {
  zt_SystemInfo_struct record{};
  std::snprintf(record.fSystemName, sizeof record.fSystemName, "system%06d.example.org", i);
  return record;
}

void MakeDatabase(const std::string& path, int systems) {
  for (const char* companion : {"", ".lk", ".sem"})
    std::filesystem::remove(path + companion);
  std::ofstream file(path, std::ios::binary);
  std::string slot(kSlotSize, '\0');
  slot[5] = 4;
  file << slot;
  for (int i = 0; i < systems; ++i) {
    const SystemKey key = KeyOf(i);
    const zt_SystemInfo_struct record = RecordOf(i);
    std::memcpy(slot.data() + 1, &key, sizeof key);
    std::memcpy(slot.data() + 5, &record, sizeof record);
    file << slot;
  }
}

class Sqlite {
 public:
  Sqlite(const std::string& path, const char* journal) {
    for (const char* companion : {"", "-wal", "-shm", "-journal"})
      std::filesystem::remove(path + companion);
    Check(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "sqlite3_open");
    Run(std::string("PRAGMA journal_mode=") + journal);
    Run("PRAGMA synchronous=FULL");
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
    Check(sqlite3_exec(db_, statement.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
          statement.c_str());
  }
  void Insert(SystemKey key, const zt_SystemInfo_struct& record) {
    sqlite3_bind_int(insert_, 1, key);
    sqlite3_bind_blob(insert_, 2, &record, sizeof record, SQLITE_STATIC);
    Check(sqlite3_step(insert_) == SQLITE_DONE, "INSERT");
    sqlite3_reset(insert_);
  }
  void Select(SystemKey key, zt_SystemInfo_struct& record) {
    sqlite3_bind_int(select_, 1, key);
    Check(sqlite3_step(select_) == SQLITE_ROW, "SELECT");
    std::memcpy(&record, sqlite3_column_blob(select_, 0), sizeof record);
    sqlite3_reset(select_);
  }
  void Fill(int systems) {
    Run("BEGIN");
    for (int i = 0; i < systems; ++i)
      Insert(KeyOf(i), RecordOf(i));
    Run("COMMIT");
  }

 private:
  sqlite3_stmt* Prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v2(db_, text, -1, &statement, nullptr) == SQLITE_OK, text);
    return statement;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

void ReadSlotBySlot(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY);
  char slot[kSlotSize];
  int slots = 0;
  while (read(file, slot, sizeof slot) == static_cast<ssize_t>(sizeof slot))
    ++slots;
  close(file);
  Check(slots == kSystems + 1, "reading the file");
}

void BenchOpening(const std::string& path) {
  const auto [ours, theirs] = Best(
      [&] {
        zt_SystemDBMgt_class manager(path.c_str());
        Check(manager.GetSystemRecCount() == kSystems, "opening");
      },
      [&] { ReadSlotBySlot(path); });
  Report("open 100,000 systems, against reading the file slot by slot", ours, theirs, 1e3, "ms");
}

void BenchLookup(const std::string& path, const std::string& folder) {
  constexpr int kLookups = 100'000;
  zt_SystemDBMgt_class manager(path.c_str());
  Sqlite sqlite(folder + "/bench.sqlite", "DELETE");
  sqlite.Fill(kSystems);
  std::vector<SystemKey> keys(kLookups);
  std::mt19937 random(1);
  for (SystemKey& key : keys)
    key = KeyOf(static_cast<int>(random() % kSystems));
  const auto ours = [&] {
    zt_SystemInfo_class info;
    for (const SystemKey key : keys)
      Check(manager.GetSystemRec(key, info) == 0, "GetSystemRec");
  };
  const auto theirs = [&] {
    zt_SystemInfo_struct record;
    for (const SystemKey key : keys)
      sqlite.Select(key, record);
  };
  const auto each = Best(ours, theirs);
  Report("look-up by key, against SQLite's primary key", each.first, each.second, 1e9 / kLookups,
         "ns");
  sqlite.Run("BEGIN");
  const auto together = Best(ours, theirs);
  sqlite.Run("COMMIT");
  Report("  the same, SQLite inside one transaction (blind to changes)", together.first,
         together.second, 1e9 / kLookups, "ns");
}

// Both sides return from an insertion when its bytes are on the device: we by O_DSYNC on the data
// file, SQLite by fdatasync of its journal or log (synchronous=FULL). A power failure after that
// costs neither a record. One within it costs neither a record that was there before; the new one
// is whole or absent, with SQLite by its check sums and with us because part of a slot at the end
// of the file is no record.
void BenchInsertion(const std::string& folder, int present, const char* journal) {
  constexpr int kInserts = 100;
  const std::string path = folder + "/bench-insert";
  MakeDatabase(path, present);
  zt_SystemDBMgt_class manager(path.c_str());
  Sqlite sqlite(folder + "/bench.sqlite", journal);
  sqlite.Fill(present);
  int ours_next = present;
  int theirs_next = present;
  const auto [ours, theirs] = Best(
      [&] {
        for (int i = 0; i < kInserts; ++i, ++ours_next) {
          manager.Lock();
          Check(manager.PutSystemRec({RecordOf(ours_next), KeyOf(ours_next)}) == 0, "PutSystemRec");
          manager.Unlock();
        }
      },
      [&] {
        for (int i = 0; i < kInserts; ++i, ++theirs_next)
          sqlite.Insert(KeyOf(theirs_next), RecordOf(theirs_next));
      });
  Report("insert under lock into " + std::to_string(present) + ", against SQLite (" + journal + ")",
         ours, theirs, 1e6 / kInserts, "us");
}

void BenchSort(int count, const char* order) {
  std::vector<SystemKey> keys(static_cast<std::size_t>(count));
  std::iota(keys.begin(), keys.end(), -count / 2);
  if (*order == 'd')
    std::reverse(keys.begin(), keys.end());
  if (*order == 'r')
    std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
  const auto table_of = [&] {
    std::vector<SYSTEM_XREF_ENTRY> table(keys.size() + 2);
    for (std::size_t i = 0; i < keys.size(); ++i)
      table[i + 1].fKey = keys[i];
    return table;
  };
  double ours = HUGE_VAL;
  double theirs = HUGE_VAL;
  for (int round = 0; round < kRounds; ++round) {
    auto table = table_of();
    ours = std::min(ours, Seconds([&] { SortSysList(table.data(), count); }));
    auto other = table_of();
    theirs = std::min(theirs, Seconds([&] {
                        std::sort(other.begin() + 1, other.end() - 1,
                                  [](const auto& a, const auto& b) { return a.fKey < b.fKey; });
                      }));
    Check(std::is_sorted(table.begin() + 1, table.end() - 1,
                         [](const auto& a, const auto& b) { return a.fKey < b.fKey; }),
          "sorting");
  }
  const double steps = count * std::log2(count);
  Report("sort " + std::to_string(count) + " keys, " + order + ", against std::sort", ours, theirs,
         1e9 / steps, "ns/n log n");
}

void BenchMemory(const char* program, const std::string& path) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    // A fresh process, so that nothing of this one counts.
    execl(program, program, "--open", path.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  Check(WIFEXITED(status) && WEXITSTATUS(status) == 0, "opening in a process of its own");
  std::printf("%-62s %10.1f MiB\n", "peak memory of a process that opens 100,000 systems",
              static_cast<double>(usage.ru_maxrss) / 1024);
}

}  // namespace

int main(int argc, char** argv) {
  const CONTROL_OBJ control;
  if (argc == 3 && std::string(argv[1]) == "--open") {
    zt_SystemDBMgt_class manager(argv[2]);
    return manager.GetSystemRecCount() == kSystems ? 0 : 1;
  }
  std::string folder = std::string(argc > 1 ? argv[1] : ".") + "/sysdb-bench-XXXXXX";
  Check(mkdtemp(folder.data()) != nullptr, "mkdtemp");
  const std::string path = folder + "/ztdb";
  MakeDatabase(path, kSystems);

  BenchOpening(path);
  BenchMemory("/proc/self/exe", path);
  BenchLookup(path, folder);
  for (const int present : {100, 1000, 10'000})
    for (const char* journal : {"DELETE", "WAL"})
      BenchInsertion(folder, present, journal);
  for (const char* order : {"random", "ascending", "descending"})
    for (const int count : {1000, 10'000, 100'000})
      BenchSort(count, order);
  std::filesystem::remove_all(folder);
  return 0;
}
