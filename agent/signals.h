// SPDX-License-Identifier: Apache-2.0
// Signals and changes of a file as events of the loop.

#pragma once

#include <functional>
#include <map>
#include <string>

#include "platform/rpc/server/event_loop.h"

namespace agent {

// From now on the signals do nothing but call their handlers, in the loop; a pipe that nobody reads
// is an error of the write instead of SIGPIPE.
class Signals {
 public:
  using Handlers = std::map<int, std::function<void()>>;

  // The loop is not owned.
  Signals(rpc::server::EventLoop& loop, Handlers handlers);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  void take() const;

  rpc::server::EventLoop& loop_;
  const Handlers handlers_;
  int descriptor_ = -1;
};

// Tells when a file has got other contents: written in place, or replaced by another of its name.
class FileWatch {
 public:
  // The loop is not owned. `changed` is called some moments after the last change of a row of them.
  FileWatch(rpc::server::EventLoop& loop, const std::string& path, std::function<void()> changed);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // False, with errno, when the folder cannot be watched.
  bool open();

 private:
  void take();

  rpc::server::EventLoop& loop_;
  std::string folder_;
  std::string name_;
  const std::function<void()> changed_;
  int descriptor_ = -1;
  rpc::server::EventLoop::TimerNumber settling_ = 0;
};

}  // namespace agent
