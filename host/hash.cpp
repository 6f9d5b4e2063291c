#include "host/hash.h"

#include <murmurhash.h>

#include <climits>
#include <cstdint>
#include <cstring>

namespace host {
namespace {

constexpr uint32_t kMurmur3Seed = 0;
constexpr uint32_t kValueHashSeed = 0x5EED7A1Eu;

void Append(std::vector<unsigned char>& fed, const void* bytes, size_t count) {
  if (count == 0) return;
  const auto* p = static_cast<const unsigned char*>(bytes);
  fed.insert(fed.end(), p, p + count);
}

Guid Hash128(const std::vector<unsigned char>& fed, uint32_t seed) {
  // The library takes an unsigned length; state fed with 4 GiB or more is not a use of ours.
  uint64_t halves[2] = {0, 0};
  const unsigned length = fed.size() > UINT_MAX ? UINT_MAX : static_cast<unsigned>(fed.size());
  lmmh_x64_128(fed.data(), length, seed, halves);
  unsigned char out[16];
  for (int half = 0; half < 2; ++half)
    for (int b = 0; b < 8; ++b) out[half * 8 + b] = static_cast<unsigned char>(halves[half] >> (8 * b));
  return Guid::GuidFromBytes(out);
}

}  // namespace

void Murmur3MixerState::Mix(const void* bytes, size_t count) { Append(fed_, bytes, count); }
Guid Murmur3MixerState::GetHashResult() const { return Hash128(fed_, kMurmur3Seed); }

void HashValueMixerState::Mix(const void* bytes, size_t count) { Append(fed_, bytes, count); }
Guid HashValueMixerState::GetHashResult() const { return Hash128(fed_, kValueHashSeed); }

}  // namespace host
