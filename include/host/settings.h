// The host's settings service.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/export.h"

namespace host {

/// Setting keys the module reads.
inline constexpr const char* kSettingAlwaysUpsampleToPoT = "ColorTransforms.AlwaysUpsampleToPoT";
inline constexpr const char* kSettingEnableFloatLUTs = "ColorTransforms.EnableFloatLUTs";
inline constexpr const char* kSettingLUTBaseDirectory = "ColorTransforms.LUTBaseDirectory";
inline constexpr const char* kSettingShippedLUTDirectory = "ColorTransforms.ShippedLUTDirectory";
inline constexpr const char* kSettingLUTCacheBudgetMiB = "ColorTransforms.LUTCacheBudgetMiB";

/// Process-wide typed settings, kept in memory as text. On first use the file named by the
/// environment variable CRANDLE_SETTINGS (lines "key = value", '#' comments) is loaded.
/// Unknown keys are kept. Every operation is thread-safe.
class HOST_API Settings {
 public:
  /// The process-wide instance.
  static Settings& Instance();

  /// The boolean under `key`: "1", "true", "yes", "on" are true and "0", "false", "no", "off"
  /// false (any case); `defaultValue` when the key is absent or holds anything else.
  bool GetBool(std::string_view key, bool defaultValue) const;
  void SetBool(std::string_view key, bool value);

  std::optional<std::string> GetString(std::string_view key) const;
  void SetString(std::string_view key, std::string_view value);
  /// An unsigned number under `key`, `defaultValue` when absent or not a number.
  unsigned long long GetUnsigned(std::string_view key, unsigned long long defaultValue) const;
  void Remove(std::string_view key);
  /// Removes every key (tests start from a clean state).
  void Clear();

  /// Loads "key = value" lines from `path` over the current values. False (and `error` filled
  /// when given) when the file cannot be read or a line has no '='.
  bool LoadFile(const std::string& path, std::string* error = nullptr);

  /// Resolves a relative LUT path (UTF-8) against the base directory for LUT files (the key
  /// "ColorTransforms.LUTBaseDirectory"); without a base directory the path comes back as is.
  std::string ResolveLUTPath(std::string_view relativePath) const;

 private:
  Settings();
  mutable std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> values_;
};

}  // namespace host
