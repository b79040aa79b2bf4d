// SPDX-License-Identifier: Apache-2.0
// Which systems `ztsys check` asks.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <unordered_map>
#include <unordered_set>

#include "platform/sys/native_path.h"
#include "tools/ztsys/check.h"
#include "tools/ztsys/database.h"

namespace ztsys {

namespace {

// The records of the database, in its order.
Status StoredSystems(const Arguments& arguments, std::vector<SweepSystem>* systems) {
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  return ForEachSystem(reader, [&](const zt_SystemInfo_class& info) {
    systems->push_back({info.ReturnSystemName(), info.ReturnGroupName(), info.ReturnSystemKey()});
  });
}

bool DatabaseExists(const Arguments& arguments) {
  return access(sys::native_path(DatabasePath(arguments)).c_str(), F_OK) == 0;
}

// One word a line; what follows '#' is a comment.
Status WordsOf(const std::string& path, std::vector<std::string>* words) {
  std::ifstream file;
  if (path != "-") {
    file.open(path);
    if (!file)
      return FailUsage("cannot open '" + path + "': " + std::strerror(errno));
  }
  std::istream& in = path == "-" ? std::cin : file;
  for (std::string line; std::getline(in, line);) {
    line.erase(std::min(line.find('#'), line.size()));
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
      continue;
    words->push_back(line.substr(begin, line.find_last_not_of(" \t\r") - begin + 1));
  }
  if (in.bad())
    return FailUsage("cannot read '" + path + "': " + std::strerror(errno));
  return kDone;
}

// Takes operands from the database by name or address, and looks the others up.
class Finder {
 public:
  explicit Finder(const std::vector<SweepSystem>& stored) {
    for (const SweepSystem& each : stored) {
      by_name_.emplace(each.name, &each);
      by_key_.emplace(each.key, &each);
    }
  }

  SweepSystem Find(const std::string& word) const {
    if (const auto named = by_name_.find(word); named != by_name_.end())
      return *named->second;
    SweepSystem system{word, "", kNoSystemKey};
    std::string name = word;  // the look-up cuts trailing blanks in place
    if (ARPANameToSystemKey(name.data(), system.key) != 0)
      system.key = kNoSystemKey;
    const auto known = by_key_.find(system.key);
    return known != by_key_.end() ? *known->second : system;
  }

 private:
  std::unordered_map<std::string, const SweepSystem*> by_name_;
  std::unordered_map<SystemKey, const SweepSystem*> by_key_;
};

// Two records or operands of one address are one system; the first one names it.
void KeepEachAddressOnce(std::vector<SweepSystem>* systems) {
  std::unordered_set<SystemKey> seen;
  std::erase_if(*systems, [&](const SweepSystem& each) {
    return each.key != kNoSystemKey && !seen.insert(each.key).second;
  });
}

}  // namespace

Status SystemsToCheck(const Arguments& arguments, std::vector<SweepSystem>* systems) {
  std::vector<std::string> words = arguments.operands;
  for (const std::string& path : arguments.from)
    if (const Status status = WordsOf(path, &words); status != kDone)
      return status;
  const bool named = !arguments.operands.empty() || !arguments.from.empty();
  std::vector<SweepSystem> stored;
  // Operands can do without a database, if there is none where it would be by default.
  if (!named || arguments.db || !arguments.groups.empty() || DatabaseExists(arguments))
    if (const Status status = StoredSystems(arguments, &stored); status != kDone)
      return status;
  const Finder finder(stored);
  for (const std::string& word : words)
    systems->push_back(finder.Find(word));
  for (const SweepSystem& each : stored)
    if (arguments.groups.empty() ? !named
                                 : std::find(arguments.groups.begin(), arguments.groups.end(),
                                             each.group) != arguments.groups.end())
      systems->push_back(each);
  KeepEachAddressOnce(systems);
  if (systems->empty())
    return FailUsage("there is no system to check");
  return kDone;
}

}  // namespace ztsys
