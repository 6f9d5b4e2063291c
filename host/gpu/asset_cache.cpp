#include "asset_cache.h"

namespace host {

std::shared_ptr<GPUDeviceTexture> CDeviceAssetCache::Find(const Guid& key) {
  std::lock_guard lock(mutex_);
  const auto found = index_.find(key);
  if (found == index_.end()) return nullptr;
  entries_.splice(entries_.begin(), entries_, found->second);
  return found->second->second;
}

std::shared_ptr<GPUDeviceTexture> CDeviceAssetCache::Insert(
    const Guid& key, std::shared_ptr<GPUDeviceTexture> texture) {
  if (!texture) return nullptr;
  std::list<Entry> evicted;
  {
    std::lock_guard lock(mutex_);
    if (const auto found = index_.find(key); found != index_.end()) {
      entries_.splice(entries_.begin(), entries_, found->second);
      return found->second->second;
    }
    if (texture->byteCount > budget_) return texture;
    entries_.emplace_front(key, texture);
    index_.emplace(key, entries_.begin());
    held_ += texture->byteCount;
    EvictLocked(evicted);
  }
  return texture;
}

void CDeviceAssetCache::SetBudget(uint64_t bytes) {
  std::list<Entry> evicted;
  std::lock_guard lock(mutex_);
  budget_ = bytes;
  EvictLocked(evicted);
}

uint64_t CDeviceAssetCache::GetBudget() const {
  std::lock_guard lock(mutex_);
  return budget_;
}

uint64_t CDeviceAssetCache::GetBytesHeld() const {
  std::lock_guard lock(mutex_);
  return held_;
}

void CDeviceAssetCache::Clear() {
  std::list<Entry> evicted;
  std::lock_guard lock(mutex_);
  evicted.swap(entries_);
  index_.clear();
  held_ = 0;
}

void CDeviceAssetCache::EvictLocked(std::list<Entry>& evicted) {
  while (held_ > budget_ && !entries_.empty()) {
    held_ -= entries_.back().second->byteCount;
    index_.erase(entries_.back().first);
    evicted.splice(evicted.begin(), entries_, std::prev(entries_.end()));
  }
}

}  // namespace host
