// SPDX-License-Identifier: Apache-2.0
// The back-connect file: a text file that names, a line per system, the name under which the
// system's server connects to the alarm manager. It stays open between questions and is opened
// anew when it has changed.

#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "present/util/util.h"
#include "source/sysdb/ZTsysRecords.h"

class BackConnectFile {
 public:
  explicit BackConnectFile(std::string path) : path_(std::move(path)) {}
  // The one in the installation's database directory.
  static BackConnectFile OfInstallation();

  const std::string& path() const { return path_; }
  // The system's back-connect name, good until the next question; null when there is none.
  const char* NameOf(const char* system_name);
  // Gives the names of every line to `take`, until that returns false.
  void ForEach(const std::function<bool(const char* system, const char* name)>& take);
  // Why the file could not be asked: an errno, 0 when it could.
  int error() const { return error_; }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  bool Open();

  std::string path_;
  char name_[kSystemNameSize] = "";
  int error_ = 0;
  DateTime open_time_;
  struct stat opened_ {};  // as it was opened
  std::unique_ptr<std::FILE, Close> file_;
};
