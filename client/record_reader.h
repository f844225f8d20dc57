// Reading delivered records: every step is bounded here by the size of the buffer that was received.
#ifndef KESD_CLIENT_RECORD_READER_H_
#define KESD_CLIENT_RECORD_READER_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "client/result.h"
#include "marshal/records.h"

namespace kes {

// A buffer of records back to back. Borrows it; the buffer may be unaligned.
template <typename Record>
class Records {
 public:
  explicit Records(std::span<const uint8_t> buffer) : bytes(buffer) {}

  // Whether the buffer is a whole number of records.
  bool AreWhole() const { return bytes.size() % sizeof(Record) == 0; }

  std::size_t Count() const { return bytes.size() / sizeof(Record); }

  // Only below Count().
  Record At(std::size_t index) const {
    Record record;
    std::memcpy(&record, bytes.data() + index * sizeof record, sizeof record);
    return record;
  }

 private:
  std::span<const uint8_t> bytes;
};

// Whether [first, first + count) lies below `size`; nothing lies anywhere.
constexpr bool Fits(std::size_t first, std::size_t count, std::size_t size) {
  return count == 0 || (first <= size && count <= size - first);
}

// Whether every reference of `record` that both kinds of result have lies in its buffer.
bool CommonReferencesFit(const WifiScanMeasurement& record, std::size_t infoCount, std::size_t byteCount);

// The answer to buffers that are no whole number of their records.
inline Error WrongRecordSize() { return {ErrorKind::kProtocol, "the daemon delivered records of the wrong size"}; }

}  // namespace kes

#endif  // KESD_CLIENT_RECORD_READER_H_
