#include "foundation/streaming_store.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Tincta {

void StreamingCopy(void* destination, const void* source, size_t bytes) {
  auto* to = static_cast<uint8_t*>(destination);
  const auto* from = static_cast<const uint8_t*>(source);
#if defined(__SSE2__)
  // The partial pieces at the ends go through the caches: a streamed piece must be aligned.
  const size_t head = (16 - reinterpret_cast<uintptr_t>(to) % 16) % 16;
  if (bytes < head + 16) {
    std::memcpy(to, from, bytes);
    return;
  }
  std::memcpy(to, from, head);
  to += head;
  from += head;
  bytes -= head;
  for (; bytes >= 64; bytes -= 64, to += 64, from += 64) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 32));
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 48));
    _mm_stream_si128(reinterpret_cast<__m128i*>(to), a);
    _mm_stream_si128(reinterpret_cast<__m128i*>(to + 16), b);
    _mm_stream_si128(reinterpret_cast<__m128i*>(to + 32), c);
    _mm_stream_si128(reinterpret_cast<__m128i*>(to + 48), d);
  }
  for (; bytes >= 16; bytes -= 16, to += 16, from += 16)
    _mm_stream_si128(reinterpret_cast<__m128i*>(to),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
#endif
  std::memcpy(to, from, bytes);
}

void FinishStreamingStores() {
#if defined(__SSE2__)
  _mm_sfence();
#endif
}

}  // namespace Tincta
