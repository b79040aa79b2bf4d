// SPDX-License-Identifier: Apache-2.0
// What a piece of code writes to standard output and standard error.

#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

struct Captured {
  std::string out;
  std::string err;
};

template <typename Code>
Captured capture(const Code& code) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  code();
  std::fflush(stdout);
  std::fflush(stderr);
  Captured captured;
  captured.out = ::testing::internal::GetCapturedStdout();
  captured.err = ::testing::internal::GetCapturedStderr();
  return captured;
}
