// SPDX-License-Identifier: Apache-2.0
// The interfaces of a simulated agent in the test's own process: hxasim's, without sockets.

#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "agent/alarm_interface.h"
#include "agent/endpoint_map.h"
#include "agent/mapper_interface.h"
#include "agent/metadata_interface.h"
#include "agent/view_interfaces.h"

namespace agent::test {

class Interfaces {
 public:
  Interfaces(std::shared_ptr<const DataSource> source, const AlarmServer& alarms)
      : repository_(std::move(source)), alarms_(alarms) {
    all_ = {&metadata_, &mapper_, &alarms_};
    for (const auto& interface : views_)
      all_.push_back(interface.get());
  }

  // rep, epm, ag, repView, repTimeFilter, repFilteredView, repTemporalView.
  const std::vector<rpc::server::Interface*>& all() const { return all_; }
  MetadataInterface& metadata() { return metadata_; }
  AlarmInterface& alarms() { return alarms_; }
  rpc::server::Interface& views() { return *views_[0]; }
  rpc::server::Interface& filters() { return *views_[1]; }
  rpc::server::Interface& temporal_views() { return *views_[3]; }
  // Of all views and filters; those of the nil client are the ones of a call without a client.
  ViewContexts& contexts() { return contexts_; }
  EndpointMap& map() { return map_; }

 private:
  EndpointMap map_;
  Repository repository_;
  ViewContexts contexts_{repository_};
  MetadataInterface metadata_{repository_};
  MapperInterface mapper_{map_, EndpointMapper{}};
  AlarmInterface alarms_;
  std::vector<std::unique_ptr<rpc::server::Interface>> views_ = view_interfaces(contexts_);
  std::vector<rpc::server::Interface*> all_;
};

}  // namespace agent::test
