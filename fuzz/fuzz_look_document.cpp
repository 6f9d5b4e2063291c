// Arbitrary bytes as a look document with its embedded-LUT payload. The input is a 32-bit
// little-endian length n, n bytes of document text, then the payload.
//
// Whatever reads must write back and read again: inline, the second text equals the first;
// through a payload, the texts agree from the second trip on (the first may reorder LUTs that
// the LUT cache did not hold yet).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "host/log.h"
#include "look/look_document_reader.h"
#include "look/look_document_writer.h"
#include "look/look_reference.h"
#include "lut/lut_cache.h"

namespace {

using Tincta::COvEmbeddedLUTPayload;
using Tincta::COvGradingDocument;

// The LUT element writes a source path without escaping carriage returns, which the parser folds
// into line feeds, so such paths do not survive inline; that loss is not what this target looks
// for.
bool InlineSafe(const COvGradingDocument& document) {
  for (const auto& entry : document.LUTs()) {
    if (entry.lut->SourcePath().find('\r') != std::string::npos) return false;
  }
  return true;
}

std::string WriteEmbedded(COvGradingDocument& document, COvEmbeddedLUTPayload& payload) {
  document.SetCachedText({});
  const std::string_view text = Tincta::WriteLookDocument(document, &payload);
  if (text.empty()) std::abort();
  return std::string(text);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host::SetLogCallback(nullptr, nullptr);
  Tincta::COvLUTCache::Instance().SetByteBudget(uint64_t(64) << 20);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  size_t textBytes = size;
  const uint8_t* text = data;
  if (size >= 4) {
    uint32_t declared;
    std::memcpy(&declared, data, 4);
    text = data + 4;
    textBytes = declared < size - 4 ? declared : size - 4;
  }
  COvEmbeddedLUTPayload payload(std::vector<uint8_t>(text + textBytes, data + size));

  const auto document = Tincta::ReadLookDocument(text, textBytes, &payload);
  COvGradingDocument target;
  const bool intoTarget = Tincta::ReadLookDocument(text, textBytes, target, &payload) != nullptr;
  if (!document) return 0;
  if (!Tincta::IsLookReference(text, textBytes) && !intoTarget) std::abort();

  if (InlineSafe(*document)) {
    const std::string first(Tincta::WriteLookDocument(*document, nullptr));
    if (first.empty()) std::abort();
    const auto again = Tincta::ReadLookDocument(first.data(), first.size(), nullptr);
    if (!again) std::abort();
    if (Tincta::WriteLookDocument(*again, nullptr) != first) std::abort();
  }

  COvEmbeddedLUTPayload firstPayload, secondPayload, thirdPayload;
  const std::string first = WriteEmbedded(*document, firstPayload);
  const auto second = Tincta::ReadLookDocument(first.data(), first.size(), &firstPayload);
  if (!second) std::abort();
  const std::string secondText = WriteEmbedded(*second, secondPayload);
  const auto third = Tincta::ReadLookDocument(secondText.data(), secondText.size(), &secondPayload);
  if (!third) std::abort();
  if (WriteEmbedded(*third, thirdPayload) != secondText) std::abort();
  return 0;
}
