// SPDX-License-Identifier: Apache-2.0
// Handles of the runtime: tokens that stand for objects which the runtime owns. A token is never
// dereferenced and never given out twice in a process, over all kinds of handles, so that null,
// stale and foreign ones are always told from live ones.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace rpc {

inline std::uintptr_t next_handle_token() {
  // Odd numbers look like no object's address, so that a caller's own pointer is never a handle.
  static std::atomic<std::uintptr_t> next{1};
  return next.fetch_add(2);
}

// `Handle` is a pointer to an incomplete type; `Object` is what stands behind it. Any thread may
// use a table; an object found stays alive while its pointer is held.
template <typename Handle, typename Object>
class HandleTable {
 public:
  Handle insert(Object object) {
    const auto handle = reinterpret_cast<Handle>(next_handle_token());
    const std::lock_guard lock(mutex_);
    objects_.emplace(handle, std::make_shared<Object>(std::move(object)));
    return handle;
  }

  // Null for a handle that is not alive here.
  std::shared_ptr<Object> find(Handle handle) const {
    const std::lock_guard lock(mutex_);
    const auto found = objects_.find(handle);
    return found == objects_.end() ? nullptr : found->second;
  }

  // Ends the handle and gives its object out; null for a handle that is not alive here.
  std::shared_ptr<Object> remove(Handle handle) {
    const std::lock_guard lock(mutex_);
    auto node = objects_.extract(handle);
    return node.empty() ? nullptr : std::move(node.mapped());
  }

 private:
  mutable std::mutex mutex_;
  std::unordered_map<Handle, std::shared_ptr<Object>> objects_;
};

}  // namespace rpc
