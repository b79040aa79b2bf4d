// SPDX-License-Identifier: Apache-2.0
// An exported interface as generated skeletons offer it to the server runtime.

#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/numbers/status.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/stub/interface.h"
#include "platform/rpc/wire/data_representation.h"

namespace rpc::server {

// What an operation was asked and said, for a log: numbers and identifiers, never texts. `text` is
// in the form of numbers or UUIDs.
struct CallRecord {
  struct Argument {
    std::string_view name;
    std::string text;
  };
  std::vector<Argument> arguments;
  std::optional<std::uint32_t> status;
  std::size_t octets_left_over = 0;  // behind the last in-parameter

  template <typename Integer>
  void argument(std::string_view name, Integer number) {
    arguments.push_back({name, std::to_string(number)});
  }
  void argument(std::string_view name, const uuid_t& uuid);
};

// Who calls, for operations that care.
struct CallInfo {
  uuid_t activity{};
  uuid_t object{};
  SocketAddress peer;  // where the request came from
  // The client as a process where a call-back has told its address space, else the activity.
  uuid_t client{};
  CallRecord* record = nullptr;  // not owned; null when nobody wants one
  // What the operation's status is to be; it does nothing then.
  std::optional<std::uint32_t> forced_status;
  // Set by an operation that leaves its client a context; null when nobody wants to know. Not
  // owned.
  bool* leaves_context = nullptr;
};

// What becomes of a call.
struct Outcome {
  enum class Kind {
    reply,
    fault,
    reject,
    none,  // the call is never answered, not even its pings
  };
  Kind kind = Kind::reply;
  std::uint32_t status = 0;      // of a fault or reject
  std::vector<std::byte> reply;  // out-parameters of a reply
  bool leaves_context = false;   // of the client's, which is to be known by the process it is

  static Outcome fault(std::uint32_t status) { return {Kind::fault, status, {}, false}; }
  static Outcome reject(std::uint32_t status) { return {Kind::reject, status, {}, false}; }
  static Outcome none() { return {Kind::none, 0, {}, false}; }
};

// Thrown by an operation's implementation; the skeleton turns it into a fault packet.
class Fault : public std::exception {
 public:
  explicit Fault(std::uint32_t status) : status_(status) {}
  std::uint32_t status() const { return status_; }
  const char* what() const noexcept override { return "fault"; }

 private:
  std::uint32_t status_;
};

// Thrown by an operation's implementation: the call is never answered.
class Unanswered : public std::exception {};

class Interface {
 public:
  virtual ~Interface() = default;

  virtual const InterfaceSpec& spec() const = 0;
  // The operation of this number, or null when there is none.
  virtual const OperationSpec* operation(std::uint16_t opnum) const = 0;
  // Decodes the in-parameters, runs the operation, encodes the out-parameters in the byte order
  // asked for. An unknown opnum or in-parameters that cannot be decoded give a reject or fault.
  virtual Outcome dispatch(const CallInfo& call, std::uint16_t opnum,
                           std::span<const std::byte> request, DataRepresentation representation,
                           bool reply_little_endian) = 0;
  // Asked by dispatch() before it runs an operation that has a comm_status parameter. True when it
  // has set the status and the operation is not to run: the other out-parameters are zero.
  virtual bool refuse(const CallInfo& call, std::uint32_t* status) {
    *status = call.forced_status.value_or(*status);
    return call.forced_status.has_value();
  }
};

}  // namespace rpc::server
