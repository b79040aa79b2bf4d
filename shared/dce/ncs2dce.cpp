// SPDX-License-Identifier: Apache-2.0
#include "shared/dce/ncs2dce.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "platform/numbers/network_error.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/sys/native_path.h"
#include "platform/sys/sockets.h"
#include "shared/general/SHcontrolObj.h"
#include "shared/general/SHsysNameConv.h"

namespace {

constexpr std::uint16_t kOldMajorVersion = 1;
constexpr const char* kIgnoreListName = "ignoreip.txt";
// Elements read of one map at most, so that a mapper which never ends its list cannot hold us.
constexpr int kMostElements = 4096;
// Servers that answer nothing cost a time-out each. The first ones are waited for as long as the
// caller wants, later ones a part of that, and behind the last one the map is left.
constexpr int kPatientProbes = 8;
constexpr int kLaterPart = 8;
constexpr int kMostSilent = 64;

// A text of the runtime that frees itself.
class RpcText {
 public:
  RpcText() = default;
  ~RpcText() { RpcStringFreeA(&text_); }
  RpcText(const RpcText&) = delete;
  RpcText& operator=(const RpcText&) = delete;
  char** out() { return &text_; }
  char* get() const { return text_; }

 private:
  char* text_ = nullptr;
};

bool ends_list(RPC_STATUS status) {
  return status == RPC_X_NO_MORE_ENTRIES || status == RPC_S_COMM_FAILURE ||
         status == RPC_S_UNKNOWN_IF;
}

void release(ptc_RpcClientContextStruct& record) {
  RpcBindingFree(&record.fBindingHandle);
  RpcStringFreeA(&record.fStringBinding);
}

class Query {
 public:
  Query(std::span<ptc_RpcClientContextStruct> records, const ptc_LookupOptions& options)
      : records_(records), silence_(options.silence), host_(options.host) {
    if (options.ignored != nullptr) {
      ignored_ = *options.ignored;
      return;
    }
    std::array<std::int32_t, kMostIgnored> keys;
    ignored_.assign(keys.begin(),
                    keys.begin() + static_cast<std::ptrdiff_t>(ept_CheckIgnoreIPs(keys)));
  }

  // Fills records until the list or the map ends.
  error_status_t run(RPC_EP_INQ_HANDLE inquiry) {
    for (int element = 0; accepted_ < records_.size(); ++element) {
      if (silent_ == kMostSilent || element == kMostElements) {
        losses_.unfinished = true;
        break;
      }
      ptc_RpcClientContextStruct& record = records_[accepted_];
      record = {};
      const RPC_STATUS status = RpcMgmtEpEltInqNextA(
          inquiry, &record.fInterfaceId, &record.fBindingHandle, &record.fObjectUuid, nullptr);
      if (status != RPC_S_OK) {
        if (status != RPC_X_NO_MORE_ENTRIES)
          losses_.mapper = {status, RpcLastCallOutcome()};
        return ends_list(status) ? RPC_S_OK : status;
      }
      if (const error_status_t failure = examine(record); failure != RPC_S_OK) {
        release(record);
        return failure;
      }
    }
    losses_.full = accepted_ == records_.size();
    return RPC_S_OK;
  }

  // A server that answers under another of its addresses is not missed.
  void sum_up() {
    const auto end = endpoints_.begin() + static_cast<std::ptrdiff_t>(accepted_);
    for (const Missed& missed : missed_) {
      if (std::find(endpoints_.begin(), end, missed.port) != end || ++losses_.servers != 1)
        continue;
      losses_.server = missed.lost;
      losses_.server_address = missed.address;
      losses_.server_port = missed.port;
    }
  }

  std::size_t accepted() const { return accepted_; }
  const ptc_LookupLosses& losses() const { return losses_; }

 private:
  // Accepts the element in the record, or releases it.
  error_status_t examine(ptc_RpcClientContextStruct& record) {
    error_status_t status =
        RpcBindingToStringBindingA(record.fBindingHandle, &record.fStringBinding);
    if (status != RPC_S_OK)
      return status;
    RpcText sequence, address, endpoint;
    status = RpcStringBindingParseA(record.fStringBinding, nullptr, sequence.out(), address.out(),
                                    endpoint.out(), nullptr);
    if (status != RPC_S_OK)
      return status;
    const bool datagram = std::strcmp(sequence.get(), rpc::protseq::kUdp) == 0;
    // The name in another sequence's address is a stranger's text that no resolver need see.
    const bool ignored = datagram && is_ignored(address.get());
    const bool valid =
        !ignored && !is_repeated(endpoint.get()) &&
        is_listening(record.fBindingHandle, datagram ? address.get() : nullptr, endpoint.get());
    if (!valid || !datagram) {
      release(record);
      return RPC_S_OK;
    }
    status = RpcBindingSetObject(record.fBindingHandle, &record.fObjectUuid);
    if (status == RPC_S_OK)
      ++accepted_;
    return status;
  }

