// Loading a COv3DLUT from a file (through the LUT cache) or from memory.
#include <string_view>

#include "foundation/file.h"
#include "foundation/hex_codec.h"
#include "foundation/path_title.h"
#include "host/settings.h"
#include "lut/lut3d.h"
#include "lut/lut_cache.h"

namespace Tincta {
namespace {

bool IsAbsolutePath(std::string_view path) {
  if (path.find("..") != std::string_view::npos || path.find("\\.\\") != std::string_view::npos) {
    return false;
  }
  if (!path.empty() && path.front() == '/') return true;
  const bool driveLetter =
      path.size() >= 2 && path[1] == ':' &&
      ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
  return driveLetter;
}

// Short 1-D tables are widened to the smallest multiple of their size not below 128, so that
// every 1-D texture has enough texels for linear sampling to look smooth.
bool WidenShort1DTable(COv3DLUT& lut) {
  if (lut.Is3D() || lut.Size() == 0 || lut.Size() >= kMin1DEntriesAfterLoad) return true;
  const uint32_t size = lut.Size();
  const uint32_t widened = (kMin1DEntriesAfterLoad + size - 1) / size * size;
  const Vec4 min = lut.DomainMin();
  const Vec4 max = lut.DomainMax();
  if (!lut.Resample(widened)) return false;
  lut.SetDomain(min, max);
  return true;
}

}  // namespace

bool COv3DLUT::LoadFromFile(const std::string& path, bool upsampleToPowerOfTwo,
                            ELUTKindFilter kindFilter, bool allowTransformText) {
  // A relative path is tried against the LUT directory first, then as given; an absolute one
  // only as given.
  COvFile file;
  std::string openedPath;
  if (IsAbsolutePath(path)) {
    if (file.Open(path)) openedPath = path;
  } else {
    const std::string resolved = host::Settings::Instance().ResolveLUTPath(path);
    if (file.Open(resolved)) {
      openedPath = resolved;
    } else if (file.Open(path)) {
      openedPath = path;
    }
  }
  if (!file.IsOpen()) return false;

  int64_t modificationTime = 0;
  if (!file.ModificationTime(modificationTime)) return false;
  if (COvLUTCache::Instance().AttachIfCurrent(openedPath, modificationTime, *this)) {
    timestamp_ = modificationTime;
    return true;
  }

  SFileContents contents;
  if (ReadWholeFile(file, kMaxLUTFileBytes, contents) != EFileReadResult::Ok) return false;
  file.Close();

  title_ = PathTitleUtf8(openedPath);
  if (!ParseLUTData(contents.bytes.get(), static_cast<uint32_t>(contents.size),
                    upsampleToPowerOfTwo, kindFilter, allowTransformText)) {
    return false;
  }
  if (!WidenShort1DTable(*this)) {
    Clear();
    return false;
  }
  sourcePath_ = openedPath;
  timestamp_ = contents.modificationTime;

  std::string digestKey;
  AppendHex(digestKey, ContentDigest().data(), ContentDigest().size());
  COvLUTCache::Instance().Insert(*this, digestKey, timestamp_);
  return true;
}

bool COv3DLUT::LoadFromMemory(const void* bytes, uint32_t length, bool upsampleToPowerOfTwo,
                              ELUTKindFilter kindFilter, bool allowTransformText,
                              SLUTReadDiagnostics* diagnostics, std::string_view correctionId) {
  if (!ParseLUTData(bytes, length, upsampleToPowerOfTwo, kindFilter, allowTransformText,
                    diagnostics, correctionId)) {
    return false;
  }
  if (!WidenShort1DTable(*this)) {
    NoteFailure(diagnostics, 0, "not enough memory to widen the short 1-D table");
    Clear();
    return false;
  }
  return true;
}

}  // namespace Tincta
