// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/host_names.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/sys/sockets.h"
#include "source/support/ZTprintable.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostThreads = 64;

// The questions and answers of one round. Threads that are still in the resolver when the round is
// over keep it alive and answer nobody.
template <typename Question, typename Answer>
struct Round {
  std::vector<Question> questions;
  std::function<std::optional<Answer>(const Question&)> ask;
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t next = 0;
  std::size_t done = 0;
  bool over = false;
  std::unordered_map<Question, Answer> answers;
};

template <typename Question, typename Answer>
void Work(const std::shared_ptr<Round<Question, Answer>>& round) {
  std::unique_lock<std::mutex> lock(round->mutex);
  while (!round->over && round->next < round->questions.size()) {
    const Question& question = round->questions[round->next++];
    lock.unlock();
    std::optional<Answer> answer = round->ask(question);
    lock.lock();
    ++round->done;
    if (answer && !round->over)
      round->answers.emplace(question, std::move(*answer));
  }
  round->changed.notify_all();
}

template <typename Question, typename Answer>
std::unordered_map<Question, Answer> Ask(std::vector<Question> questions,
                                         std::function<std::optional<Answer>(const Question&)> ask,
                                         std::optional<Clock::duration> limit) {
  std::sort(questions.begin(), questions.end());
  questions.erase(std::unique(questions.begin(), questions.end()), questions.end());
  const auto round = std::make_shared<Round<Question, Answer>>();
  round->questions = std::move(questions);
  round->ask = std::move(ask);
  const std::size_t threads = std::min(kMostThreads, round->questions.size());
  for (std::size_t i = 0; i < threads; ++i)
    std::thread(Work<Question, Answer>, round).detach();

  std::unique_lock<std::mutex> lock(round->mutex);
  const auto all_done = [&] { return round->done == round->questions.size(); };
  if (limit)
    round->changed.wait_for(lock, *limit, all_done);
  else
    round->changed.wait(lock, all_done);
  round->over = true;
  return std::move(round->answers);
}

std::optional<std::string> HostName(const SystemKey& key) {
  char name[kHostNameSize] = "";
  if (SystemKeyToARPAName(key, name, kHostNameSize - 1) != 0)
    return std::nullopt;
  return printable(name);
}

std::optional<SystemKey> Address(const std::string& name) {
  SystemKey key = kNoSystemKey;
  std::string copy = name;
  if (ARPANameToSystemKey(copy.data(), key) != 0 || key == kNoSystemKey)
    return std::nullopt;
  return key;
}

}  // namespace

HostNames NameLookups::NamesOf(std::vector<SystemKey> keys) {
  if (numeric_)
    return {};
  const auto start = Clock::now();
  HostNames names = Ask<SystemKey, std::string>(std::move(keys), HostName, left_);
  Charge(start);
  return names;
}

Addresses NameLookups::AddressesOf(std::vector<std::string> names) {
  if (numeric_)
    return {};
  const auto start = Clock::now();
  Addresses addresses = Ask<std::string, SystemKey>(std::move(names), Address, left_);
  Charge(start);
  return addresses;
}

void NameLookups::Charge(Clock::time_point start) {
  left_ -= Clock::now() - start;
  if (told_ || (left_.count() > 0 && !sockets::name_server_silent()))
    return;
  told_ = true;
  Tell("the name server does not answer; only what is stored, and the hosts file, is used");
}

Addresses LookUpAddresses(std::vector<std::string> names) {
  return Ask<std::string, SystemKey>(std::move(names), Address, std::nullopt);
}

}  // namespace ztsys
