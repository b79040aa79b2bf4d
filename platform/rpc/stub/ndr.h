// SPDX-License-Identifier: Apache-2.0
// Network Data Representation (C706 chapter 14): the encoder and decoder that generated stubs and
// skeletons call. Both know one body; alignment counts from its first byte.
//
// What both guarantee: nothing outside the body is read, gap bytes are written as 0 and ignored on
// receipt, and nothing is allocated for a number that the body's own length does not cover. Every
// violation throws RpcException 1783 (kind local); characters in EBCDIC throw 1730 (kind
// communication) at the moment when the first one is read.
//
// Types that put and get know as primitives: integers of 1 to 8 bytes, char, bool, enumerations of
// 16 bits, uuid_t and context handles.

#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/rpc/names/uuid.h"
#include "platform/rpc/stub/wire_context.h"
#include "platform/rpc/wire/data_representation.h"

namespace rpc::ndr {

// The most memory that one array of results may take in a server.
inline constexpr std::size_t kResultBytes = std::size_t{4} << 20;

template <typename T>
concept Scalar = std::integral<T> || std::is_enum_v<T>;

template <typename T>
concept Primitive = Scalar<T> || std::same_as<T, uuid_t> || std::same_as<T, WireContext>;

template <Primitive T>
constexpr std::size_t alignment_of() {
  if constexpr (Scalar<T>)
    return sizeof(T);
  else
    return 4;
}

// A data error of a body or of a value to be sent.
[[noreturn]] void fail_data();
// Characters that are not ASCII.
[[noreturn]] void fail_characters();

inline void require(bool holds) {
  if (!holds) [[unlikely]]
    fail_data();
}

// The bytes of `count` elements of at most `element` bytes each; saturates.
constexpr std::size_t limit(std::uint64_t count, std::size_t element) {
  constexpr std::uint64_t kMost = std::uint64_t{1} << 48;
  return count > kMost / element ? kMost : count * element;
}

// `value` at `at` in host order, or with its bytes swapped.
template <Primitive T>
T load(const std::byte* at, bool swap) {
  if constexpr (std::same_as<T, bool>) {
    return *at != std::byte{0};
  } else if constexpr (Scalar<T>) {
    if constexpr (sizeof(T) == 1) {
      T value;
      std::memcpy(&value, at, 1);
      return value;
    } else {
      using Bits =
          std::conditional_t<sizeof(T) == 2, std::uint16_t,
                             std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>;
      Bits bits;
      std::memcpy(&bits, at, sizeof(bits));
      if (swap) {
        if constexpr (sizeof(T) == 2)
          bits = __builtin_bswap16(bits);
        else if constexpr (sizeof(T) == 4)
          bits = __builtin_bswap32(bits);
        else
          bits = __builtin_bswap64(bits);
      }
      return static_cast<T>(bits);
    }
  } else if constexpr (std::same_as<T, uuid_t>) {
    uuid_t value;
    std::memcpy(&value, at, sizeof(value));
    value.time_low = load<std::uint32_t>(at, swap);
    value.time_mid = load<std::uint16_t>(at + 4, swap);
    value.time_hi_and_version = load<std::uint16_t>(at + 6, swap);
    return value;
  } else {
    return WireContext{load<std::uint32_t>(at, swap), load<uuid_t>(at + 4, swap)};
  }
}

template <Primitive T>
constexpr std::size_t wire_size_of() {
  if constexpr (std::same_as<T, WireContext>)
    return 20;
  else
    return sizeof(T);
}

// Tells targets of different types apart in the tables of pointers.
template <typename T>
inline constexpr char kTypeTag = 0;

// How full pointers are numbered. Packet analysers take small numbers in replies for a sign of
// other data, so that servers number as the common runtimes do.
struct ReferentNumbers {
  std::uint32_t first = 1;
  std::uint32_t step = 1;

  constexpr std::uint32_t at(std::size_t index) const {
    return first + step * static_cast<std::uint32_t>(index);
  }
};
inline constexpr ReferentNumbers kReplyReferents{0x00020000, 4};

class Decoder;

class Encoder {
 public:
  // A reply has no number of its request (not owned; null for a request): it would be an alias of
  // what the client sent.
  explicit Encoder(bool little_endian = true, ReferentNumbers numbers = {},
                   const Decoder* request = nullptr)
      : swap_(little_endian != (std::endian::native == std::endian::little)),
        numbers_(numbers),
        request_(request) {}

  void align(std::size_t alignment) {
    const std::size_t gap = (alignment - size_) & (alignment - 1);
    if (gap != 0)
      std::memset(extend(gap), 0, gap);
  }

  template <Primitive T>
  void put(const T& value) {
    align(alignment_of<T>());
    if constexpr (std::same_as<T, WireContext>) {
      put(value.attributes);
      put(value.id);
    } else {
      const T ordered = load<T>(reinterpret_cast<const std::byte*>(&value), swap_);
      append(&ordered, sizeof(ordered));
    }
  }

