#include "look/shipped_luts.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "foundation/file.h"
#include "host/settings.h"
#include "lut/lut3d.h"
#include "lut/lut_identifier.h"

namespace Tincta {
namespace {

std::vector<COvShippedLUTTable::SRow> ReadDirectory(const std::string& directory) {
  std::vector<COvShippedLUTTable::SRow> rows;
  if (directory.empty()) return rows;
  std::vector<std::filesystem::path> files;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.empty() || name.front() == '.' || !entry->is_regular_file(error)) continue;
    files.push_back(entry->path());
  }
  std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) {
    return a.filename().string() < b.filename().string();
  });
  for (const auto& file : files) {
    SFileContents contents;
    if (ReadWholeFile(file.string(), kMaxLUTFileBytes, contents) != EFileReadResult::Ok) continue;
    // Read as a document reads LUT bytes, so that the same bytes give the same identifier.
    COv3DLUT lut;
    if (!lut.LoadFromMemory(contents.bytes.get(), uint32_t(contents.size), false,
                            ELUTKindFilter::Any, true)) {
      continue;
    }
    rows.push_back({file.filename().string(), LUTIdentifier(lut)});
  }
  return rows;
}

}  // namespace

COvShippedLUTTable& COvShippedLUTTable::Instance() {
  // Never destroyed: documents may be built during static destruction.
  static COvShippedLUTTable* table = new COvShippedLUTTable;
  return *table;
}

void COvShippedLUTTable::EnsureCurrentLocked() {
  const std::string directory =
      host::Settings::Instance().GetString(host::kSettingShippedLUTDirectory).value_or("");
  if (built_ && directory == directory_) return;
  rows_ = ReadDirectory(directory);
  directory_ = directory;
  built_ = true;
}

std::optional<std::string> COvShippedLUTTable::FindFileName(const host::Guid& identifier) {
  std::lock_guard lock(mutex_);
  EnsureCurrentLocked();
  for (const SRow& row : rows_) {
    if (row.identifier == identifier) return row.fileName;
  }
  return std::nullopt;
}

std::vector<COvShippedLUTTable::SRow> COvShippedLUTTable::Rows() {
  std::lock_guard lock(mutex_);
  EnsureCurrentLocked();
  return rows_;
}

void COvShippedLUTTable::Rebuild() {
  std::lock_guard lock(mutex_);
  built_ = false;
  rows_.clear();
}

}  // namespace Tincta
