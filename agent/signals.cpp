// SPDX-License-Identifier: Apache-2.0
#include "agent/signals.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <utility>

namespace agent {

namespace {

// Editors write a file in several steps.
constexpr auto kSettlingTime = std::chrono::milliseconds(100);

}  // namespace

Signals::Signals(rpc::server::EventLoop& loop, Handlers handlers)
    : loop_(loop), handlers_(std::move(handlers)) {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t set;
  sigemptyset(&set);
  for (const auto& [number, handler] : handlers_)
    sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  loop_.watch(descriptor_, EPOLLIN, [this](std::uint32_t) { take(); });
}

Signals::~Signals() {
  loop_.unwatch(descriptor_);
  ::close(descriptor_);
}

void Signals::take() const {
  signalfd_siginfo info{};
  while (::read(descriptor_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    const auto found = handlers_.find(static_cast<int>(info.ssi_signo));
    if (found != handlers_.end())
      found->second();
  }
}

FileWatch::FileWatch(rpc::server::EventLoop& loop, const std::string& path,
                     std::function<void()> changed)
    : loop_(loop), changed_(std::move(changed)) {
  const std::filesystem::path file(path);
  folder_ = file.has_parent_path() ? file.parent_path().string() : ".";
  name_ = file.filename().string();
}

FileWatch::~FileWatch() {
  loop_.cancel(settling_);
  if (descriptor_ < 0)
    return;
  loop_.unwatch(descriptor_);
  ::close(descriptor_);
}

bool FileWatch::open() {
  descriptor_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  return descriptor_ >= 0 &&
         ::inotify_add_watch(descriptor_, folder_.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) >= 0 &&
         loop_.watch(descriptor_, EPOLLIN, [this](std::uint32_t) { take(); });
}

void FileWatch::take() {
  alignas(inotify_event) char block[4096];
  bool changed = false;
  for (ssize_t got = 0; (got = ::read(descriptor_, block, sizeof block)) > 0;) {
    for (ssize_t at = 0; at < got;) {
      inotify_event event{};
      std::memcpy(&event, block + at, sizeof event);
      changed = changed || name_ == block + at + sizeof event;
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  if (!changed)
    return;
  loop_.cancel(settling_);
  settling_ = loop_.after(kSettlingTime, changed_);
}

}  // namespace agent
