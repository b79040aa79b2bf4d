// SPDX-License-Identifier: Apache-2.0
// Which systems `ztsys check` asks.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "platform/sys/native_path.h"
#include "platform/sys/sockets.h"
#include "source/support/ZTformat.h"
#include "tools/ztsys/check.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/text_lines.h"

namespace ztsys {

namespace {

bool DatabaseExists(const Arguments& arguments) {
  return access(sys::native_path(DatabasePath(arguments)).c_str(), F_OK) == 0;
}

constexpr std::size_t kMostWords = 1'000'000;

// One word a line; what follows '#' is a comment.
Status WordsOf(const std::string& path, std::vector<std::string>* words) {
  std::ifstream file;
  if (path != "-") {
    file.open(path);
    if (!file)
      return FailUsage("cannot open '" + path + "': " + std::strerror(errno));
  }
  std::istream& in = path == "-" ? std::cin : file;
  std::size_t number = 1;
  for (std::string line; ReadLine(in, line); ++number) {
    if (line.size() > kLongestLine || words->size() == kMostWords)
      return FailUsage(format_text("%s:%zu: ", path.c_str(), number) +
                       (line.size() > kLongestLine ? "the line is longer than any name"
                                                   : "more than a million systems"));
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

bool IsOfGroup(const SweepSystem& system, const std::vector<std::string>& groups) {
  return std::find(groups.begin(), groups.end(), system.group) != groups.end();
}

}  // namespace

// The records of the database, in its order. Of a file that is cut, those that are there: but a
// monitoring system would take their verdict for that of all.
Status CheckList::ReadStored(const Arguments& arguments, std::vector<SweepSystem>* systems) {
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  const Status status = ForEachSystem(reader, [&](const zt_SystemInfo_class& info) {
    systems->push_back({info.ReturnSystemName(), info.ReturnGroupName(), info.ReturnSystemKey()});
  });
  if (status != kDone)
    return status;
  tail_ = ReportTail(reader.path(), reader.tail());
  return arguments.plugin ? tail_ : kDone;
}

Status CheckList::Gather(const Arguments& arguments) {
  std::vector<std::string> words = arguments.operands;
  for (const std::string& path : arguments.from)
    if (const Status status = WordsOf(path, &words); status != kDone)
      return status;
  const bool named = !arguments.operands.empty() || !arguments.from.empty();
  std::vector<SweepSystem> stored;
  // Operands can do without a database, if there is none where it would be by default.
  if (!named || arguments.db || !arguments.groups.empty() || DatabaseExists(arguments))
    if (const Status status = ReadStored(arguments, &stored); status != kDone)
      return status;
  std::unordered_map<std::string, std::vector<const SweepSystem*>> by_name;
  if (named)
    for (const SweepSystem& each : stored) {
      by_name[each.name].push_back(&each);
      stored_.emplace(each.key, each);
    }
  std::unordered_set<std::string> seen;
  for (const std::string& word : words) {
    if (!seen.insert(word).second)
      continue;
    const auto records = by_name.find(word);
    if (records == by_name.end())
      systems_.push_back({.name = word, .look_up = SweepSystem::LookUp::address});
    else
      for (const SweepSystem* each : records->second)
        systems_.push_back(*each);
  }
  for (const SweepSystem& each : stored)
    if (arguments.groups.empty() ? !named : IsOfGroup(each, arguments.groups))
      systems_.push_back(each);
  return kDone;
}

Status CheckList::Read(const Arguments& arguments) {
  if (const Status status = Gather(arguments); status != kDone)
    return status;
  std::erase_if(systems_, [this](SweepSystem& each) {
    if (each.look_up != SweepSystem::LookUp::none) {
      // A dotted address needs no look-up.
      each.key = static_cast<SystemKey>(sockets::inet_addr(each.name.c_str()));
      if (each.key == kNoSystemKey || each.key == 0)
        return false;
    }
    each.look_up = SweepSystem::LookUp::none;
    return !Claim(&each);
  });
  if (systems_.empty())
    return FailUsage("there is no system to check");
  return kDone;
}

// Two records or operands of one address are one system; the first one names it.
bool CheckList::Claim(SweepSystem* system) {
  if (system->key == kNoSystemKey)
    return true;
  if (const auto record = stored_.find(system->key); record != stored_.end())
    *system = record->second;
  return claimed_.insert(system->key).second;
}

}  // namespace ztsys
