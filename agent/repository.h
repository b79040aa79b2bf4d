// SPDX-License-Identifier: Apache-2.0
// What the interfaces of one repository server share: its data source and the views and filters
// that clients have made on it.

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/context_observer.h"
#include "agent/repository_status.h"
#include "agent/row_table.h"
#include "agent/scenario.h"
#include "agent/shift.h"
#include "agent/view.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/stub/wire_context.h"

namespace agent {

// The data source with its classes found by identifier.
class Repository {
 public:
  explicit Repository(std::shared_ptr<const DataSource> source);

  const DataSource& source() const { return *source_; }
  // Null when there is no such class.
  const RowTable* table(std::uint32_t id) const;

 private:
  std::shared_ptr<const DataSource> source_;
  std::vector<RowTable> tables_;  // one for each class, in its order
  std::map<std::uint32_t, std::size_t> by_id_;
};

enum class ViewKind { base, filtered, temporal };

// The identifiers that a client asks a view for.
struct ViewRequest {
  ViewKind kind = ViewKind::base;
  std::uint32_t table = 0;
  std::span<const std::uint32_t> metrics;
  std::span<const std::uint32_t> instances;  // of a temporal view; a class without any ignores them
  std::uint32_t interval = 0;
};

// Views and filters by context handle. An unknown handle, one of another kind of object and one of
// another client is the fault "context mismatch". Each object goes with the client that made it.
class ViewContexts {
 public:
  static constexpr std::size_t kMostObjects = 4096;
  static constexpr std::size_t kMostObjectsOfClient = 256;

  explicit ViewContexts(const Repository& repository, ContextObserver observer = {})
      : repository_(&repository), observer_(std::move(observer)) {}
  // From now on views are of this one; those of the other are run down.
  void serve(const Repository& repository);

  RepositoryStatus create_view(const uuid_t& client, const ViewRequest& request,
                               std::vector<Shift> shifts, rpc::WireContext* context);
  RepositoryStatus create_filter(const uuid_t& client, std::vector<Shift> shifts,
                                 rpc::WireContext* context);
  // Of any kind, or only of this one.
  View& view(const uuid_t& client, const rpc::WireContext& context,
             std::optional<ViewKind> kind = std::nullopt);
  const std::vector<Shift>& filter(const uuid_t& client, const rpc::WireContext& context) const;
  // A null handle stays null and is no error.
  void destroy_view(const uuid_t& client, rpc::WireContext* context,
                    std::optional<ViewKind> kind = std::nullopt);
  void destroy_filter(const uuid_t& client, rpc::WireContext* context);
  // The client is gone: all that it made is destroyed.
  void run_down(const uuid_t& client);
  void run_down_all();
  std::size_t objects() const { return views_.size() + filters_.size(); }

 private:
  struct ViewObject {
    uuid_t client;
    ViewKind kind;
    View view;
  };
  struct FilterObject {
    uuid_t client;
    std::vector<Shift> shifts;
  };

  bool full(const uuid_t& client) const;
  void tell(std::string_view object, const uuid_t& id, std::string_view change) const;
  template <typename Objects, typename Predicate>
  void end(Objects& objects, std::string_view name, Predicate goes);
  std::map<uuid_t, ViewObject>::iterator find_view(const uuid_t& client,
                                                   const rpc::WireContext& context,
                                                   std::optional<ViewKind> kind);

  const Repository* repository_;
  ContextObserver observer_;
  rpc::SystemRandom random_;
  std::map<uuid_t, ViewObject> views_;
  std::map<uuid_t, FilterObject> filters_;
};

}  // namespace agent
