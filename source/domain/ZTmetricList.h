// SPDX-License-Identifier: Apache-2.0
// The metrics of one class. A descriptor's texts have far more room than they use, and a data
// source may have a hundred thousand of them of which a run looks at a few classes: they are kept
// packed until somebody asks.

#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "rep.h"

class ZTmetricList {
 public:
  // In place of what was kept. The texts are as long as the length fields say, and nothing but
  // zeros is behind them: so they come out of a reply.
  void Keep(std::span<const rep_sMetricDescriptor> metrics);

  // All of them; null for none. Good until the next Keep.
  const rep_sMetricDescriptor* Unpacked() const;

 private:
  std::size_t fCount = 0;
  std::unique_ptr<std::byte[]> fPacked;
  mutable std::vector<rep_sMetricDescriptor> fUnpacked;
};
