// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): instances, labels
// and what a class can do.

#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTnamedElement.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "source/support/ZTprintable.h"

namespace {

constexpr std::int16_t kSummarizable = 1;
constexpr std::uint32_t kNoDiscriminator = 0xFFFFFFFF;

}  // namespace

int zt_RepServerInfo_class::ValidInstanceName(int class_index, const char* instance_name) {
  const TracedOperation traced("zt_RepServerInfo_class::ValidInstanceName");
  gTraceObj.LogMsg("instance_name = %s", printable(instance_name).c_str());
  const int index = find_named(FindClass(class_index)->Instances, instance_name);
  if (index < 0) {
    RecordMessage(messages::kUnknownInstance);
    fErrorMsgParm = instance_name;
  }
  gTraceObj.LogMsg("Index = %d", index);
  return index;
}

const rep_sInstanceDescriptor* zt_RepServerInfo_class::FindInstance(int class_index,
                                                                    int instance_index) const {
  const zt_ClassInfo_struct* found = FindClass(class_index);
  const bool exists =
      found != nullptr && instance_index >= 0 && instance_index < found->NumInstances;
  return exists ? &found->Instances[static_cast<std::size_t>(instance_index)] : nullptr;
}

const rep_sInstanceDescriptor* zt_RepServerInfo_class::ReturnInstances(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->Instances.data() : nullptr;
}

int zt_RepServerInfo_class::ReturnNumInstances(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->NumInstances : -1;
}

const char* zt_RepServerInfo_class::ReturnClassLabel(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->ClassInfo.Descriptor.Label : nullptr;
}

int zt_RepServerInfo_class::ReturnClassLabelLen(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->ClassInfo.Descriptor.LabelLength : -1;
}

const char* zt_RepServerInfo_class::ReturnInstanceName(int class_index, int instance_index) const {
  const auto* found = FindInstance(class_index, instance_index);
  return found != nullptr ? found->Descriptor.fName : nullptr;
}

const char* zt_RepServerInfo_class::ReturnInstanceLabel(int class_index, int instance_index) const {
  const auto* found = FindInstance(class_index, instance_index);
  return found != nullptr ? found->Descriptor.Label : nullptr;
}

int zt_RepServerInfo_class::ReturnInstanceLabelLen(int class_index, int instance_index) const {
  const auto* found = FindInstance(class_index, instance_index);
  return found != nullptr ? found->Descriptor.LabelLength : -1;
}

int zt_RepServerInfo_class::IsMultiInstance(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? (found->ClassInfo.Flags & kMultiInstance) != 0 : -1;
}

int zt_RepServerInfo_class::IsSummarizable(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? (found->ClassInfo.Flags & kSummarizable) != 0 : -1;
}

int zt_RepServerInfo_class::HasDiscriminator(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->ClassInfo.DiscriminatorId != kNoDiscriminator : -1;
}
