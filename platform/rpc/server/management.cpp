#include "platform/rpc/server/management.h"

#include <utility>

#include "platform/rpc/wire_bytes.h"

namespace rpc::server {
namespace {

constexpr InterfaceSpec kManagement{
    {0xafa8bd80, 0x7d8a, 0x11c9, 0xbe, 0xf4, {0x08, 0x00, 0x2b, 0x10, 0x29, 0x89}}, 1, 0, "mgmt"};
constexpr OperationSpec kInquireInterfaces{&kManagement, 0, true, "inq_if_ids"};
constexpr OperationSpec kIsServerListening{&kManagement, 2, true, "is_server_listening"};

constexpr std::size_t kInterfaceIdSize = 20;
constexpr std::uint32_t kFirstReferent = 0x20000;

class Writer {
 public:
  explicit Writer(bool little_endian) : little_endian_(little_endian) {}

  void u16(std::uint16_t value) { store16(grow(2), value, little_endian_); }
  void u32(std::uint32_t value) { store32(grow(4), value, little_endian_); }
  void uuid(const uuid_t& value) { store_uuid(grow(16), value, little_endian_); }
  std::vector<std::byte> take() { return std::move(bytes_); }

 private:
  std::byte* grow(std::size_t size) {
    bytes_.resize(bytes_.size() + size);
    return bytes_.data() + bytes_.size() - size;
  }

  bool little_endian_;
  std::vector<std::byte> bytes_;
};

// [out] [ptr] to { u32 count; [size_is(count)] [ptr] interface id * }, then the status.
std::vector<std::byte> interface_list(const std::vector<Interface*>& interfaces,
                                      bool little_endian) {
  static_assert(kInterfaceIdSize % 4 == 0, "so that no padding is needed between the elements");
  const auto count = static_cast<std::uint32_t>(interfaces.size());
  Writer out(little_endian);
  out.u32(kFirstReferent);
  out.u32(count);
  out.u32(count);
  for (std::uint32_t i = 0; i < count; ++i)
    out.u32(kFirstReferent + 4 * (i + 1));
  for (const Interface* interface : interfaces) {
    out.uuid(interface->spec().id);
    out.u16(interface->spec().major);
    out.u16(interface->spec().minor);
  }
  out.u32(0);
  return out.take();
}

}  // namespace

ManagementInterface::ManagementInterface(std::vector<Interface*> interfaces)
    : interfaces_(std::move(interfaces)) {}

const InterfaceSpec& ManagementInterface::spec() const {
  return kManagement;
}

const OperationSpec* ManagementInterface::operation(std::uint16_t opnum) const {
  if (opnum == kInquireInterfaces.opnum)
    return &kInquireInterfaces;
  return opnum == kIsServerListening.opnum ? &kIsServerListening : nullptr;
}

Outcome ManagementInterface::dispatch(const CallInfo&, std::uint16_t opnum,
                                      std::span<const std::byte>, DataRepresentation,
                                      bool reply_little_endian) {
  if (opnum == kInquireInterfaces.opnum)
    return {Outcome::Kind::reply, 0, interface_list(interfaces_, reply_little_endian)};
  if (opnum != kIsServerListening.opnum)
    return Outcome::reject(kNcaOperationRangeError);
  Writer out(reply_little_endian);
  out.u32(0);
  out.u32(listening_ ? 1 : 0);
  return {Outcome::Kind::reply, 0, out.take()};
}

}  // namespace rpc::server
