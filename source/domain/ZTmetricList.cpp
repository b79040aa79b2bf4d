// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTmetricList.h"

#include <cstring>
#include <type_traits>

namespace {

static_assert(std::is_trivially_copyable_v<rep_sMetricDescriptor>);

// Goes over a descriptor's used octets in the order of packing; the lengths come before the texts
// that they measure. visit(first, size) is called with octets of the descriptor.
template <typename Metric, typename Visit>
void walk(Metric& metric, const Visit& visit) {
  const auto numbers = [&visit](auto& first, auto& behind) {
    auto* const begin =
        reinterpret_cast<std::conditional_t<std::is_const_v<Metric>, const std::byte*, std::byte*>>(
            &first);
    visit(begin, static_cast<std::size_t>(reinterpret_cast<const std::byte*>(&behind) - begin));
  };
  const auto text = [&visit](auto& first, std::size_t length) { visit(&first, length); };
  numbers(metric.Descriptor.fId, metric.Descriptor.fName);
  text(metric.Descriptor.fName, metric.Descriptor.NameLength);
  text(metric.Descriptor.Label, metric.Descriptor.LabelLength);
  numbers(metric.DenominatorId, metric.HeadingOne);
  text(metric.HeadingOne, metric.HeadOneLength);
  text(metric.HeadingTwo, metric.HeadTwoLength);
}

}  // namespace

void ZTmetricList::Keep(std::span<const rep_sMetricDescriptor> metrics) {
  fUnpacked.clear();
  fUnpacked.shrink_to_fit();
  fCount = metrics.size();
  std::size_t total = 0;
  for (const rep_sMetricDescriptor& metric : metrics)
    walk(metric, [&total](const void*, std::size_t size) { total += size; });
  fPacked = std::make_unique_for_overwrite<std::byte[]>(total);
  std::byte* to = fPacked.get();
  for (const rep_sMetricDescriptor& metric : metrics)
    walk(metric, [&to](const void* from, std::size_t size) {
      std::memcpy(to, from, size);
      to += size;
    });
}

const rep_sMetricDescriptor* ZTmetricList::Unpacked() const {
  if (fCount == 0)
    return nullptr;
  if (fUnpacked.empty()) {
    fUnpacked.resize(fCount);
    const std::byte* from = fPacked.get();
    for (rep_sMetricDescriptor& metric : fUnpacked)
      walk(metric, [&from](void* to, std::size_t size) {
        std::memcpy(to, from, size);
        from += size;
      });
  }
  return fUnpacked.data();
}
