// SPDX-License-Identifier: Apache-2.0
// Many systems in little memory: what of a record is not empty, one behind the other. A million
// systems of the usual kind take some 50 MiB, a tenth of their records.

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "source/sysdb/ZTsysRecords.h"

namespace ztsys {

class SystemStore {
 public:
  void Add(const zt_SystemInfo_class& info);
  std::size_t size() const { return at_.size(); }
  zt_SystemInfo_class operator[](std::size_t index) const;

 private:
  // Blocks that stay where they are, so that growing never copies what is there.
  std::vector<std::unique_ptr<char[]>> blocks_;
  std::size_t used_ = 0;           // of the last block
  std::vector<std::uint32_t> at_;  // block and offset of each system
};

}  // namespace ztsys
