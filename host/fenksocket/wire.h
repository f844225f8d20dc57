// The format of frames: docs/wire-protocol.md in code. Little-endian; a frame and everything in it is 8-byte aligned.
#ifndef KESD_HOST_FENKSOCKET_WIRE_H_
#define KESD_HOST_FENKSOCKET_WIRE_H_

#include <sys/uio.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "ipc/object.h"

namespace fenk::wire {

static_assert(std::endian::native == std::endian::little, "frames travel as in-memory images");

inline constexpr uint32_t kMagic = 0x4B4E4546;  // "FENK" as it stands in the stream
inline constexpr uint16_t kVersion = 1;
inline constexpr std::size_t kAlignment = 8;
inline constexpr uint64_t kRootId = 0;
inline constexpr std::size_t kMaxSlots = 15;  // of one kind
// An end takes at least this; every reply without output buffers fits.
inline constexpr uint32_t kSmallestMaxFrameBytes = 4096;

enum FrameType : uint16_t { kHello = 1, kInvoke = 2, kReply = 3, kRelease = 4 };

struct FrameHeader {
  uint32_t length;  // of the whole frame, a multiple of 8
  uint16_t type;
  uint16_t flags;
  uint64_t serial;  // INVOKE: the sender's choice; REPLY: the same; else 0
};
static_assert(sizeof(FrameHeader) == 16);

// INVOKE: made from within an invocation by the receiver, which may be waiting for that. Other flags are 0.
inline constexpr uint16_t kNested = 1;

struct HelloBody {
  uint32_t magic;
  uint16_t version;
  uint16_t reserved;
  uint32_t maxFrameBytes;
  uint32_t reserved2;
};
static_assert(sizeof(HelloBody) == 16);

// Followed by the input buffers' sizes, the output buffers' capacities, the input objects, the input bytes.
struct InvokeBody {
  uint64_t target;
  uint32_t op;
  uint32_t counts;
};
static_assert(sizeof(InvokeBody) == 16);

// Followed by the output buffers' sizes, the output objects, the output bytes.
struct ReplyBody {
  int32_t result;
  uint32_t counts;  // of output buffers and output objects, in their own bits
};
static_assert(sizeof(ReplyBody) == 8);

enum ReferenceKind : uint32_t { kNull = 0, kSendersObject = 1, kReceiversObject = 2 };

struct ObjectReference {
  uint32_t kind;
  uint32_t reserved;
  uint64_t id;  // given by the end that the object belongs to
};
static_assert(sizeof(ObjectReference) == 16);

constexpr uint32_t InputBuffers(uint32_t counts) { return counts & 15; }
constexpr uint32_t OutputBuffers(uint32_t counts) { return counts >> 4 & 15; }
constexpr uint32_t InputObjects(uint32_t counts) { return counts >> 8 & 15; }
constexpr uint32_t OutputObjects(uint32_t counts) { return counts >> 12 & 15; }
constexpr uint32_t Slots(uint32_t counts) {
  return InputBuffers(counts) + OutputBuffers(counts) + InputObjects(counts) + OutputObjects(counts);
}
// The bits of `counts` that a reply to such an invocation carries.
constexpr uint32_t OutputCounts(uint32_t counts) { return counts & 0xF0F0; }

// The only way to the bytes of a frame: hands them out front to back and never past the end. Borrows the frame.
class FrameReader {
 public:
  explicit FrameReader(std::span<const std::byte> frame) : rest(frame) {}

  // False when fewer bytes are left; then nothing is taken.
  template <typename T>
  [[nodiscard]] bool Take(T& value) {
    if (rest.size() < sizeof(T)) return false;
    std::memcpy(&value, rest.data(), sizeof(T));
    rest = rest.subspan(sizeof(T));
    return true;
  }
  // `size` bytes in place, and the padding after them.
  [[nodiscard]] bool TakeBytes(uint64_t size, std::span<const std::byte>& bytes);
  bool AtEnd() const { return rest.empty(); }

 private:
  std::span<const std::byte> rest;
};

struct Invocation {
  bool nested;
  uint64_t serial;
  uint64_t target;
  uint32_t op;
  uint32_t counts;
  std::array<std::span<const std::byte>, kMaxSlots> inputs;
  std::array<uint64_t, kMaxSlots> capacities;
  std::array<ObjectReference, kMaxSlots> objects;
};

struct Reply {
  uint64_t serial;
  int32_t result;
  uint32_t counts;
  std::array<std::span<const std::byte>, kMaxSlots> outputs;
  std::array<ObjectReference, kMaxSlots> objects;
};

// These read a whole frame of their type, whose header's length is that of `frame`. Null, or how it breaks the format.
// What they fill borrows the frame.
[[nodiscard]] const char* Decode(std::span<const std::byte> frame, HelloBody& hello);
[[nodiscard]] const char* Decode(std::span<const std::byte> frame, Invocation& invocation);
[[nodiscard]] const char* Decode(std::span<const std::byte> frame, Reply& reply);
// Leaves the IDs to be taken one by one.
[[nodiscard]] const char* DecodeRelease(FrameReader& frame);

// Lays a frame out for one gathering write: a head of its own, and borrowed bytes that must stay until it is sent.
class FrameBuilder {
 public:
  FrameBuilder(FrameType type, uint64_t serial, uint16_t flags = 0);

  template <typename T>
  void Put(const T& value) {
    static_assert(sizeof(T) % kAlignment == 0);
    std::memcpy(head.data() + headSize, &value, sizeof(T));
    headSize += sizeof(T);
  }
  // After everything else was put.
  void PutBytes(const void* bytes, uint64_t size);

  // Writes the length. False when the frame would be longer than `maxBytes`.
  [[nodiscard]] bool Finish(uint32_t maxBytes);
  std::span<iovec> Parts() { return std::span(parts).first(partCount); }

 private:
  // The longest head is that of an invocation with every slot in use.
  static constexpr std::size_t kMaxHead =
      sizeof(FrameHeader) + sizeof(InvokeBody) + kMaxSlots * (8 + 8 + sizeof(ObjectReference));

  alignas(kAlignment) std::array<std::byte, kMaxHead> head;
  std::array<iovec, 1 + 2 * kMaxSlots> parts;
  std::size_t headSize = 0;
  std::size_t partCount = 1;
  uint64_t bytesSize = 0;
  bool tooLong = false;
};

}  // namespace fenk::wire

#endif  // KESD_HOST_FENKSOCKET_WIRE_H_
