// The host's settings service.
#pragma once

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
  /// One instance per process: neither copied nor assigned.
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;

  /// The boolean under `key`: "1", "true", "yes", "on" are true and "0", "false", "no", "off"
  /// false (any case); `defaultValue` when the key is absent or holds anything else.
  bool GetBool(std::string_view key, bool defaultValue) const;
  /// Stores "true" or "false" under `key`, replacing what it held.
  void SetBool(std::string_view key, bool value);

  /// The text under `key` as it was set (no trimming beyond the file's), none when absent.
  std::optional<std::string> GetString(std::string_view key) const;
  /// Stores a copy of `value` under `key`, replacing what it held.
  void SetString(std::string_view key, std::string_view value);
  /// An unsigned number under `key`, `defaultValue` when absent or not a number.
  unsigned long long GetUnsigned(std::string_view key, unsigned long long defaultValue) const;
  /// Removes `key`; nothing happens when it is absent.
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
  Settings();  // the state lives in settings.cpp, one per process
};

}  // namespace host
