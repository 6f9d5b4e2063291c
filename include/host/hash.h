// Hash states whose results are Guids.
#pragma once

#include <cstddef>
#include <memory>

#include "host/export.h"
#include "host/guid.h"

namespace host {

/// MurmurHash3 x64-128 (seed 0) over every byte fed, in order; the 16 result bytes (the two
/// 64-bit halves, little-endian) are the Guid.
class HOST_API Murmur3MixerState {
 public:
  /// An empty state; its result is what hashing no bytes gives.
  Murmur3MixerState();
  Murmur3MixerState(const Murmur3MixerState& other);
  Murmur3MixerState& operator=(const Murmur3MixerState& other);
  ~Murmur3MixerState();

  /// Appends `count` bytes (the caller keeps them; they are copied). `bytes` may be null when
  /// `count` is 0. Throws std::bad_alloc when the copy cannot be kept.
  void Mix(const void* bytes, size_t count);
  /// The hash of every byte mixed so far; the state stays as it is and may be mixed further.
  Guid GetHashResult() const;

 private:
  struct CFedBytes;
  std::unique_ptr<CFedBytes> fed_;
};

/// The host's value hash for cache keys: MurmurHash3 x64-128 with its own seed, so its results
/// never collide by construction with those of `Murmur3MixerState`.
class HOST_API HashValueMixerState {
 public:
  /// An empty state; its result is what hashing no bytes gives.
  HashValueMixerState();
  HashValueMixerState(const HashValueMixerState& other);
  HashValueMixerState& operator=(const HashValueMixerState& other);
  ~HashValueMixerState();

  /// Appends `count` bytes (the caller keeps them; they are copied). `bytes` may be null when
  /// `count` is 0. Throws std::bad_alloc when the copy cannot be kept.
  void Mix(const void* bytes, size_t count);
  /// The hash of every byte mixed so far; the state stays as it is and may be mixed further.
  Guid GetHashResult() const;

 private:
  struct CFedBytes;
  std::unique_ptr<CFedBytes> fed_;
};

}  // namespace host
