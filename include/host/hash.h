// Hash states whose results are Guids.
#pragma once

#include <cstddef>
#include <vector>

#include "host/export.h"
#include "host/guid.h"

namespace host {

/// MurmurHash3 x64-128 (seed 0) over every byte fed, in order; the 16 result bytes (the two
/// 64-bit halves, little-endian) are the Guid.
class HOST_API Murmur3MixerState {
 public:
  void Mix(const void* bytes, size_t count);
  Guid GetHashResult() const;

 private:
  std::vector<unsigned char> fed_;
};

/// The host's value hash for cache keys: MurmurHash3 x64-128 with its own seed, so its results
/// never collide by construction with those of `Murmur3MixerState`.
class HOST_API HashValueMixerState {
 public:
  void Mix(const void* bytes, size_t count);
  Guid GetHashResult() const;

 private:
  std::vector<unsigned char> fed_;
};

}  // namespace host
