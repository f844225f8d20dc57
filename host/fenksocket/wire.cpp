#include "host/fenksocket/wire.h"

#include <limits>

namespace fenk::wire {
namespace {

constexpr std::byte kPadding[kAlignment] = {};

constexpr uint64_t PaddingAfter(uint64_t size) { return (kAlignment - size % kAlignment) % kAlignment; }

bool TakeReferences(FrameReader& reader, uint32_t count, std::array<ObjectReference, kMaxSlots>& references,
                    const char*& wrong) {
  for (uint32_t i = 0; i < count; ++i) {
    ObjectReference& reference = references[i];
    if (!reader.Take(reference)) {
      wrong = "object references past the end of the frame";
    } else if (reference.kind > kReceiversObject || reference.reserved != 0) {
      wrong = "object reference of no known kind";
    } else if (reference.id == 0 && reference.kind == kSendersObject) {
      wrong = "object reference without an ID";
    } else if (reference.id != 0 && reference.kind == kNull) {
      wrong = "null reference with an ID";
    } else {
      continue;
    }
    return false;
  }
  return true;
}

bool TakeSizes(FrameReader& reader, uint32_t count, std::array<uint64_t, kMaxSlots>& sizes) {
  for (uint32_t i = 0; i < count; ++i) {
    if (!reader.Take(sizes[i])) return false;
  }
  return true;
}

bool TakeBuffers(FrameReader& reader, uint32_t count, const std::array<uint64_t, kMaxSlots>& sizes,
                 std::array<std::span<const std::byte>, kMaxSlots>& buffers) {
  for (uint32_t i = 0; i < count; ++i) {
    if (!reader.TakeBytes(sizes[i], buffers[i])) return false;
  }
  return reader.AtEnd();
}

}  // namespace

bool FrameReader::TakeBytes(uint64_t size, std::span<const std::byte>& bytes) {
  if (rest.size() < size) return false;
  const uint64_t padding = PaddingAfter(size);
  if (rest.size() - size < padding) return false;
  bytes = rest.first(size);
  rest = rest.subspan(size + padding);
  return true;
}

const char* Decode(std::span<const std::byte> frame, HelloBody& hello) {
  FrameReader reader(frame);
  FrameHeader header;
  if (!reader.Take(header) || !reader.Take(hello) || !reader.AtEnd()) return "HELLO of a wrong length";
  if (header.serial != 0 || hello.reserved != 0 || hello.reserved2 != 0) return "HELLO with a reserved field in use";
  if (hello.magic != kMagic) return "HELLO without the magic number";
  if (hello.version != kVersion) return "HELLO of another version";
  if (hello.maxFrameBytes < kSmallestMaxFrameBytes) return "HELLO that takes too short frames only";
  return nullptr;
}

const char* Decode(std::span<const std::byte> frame, Invocation& invocation) {
  FrameReader reader(frame);
  FrameHeader header;
  InvokeBody body;
  if (!reader.Take(header) || !reader.Take(body)) return "INVOKE of a wrong length";
  invocation.nested = (header.flags & kNested) != 0;
  invocation.serial = header.serial;
  invocation.target = body.target;
  invocation.op = body.op;
  invocation.counts = body.counts;
  std::array<uint64_t, kMaxSlots> sizes;
  const char* wrong = nullptr;
  if (!TakeSizes(reader, InputBuffers(body.counts), sizes) ||
      !TakeSizes(reader, OutputBuffers(body.counts), invocation.capacities)) {
    return "buffer sizes past the end of the frame";
  }
  if (!TakeReferences(reader, InputObjects(body.counts), invocation.objects, wrong)) return wrong;
  if (!TakeBuffers(reader, InputBuffers(body.counts), sizes, invocation.inputs)) {
    return "input buffers that do not fill the frame";
  }
  return nullptr;
}

const char* Decode(std::span<const std::byte> frame, Reply& reply) {
  FrameReader reader(frame);
  FrameHeader header;
  ReplyBody body;
  if (!reader.Take(header) || !reader.Take(body)) return "REPLY of a wrong length";
  if (body.counts != OutputCounts(body.counts)) return "REPLY with slots that are no outputs";
  reply.serial = header.serial;
  reply.result = body.result;
  reply.counts = body.counts;
  std::array<uint64_t, kMaxSlots> sizes;
  const char* wrong = nullptr;
  if (!TakeSizes(reader, OutputBuffers(body.counts), sizes)) return "buffer sizes past the end of the frame";
  if (!TakeReferences(reader, OutputObjects(body.counts), reply.objects, wrong)) return wrong;
  if (!TakeBuffers(reader, OutputBuffers(body.counts), sizes, reply.outputs)) {
    return "output buffers that do not fill the frame";
  }
  return nullptr;
}

const char* DecodeRelease(FrameReader& frame) {
  FrameHeader header;
  if (!frame.Take(header) || header.serial != 0 || frame.AtEnd()) return "RELEASE of a wrong form";
  return nullptr;
}

FrameBuilder::FrameBuilder(FrameType type, uint64_t serial, uint16_t flags) {
  Put(FrameHeader{0, type, flags, serial});
}

void FrameBuilder::PutBytes(const void* bytes, uint64_t size) {
  if (size == 0) return;
  if (size > std::numeric_limits<uint32_t>::max() || bytesSize > std::numeric_limits<uint32_t>::max()) {
    tooLong = true;
    return;
  }
  const uint64_t padding = PaddingAfter(size);
  parts[partCount++] = {const_cast<void*>(bytes), size};  // only read: iovec serves both directions
  if (padding != 0) parts[partCount++] = {const_cast<std::byte*>(kPadding), padding};
  bytesSize += size + padding;
}

bool FrameBuilder::Finish(uint32_t maxBytes) {
  if (tooLong || headSize > maxBytes || bytesSize > maxBytes - headSize) return false;
  const uint32_t length = static_cast<uint32_t>(headSize + bytesSize);
  std::memcpy(head.data() + offsetof(FrameHeader, length), &length, sizeof(length));
  parts[0] = {head.data(), headSize};
  return true;
}

}  // namespace fenk::wire
