// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTroadWords.h"

#include <iterator>

#include "platform/sys/sockets.h"
#include "source/support/ZTformat.h"

namespace {

constexpr std::string_view kLinks[] = {"",       "name",       "host", "broker",
                                       "mapper", "repository", "alarm"};
constexpr std::string_view kCauses[] = {"",
                                        "unknown-name",
                                        "timed-out",
                                        "refused",
                                        "reset",
                                        "unreachable",
                                        "prohibited",
                                        "closed",
                                        "too-old",
                                        "bad-answer",
                                        "rejected",
                                        "fault",
                                        "nothing-registered",
                                        "foreign-address",
                                        "callback-lost",
                                        "error"};
constexpr std::string_view kStates[] = {"succeeded", "failed", "no-halvex", "not-supported",
                                        "not-available"};
constexpr std::string_view kStateWords[] = {"Succeeded", "Failed", "No Halvex", "Not Supported",
                                            "Not Available"};

struct NetworkWords {
  error_status_t error;
  RoadCause cause;
  const char* text;
};
constexpr NetworkWords kNetwork[] = {
    {sockets::WSAECONNREFUSED, RoadCause::refused, "the port is refused; nobody listens there"},
    {sockets::WSAECONNRESET, RoadCause::reset, "the connection was reset"},
    {sockets::WSAEHOSTUNREACH, RoadCause::unreachable,
     "the host cannot be reached; nobody answers for its address, or a router turns it away"},
    {sockets::WSAEHOSTDOWN, RoadCause::unreachable, "the host is down"},
    {sockets::WSAENETUNREACH, RoadCause::unreachable, "no route leads to its network"},
    {sockets::WSAENETDOWN, RoadCause::unreachable, "the network of this console is down"},
    {sockets::WSAEACCES, RoadCause::prohibited, "this console is not permitted to send there"},
};

const NetworkWords* network_words(error_status_t error) {
  for (const NetworkWords& row : kNetwork)
    if (row.error == error)
      return &row;
  return nullptr;
}

struct Advice {
  RoadLink link;  // none: every link
  RoadCause cause;
  const char* text;
};
// The first row that fits.
constexpr Advice kAdvice[] = {
    {RoadLink::name, RoadCause::none, "Check the spelling, or name the system by its address."},
    {RoadLink::host, RoadCause::timed_out,
     "Check that the system is up and that no firewall swallows the packets to it."},
    {RoadLink::host, RoadCause::prohibited,
     "Check the routes and the firewall rules of this console."},
    {RoadLink::host, RoadCause::unreachable,
     "Check that the system is up, its address, and the routes of this console."},
    {RoadLink::broker, RoadCause::refused,
     "Check that the agent is installed there, and start its location broker (hublnkd)."},
    {RoadLink::broker, RoadCause::timed_out, "Restart the location broker (hublnkd) there."},
    {RoadLink::broker, RoadCause::closed,
     "Restart the location broker (hublnkd) there, or update the agent."},
    {RoadLink::broker, RoadCause::too_old, "Update the agent."},
    {RoadLink::broker, RoadCause::bad_answer,
     "Check which program listens at that port, and restart the location broker (hublnkd)."},
    {RoadLink::broker, RoadCause::none, "Look into the log of the location broker (hublnkd)."},
    {RoadLink::mapper, RoadCause::refused, "Start the endpoint mapper (rpcd or dced) there."},
    {RoadLink::mapper, RoadCause::timed_out,
     "Check that the endpoint mapper (rpcd or dced) runs there and that no firewall swallows "
     "packets to its UDP port."},
    {RoadLink::mapper, RoadCause::rejected,
     "Check which program answers at that port; it is no endpoint mapper."},
    {RoadLink::none, RoadCause::unreachable, "Check the address, and the routes of this console."},
    {RoadLink::none, RoadCause::prohibited,
     "Check the routes and the firewall rules of this console."},
    {RoadLink::mapper, RoadCause::none, "Restart the endpoint mapper (rpcd or dced) there."},
    {RoadLink::none, RoadCause::foreign_address,
     "Network address translation or a second network card is behind it; ignoreip.txt leaves such "
     "an address out."},
    {RoadLink::none, RoadCause::callback_lost,
     "Let UDP packets of the agent, from any of its ports, through to this console."},
    {RoadLink::repository, RoadCause::nothing_registered,
     "Start the agent, and see with -r what is registered."},
    {RoadLink::repository, RoadCause::refused,
     "The server ended without taking its entry back; restart the agent."},
    {RoadLink::repository, RoadCause::timed_out,
     "Restart that repository server (rep_server), or let high UDP ports through the firewall."},
    {RoadLink::repository, RoadCause::none,
     "Look into the agent's log files there, and restart the server."},
    {RoadLink::alarm, RoadCause::nothing_registered, "Start the agent's alarm server (almserver)."},
    {RoadLink::alarm, RoadCause::refused,
     "The server ended without taking its entry back; restart almserver."},
    {RoadLink::alarm, RoadCause::timed_out,
     "Restart almserver, or let high UDP ports through the firewall."},
    {RoadLink::alarm, RoadCause::none,
     "Look into the agent's log files there, and restart almserver."},
};

// " (the server does not know the interface)": what a status means, where that says more than
// that the call failed.
std::string meaning_of(error_status_t status) {
  char text[DCE_C_ERROR_STRING_LEN] = {};
  if (status == RPC_S_CALL_FAILED || status == RPC_S_CALL_FAILED_DNE || status == kCallRaised ||
      DceErrorInqTextA(status, text) != RPC_S_OK)
    return "";
  std::string meaning = text;
  if (!meaning.empty() && meaning.back() == '.')
    meaning.pop_back();
  return " (" + meaning + ")";
}

// A call that ended in silence, in which packets may have come that nobody here reads.
CallWords silence(const std::string& text, const RpcCallOutcome& outcome) {
  if (outcome.verifiers == 0)
    return {RoadCause::timed_out, text};
  return {RoadCause::bad_answer,
          text + format_text(" but for %u packet%s with an authentication verifier, which this "
                             "console does not read",
                             outcome.verifiers, outcome.verifiers == 1 ? "" : "s"),
          "Let the server there answer calls without authentication."};
}

}  // namespace

