// What a hostile peer sends, out of an input: mostly frames that are laid out as they should be, so that most inputs
// get beyond the first checks. Without the library's help.
#ifndef KESD_FUZZ_WIRE_STREAM_H_
#define KESD_FUZZ_WIRE_STREAM_H_

#include <unistd.h>

#include <string>

#include "fuzz/input.h"
#include "host/fenksocket/test_support.h"

namespace fuzz {

class WireStream {
 public:
  // `outputs`: the counts of a reply to what the other end invokes.
  WireStream(Input& someInput, uint32_t outputs) : input(someInput), expectedOutputs(outputs) {}

  // Until the input ends.
  std::string Take() {
    for (int i = 0; i < 96 && !input.AtEnd(); ++i) {
      std::string frame = TakeFrame();
      if (const unsigned spoilt = input.Take<uint8_t>(); spoilt >= 0xF0) {
        const std::size_t at = input.Take<uint16_t>() % std::max<std::size_t>(frame.size(), 1);
        if (!frame.empty()) frame[at] = static_cast<char>(input.Take<uint8_t>());
      }
      stream += frame;
    }
    return std::move(stream);
  }

  std::string stream;  // what goes before it

 private:
  using Bytes = fenk::test::Bytes;

  std::string TakeFrame() {
    switch (input.Below(8)) {
      case 0: {
        const std::vector<uint8_t> octets = input.Bytes(input.Take<uint8_t>());
        return {octets.begin(), octets.end()};
      }
      case 1: {
        const uint16_t type = static_cast<uint16_t>(input.Below(6));
        const uint32_t length = input.Take<uint32_t>();
        Bytes frame = fenk::test::Header(length, type, input.Below(4));
        return (frame += TakeContent(input.Below(64))).data;
      }
      case 2:
        return TakeReply();
      case 3: {
        Bytes ids;
        for (unsigned n = 1 + input.Below(20); n != 0; --n) ids.U64(TakeId());
        return (fenk::test::Header(static_cast<uint32_t>(16 + ids.data.size()), 4, 0) += ids).data;
      }
      case 4:
        return TakeDelivery();
      default:
        return TakeInvocation();
    }
  }

  uint64_t TakeId() {
    const uint8_t id = input.Take<uint8_t>();
    return id < 0xFE ? id % 16 : input.Take<uint64_t>();
  }

  // Mostly short, sometimes longer than what is read at once.
  uint64_t TakeSize() {
    const uint8_t size = input.Take<uint8_t>();
    return size < 0xF0 ? size : uint64_t{size - 0xEFu} * 1000;
  }

  // `size` octets and their padding, from the input as long as it lasts and is not needed for other things.
  Bytes TakeContent(uint64_t size) {
    const std::vector<uint8_t> octets = input.Bytes(std::min<uint64_t>(size, 64));
    std::string content(octets.begin(), octets.end());
    content.resize(size, '\x01');
    return Bytes().Text(content);
  }

  void TakeReferences(Bytes& frame, unsigned count) {
    for (; count != 0; --count) {
      const uint32_t kind = input.Below(8) % 3;
      frame += fenk::test::Reference(kind, kind == fenk::test::kNoObject ? 0 : TakeId());
    }
  }

  Bytes Buffers(Bytes& sizes, unsigned count) {
    Bytes content;
    for (; count != 0; --count) {
      const uint64_t size = TakeSize();
      sizes.U64(size);
      content += TakeContent(size);
    }
    return content;
  }

  std::string TakeInvocation() {
    const uint8_t how = input.Take<uint8_t>();
    const uint64_t serial = input.Below(8);
    const uint64_t target = TakeId();
    const uint32_t op = how % 16 != 15 ? input.Below(10) : input.Take<uint32_t>();
    static constexpr uint16_t kCounts[] = {0, 0x1000, 0x0100, 0x0F00, 0x1111, 0x1100};
    const uint32_t counts = how / 16 < 6 ? kCounts[how / 16] : input.Take<uint16_t>() | (how / 16 == 15 ? 0x10000u : 0);
    Bytes rest;
    const Bytes content = Buffers(rest, counts & 15);
    for (unsigned n = counts >> 4 & 15; n != 0; --n) rest.U64(how / 16 == 14 ? input.Take<uint64_t>() : TakeSize());
    TakeReferences(rest, counts >> 8 & 15);
    Bytes frame = fenk::test::Invoke(serial, target, op, counts, rest += content);
    if (how % 4 == 3) frame.data[6] = 1;  // nested
    return frame.data;
  }

  std::string TakeReply() {
    const uint64_t serial = input.Below(12);
    const unsigned how = input.Below(8);
    const int32_t result = how < 6 ? 0 : static_cast<int8_t>(input.Take<uint8_t>());
    const uint32_t counts = how < 5 ? expectedOutputs : how == 6 ? 0 : input.Take<uint16_t>() & 0xF0F0;
    Bytes rest;
    const Bytes content = Buffers(rest, counts >> 4 & 15);
    TakeReferences(rest, counts >> 12);
    return fenk::test::Reply(serial, result, counts, rest += content).data;
  }

  // A result for a callback, in records of the right size.
  std::string TakeDelivery() {
    const bool ranging = input.Below(2) != 0;
    const unsigned sizes[] = {ranging ? 4u : 16u, 160 * input.Below(4), 64 * input.Below(4), input.Below(200),
                              8 * input.Below(4)};
    Bytes rest;
    Bytes content;
    for (unsigned i = 0; i < (ranging ? 5 : 4); ++i) {
      rest.U64(sizes[i]);
      content += TakeContent(sizes[i]);
    }
    const uint64_t serial = input.Below(8);
    return fenk::test::Invoke(serial, TakeId(), 0, ranging ? 5 : 4, rest += content).data;
  }

  Input& input;
  const uint32_t expectedOutputs;
};

// The number that the next descriptor gets: the same before and after, when all are closed again.
inline int NextDescriptor() {
  const int next = dup(0);
  close(next);
  return next;
}

}  // namespace fuzz

#endif  // KESD_FUZZ_WIRE_STREAM_H_
