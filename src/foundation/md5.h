// MD5 digests (through libcrypto).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace Tincta {

using Md5Digest = std::array<uint8_t, 16>;

/// An incremental MD5: feed bytes with `Update`, then `Finish` once.
class COvMD5 {
 public:
  COvMD5();
  ~COvMD5();
  COvMD5(const COvMD5&) = delete;
  COvMD5& operator=(const COvMD5&) = delete;

  void Update(const void* bytes, size_t count);
  Md5Digest Finish();

 private:
  struct SContext;
  std::unique_ptr<SContext> context_;
};

/// The MD5 digest of one buffer.
Md5Digest Md5Of(const void* bytes, size_t count);

}  // namespace Tincta
