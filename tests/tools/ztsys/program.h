// SPDX-License-Identifier: Apache-2.0
// Runs ztsys, as it is built, on a database in a folder of the test's own.

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/settings_text.h"
#include "tests/support/test_files.h"

using Words = std::vector<std::string>;

class ZtsysProgram : public testing::Test {
 protected:
  struct Outcome {
    int status = 0;  // -1: ended by a signal
    std::string out;
    std::string err;
  };

  ZtsysProgram() {
    mkdir((folder_ / "datafiles").c_str(), 0777);
    test::WriteFile(folder_ / "zentrace.reg", test::settings_text(folder_.path(), folder_.path()));
    setenv("ZT_REGISTRY", (folder_ / "zentrace.reg").c_str(), 1);
  }

  void StandardStreamsTo(const std::string& out, const std::string& err) const {
    constexpr mode_t kMode = 0666;
    dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kMode), STDOUT_FILENO);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kMode), STDERR_FILENO);
  }

  [[noreturn]] void Exec(const Words& words) const {
    std::vector<char*> arguments{const_cast<char*>(program_)};
    for (const std::string& word : words)
      arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(program_, arguments.data());
    _exit(127);
  }

  Outcome Collect(int wait_status) const {
    return {test::ExitStatus(wait_status), test::ReadFile(folder_ / "out"),
            test::ReadFile(folder_ / "err")};
  }

  Outcome Run(const Words& words, rlim_t file_size = RLIM_INFINITY,
              bool unprivileged = false) const {
    // The output files belong to root even when the program does not run as it.
    const std::string out = folder_ / "out";
    const std::string err = folder_ / "err";
    for (const std::string& file : {out, err}) {
      test::WriteFile(file, "");
      chmod(file.c_str(), 0666);
    }
    return Collect(test::RunInChild(
        [&]() -> int {
          dup2(open((folder_ / "in").c_str(), O_RDONLY | O_CREAT, 0666), STDIN_FILENO);
          StandardStreamsTo(out, err);
          if (file_size != RLIM_INFINITY) {
            const rlimit limit{file_size, file_size};
            setrlimit(RLIMIT_FSIZE, &limit);
          }
          Exec(words);
        },
        unprivileged));
  }

  // With --db on the test's own database.
  Outcome Db(Words words, rlim_t file_size = RLIM_INFINITY, bool unprivileged = false) const {
    words.insert(words.begin(), {"--db", db_});
    return Run(words, file_size, unprivileged);
  }

  test::Folder folder_;
  std::string db_ = folder_ / "ztdb";
  const char* program_ = ZTSYS_PROGRAM;
};
