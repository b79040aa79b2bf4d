// SPDX-License-Identifier: Apache-2.0
// The interface `rep` of a repository server: what it holds.

#pragma once

#include "agent/repository.h"
#include "rep_server.h"

namespace agent {

// The lookups list what matches, from the element on that `lookupHandle` counts to (0 at first).
// The handle that comes back goes on behind the last element sent, or is 0 when that was the end.
// An identifier of 0 matches all.
class MetadataInterface : public rep_Server {
 public:
  // The repository is not owned.
  explicit MetadataInterface(const Repository& repository) : repository_(&repository) {}
  void serve(const Repository& repository) { repository_ = &repository; }

  void LookupRepository(const rpc::server::CallInfo& call, rep_sRepositoryDescriptor* result,
                        error_status_t* status) override;
  void LookupTable(const rpc::server::CallInfo& call, std::uint32_t tableId,
                   std::uint32_t* lookupHandle, std::uint32_t maxIndex, std::uint32_t* lastIndex,
                   rpc::server::Results<rep_sTableDescriptor>& results,
                   error_status_t* status) override;
  void LookupInstance(const rpc::server::CallInfo& call, std::uint32_t tableId,
                      std::uint32_t instanceId, std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                      std::uint32_t* lastIndex,
                      rpc::server::Results<rep_sInstanceDescriptor>& results,
                      error_status_t* status) override;
  void LookupMetric(const rpc::server::CallInfo& call, std::uint32_t tableId,
                    std::uint32_t metricId, std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                    std::uint32_t* lastIndex, rpc::server::Results<rep_sMetricDescriptor>& results,
                    error_status_t* status) override;

 private:
  const Repository* repository_;
};

}  // namespace agent
