#include "host/hash.h"

#include <murmurhash.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

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
    for (int b = 0; b < 8; ++b)
      out[half * 8 + b] = static_cast<unsigned char>(halves[half] >> (8 * b));
  return Guid::GuidFromBytes(out);
}

}  // namespace

struct Murmur3MixerState::CFedBytes {
  std::vector<unsigned char> bytes;
};

Murmur3MixerState::Murmur3MixerState() : fed_(std::make_unique<CFedBytes>()) {}
Murmur3MixerState::Murmur3MixerState(const Murmur3MixerState& other)
    : fed_(std::make_unique<CFedBytes>(*other.fed_)) {}
Murmur3MixerState& Murmur3MixerState::operator=(const Murmur3MixerState& other) {
  if (this != &other) *fed_ = *other.fed_;
  return *this;
}
Murmur3MixerState::~Murmur3MixerState() = default;
void Murmur3MixerState::Mix(const void* bytes, size_t count) {
  Append(fed_->bytes, bytes, count);
}
Guid Murmur3MixerState::GetHashResult() const {
  return Hash128(fed_->bytes, kMurmur3Seed);
}

struct HashValueMixerState::CFedBytes {
  std::vector<unsigned char> bytes;
};

HashValueMixerState::HashValueMixerState() : fed_(std::make_unique<CFedBytes>()) {}
HashValueMixerState::HashValueMixerState(const HashValueMixerState& other)
    : fed_(std::make_unique<CFedBytes>(*other.fed_)) {}
HashValueMixerState& HashValueMixerState::operator=(const HashValueMixerState& other) {
  if (this != &other) *fed_ = *other.fed_;
  return *this;
}
HashValueMixerState::~HashValueMixerState() = default;
void HashValueMixerState::Mix(const void* bytes, size_t count) {
  Append(fed_->bytes, bytes, count);
}
Guid HashValueMixerState::GetHashResult() const {
  return Hash128(fed_->bytes, kValueHashSeed);
}

}  // namespace host
