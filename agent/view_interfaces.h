// The three view interfaces and the time filters of a repository server: thin doors to the views of
// ViewContexts. The operations of `repView` work on views of every kind, those of the other two on
// their own.

#pragma once

#include "agent/operation_script.h"
#include "agent/repository.h"
#include "repFilteredView_server.h"
#include "repTemporalView_server.h"
#include "repTimeFilter_server.h"
#include "repView_server.h"

namespace agent {

class TimeFilterInterface : public Scripted<repTimeFilter_Server> {
 public:
  // The script and the contexts are not owned.
  TimeFilterInterface(OperationScript& script, ViewContexts& contexts)
      : Scripted(script), contexts_(contexts) {}

  void repTimeFilter_Create(const rpc::server::CallInfo& call, std::uint32_t lastShiftIndex,
                            const repTimeFilter_sShiftDescriptor* shifts,
                            rpc::WireContext* filterContext, error_status_t* status) override;
  void repTimeFilter_Destroy(const rpc::server::CallInfo& call, rpc::WireContext* filterContext,
                             error_status_t* status) override;
  void repTimeFilter_Copy(const rpc::server::CallInfo& call,
                          const rpc::WireContext& fromFilterContext,
                          rpc::WireContext* toFilterContext, error_status_t* status) override;

 private:
  ViewContexts& contexts_;
};

class BaseViewInterface : public Scripted<repView_Server> {
 public:
  BaseViewInterface(OperationScript& script, ViewContexts& contexts)
      : Scripted(script), contexts_(contexts) {}

  void repView_Create(const rpc::server::CallInfo& call, std::uint32_t tableId,
                      std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
                      rpc::WireContext* viewContext, error_status_t* status) override;
  void repView_Destroy(const rpc::server::CallInfo& call, rpc::WireContext* viewContext,
                       error_status_t* status) override;
  void repView_GetFirstPosition(const rpc::server::CallInfo& call,
                                const rpc::WireContext& viewContext, std::uint32_t* where,
                                error_status_t* status) override;
  void repView_GetLastPosition(const rpc::server::CallInfo& call,
                               const rpc::WireContext& viewContext, std::uint32_t* where,
                               error_status_t* status) override;
  void repView_GetPosition(const rpc::server::CallInfo& call, const rpc::WireContext& viewContext,
                           std::uint32_t* where, error_status_t* status) override;
  void repView_SetPosition(const rpc::server::CallInfo& call, const rpc::WireContext& viewContext,
                           std::uint32_t* where, error_status_t* status) override;
  void repView_GetXInterval(const rpc::server::CallInfo& call, const rpc::WireContext& viewContext,
                            std::uint32_t* interval, error_status_t* status) override;
  void repView_Read(const rpc::server::CallInfo& call, const rpc::WireContext& viewContext,
                    std::uint32_t maxPositionIndex, std::uint32_t* lastPositionIndex,
                    std::uint32_t maxIntResultsIndex, std::uint32_t* lastIntResultsIndex,
                    std::uint32_t maxCharResultsIndex, std::uint32_t* lastCharResultsIndex,
                    std::uint32_t* positions, std::uint32_t* intResults, char* charResults,
                    error_status_t* status) override;

 private:
  ViewContexts& contexts_;
};

class FilteredViewInterface : public Scripted<repFilteredView_Server> {
 public:
  FilteredViewInterface(OperationScript& script, ViewContexts& contexts)
      : Scripted(script), contexts_(contexts) {}

