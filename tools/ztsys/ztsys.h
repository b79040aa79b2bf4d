// SPDX-License-Identifier: Apache-2.0
// What the sub-commands of ztsys share: the words of the command line, exit statuses, and how a
// failure is reported.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ztsys {

// Exit statuses. A failure has been reported when a sub-command returns.
enum Status : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNoSuchSystem = 3,
  kExists = 4,
  kNotOpened = 5,  // the database is missing or may not be opened
  kLocked = 6,
  kDamaged = 7,  // or foreign, of an unknown version, or on a device that fails
};

// The status of several parts: that of the failures if they are of one kind, else kFailed.
class Outcome {
 public:
  void Add(Status status) {
    if (status != kDone)
      status_ = status_ == kDone || status_ == status ? status : kFailed;
  }
  Status status() const { return status_; }

 private:
  Status status_ = kDone;
};

// The command line behind the sub-command's name. Each option stands only in the command lines of
// the sub-commands that take it.
struct Arguments {
  std::optional<std::string> db;       // --db FILE
  std::optional<std::string> group;    // --group G
  std::optional<std::string> type;     // --type T
  std::optional<std::string> address;  // --address A
  std::optional<std::string> match;    // --match PATTERN
  std::string sort;                    // --sort KEY
  std::string alarms;                  // --alarms on|off
  int wait = 60;                       // --wait SECONDS
  bool numeric = false;
  bool json = false;
  bool csv = false;
  bool brief = false;
  bool yes = false;
  bool clear_alarms = false;
  bool dry_run = false;
  bool update = false;
  bool repair = false;
  // --- Of check
  std::vector<std::string> groups;    // --group G
  std::vector<std::string> from;      // --from FILE
  std::optional<std::string> output;  // --output FILE
  int jobs = 128;                     // --jobs N
  int timeout = -1;                   // --timeout LEVEL; -1: the environment's
  int critical = 1;                   // --critical N
  int warning = 0;                    // --warning N; 0: none
  bool html = false;
  bool prometheus = false;
  bool plugin = false;
  bool failed = false;
  std::vector<std::string> operands;
};

Status RunList(const Arguments& arguments);
Status RunShow(const Arguments& arguments);
Status RunAlarms(const Arguments& arguments);
Status RunInfo(const Arguments& arguments);
Status RunCheck(const Arguments& arguments);
Status RunAdd(const Arguments& arguments);
Status RunSet(const Arguments& arguments);
Status RunMove(const Arguments& arguments);
Status RunRename(const Arguments& arguments);
Status RunDelete(const Arguments& arguments);
Status RunImport(const Arguments& arguments);
Status RunVerify(const Arguments& arguments);
Status RunBackup(const Arguments& arguments);

// Reports one line on standard error. The results are for returning.
Status Fail(const std::string& message, Status status = kFailed);
Status FailUsage(const std::string& message);
// From now on a failure is also told as a monitoring system's plugin tells it: one line on standard
// output that begins with its state, UNKNOWN, whose exit status 3 all failures then have.
void FailAsPlugin();
// '?' for what the monitoring system would take for its own: control characters and '|'.
std::string PluginText(std::string_view text);
// One line on standard error that is no failure.
void Tell(const std::string& line);

}  // namespace ztsys
