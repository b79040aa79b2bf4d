// SPDX-License-Identifier: Apache-2.0
// What the sub-commands of ztsys share: the words of the command line and how a failure is
// reported.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ztsys {

// Exit statuses. A failure has been reported when a sub-command returns.
enum Status : int { kDone = 0, kFailed = 1, kUsage = 2 };

// The command line behind the sub-command's name. Each option stands only in the command lines of
// the sub-commands that take it.
struct Arguments {
  std::optional<std::string> db;     // --db FILE
  std::optional<std::string> group;  // --group G
  std::optional<std::string> type;   // --type T
  bool json = false;
  bool brief = false;
  bool yes = false;
  std::vector<std::string> operands;
};

Status RunList(const Arguments& arguments);
Status RunShow(const Arguments& arguments);
Status RunAlarms(const Arguments& arguments);
Status RunInfo(const Arguments& arguments);
Status RunAdd(const Arguments& arguments);
Status RunRename(const Arguments& arguments);
Status RunDelete(const Arguments& arguments);

// Reports one line on standard error. The results are for returning.
Status Fail(const std::string& message);
Status FailUsage(const std::string& message);

}  // namespace ztsys
