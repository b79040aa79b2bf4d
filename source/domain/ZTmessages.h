// SPDX-License-Identifier: Apache-2.0
// The messages of the product's catalog by name, and the one way to show one. Their texts are in
// msg/ztcomm_msgs.msg.

#pragma once

#include <string>
#include <string_view>

// A message's place in the catalog; no message while the number is kNoMessage.
struct MessageId {
  static constexpr int kNoMessage = -1;
  int set = kNoMessage;
  int number = kNoMessage;
  bool operator==(const MessageId&) const = default;
};

namespace messages {

// Connections; the parameter is the system's name.
inline constexpr int kConnectionSet = 11;
inline constexpr MessageId kTooManySystems{kConnectionSet, 4};
inline constexpr MessageId kProbeFailed{kConnectionSet, 31};
inline constexpr MessageId kRequestFailed{kConnectionSet, 32};
inline constexpr MessageId kNoRepositoryServer{kConnectionSet, 33};
inline constexpr MessageId kMapQueryFailed{kConnectionSet, 34};
inline constexpr MessageId kNoSuchServer{kConnectionSet, 43};

// Repository servers and remote calls.
inline constexpr int kRepositorySet = 13;
inline constexpr MessageId kNothingFound{kRepositorySet, 2};  // the cause
inline constexpr MessageId kDelay{kRepositorySet, 19};
inline constexpr MessageId kRuntimeStatus{kRepositorySet, 90};  // the runtime's text
inline constexpr MessageId kCallEndedBadly{kRepositorySet, 101};
inline constexpr MessageId kAgentTooOld{kRepositorySet, 300};
inline constexpr MessageId kBrokerFailed{kRepositorySet, 301};  // from here on: the status
inline constexpr MessageId kNoMapperBinding{kRepositorySet, 303};
inline constexpr MessageId kTextNotFreed{kRepositorySet, 304};
inline constexpr MessageId kNoInterfaceId{kRepositorySet, 305};
inline constexpr MessageId kAlarmQueryFailed{kRepositorySet, 306};
inline constexpr MessageId kPingFailed{kRepositorySet, 307};
inline constexpr MessageId kRegisterFailed{kRepositorySet, 308};
inline constexpr MessageId kUnregisterFailed{kRepositorySet, 309};

// Alarm servers and the console.
inline constexpr MessageId kNoAlarmServer{17, 6};
inline constexpr MessageId kConsoleUnknown{100, 4};

// The diagnostic command.
inline constexpr int kCommandSet = 20;
inline constexpr MessageId kUnknownClass{kCommandSet, 1};
inline constexpr MessageId kUnknownInstance{kCommandSet, 2};
inline constexpr MessageId kUnknownDataSource{kCommandSet, 9};
// The numbers of that set, as the diagnostic object's fields hold them.
enum Command : int {
  kCollectorCannotBeOpened = 100,
  kNoData = 101,
  kNoCollector = 102,
  kNoLocalKey = 103,
  kUnknownSystem = 104,
  kNoLocalName = 105,
  kNoSystems = 106,
  kListingFailed = 107,  // "element" or "further element"
  kRuntimeText = 108,
  kSystemUnreachable = 110,
  kSocketError = 111,
  kSystemTooOld = 112,
  kConnectionRefused = 114,
  kInquiryCannotBegin = 115,
  kElementFailed = 116,
  kNoBindingToMapper = 117,
  kMapperUnknown = 118,
  kMapperFailed = 121,
  kClassEmpty = 122,
  kSearchUnfinished = 123,
  kDetails = 124,        // the thing asked, what happened, what to try
  kOtherFamily = 125,    // the name or literal
  kMoreAddresses = 126,  // the name and its further addresses
  kConsoleNameless = 127,
  kNameServerSilent = 128,
  kMetricsMissing = 129,      // the class and the metrics wanted
  kMoreRows = 130,            // the time of the last row shown
  kMoreServers = 131,         // the servers shown
  kMoreClasses = 132,         // the classes loaded
  kMoreMetrics = 133,         // the metrics and their class
  kMoreInstances = 134,       // the instances and their class
  kUnreadableElements = 135,  // their number
  kOutputFailed = 137,
  kServersMissing = 138,
  kJobsRejected = 139,
  kNoiseRejected = 200,
  kNoiseAccepted = 201,
  kTimeoutRejected = 202,
  kTimeoutAccepted = 203,
  kTraceRejected = 204,
  kTraceAccepted = 205,
};

}  // namespace messages

// The message with its parameter, whose control characters are replaced.
std::string message_text(MessageId message, std::string_view parameter);
// Writes it to standard error as a line of its own, behind what standard output holds, and flushes.
void show_message(MessageId message, std::string_view parameter = {});

// Whether standard output took all that was printed so far.
bool output_is_whole();
