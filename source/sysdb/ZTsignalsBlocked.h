// SPDX-License-Identifier: Apache-2.0
// Holds back the signals that can be held back, so that a change and the rise of the change counter
// behind it come together. SIGKILL and SIGSTOP cannot be.

#pragma once

#include <csignal>

class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};
