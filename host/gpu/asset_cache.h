// The per-device asset cache: least recently used entries leave first once the bytes held pass
// the budget.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "host/gpu.h"

namespace host {

class CDeviceAssetCache final : public IGPUDeviceAssetCache {
 public:
  explicit CDeviceAssetCache(uint64_t budget) : budget_(budget) {}
  CDeviceAssetCache(const CDeviceAssetCache&) = delete;
  CDeviceAssetCache& operator=(const CDeviceAssetCache&) = delete;

  std::shared_ptr<GPUDeviceTexture> Find(const Guid& key) override;
  std::shared_ptr<GPUDeviceTexture> Insert(const Guid& key,
                                           std::shared_ptr<GPUDeviceTexture> texture) override;
  void SetBudget(uint64_t bytes) override;
  uint64_t GetBudget() const override;
  uint64_t GetBytesHeld() const override;
  void Clear() override;

 private:
  using Entry = std::pair<Guid, std::shared_ptr<GPUDeviceTexture>>;
  // Moves entries past the budget into `evicted`, least recently used first; the caller drops
  // them after unlocking, since freeing device memory may take a while.
  void EvictLocked(std::list<Entry>& evicted);

  mutable std::mutex mutex_;
  std::list<Entry> entries_;  // most recently used first
  std::map<Guid, std::list<Entry>::iterator> index_;
  uint64_t budget_;
  uint64_t held_ = 0;
};

}  // namespace host