  void repFilteredView_Create(const rpc::server::CallInfo& call, std::uint32_t tableId,
                              const rpc::WireContext& filterObjId, std::uint32_t lastMetricIndex,
                              const std::uint32_t* metricIds, rpc::WireContext* viewContext,
                              error_status_t* status) override;
  void repFilteredView_Destroy(const rpc::server::CallInfo& call, rpc::WireContext* viewContext,
                               error_status_t* status) override;
  void repFilteredView_GetFirstPosition(const rpc::server::CallInfo& call,
                                        const rpc::WireContext& viewContext, std::uint32_t* where,
                                        error_status_t* status) override;
  void repFilteredView_GetLastPosition(const rpc::server::CallInfo& call,
                                       const rpc::WireContext& viewContext, std::uint32_t* where,
                                       error_status_t* status) override;
  void repFilteredView_GetPosition(const rpc::server::CallInfo& call,
                                   const rpc::WireContext& viewContext, std::uint32_t* where,
                                   error_status_t* status) override;
  void repFilteredView_SetPosition(const rpc::server::CallInfo& call,
                                   const rpc::WireContext& viewContext, std::uint32_t* where,
                                   error_status_t* status) override;
  void repFilteredView_GetXInterval(const rpc::server::CallInfo& call,
                                    const rpc::WireContext& viewContext, std::uint32_t* interval,
                                    error_status_t* status) override;
  void repFilteredView_Read(const rpc::server::CallInfo& call, const rpc::WireContext& viewContext,
                            std::uint32_t maxPositionIndex, std::uint32_t* lastPositionIndex,
                            std::uint32_t maxIntResultsIndex, std::uint32_t* lastIntResultsIndex,
                            std::uint32_t maxCharResultsIndex, std::uint32_t* lastCharResultsIndex,
                            std::uint32_t* positions, std::uint32_t* intResults, char* charResults,
                            error_status_t* status) override;

 private:
  ViewContexts& contexts_;
};

class TemporalViewInterface : public Scripted<repTemporalView_Server> {
 public:
  TemporalViewInterface(OperationScript& script, ViewContexts& contexts)
      : Scripted(script), contexts_(contexts) {}

  void repTemporalView_Create(const rpc::server::CallInfo& call, std::uint32_t tableId,
                              const rpc::WireContext& filterContext, std::uint32_t interval,
                              std::uint32_t lastInstanceIndex, const std::uint32_t* instanceIds,
                              std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
                              rpc::WireContext* viewContext, error_status_t* status) override;
  void repTemporalView_Destroy(const rpc::server::CallInfo& call, rpc::WireContext* viewContext,
                               error_status_t* status) override;
  void repTemporalView_GetFirstPosition(const rpc::server::CallInfo& call,
                                        const rpc::WireContext& viewContext, std::uint32_t* where,
                                        error_status_t* status) override;
  void repTemporalView_GetLastPosition(const rpc::server::CallInfo& call,
                                       const rpc::WireContext& viewContext, std::uint32_t* where,
                                       error_status_t* status) override;
  void repTemporalView_GetPosition(const rpc::server::CallInfo& call,
                                   const rpc::WireContext& viewContext, std::uint32_t* where,
                                   error_status_t* status) override;
  void repTemporalView_SetPosition(const rpc::server::CallInfo& call,
                                   const rpc::WireContext& viewContext, std::uint32_t* where,
                                   error_status_t* status) override;
  void repTemporalView_GetXInterval(const rpc::server::CallInfo& call,
                                    const rpc::WireContext& viewContext, std::uint32_t* interval,
                                    error_status_t* status) override;
  void repTemporalView_SetXInterval(const rpc::server::CallInfo& call,
                                    const rpc::WireContext& viewContext, std::uint32_t* interval,
                                    error_status_t* status) override;
  void repTemporalView_Read(const rpc::server::CallInfo& call, const rpc::WireContext& viewContext,
                            std::uint32_t maxPositionIndex, std::uint32_t* lastPositionIndex,
                            std::uint32_t maxIntResultsIndex, std::uint32_t* lastIntResultsIndex,
                            std::uint32_t maxCharResultsIndex, std::uint32_t* lastCharResultsIndex,
                            std::uint32_t* positions, std::uint32_t* intResults, char* charResults,
                            error_status_t* status) override;

 private:
  ViewContexts& contexts_;
};

}  // namespace agent
