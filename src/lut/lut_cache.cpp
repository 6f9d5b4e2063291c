#include "lut/lut_cache.h"

#include "host/initializer.h"
#include "host/settings.h"

namespace Tincta {

COvLUTCache& COvLUTCache::Instance() {
  // Never destroyed: LUT objects that outlive static destruction still release into it.
  static COvLUTCache* cache = new COvLUTCache;
  return *cache;
}

void COvLUTCache::RegisterUserLocked(SEntry& entry) {
  if (entry.lut->cacheUsers_ == 0) inUseBytes_ += entry.lut->TableBytes();
  ++entry.lut->cacheUsers_;
  recency_.splice(recency_.begin(), recency_, entry.recency);
}

bool COvLUTCache::AttachIfCurrent(const std::string& key, int64_t timestamp, COv3DLUT& lut) {
  COv3DLUT shared;
  {
    std::lock_guard lock(mutex_);
    const auto found = entries_.find(key);
    if (found == entries_.end() || found->second.lut->Timestamp() != timestamp) return false;
    shared.ShareTableOf(*found->second.lut);
    RegisterUserLocked(found->second);
  }
  // Clearing may release another entry, which takes the lock again.
  lut.Clear();
  lut.ShareTableOf(shared);
  lut.cacheKey_ = key;
  return true;
}

std::unique_ptr<COv3DLUT> COvLUTCache::CopyOf(const std::string& key) {
  auto copy = std::make_unique<COv3DLUT>();
  std::lock_guard lock(mutex_);
  const auto found = entries_.find(key);
  if (found == entries_.end()) return nullptr;
  copy->ShareTableOf(*found->second.lut);
  copy->cacheKey_ = key;
  RegisterUserLocked(found->second);
  return copy;
}

bool COvLUTCache::Insert(COv3DLUT& lut, const std::string& key, int64_t timestamp) {
  if (!lut.CacheKey().empty() || lut.Table() == nullptr) return false;
  auto entry = std::make_unique<COv3DLUT>();
  entry->ShareTableOf(lut);
  entry->title_ = lut.title_;
  entry->isCacheEntry_ = true;
  entry->cacheKey_ = key;
  entry->timestamp_ = timestamp;
  entry->cacheUsers_ = 1;
  const uint64_t bytes = lut.TableBytes();

  std::lock_guard lock(mutex_);
  if (entries_.count(key) != 0 || inUseBytes_ + bytes > budget_) return false;
  recency_.push_front(key);
  entries_.emplace(key, SEntry{std::move(entry), recency_.begin()});
  storedBytes_ += bytes;
  inUseBytes_ += bytes;
  lut.cacheKey_ = key;
  TrimLocked();
  return true;
}

void COvLUTCache::RegisterUser(const std::string& key) {
  std::lock_guard lock(mutex_);
  const auto found = entries_.find(key);
  if (found != entries_.end()) RegisterUserLocked(found->second);
}

void COvLUTCache::ReleaseUser(const std::string& key) {
  std::lock_guard lock(mutex_);
  const auto found = entries_.find(key);
  if (found == entries_.end()) return;
  COv3DLUT& entry = *found->second.lut;
  if (entry.cacheUsers_ == 0) return;
  if (--entry.cacheUsers_ == 0) {
    inUseBytes_ -= entry.TableBytes();
    TrimLocked();
  }
}

void COvLUTCache::TrimLocked() {
  auto candidate = recency_.end();
  while (storedBytes_ > budget_ && candidate != recency_.begin()) {
    --candidate;
    const auto found = entries_.find(*candidate);
    if (found->second.lut->cacheUsers_ != 0) continue;
    storedBytes_ -= found->second.lut->TableBytes();
    candidate = recency_.erase(candidate);
    entries_.erase(found);
  }
}

void COvLUTCache::Trim() {
  std::lock_guard lock(mutex_);
  TrimLocked();
}

void COvLUTCache::EvictUnused() {
  std::lock_guard lock(mutex_);
  const uint64_t budget = budget_;
  budget_ = 0;
  TrimLocked();
  budget_ = budget;
}

void COvLUTCache::SetByteBudget(uint64_t bytes) {
  std::lock_guard lock(mutex_);
  budget_ = bytes;
  TrimLocked();
}

uint64_t COvLUTCache::ByteBudget() const {
  std::lock_guard lock(mutex_);
  return budget_;
}

uint64_t COvLUTCache::StoredBytes() const {
  std::lock_guard lock(mutex_);
  return storedBytes_;
}

uint64_t COvLUTCache::InUseBytes() const {
  std::lock_guard lock(mutex_);
  return inUseBytes_;
}

size_t COvLUTCache::EntryCount() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

int64_t COvLUTCache::UsersOf(const std::string& key) const {
  std::lock_guard lock(mutex_);
  const auto found = entries_.find(key);
  return found == entries_.end() ? -1 : int64_t(found->second.lut->cacheUsers_);
}

namespace {

bool InitializeLUTCache() {
  const auto mebibytes = host::Settings::Instance().GetUnsigned(
      host::kSettingLUTCacheBudgetMiB, COvLUTCache::kDefaultByteBudget >> 20);
  COvLUTCache::Instance().SetByteBudget(uint64_t(mebibytes) << 20);
  return true;
}

void TerminateLUTCache() {}

}  // namespace

void RegisterLUTCacheInitializer() {
  static const host::InitializerRegistrar registrar("vexalutcache", 4, {}, InitializeLUTCache,
                                                    TerminateLUTCache);
}

}  // namespace Tincta
