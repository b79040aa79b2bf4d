// SPDX-License-Identifier: Apache-2.0
// What the command line of ztcomm asks for.

#pragma once

#include <span>
#include <string>

struct CommandLine {
  std::string System;       // -s: the target, empty for the local system
  std::string DataSource;   // -ds
  std::string CatDir;       // -dir: the catalog directory with its slash, empty for the default
  std::string CmdLine;      // the words as they were understood
  std::string Refusal;      // why a value was refused, empty when none was
  bool UseDefault = true;   // no option selected a check
  bool GoodCommand = true;  // every word was understood
  bool Breakout = false;    // -b: the registered-server check
  bool ListAllRegistered = false;     // -r
  bool ShowConfiguration = false;     // -c
  bool QueryServer = false;           // -ds
  bool CheckZTDBConnections = false;  // -zt
  bool Trace = false;                 // -trace
};

// Reads the words behind the program's name.
CommandLine read_command_line(std::span<char* const> words);

// Writes the usage to standard error and ends the process with status 1.
void PrintUsage();