  // The elements alone, one after another.
  template <Scalar T>
  void put_array(const T* values, std::uint32_t count) {
    if (count == 0)
      return;
    align(alignment_of<T>());
    if (!swap_ || sizeof(T) == 1) {
      append(values, count * sizeof(T));
    } else {
      for (std::uint32_t i = 0; i < count; ++i)
        put(values[i]);
    }
  }

  // Offset 0 and actual count.
  void put_varying(std::uint32_t count);
  // Maximum count, offset 0 and actual count. The maximum count is `size` in 32 bits, which must
  // hold `count`: the size that belongs to a last index of all bits set, none, is 0.
  void put_conformant_varying(std::uint64_t size, std::uint32_t count);

  // A varying array of `count` characters, the last of which is the terminating zero.
  template <std::size_t N>
  void put_text(const char (&text)[N], std::uint32_t count) {
    put_text(text, N, count);
  }
  // A varying array of the characters up to the first zero of the array and that zero.
  template <std::size_t N>
  void put_string(const char (&text)[N]) {
    put_string(text, N);
  }

  // A full pointer's referent number. True when the target must be written: for the first pointer
  // to it, not for null and for later ones.
  template <typename T>
  bool put_referent(const T* target) {
    return put_referent(target, &kTypeTag<T>);
  }
  // The same for a pointer inside a structure, whose target follows after the outermost one:
  // next_deferred tells the answers again, in order.
  template <typename T>
  void defer_referent(const T* target) {
    deferred_.push_back(put_referent(target));
  }
  bool next_deferred();

  std::span<const std::byte> body() const { return {bytes_.get(), size_}; }
  std::vector<std::byte> take() const { return {body().begin(), body().end()}; }

 private:
  struct Referent {
    const void* target;
    const void* type;
    std::uint32_t number;
  };

  void append(const void* bytes, std::size_t size) { std::memcpy(extend(size), bytes, size); }
  // Room for `size` more bytes at the end.
  std::byte* extend(std::size_t size) {
    if (size > capacity_ - size_) [[unlikely]]
      grow(size);
    size_ += size;
    return bytes_.get() + (size_ - size);
  }
  void grow(std::size_t size);
  void put_text(const char* text, std::size_t size, std::uint32_t count);
  void put_string(const char* text, std::size_t size);
  bool put_referent(const void* target, const void* type);

  // Not a vector: a reply is a hundred thousand small fields, and each would pay for its insertion.
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool swap_;
  ReferentNumbers numbers_;
  const Decoder* request_;
  std::vector<Referent> referents_;
  std::vector<bool> deferred_;
  std::size_t next_deferred_ = 0;
};

// Fields at fixed distances from each other, inside the body as a whole.
class Fields {
 public:
  Fields(const std::byte* at, bool swap) : at_(at), swap_(swap) {}

  template <Primitive T>
  T get(std::size_t offset) const {
    return load<T>(at_ + offset, swap_);
  }

 private:
  const std::byte* at_;
  bool swap_;
};

// Copies `count` characters and clears the rest of the array. Most texts are short and most arrays
// are not, so that this goes by blocks: the last one copied reaches into what follows in the body,
// which holds `available` bytes.
template <std::size_t N>
void copy_text(char* text, const std::byte* from, std::size_t count, std::size_t available) {
  constexpr std::size_t kBlock = 32;
  if (N < kBlock || count > N - kBlock || available - count < kBlock) {
    std::memcpy(text, from, count);
    std::memset(text + count, 0, N - count);
    return;
  }
  for (std::size_t i = 0; i < count; i += kBlock)
    std::memcpy(text + i, from + i, kBlock);
  for (std::size_t i = count; i < N - kBlock; i += kBlock)
    std::memset(text + i, 0, kBlock);
  std::memset(text + N - kBlock, 0, kBlock);
}

class Decoder {
 public:
  // The body must outlive the decoder.
  Decoder(std::span<const std::byte> body, DataRepresentation representation)
      : body_(body),
        swap_(representation.little_endian != (std::endian::native == std::endian::little)),
        ebcdic_(representation.ebcdic) {}

  std::size_t remaining() const { return body_.size() - position_; }

  void align(std::size_t alignment) {
    const std::size_t start = aligned(alignment);
    require(start <= body_.size());
    position_ = start;
  }

  // Goes past `size` bytes that begin at the alignment, and gives access to them.
  Fields fields(std::size_t alignment, std::size_t size) {
    const std::size_t start = aligned(alignment);
    require(start + size <= body_.size());
    position_ = start + size;
    return {body_.data() + start, swap_};
  }

  template <Primitive T>
  T get() {
    if constexpr (std::same_as<T, char>)
      require_ascii();
    return fields(alignment_of<T>(), wire_size_of<T>()).template get<T>(0);
  }