std::string_view road_link_name(RoadLink link) {
  return kLinks[static_cast<std::size_t>(link)];
}

std::string_view road_cause_name(RoadCause cause) {
  return kCauses[static_cast<std::size_t>(cause)];
}

std::string_view road_state_name(RoadState state) {
  return kStates[static_cast<std::size_t>(state)];
}

std::string_view road_state_words(RoadState state) {
  return kStateWords[static_cast<std::size_t>(state)];
}

RoadCause cause_of_network(error_status_t error) {
  if (error == sockets::WSAETIMEDOUT)
    return RoadCause::timed_out;
  const NetworkWords* words = network_words(error);
  return words != nullptr ? words->cause : RoadCause::error;
}

std::string words_of_network(error_status_t error, std::chrono::seconds limit) {
  const std::string number = " (" + std::to_string(error) + ")";
  if (error == sockets::WSAETIMEDOUT)
    return "no answer within " + std::to_string(limit.count()) + " s" + number;
  if (const NetworkWords* words = network_words(error))
    return words->text + number;
  return "the socket failed" + number;
}

CallWords words_of_call(const LostCall& call, const std::string& waited) {
  using Kind = RpcCallOutcome::Kind;
  const auto& [status, outcome] = call;
  if (outcome.call_back_lost()) {
    const std::string how =
        outcome.kind == Kind::reject
            ? "got no answer (reject 0x1C00000B)"
            : "was filtered on its way; it said that it works, asked nothing and then fell silent" +
                  waited + " (1727)";
    return {RoadCause::callback_lost,
            "did not run the call, because its question back to this console, which comes from "
            "another UDP port, " +
                how};
  }
  switch (outcome.kind) {
    case Kind::undelivered:
      if (const NetworkWords* words = network_words(outcome.network))
        return {words->cause, words->text + (" (" + std::to_string(outcome.network) + ")")};
      return silence("no answer" + waited + " (10060)", outcome);
    case Kind::silent:
      return silence(
          "took the call and then fell silent" + waited + " (" + std::to_string(status) + ")",
          outcome);
    case Kind::restarted:
      return {RoadCause::rejected,
              "was started anew while the call was on its way (" +
                  (outcome.number != 0 ? format_text("reject 0x%08X", outcome.number)
                                       : std::to_string(status)) +
                  ")",
              "Make the check once more."};
    case Kind::fault:
    case Kind::reject: {
      const bool fault = outcome.kind == Kind::fault;
      return {fault ? RoadCause::fault : RoadCause::rejected,
              format_text("answered with %s 0x%08X", fault ? "fault" : "reject", outcome.number) +
                  meaning_of(outcome.status)};
    }
    case Kind::answered:
      if (status == kCallRaised || status == RPC_X_BAD_STUB_DATA)
        return {RoadCause::bad_answer, "answered with a reply that cannot be decoded (0x000006F7)"};
      if (status == RPC_S_PROTOCOL_ERROR)
        return {RoadCause::bad_answer, "answered, and comes to no end (0x000006C0)"};
      if (status == RPC_S_NOT_LISTENING)
        return {RoadCause::error, "answered that it does not accept calls (0x000006B3)"};
      return {RoadCause::error,
              format_text("answered with status 0x%08X", status) + meaning_of(status)};
    case Kind::question_lost:
    case Kind::local:
      break;
  }
  if (outcome.status == RPC_X_BAD_STUB_DATA)
    return {RoadCause::bad_answer, "answered with more than the call can return (0x000006F7)"};
  return {
      RoadCause::error,
      format_text("the call failed with status %d", static_cast<int>(status)) + meaning_of(status)};
}

std::string advice_for(RoadLink link, RoadCause cause) {
  for (const Advice& row : kAdvice)
    if ((row.link == RoadLink::none || row.link == link) &&
        (row.cause == RoadCause::none || row.cause == cause))
      return row.text;
  return "";
}
