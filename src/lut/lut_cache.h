// The process-wide LUT cache: loaded tables under text keys (a content digest as 32 upper-case
// hex digits, an XML LUT "hash", a path), with user counts, a recency list and a byte budget.
// One mutex guards all of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

class COvLUTCache {
 public:
  static constexpr uint64_t kDefaultByteBudget = uint64_t(512) << 20;

  /// The process-wide cache.
  static COvLUTCache& Instance();

  /// If an entry sits under `key` with `timestamp`, makes `lut` a user of it (kind, size, table,
  /// source path, domain and shaper shared; cache key set to `key`) and returns true.
  bool AttachIfCurrent(const std::string& key, int64_t timestamp, COv3DLUT& lut);

  /// A new object copied from the entry under `key` and registered as its user; null on a miss.
  std::unique_ptr<COv3DLUT> CopyOf(const std::string& key);

  /// Enters a copy of `lut` under `key` with `timestamp` when no entry has that key and the
  /// in-use bytes plus the table's bytes stay within the budget; `lut` then becomes the entry's
  /// first user (its cache key set to `key`). False when nothing was entered.
  bool Insert(COv3DLUT& lut, const std::string& key, int64_t timestamp);

  /// Registers one more user of the entry under `key` (the copy constructor of a cache user).
  void RegisterUser(const std::string& key);
  /// Drops one user of the entry under `key`; when none remain the entry's bytes leave the
  /// in-use total and the cache is trimmed.
  void ReleaseUser(const std::string& key);

  /// Evicts least recently used entries without users until the stored bytes fit the budget.
  void Trim();
  /// Evicts every entry without users (the budget is 0 for the duration of one trim).
  void EvictUnused();

  void SetByteBudget(uint64_t bytes);
  uint64_t ByteBudget() const;
  uint64_t StoredBytes() const;
  uint64_t InUseBytes() const;
  size_t EntryCount() const;
  /// Users of the entry under `key`; -1 when there is no such entry.
  int64_t UsersOf(const std::string& key) const;

 private:
  struct SEntry {
    std::unique_ptr<COv3DLUT> lut;
    std::list<std::string>::iterator recency;
  };

  COvLUTCache() = default;
  void RegisterUserLocked(SEntry& entry);
  void TrimLocked();

  mutable std::mutex mutex_;
  std::map<std::string, SEntry, std::less<>> entries_;
  /// Front: most recently used.
  std::list<std::string> recency_;
  uint64_t budget_ = kDefaultByteBudget;
  uint64_t storedBytes_ = 0;
  uint64_t inUseBytes_ = 0;
};

/// Registers the initialiser "vexalutcache", which reads the budget from the setting
/// "ColorTransforms.LUTCacheBudgetMiB". Called once by the module's start-up.
void RegisterLUTCacheInitializer();

}  // namespace Tincta
