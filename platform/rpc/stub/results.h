// SPDX-License-Identifier: Apache-2.0
// The arrays that an operation of a server fills.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/rpc/exception.h"
#include "platform/rpc/stub/ndr.h"

namespace rpc::server {

// At most `size` elements; more than ndr::kResultBytes of them end the call with
// nca::kOutArgumentsTooBig. An element is zeroed when it is first reached, so that a client which
// asks for much and gets little is served cheaply. What is reached behind the size does not travel:
// the call ends with a fault when the operation says that it does.
template <typename T>
class Results {
 public:
  explicit Results(std::uint64_t size) {
    if (size > ndr::kResultBytes / sizeof(T))
      throw Fault(nca::kOutArgumentsTooBig);
    elements_.reserve(static_cast<std::size_t>(size));
  }

  T& operator[](std::size_t index) { return first(index + 1)[index]; }

  std::span<T> first(std::size_t count) {
    if (count > elements_.size())
      elements_.resize(count);
    return std::span(elements_).first(count);
  }

 private:
  std::vector<T> elements_;
};

}  // namespace rpc::server
