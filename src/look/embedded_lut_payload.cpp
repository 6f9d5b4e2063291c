#include "look/embedded_lut_payload.h"

#include <cctype>
#include <new>
#include <string_view>

#include "foundation/hex_codec.h"
#include "lut/lut_cache.h"

namespace Tincta {
namespace {

uint32_t ReadU32LE(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool BeginsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::toupper(static_cast<unsigned char>(text[i])) !=
        std::toupper(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool COvEmbeddedLUTPayload::AppendRecord(const uint8_t (&identifier)[16], const void* bytes,
                                         uint32_t length) {
  try {
    bytes_.reserve(bytes_.size() + kEmbeddedLUTRecordHeaderBytes + length);
    bytes_.insert(bytes_.end(), identifier, identifier + 16);
    for (int i = 0; i < 4; ++i)
      bytes_.push_back(static_cast<uint8_t>(length >> (8 * i)));
    const auto* data = static_cast<const uint8_t*>(bytes);
    bytes_.insert(bytes_.end(), data, data + length);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

std::optional<size_t> CountEmbeddedLUTRecords(std::span<const uint8_t> payload) {
  size_t records = 0;
  for (size_t position = 0; position < payload.size(); ++records) {
    if (payload.size() - position < kEmbeddedLUTRecordHeaderBytes) return std::nullopt;
    const uint32_t length = ReadU32LE(payload.data() + position + 16);
    position += kEmbeddedLUTRecordHeaderBytes;
    if (payload.size() - position < length) return std::nullopt;
    position += length;
  }
  return records;
}

void ResolveEmbeddedLUTs(std::span<const uint8_t> payload, std::vector<std::string>& pending,
                         std::vector<SDocumentLUT>& luts) {
  size_t position = 0;
  while (!pending.empty()) {
    if (payload.size() - position < 16) return;
    const std::string identifier =
        EncodeBytesAsText(payload.data() + position, 16, ETextCodecMode::Hexadecimal);
    position += 16;
    if (payload.size() - position < 4) return;
    const uint32_t length = ReadU32LE(payload.data() + position);
    position += 4;
    if (payload.size() - position < length) return;
    const uint8_t* data = payload.data() + position;
    position += length;

    auto entry = pending.begin();
    while (entry != pending.end() && !BeginsWithIgnoringCase(*entry, identifier))
      ++entry;
    if (entry == pending.end()) continue;
    auto lut = std::make_unique<COv3DLUT>();
    if (!lut->LoadFromMemory(data, length, false, ELUTKindFilter::Any, true)) continue;
    lut->SetSourcePath(entry->substr(32));
    // A full cache or an entry already there leaves the LUT with a table of its own.
    COvLUTCache::Instance().Insert(*lut, identifier, 0);
    luts.push_back({std::move(lut), identifier});
    pending.erase(entry);
  }
}

}  // namespace Tincta
