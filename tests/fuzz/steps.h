// SPDX-License-Identifier: Apache-2.0
// What fuzz targets share that read their input as a row of steps.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

// The input, taken from its front; octets behind its end are 0.
class Steps {
 public:
  Steps(const std::uint8_t* data, std::size_t size) : data_(data, size) {}
  bool more() const { return !data_.empty(); }
  std::uint8_t octet() {
    if (data_.empty())
      return 0;
    const std::uint8_t value = data_.front();
    data_ = data_.subspan(1);
    return value;
  }
  // As many bytes as there are, `size` at most.
  std::span<const std::byte> bytes(std::size_t size) {
    const auto taken = std::as_bytes(data_.first(std::min(size, data_.size())));
    data_ = data_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const std::uint8_t> data_;
};

}  // namespace fuzz
