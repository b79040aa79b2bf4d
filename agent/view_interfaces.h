// SPDX-License-Identifier: Apache-2.0
// The three view interfaces and the time filters of a repository server: thin doors to the views of
// ViewContexts. The operations of `repView` work on views of every kind, those of the other two on
// their own.

#pragma once

#include <memory>
#include <vector>

#include "agent/repository.h"

namespace agent {

// `repView`, `repTimeFilter`, `repFilteredView` and `repTemporalView`. The contexts are not
// owned.
std::vector<std::unique_ptr<rpc::server::Interface>> view_interfaces(ViewContexts& contexts);

}  // namespace agent
