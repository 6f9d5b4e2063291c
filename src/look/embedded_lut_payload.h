// The embedded-LUT payload: the binary stream that travels beside a look document text whose LUTs
// are named by embeddedlut elements. A sequence of records up to the end of the stream, each
//   0  LUT identifier (16 bytes; their hexadecimal form is the element's hash)
//   16 length L of the LUT data (u32, little-endian)
//   20 L bytes of the LUT in any form a LUT object reads from memory (the writer uses "OTX3")
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "look/grading_document.h"

namespace Tincta {

/// Bytes of a record before its LUT data.
inline constexpr uint32_t kEmbeddedLUTRecordHeaderBytes = 20;

/// Where a reader's payload comes from.
class IOvEmbeddedLUTSource {
 public:
  virtual ~IOvEmbeddedLUTSource() = default;
  /// The payload's bytes, valid until the reader returns. Asked for at most once per read.
  virtual std::span<const uint8_t> Payload() = 0;
};

/// Where a writer puts the records of the LUTs its text names.
class IOvEmbeddedLUTSink {
 public:
  virtual ~IOvEmbeddedLUTSink() = default;
  /// Appends one record; false when it cannot be kept.
  virtual bool AppendRecord(const uint8_t (&identifier)[16], const void* bytes,
                            uint32_t length) = 0;
};

/// A payload in memory, both sink and source.
class COvEmbeddedLUTPayload final : public IOvEmbeddedLUTSource, public IOvEmbeddedLUTSink {
 public:
  COvEmbeddedLUTPayload() = default;
  explicit COvEmbeddedLUTPayload(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  std::span<const uint8_t> Payload() override { return bytes_; }
  bool AppendRecord(const uint8_t (&identifier)[16], const void* bytes, uint32_t length) override;

  const std::vector<uint8_t>& Bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

/// The number of records when `payload` is nothing but whole records, the last ending exactly at
/// the end of the stream; no value when a header is cut short or a record runs past the end.
/// An empty stream holds zero records.
std::optional<size_t> CountEmbeddedLUTRecords(std::span<const uint8_t> payload);

/// Walks the records from the start and loads the LUTs that `pending` asks for. A record serves
/// the first pending string whose first 32 characters equal its identifier's hexadecimal text
/// (ignoring case); its LUT takes the rest of that string as source path, is entered into the
/// LUT cache under the identifier text and is appended to `luts`, and the string leaves
/// `pending`. Records that match nothing or do not read as a LUT are passed over. The walk ends
/// at the end of the stream, at a record that runs past it, or when nothing is pending.
void ResolveEmbeddedLUTs(std::span<const uint8_t> payload, std::vector<std::string>& pending,
                         std::vector<SDocumentLUT>& luts);

}  // namespace Tincta