  bool is_ignored(char* address) const {
    if (ignored_.empty())
      return false;
    SystemKey key = kNoSystemKey;
    if (ARPANameToSystemKey(address, key) != 0 || key == kNoSystemKey)
      return false;
    return std::find(ignored_.begin(), ignored_.end(), key) != ignored_.end();
  }

  // The first registration of an endpoint number wins; the address does not count.
  bool is_repeated(const char* endpoint) {
    const auto number = static_cast<std::uint16_t>(std::strtol(endpoint, nullptr, 10));
    endpoints_[accepted_] = number;
    const auto end = endpoints_.begin() + static_cast<std::ptrdiff_t>(accepted_);
    return std::find(endpoints_.begin(), end, number) != end;
  }

  // Without an address the element is of another protocol sequence: asked, and never missed.
  bool is_listening(RPC_BINDING_HANDLE binding, const char* address, const char* endpoint) {
    KnownSilence::Thing server;
    if (address != nullptr)
      server = {sockets::inet_addr(address),
                static_cast<std::uint16_t>(std::strtol(endpoint, nullptr, 10))};
    const bool remembers = address != nullptr && silence_ != nullptr;
    if (const LostCall* known = remembers ? silence_->find(server) : nullptr) {
      miss(*known, address, server.port);
      ++silent_;
      return false;
    }
    const LostCall probed{probe(binding, remembers ? &server : nullptr), RpcLastCallOutcome()};
    if (probed.status == RPC_S_OK)
      return true;
    if (address != nullptr)
      miss(probed, address, server.port);
    if (probed.timed_out() && remembers)
      silence_->add(server, probed);
    silent_ += probed.timed_out() ? 1 : 0;
    return false;
  }

  // The part of the level's time that a server gets; 0: all of it.
  int part_for(const KnownSilence::Thing* server) const {
    constexpr std::size_t kMostHalvings = 16;
    if (server != nullptr && silence_->suspects(*server))
      return BriefWait::kPart;
    const bool elsewhere = server != nullptr && host_ != 0 && server->address != host_;
    if (const std::size_t ports = elsewhere ? silence_->silent_ports(server->address) : 0;
        ports > 0)
      return BriefWait::kPart << std::min(ports, kMostHalvings);
    return silent_ >= kPatientProbes ? kLaterPart : 0;
  }

  void miss(const LostCall& lost, const char* address, std::uint16_t port) {
    const Missed missed{lost, address, port};
    if (std::find(missed_.begin(), missed_.end(), missed) == missed_.end())
      missed_.push_back(missed);
  }

  RPC_STATUS probe(RPC_BINDING_HANDLE binding, const KnownSilence::Thing* server) const {
    std::uint32_t level = 0;
    RpcMgmtInqComTimeout(binding, &level);
    const BriefWait brief(level, part_for(server));
    return RpcMgmtIsServerListening(binding);
  }

