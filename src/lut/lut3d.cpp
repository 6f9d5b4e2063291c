#include "lut/lut3d.h"

#include <cmath>
#include <new>

#include "lut/lut_cache.h"

namespace Tincta {

struct COv3DLUT::STableStorage {
  static constexpr size_t kAlignment = 64;
  float* entries = nullptr;

  explicit STableStorage(size_t entryCount)
      : entries(static_cast<float*>(::operator new[](entryCount * 16, std::align_val_t(kAlignment),
                                                     std::nothrow))) {}
  ~STableStorage() {
    if (entries) ::operator delete[](entries, std::align_val_t(kAlignment));
  }
  STableStorage(const STableStorage&) = delete;
  STableStorage& operator=(const STableStorage&) = delete;
};

COv3DLUT::COv3DLUT() = default;

COv3DLUT::COv3DLUT(const COv3DLUT& other) {
  ShareTableOf(other);
  if (!other.cacheKey_.empty()) {
    cacheKey_ = other.cacheKey_;
    COvLUTCache::Instance().RegisterUser(cacheKey_);
  }
}

COv3DLUT::~COv3DLUT() { Clear(); }

void COv3DLUT::ShareTableOf(const COv3DLUT& other) {
  is3D_ = other.is3D_;
  size_ = other.size_;
  strideGreen_ = other.strideGreen_;
  strideBlue_ = other.strideBlue_;
  storage_ = other.storage_;
  table_ = other.table_;
  {
    std::scoped_lock lock(other.digestMutex_, digestMutex_);
    contentDigest_ = other.contentDigest_;
  }
  sourcePath_ = other.sourcePath_;
  domainMin_ = other.domainMin_;
  domainMax_ = other.domainMax_;
  textureScale_ = other.textureScale_;
  textureOffset_ = other.textureOffset_;
  indexScale_ = other.indexScale_;
  inputShaper_ = other.inputShaper_;
}

size_t COv3DLUT::EntryCount() const {
  if (size_ == 0) return 0;
  return is3D_ ? size_t(size_) * size_ * size_ : size_t(size_);
}

bool COv3DLUT::Allocate(uint32_t size, bool is3D) {
  if (size == 0) return false;
  const size_t entries = is3D ? size_t(size) * size * size : size_t(size);
  auto storage = std::make_shared<STableStorage>(entries);
  if (!storage->entries) return false;
  // A cache user gives its shared table back before it takes a table of its own.
  if (!cacheKey_.empty()) Clear();
  storage_ = std::move(storage);
  table_ = storage_->entries;
  size_ = size;
  is3D_ = is3D;
  strideGreen_ = is3D ? size * 4 : 0;
  strideBlue_ = is3D ? size * size * 4 : 0;
  {
    std::lock_guard lock(digestMutex_);
    contentDigest_.reset();
  }
  SetDomain({0, 0, 0, 0}, {1, 1, 1, 1});
  return true;
}

void COv3DLUT::DropTable() {
  storage_.reset();
  table_ = nullptr;
  size_ = 0;
  is3D_ = false;
  strideGreen_ = 0;
  strideBlue_ = 0;
  inputShaper_.reset();
  std::lock_guard lock(digestMutex_);
  contentDigest_.reset();
}

void COv3DLUT::Clear() {
  if (!cacheKey_.empty() && !isCacheEntry_) {
    const std::string key = std::move(cacheKey_);
    cacheKey_.clear();
    COvLUTCache::Instance().ReleaseUser(key);
  }
  DropTable();
}

void COv3DLUT::SetDomain(const Vec4& min, const Vec4& max) {
  domainMin_ = min;
  domainMax_ = max;
  const double size = size_;
  for (int c = 0; c < 4; ++c) {
    const double range = double(max[c]) - double(min[c]);
    const double scale = (1.0 - 1.0 / size) / range;
    textureScale_[c] = float(scale);
    textureOffset_[c] = float(0.5 / size - scale * min[c]);
  }
  for (int c = 0; c < 3; ++c) {
    const double range = double(max[c]) - double(min[c]);
    indexScale_[c] = std::fabs(range) <= 0.0001 ? float((size - 1) * 10000.0) : float((size - 1) / range);
  }
}

const Md5Digest& COv3DLUT::ContentDigest() const {
  static const Md5Digest kNoDigest{};
  std::lock_guard lock(digestMutex_);
  if (!contentDigest_ && table_) {
    COvMD5 md5;
    md5.Update(table_, TableBytes());
    md5.Update(domainMin_.data(), sizeof(domainMin_));
    md5.Update(domainMax_.data(), sizeof(domainMax_));
    if (inputShaper_ && inputShaper_->Table()) md5.Update(inputShaper_->Table(), inputShaper_->TableBytes());
    contentDigest_ = md5.Finish();
  }
  return contentDigest_ ? *contentDigest_ : kNoDigest;
}

void COv3DLUT::ExpandRGBToRGBA(float* destination, const float* source, size_t count, float alpha) {
  for (size_t i = count; i-- > 0;) {
    // All three are read before anything is written: in place, entry 0 overlaps itself.
    const float r = source[3 * i];
    const float g = source[3 * i + 1];
    const float b = source[3 * i + 2];
    destination[4 * i] = r;
    destination[4 * i + 1] = g;
    destination[4 * i + 2] = b;
    destination[4 * i + 3] = alpha;
  }
}

uint32_t PowerOfTwoNotBelow(uint32_t n) {
  uint64_t power = 1;
  while (power < n) power <<= 1;
  return static_cast<uint32_t>(power);
}

bool IsPowerOfTwo(uint32_t n) { return n != 0 && (n & (n - 1)) == 0; }

}  // namespace Tincta
