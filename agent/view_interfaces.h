// SPDX-License-Identifier: Apache-2.0
// The three view interfaces and the time filters of a repository server: thin doors to the views of
// ViewContexts. The operations of `repView` work on views of every kind, those of the other two on
// their own.

#pragma once

#include <memory>
#include <vector>

#include "agent/operation_script.h"
#include "agent/repository.h"

namespace agent {

// `repView`, `repTimeFilter`, `repFilteredView` and `repTemporalView`. The script and the contexts
// are not owned.
std::vector<std::unique_ptr<rpc::server::Interface>> view_interfaces(OperationScript& script,
                                                                     ViewContexts& contexts);

}  // namespace agent
