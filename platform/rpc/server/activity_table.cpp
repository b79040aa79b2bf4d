// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/activity_table.h"

#include <algorithm>
#include <cstring>

namespace rpc::server {
namespace {

template <typename Map>
Activity* found_in(const Map& map, const typename Map::key_type& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : &*found->second;
}

}  // namespace

// Activities are random; mixing both halves keeps it so for those that differ in one half only.
std::size_t ActivityTable::UuidHash::operator()(const uuid_t& uuid) const noexcept {
  std::uint64_t halves[2];
  std::memcpy(halves, &uuid, sizeof halves);
  return (halves[0] ^ (halves[1] << 1)) * 0x9E3779B97F4A7C15U;
}

Activity* ActivityTable::find(const uuid_t& id) const {
  return found_in(activities_, id);
}
Activity* ActivityTable::of_call_back(const uuid_t& id) const {
  return found_in(call_backs_, id);
}
Activity* ActivityTable::of_call(CallNumber number) const {
  return found_in(calls_, number);
}

Activity* ActivityTable::make(const uuid_t& id, Time now) {
  if (!make_room(1, 0, nullptr))
    return nullptr;
  Activity& made = *activities_.emplace(id, std::make_unique<Activity>()).first->second;
  made.id = id;
  made.last_heard = now;
  return &made;
}

bool ActivityTable::make_room(std::size_t bytes, const Activity& keep) {
  return make_room(0, bytes, &keep);
}

// Those that nobody vouched for go first, so that a flood of invented ones cannot push out real
// clients, and among equals the one that was silent longest; one that runs a call or is being
// answered never goes, and `keep` neither.
bool ActivityTable::make_room(std::size_t activities, std::size_t bytes, const Activity* keep) {
  if (bytes > bounds_.bytes || activities > bounds_.activities)
    return false;
  while (activities_.size() > bounds_.activities - activities ||
         bytes_held_ > bounds_.bytes - bytes) {
    Activity* victim = nullptr;
    for (const auto& [id, activity] : activities_) {
      if (activity.get() == keep || (!activity->idle() && !activity->unproven()) ||
          (activities == 0 && activity->bytes == 0))
        continue;
      if (victim == nullptr || std::pair(activity->known, activity->last_heard) <
                                   std::pair(victim->known, victim->last_heard))
        victim = activity.get();
    }
    if (victim == nullptr)
      return false;
    forget(*victim);
  }
  return true;
}

bool ActivityTable::has_other_activity(const Activity& activity) const {
  return activity.client != uuid_t{} &&
         std::any_of(activities_.begin(), activities_.end(), [&activity](const auto& each) {
           return each.second.get() != &activity && each.second->client == activity.client;
         });
}

void ActivityTable::hold(Activity& activity, std::size_t bytes) {
  activity.bytes += bytes;
  bytes_held_ += bytes;
}

void ActivityTable::release_bytes(Activity& activity) {
  bytes_held_ -= std::exchange(activity.bytes, 0);
}

void ActivityTable::begin_call(Activity& activity) {
  calls_[activity.number] = &activity;
}

void ActivityTable::end_call(Activity& activity) {
  calls_.erase(activity.number);
}

void ActivityTable::begin_call_back(Activity& activity, const uuid_t& id) {
  activity.call_back_id = id;
  call_backs_[id] = &activity;
}

void ActivityTable::end_call_back(Activity& activity) {
  call_backs_.erase(activity.call_back_id);
}

void ActivityTable::begin_sending(Activity& activity) {
  if (!std::exchange(activity.sending, true))
    sending_.push_back(&activity);
}

void ActivityTable::end_sending(Activity& activity) {
  if (std::exchange(activity.sending, false))
    std::erase(sending_, &activity);
}

void ActivityTable::forget(Activity& activity) {
  end_call(activity);
  end_call_back(activity);
  end_sending(activity);
  release_bytes(activity);
  // What it made before it was known by its process is its own.
  if (activity.has_run && activity.client != uuid_t{})
    gone_.push_back(activity.id);
  if (activity.has_run && !has_other_activity(activity))
    gone_.push_back(activity.owner());
  if (activity.due)
    due_.erase({*activity.due, &activity});
  activities_.erase(uuid_t(activity.id));
}

// An entry that is too early only costs a look at the activity, so the list is not touched when the
// time moves on.
void ActivityTable::schedule(Activity& activity) {
  std::optional<Time> due;
  const auto earlier = [&due](const std::optional<Time>& time) {
    if (time && (!due || *time < *due))
      due = time;
  };
  if (activity.idle()) {
    due = activity.last_heard + bounds_.silence;
  } else {
    earlier(activity.keep_until);
    if (activity.state == CallState::receiving)
      earlier(activity.joiner.wakeup());
    if (activity.state == CallState::calling_back) {
      earlier(activity.call_back_clock.next());
      earlier(activity.call_back_deadline);
    }
    if (activity.state == CallState::answering) {
      earlier(activity.answer_clock.next());
      earlier(activity.sender.wakeup());
    }
  }
  if (!due || (activity.due && *activity.due <= *due))
    return;
  if (activity.due)
    due_.erase({*activity.due, &activity});
  activity.due = due;
  due_.emplace(*due, &activity);
}

std::optional<Time> ActivityTable::wakeup() const {
  return due_.empty() ? std::nullopt : std::optional(due_.begin()->first);
}

void ActivityTable::hear_from(const uuid_t& client, Time now) {
  if (client == uuid_t{})
    return;
  for (const auto& [id, activity] : activities_)
    if (activity->client == client)
      activity->last_heard = now;
}

Activity* ActivityTable::next_due(Time now) {
  while (!due_.empty() && due_.begin()->first <= now) {
    Activity& activity = *due_.begin()->second;
    due_.erase(due_.begin());
    activity.due.reset();
    if (!activity.idle() || activity.last_heard + bounds_.silence > now)
      return &activity;
    forget(activity);
  }
  return nullptr;
}

}  // namespace rpc::server
