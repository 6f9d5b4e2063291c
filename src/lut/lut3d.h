// COv3DLUT: the one in-memory form of every LUT the library reads.
//
// A 1-D table (`size` entries), a 3-D table (`size` points per axis, entry (r, g, b) at
// r + size * g + size^2 * b, red fastest), or a 3-D table with a 1-D input shaper in front of it.
// Entries are RGBA float32 quadruples (alpha 1.0) in one 16-byte aligned block, over an input
// domain [domainMin, domainMax].
//
// Ownership: an object owns its table and shaper unless it is a user of a LUT-cache entry
// (non-empty cache key), in which case it shares the entry's table and shaper. Tables and
// shapers are reference counted underneath, so a shared table never outlives its last reader.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/md5.h"
#include "lut/read_diagnostics.h"

namespace Tincta {

using Vec4 = std::array<float, 4>;
using Vec3 = std::array<float, 3>;

/// Which table kinds a read accepts.
enum class ELUTKindFilter : uint32_t {
  Any = 0,
  Only1D = 1,
  Only3D = 2,
};

/// Arguments shared by every reader.
struct SParseOptions {
  bool upsampleToPowerOfTwo = false;
  ELUTKindFilter kindFilter = ELUTKindFilter::Any;
  bool allowTransformText = true;
  /// Where a read notes why it failed and what looks damaged; null (the module's case) for none.
  /// The detector hands it to the read, never to the probes.
  SLUTReadDiagnostics* diagnostics = nullptr;
  /// Which correction of an ASC CDL collection to take, by its id; empty (the module's case) for
  /// the one correction a file must then hold.
  std::string_view correctionId;
};

/// Limits of the tables read from files.
inline constexpr uint32_t kMax1DEntries = 65536;
inline constexpr uint32_t kMax3DSize = 256;
/// Files read by path are refused above this size.
inline constexpr uint64_t kMaxLUTFileBytes = 209'715'200;
/// 1-D tables shorter than this are widened after every load.
inline constexpr uint32_t kMin1DEntriesAfterLoad = 128;

class COvLUTCache;

class COv3DLUT {
 public:
  COv3DLUT();
  /// Shares `other`'s table and shaper and, when `other` is a cache user or entry, registers the
  /// copy as one more user of that cache entry. Copies kind, size, strides, source path, the four
  /// domain vectors, the index scale and the digest; not the title nor the timestamp.
  COv3DLUT(const COv3DLUT& other);
  COv3DLUT& operator=(const COv3DLUT&) = delete;
  virtual ~COv3DLUT();

  /// Replaces the table by `size` entries (1-D) or size^3 entries (3-D), uninitialised, and
  /// resets the domain to [0, 1] (alpha [0, 1]). False, with the object unchanged, when the
  /// memory is not there or `size` is 0.
  bool Allocate(uint32_t size, bool is3D);

  /// Empties the object: drops the table and the shaper (a cache user leaves its entry). Size 0.
  void Clear();

  /// Sets the domain and derives the texture scale and offset and the index scale from it.
  void SetDomain(const Vec4& min, const Vec4& max);

  /// MD5 over the table bytes, then domainMin and domainMax (32 bytes), then the shaper's table
  /// bytes when there is a shaper. Computed on first request and kept; zeros without a table.
  const Md5Digest& ContentDigest() const;

  /// Reads a LUT file through the LUT cache. `path` is UTF-8; relative paths (and any path with
  /// ".." or "\.\") resolve against the host's LUT directory first, then as given.
  bool LoadFromFile(const std::string& path, bool upsampleToPowerOfTwo, ELUTKindFilter kindFilter,
                    bool allowTransformText);

  /// Reads a LUT from `length` bytes (never cached, title and path untouched).
  /// `diagnostics` and `correctionId` as in `SParseOptions`; the module passes neither.
  bool LoadFromMemory(const void* bytes, uint32_t length, bool upsampleToPowerOfTwo,
                      ELUTKindFilter kindFilter, bool allowTransformText,
                      SLUTReadDiagnostics* diagnostics = nullptr,
                      std::string_view correctionId = {});

