// SPDX-License-Identifier: Apache-2.0
// The client of one system's repository servers: the listing of its data sources, the catalogue of
// the one it is connected to, and the views through which its data are read.
//
// Results are 1 for success and 0 for failure unless told otherwise; a failure is recorded and
// shown by DisplayErrors. Nothing that a server sent is used before it was checked; texts are the
// server's own and may hold control characters.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "source/domain/ZTmetricList.h"
#include "source/domain/ZTrepInterface.h"
#include "source/domain/ZTrpcSystemObj.h"

class zt_RepServerInfo_class : public RPC_MONITORED_SYSTEM_OBJ {
 public:
  // A class of the data source, with as many metrics and instances as the server sent.
  struct zt_ClassInfo_struct {
    int NumMetrics = 0;
    int NumInstances = 0;  // 0 for a single-instance class
    rep_sTableDescriptor ClassInfo{};
    std::vector<rep_sInstanceDescriptor> Instances;
    ZTmetricList Metrics;
  };

  // As RPC_MONITORED_SYSTEM_OBJ.
  zt_RepServerInfo_class(SystemKey system_key, const char* system_id,
                         KnownSilence* silence = nullptr);
  ~zt_RepServerInfo_class() override;

  // Binds to a data source and loads its catalogue, disconnecting first. A name in any letter case
  // serves when the data source's name is in upper case.
  int ConnectToServer(const char* data_source_name);
  // Destroys the view, then the filter, then the binding.
  void DisconnectFromServer();
  int GetDataSourceInfo();
  // 2: the class has none.
  int GetMetrics(zt_ClassInfo_struct& class_info);
  int GetInstances(zt_ClassInfo_struct& class_info);

  // The index of a class or instance by its label, its name or its name in upper case; -1 when
  // there is none, or the class has no metrics. The class index must be valid.
  int ValidClassName(const char* class_name);
  int ValidInstanceName(int class_index, const char* instance_name);

  // Prints what is recorded on standard error and forgets it.
  void DisplayErrors();

  const char* ReturnDataSourceName() const;  // null when not connected
  int ReturnNumClasses() const { return static_cast<int>(fClasses.size()); }
  // For an index that does not exist: -1, or null. Pointers are good until the next
  // ConnectToServer or DisconnectFromServer.
  int ReturnNumMetrics(int class_index) const;
  // Unpacked at the first call for a class.
  const rep_sMetricDescriptor* ReturnMetrics(int class_index) const;
  int ReturnNumInstances(int class_index) const;
  const rep_sInstanceDescriptor* ReturnInstances(int class_index) const;
  const char* ReturnClassName(int class_index) const;
  const char* ReturnClassLabel(int class_index) const;
  int ReturnClassLabelLen(int class_index) const;
  const char* ReturnInstanceName(int class_index, int instance_index) const;
  const char* ReturnInstanceLabel(int class_index, int instance_index) const;
  int ReturnInstanceLabelLen(int class_index, int instance_index) const;
  int IsMultiInstance(int class_index) const;
  int IsSummarizable(int class_index) const;
  int HasDiscriminator(int class_index) const;
  std::int32_t ReturnLastX(int class_index) const;  // the index must be valid

  // --- Views (ZTrepServerInfoObj_views.cpp). One view and one filter at a time: a new one takes
  // the place of the old, which is destroyed on the server. The class index must be valid. A view
  // over no metric is the server's to accept; reading it is refused.
  int CreateBaseView(int class_index, const std::uint32_t* metric_ids, int num_metrics);
  int CreateFilteredView(int class_index, const std::uint32_t* metric_ids, int num_metrics,
                         const repTimeFilter_sShiftDescriptor* shifts, int num_shifts);
  int CreateTemporalView(int class_index, const std::uint32_t* metric_ids, int num_metrics,
                         const std::uint32_t* instance_ids, int num_instances,
                         const repTimeFilter_sShiftDescriptor* shifts, int num_shifts,
                         std::uint32_t summarization_interval);
  // 0: the oldest data; else so many seconds before the newest.
  int SetPosition(int class_index, std::uint32_t start_time);
  // Reads one batch. Positions, integers and characters keep within the buffers, and there are at
  // least as many integers as rows times metrics.
  int ReadData();
  void DisconnectFromClass();

  // What of the catalogue was left out for want of room, as messages of set 20 with parameters.
  struct LeftOut {
    int number;
    std::string parameter;
  };
  const std::vector<LeftOut>& ReturnLeftOut() const { return fLeftOut; }

  int ReturnMoreData() const { return fMoreData; }
  // Whether the last read filled its batch, and the data did not end with it.
  bool ReturnBatchFull() const;
  // Indexes of the last elements read, all bits set for none.
  std::uint32_t ReturnLastTimeStampIndex() const { return fLastTimeStampIndex; }
  std::uint32_t ReturnLastIntResultsIndex() const { return fLastIntResultsIndex; }
  std::uint32_t ReturnLastCharResultsIndex() const { return fLastCharResultsIndex; }
  const std::uint32_t* ReturnTimeStamps() const { return fTimeStamps.data(); }
  const std::uint32_t* ReturnIntResults() const { return fIntResults.data(); }
  const char* ReturnCharResults() const { return fCharResults.data(); }
  // The rows of the last read: the time stamps before the end mark.
  std::size_t ReturnRowCount() const;
  // Records that the last read's reply lies about itself, as a reply that cannot be decoded.
  void RefuseRead();
  // The text at an offset of the character results; nothing when the offset lies behind them or
  // the text has no end within them.
  std::optional<std::string_view> ReturnText(std::uint32_t offset) const;

 private:
  // Room for the replies to look-ups, one array for all classes.
  struct Scratch;

  const zt_ClassInfo_struct* FindClass(int class_index) const;
  const rep_sInstanceDescriptor* FindInstance(int class_index, int instance_index) const;
  bool IsDataSource(const std::string& name) const;
  Scratch& GetScratch();
  int Fail(const LostCall& call, const std::string& sought = {});

  int CreateFilter(const repTimeFilter_sShiftDescriptor* shifts, int num_shifts);
  int FinishView(const LostCall& call);
  void DestroyView();
  void DestroyFilter();
  std::uint32_t MaxTimeStamps() const;
  bool ReadReplyIsSound(std::uint32_t most_time_stamps) const;

  std::vector<zt_ClassInfo_struct> fClasses;
  std::vector<LeftOut> fLeftOut;
  std::string fErrorMsgParm;  // of the connection message; the system name unless a check set it
  std::optional<std::string> fDataSourceName;
  int fMoreData = 0;
  int fNumMetrics = 0;
  std::string fSought;  // what a server that finds nothing has not got
  int fViewCreated = 0;
  int fFilterCreated = 0;
  int fConnectedToServer = 0;
  _ptc_ObjId fViewId{};
  _ptc_ObjId fFilterId{};
  std::uint32_t fLastTimeStampIndex = 0;
  std::uint32_t fLastIntResultsIndex = 0;
  std::uint32_t fLastCharResultsIndex = 0;
  std::array<std::uint32_t, 256> fTimeStamps{};
  std::array<std::uint32_t, 4096> fIntResults{};
  std::array<char, 32768> fCharResults{};
  std::unique_ptr<Scratch> fScratch;
};

// A time stamp that marks the end of the data; an index or count of nothing.
inline constexpr std::uint32_t kEndOfData = 0xFFFFFFFF;
inline constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;