  std::span<ptc_RpcClientContextStruct> records_;
  std::size_t accepted_ = 0;
  int silent_ = 0;  // servers so far that answered nothing
  std::vector<std::int32_t> ignored_;
  KnownSilence* silence_;
  std::uint32_t host_;
  std::array<std::uint16_t, kMostEndpoints> endpoints_;  // of the records, by index
  struct Missed {
    LostCall lost;
    std::string address;
    std::uint16_t port;
    bool operator==(const Missed& other) const {
      return port == other.port && address == other.address;
    }
  };
  std::vector<Missed> missed_;  // servers that do not answer, each once
  ptc_LookupLosses losses_;
};

bool is_separator(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

void ptc_rpc_ep_lookup(RPC_BINDING_HANDLE epHandle, const rpc_if_id_t* interfaceId,
                       const uuid_t* objectId, ptc_RpcClientContextStruct* clientContextList,
                       std::uint32_t* clientContextListSize, error_status_t* status,
                       ptc_LookupLosses* losses, const ptc_LookupOptions& options) {
  std::uint32_t count = *clientContextListSize;
  QueryEPT(epHandle, interfaceId, objectId, clientContextList, &count, status, losses, options);
  if (*status == RPC_S_OK)
    *clientContextListSize = count;
}

void QueryEPT(RPC_BINDING_HANDLE epHandle, const rpc_if_id_t* interfaceId, const uuid_t* objectId,
              ptc_RpcClientContextStruct* clientContextList, std::uint32_t* clientContextListSize,
              error_status_t* status, ptc_LookupLosses* losses, const ptc_LookupOptions& options) {
  *status = RPC_S_OK;
  if (losses != nullptr)
    *losses = {};
  if (interfaceId->vers_major == kOldMajorVersion) {
    *clientContextListSize = 0;
    return;
  }
  const std::size_t capacity = std::min<std::size_t>(*clientContextListSize, kMostEndpoints);
  Query query({clientContextList, capacity}, options);
  RPC_EP_INQ_HANDLE inquiry = nullptr;
  *status = RpcMgmtEpEltInqBegin(epHandle, RPC_C_EP_MATCH_BY_IF, interfaceId, RPC_C_VERS_EXACT,
                                 objectId, &inquiry);
  if (*status != RPC_S_OK)
    return;
  *status = query.run(inquiry);
  query.sum_up();
  *clientContextListSize = static_cast<std::uint32_t>(query.accepted());
  if (*status != RPC_S_OK) {
    // The caller learns of no record, so none may stay behind.
    for (auto& record : std::span(clientContextList, query.accepted()))
      release(record);
    *clientContextListSize = 0;
  }
  if (losses != nullptr)
    *losses = query.losses();
  RpcMgmtEpEltInqDone(&inquiry);
}

void ptc_rpc_clnt_ctx_free(ptc_RpcClientContextStruct* clientContextList,
                           std::uint32_t clientContextListSize, error_status_t* status) {
  for (auto& record : std::span(clientContextList, clientContextListSize)) {
    *status = RpcBindingFree(&record.fBindingHandle);
    *status = RpcStringFreeA(&record.fStringBinding);
  }
}

std::size_t ept_CheckIgnoreIPs(std::span<std::int32_t, kMostIgnored> ignore_ip) {
  const char* directory = BASE_CONTROL_OBJ::GetConfigDirectory();
  if (directory == nullptr)
    return 0;
  const std::string path = std::string(directory) + kIgnoreListName;
  struct ::stat information;
  // Anything but a file, a pipe for one, could keep us waiting.
  if (sys::_stat(path.c_str(), &information) != 0 || !S_ISREG(information.st_mode))
    return 0;
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(sys::native_path(path).c_str(), "r"));
  if (!file)
    return 0;
  errno = 0;
  std::rewind(file.get());
  if (errno != 0)
    return 0;
  std::size_t count = 0;
  while (count < ignore_ip.size()) {
    std::optional<std::string> name = ept_NextIgnoredName(file.get());
    if (!name)
      break;
    SystemKey key = kNoSystemKey;
    ARPANameToSystemKey(name->data(), key);
    ignore_ip[count++] = key;
  }
  return count;
}

std::optional<std::string> ept_NextIgnoredName(std::FILE* stream) {
  constexpr int kNoLimit = std::numeric_limits<int>::max() - 1;
  std::string line, token;
  while (ept_CopyToNewLine(line, stream, kNoLimit) != 0) {
    if (line.front() == '#' || line.front() == '\n')
      continue;
    int position = 0;
    if (ept_GetToken(line.c_str(), token, position, kNoLimit) != 0)
      return token;
  }
  return std::nullopt;
}

int ept_CopyToNewLine(std::string& buffer, std::FILE* stream, int count) {
  buffer.clear();
  const auto most = static_cast<std::size_t>(std::max(count, 0));
  int character;
  while ((character = std::getc(stream)) != EOF && character != '\n') {
    if (buffer.empty() && character == ' ')
      continue;
    if (buffer.size() < most)
      buffer += static_cast<char>(character);
  }
  if (character == EOF && buffer.empty())
    return 0;
  buffer += '\n';
  return static_cast<int>(buffer.size());
}

int ept_GetToken(const char* input_string, std::string& token, int& token_position,
                 int max_token_size) {
  token.clear();
  if (input_string == nullptr)
    return 0;
  const char* at = input_string;
  while (is_separator(*at))
    ++at;
  token_position = static_cast<int>(at - input_string);
  const auto most = static_cast<std::size_t>(std::max(max_token_size, 0));
  if (*at == '"' || *at == '\'') {
    const char quote = *at;
    bool closed = false;
    while (!closed && *at != '\0' && token.size() < most) {
      // A tab or newline within quotes is dropped; what follows it is taken whatever it is.
      const bool taken = !token.empty() && (*at == '\t' || *at == '\n');
      if (taken && *++at == '\0')
        break;
      closed = !taken && !token.empty() && *at == quote;
      token += *at++;
    }
  } else {
    while (*at != '\0' && !is_separator(*at) && token.size() < most)
      token += *at++;
  }
  return static_cast<int>(token.size());
}