  /// The format detector and readers: recognises the format of the bytes and fills the object.
  /// False, with the object cleared, when no reader takes the bytes.
  bool ParseLUTData(const void* bytes, uint32_t length, bool upsampleToPowerOfTwo,
                    ELUTKindFilter kindFilter, bool allowTransformText,
                    SLUTReadDiagnostics* diagnostics = nullptr, std::string_view correctionId = {});

  /// Rebuilds the table at `newSize` points (cubic Hermite, Catmull-Rom tangents, separable for
  /// 3-D). Nothing changes for 0 or the current size. False, table unchanged, without memory.
  bool Resample(uint32_t newSize);

  /// Widens `count` packed RGB float triples at `source` into RGBA quadruples at `destination`
  /// with the given alpha. The two may be the same buffer (works from the last entry back).
  static void ExpandRGBToRGBA(float* destination, const float* source, size_t count, float alpha);

  // Table shape.
  bool Is3D() const { return is3D_; }
  uint32_t Size() const { return size_; }
  /// Floats between neighbouring green (blue) grid indices of a 3-D table; 0 for a 1-D table.
  uint32_t StrideGreen() const { return strideGreen_; }
  uint32_t StrideBlue() const { return strideBlue_; }
  /// size for 1-D, size^3 for 3-D, 0 when empty.
  size_t EntryCount() const;
  size_t TableBytes() const { return EntryCount() * 16; }
  float* Table() { return table_; }
  const float* Table() const { return table_; }

  // Domain and its derived mappings.
  const Vec4& DomainMin() const { return domainMin_; }
  const Vec4& DomainMax() const { return domainMax_; }
  /// input * textureScale + textureOffset maps [min, max] to the first and last texel centres.
  const Vec4& TextureScale() const { return textureScale_; }
  const Vec4& TextureOffset() const { return textureOffset_; }
  /// Maps the input range to [0, size - 1].
  const Vec3& IndexScale() const { return indexScale_; }

  /// The 1-D shaper in front of a 3-D table, or null.
  const COv3DLUT* InputShaper() const { return inputShaper_.get(); }
  /// Attaches `shaper` (null removes it).
  void SetInputShaper(std::shared_ptr<const COv3DLUT> shaper) { inputShaper_ = std::move(shaper); }
  const std::shared_ptr<const COv3DLUT>& SharedInputShaper() const { return inputShaper_; }

  // Names and provenance.
  const std::string& Title() const { return title_; }
  void SetTitle(std::string title) { title_ = std::move(title); }
  const std::string& SourcePath() const { return sourcePath_; }
  void SetSourcePath(std::string path) { sourcePath_ = std::move(path); }
  /// The file's modification time (ns since the epoch) after `LoadFromFile`.
  int64_t Timestamp() const { return timestamp_; }
  void SetTimestamp(int64_t timestamp) { timestamp_ = timestamp; }

  // LUT-cache bookkeeping.
  const std::string& CacheKey() const { return cacheKey_; }
  /// On a cache entry: the number of live objects copied from it.
  uint32_t CacheUsers() const { return cacheUsers_; }

 private:
  friend class COvLUTCache;
  struct STableStorage;

  /// Copies the shared state of `other` without touching the cache (the cache holds its lock).
  void ShareTableOf(const COv3DLUT& other);
  void DropTable();

  bool is3D_ = false;
  uint32_t size_ = 0;
  uint32_t strideGreen_ = 0;
  uint32_t strideBlue_ = 0;
  std::shared_ptr<STableStorage> storage_;
  float* table_ = nullptr;
  mutable std::mutex digestMutex_;
  mutable std::optional<Md5Digest> contentDigest_;
  uint32_t cacheUsers_ = 0;
  /// True for the objects that the cache itself holds as entries.
  bool isCacheEntry_ = false;
  int64_t timestamp_ = 0;
  std::string sourcePath_;
  std::string cacheKey_;
  std::string title_;
  Vec4 domainMin_{0, 0, 0, 0};
  Vec4 domainMax_{1, 1, 1, 1};
  Vec4 textureScale_{};
  Vec4 textureOffset_{};
  Vec3 indexScale_{};
  std::shared_ptr<const COv3DLUT> inputShaper_;
};

/// Smallest power of two not below `n`, found by doubling from 1 (1 for n <= 1).
uint32_t PowerOfTwoNotBelow(uint32_t n);
bool IsPowerOfTwo(uint32_t n);

}  // namespace Tincta