  // The elements alone, one after another.
  template <Scalar T>
  void get_array(T* values, std::uint32_t count) {
    if (count == 0)
      return;
    if constexpr (std::same_as<T, char>)
      require_ascii();
    align(alignment_of<T>());
    require(count <= remaining() / sizeof(T));
    const std::byte* from = body_.data() + position_;
    if constexpr (std::same_as<T, bool>) {
      for (std::uint32_t i = 0; i < count; ++i)
        values[i] = load<T>(from + i, swap_);
    } else if (!swap_ || sizeof(T) == 1) {
      std::memcpy(values, from, count * sizeof(T));
    } else {
      for (std::uint32_t i = 0; i < count; ++i)
        values[i] = load<T>(from + i * sizeof(T), swap_);
    }
    position_ += count * sizeof(T);
  }

  // The head of a conformant varying array whose receiver has room for `room` elements and whose
  // actual count must be `expected`. Returns the count. The maximum count may be smaller than the
  // room: some servers send the filled count.
  std::uint32_t get_conformant_varying(std::uint64_t room, std::uint32_t expected);
  // The same for an array whose maximum count is known as well, in 32 bits. Elements take at least
  // `element` bytes each; the body must hold them all, so that the count may be allocated for.
  std::uint32_t get_exact_conformant_varying(std::uint64_t size, std::uint32_t expected,
                                             std::size_t element);
  // A conformant array's maximum count, which must be that of its size field. Octets only.
  void get_octets(std::vector<std::uint8_t>& octets, std::uint32_t maximum, std::uint32_t size);

  // The characters of a varying array with a length field beside it: offset and actual count have
  // been read, and `expected` is the length plus one. The last character must be the terminating
  // zero. A count of 0 is taken for an empty text when the length is 0. What is behind the
  // terminator becomes 0.
  template <std::size_t N>
  void get_text(char (&text)[N], std::uint32_t offset, std::uint32_t count,
                std::uint32_t expected) {
    if (count == 0 && expected <= 1 && offset == 0) [[unlikely]] {
      std::memset(text, 0, N);
      return;
    }
    const std::byte* from = body_.data() + position_;
    const std::size_t available = remaining();
    require(offset == 0 && count == expected && count - 1 < N && count <= available);
    require_ascii();
    require(from[count - 1] == std::byte{0});
    position_ += count;
    copy_text<N>(text, from, count, available);
  }
  // The same for a string, which has no length field.
  template <std::size_t N>
  void get_string(char (&text)[N]) {
    const Fields head = fields(4, 8);
    const auto count = head.get<std::uint32_t>(4);
    get_text(text, head.get<std::uint32_t>(0), count, count);
  }

  // A full pointer at top level: null, a target known from an earlier pointer, or a new target
  // that `decode` reads at once.
  template <typename T, typename Decode>
  std::shared_ptr<T> get_pointer(Decode decode) {
    return target<T>(get<std::uint32_t>(), decode);
  }
  // A pointer inside a structure: its referent number now, its target (in the same order) after
  // the outermost structure.
  void defer_pointer(std::uint32_t referent) { deferred_.push_back(referent); }
  // Whether the number was that of a pointer so far.
  bool has_referent(std::uint32_t number) const { return targets_.find(number) != targets_.end(); }
  template <typename T, typename Decode>
  std::shared_ptr<T> get_deferred(Decode decode) {
    return target<T>(next_deferred(), decode);
  }

 private:
  struct Target {
    std::shared_ptr<void> value;
    const void* type;
  };

  struct ArrayHead {
    std::uint32_t maximum;
    std::uint32_t count;
  };

  std::size_t aligned(std::size_t alignment) const {
    return (position_ + alignment - 1) & ~(alignment - 1);
  }
  // Maximum count, offset (which must be 0) and actual count of an array.
  ArrayHead get_array_head();
  void require_ascii() const {
    if (ebcdic_) [[unlikely]]
      fail_characters();
  }
  std::uint32_t next_deferred();

  template <typename T, typename Decode>
  std::shared_ptr<T> target(std::uint32_t referent, Decode decode) {
    if (referent == 0)
      return nullptr;
    const auto known = targets_.find(referent);
    if (known != targets_.end()) {
      require(known->second.type == &kTypeTag<T>);
      return std::static_pointer_cast<T>(known->second.value);
    }
    auto value = std::make_shared<T>();
    decode(*value);
    targets_.emplace(referent, Target{value, &kTypeTag<T>});
    return value;
  }

  std::span<const std::byte> body_;
  // An offset, since the way from one text's length to the next bounds the speed of decoding.
  std::size_t position_ = 0;
  bool swap_;
  bool ebcdic_;
  std::map<std::uint32_t, Target> targets_;
  std::vector<std::uint32_t> deferred_;
  std::size_t next_deferred_ = 0;
};

}  // namespace rpc::ndr
