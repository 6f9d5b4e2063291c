// The nine exported functions. Every check comes before any work, outputs are written only on
// success, and no exception leaves: a host null-interface exception (a frame that lacks an
// interface the path needs) reports 0xa00f000e, anything else (memory) 0xa00f0001.
#include <exception>
#include <new>

#include "api/apply_paths.h"
#include "api/lut_handle.h"
#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "host/binary_data.h"
#include "look/look_reference.h"
#include "lut/lut_identifier.h"
#include "lut/otx3_writer.h"

namespace CRANDLE {
namespace {

using detail::FrameRef;
using Tincta::COv3DLUT;

template <class Body>
int Guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const host::NullPointerException&) {
    return kResultEmptyArgument;
  } catch (...) {
    return kResultLUTFailed;
  }
}

bool SameBounds(const FrameRef& source, const FrameRef& destination) {
  const host::FrameBounds destinationBounds = destination->GetBounds();
  const host::FrameBounds sourceBounds = source->GetBounds();
  return destinationBounds == sourceBounds;
}

std::shared_ptr<COv3DLUT> LoadFromPath(const std::u16string& path) {
  auto lut = std::make_shared<COv3DLUT>();
  if (!lut->LoadFromFile(Tincta::Utf16ToUtf8(path), false, Tincta::ELUTKindFilter::Any, true)) {
    return nullptr;
  }
  return lut;
}

}  // namespace

int ApplyLUT(const InterfaceRef<IVideoFrame>& source, const std::u16string& lutPath,
             LUTInterpolationMethod method, InterfaceRef<IVideoFrame>& destination) {
  return Guarded([&] {
    if (source.IsEmpty() || destination.IsEmpty()) return kResultEmptyArgument;
    if (!SameBounds(source, destination)) return kResultUnsupported;
    if (lutPath.empty()) return kResultEmptyArgument;
    std::shared_ptr<void> lut = LoadFromPath(lutPath);
    if (!lut) return kResultLUTFailed;
    return detail::ApplyLUTToFrames(source, lut, method, destination);
  });
}

int ApplyLUT(const InterfaceRef<IVideoFrame>& source, const std::shared_ptr<void>& lut,
             LUTInterpolationMethod method, InterfaceRef<IVideoFrame>& destination) {
  return Guarded([&] {
    if (source.IsEmpty() || destination.IsEmpty()) return kResultEmptyArgument;
    if (!SameBounds(source, destination)) return kResultUnsupported;
    const std::shared_ptr<void> held = lut;  // the caller may drop its copy on another thread
    if (!held) return kResultEmptyArgument;
    return detail::ApplyLUTToFrames(source, held, method, destination);
  });
}

int ApplyLUT(const InterfaceRef<IVideoFrame>&, const std::vector<std::u16string>&,
             LUTInterpolationMethod, InterfaceRef<IVideoFrame>&) {
  return kResultUnsupported;
}

int ApplyLUT(const InterfaceRef<IVideoFrame>&, const std::vector<std::shared_ptr<void>>&,
             LUTInterpolationMethod, InterfaceRef<IVideoFrame>&) {
  return kResultUnsupported;
}

BinaryData GetLUTBlob(const std::shared_ptr<void>& lut) {
  const std::shared_ptr<void> held = lut;
  if (!held) return BinaryData();
  const COv3DLUT& table = *detail::LUTOf(held);
  const uint64_t bytes = Tincta::Otx3ImageBytes(table);
  void* block = host::RecycledMemory::Allocate(bytes);
  if (!block) return BinaryData();
  Tincta::WriteOtx3Image(table, static_cast<uint8_t*>(block));
  return BinaryData(block, bytes);
}

int GetLUTDisplayName(const std::shared_ptr<void>& lut, std::string& nameUtf8) {
  return Guarded([&] {
    const std::shared_ptr<void> held = lut;
    if (!held) return kResultEmptyArgument;
    nameUtf8 = Tincta::LUTDisplayName(*detail::LUTOf(held));
    return kResultOK;
  });
}

Guid GetLUTIdentifier(const std::shared_ptr<void>& lut) {
  const std::shared_ptr<void> held = lut;
  if (!held) return Guid();
  try {
    return Tincta::LUTIdentifier(*detail::LUTOf(held));
  } catch (...) {
    return Guid();
  }
}

int ParseLUT(const std::u16string& path, std::shared_ptr<void>& lut) {
  return Guarded([&] {
    if (path.empty()) return kResultEmptyArgument;
    std::shared_ptr<void> loaded = LoadFromPath(path);
    if (!loaded) return kResultLUTFailed;
    lut = std::move(loaded);
    return kResultOK;
  });
}

int ParseLUT(const void* bytes, size_t size, std::shared_ptr<void>& lut) {
  return Guarded([&] {
    if (bytes == nullptr || size == 0) return kResultEmptyArgument;
    // Only the low 32 bits of the size count, for every test that follows.
    const auto count = static_cast<uint32_t>(size);
    std::shared_ptr<void> loaded;
    if (Tincta::IsLookReference(bytes, count)) {
      std::unique_ptr<COv3DLUT> looked = Tincta::LoadLookReference(bytes, count);
      if (!looked) return kResultLUTFailed;
      loaded = std::shared_ptr<COv3DLUT>(std::move(looked));
    } else {
      auto parsed = std::make_shared<COv3DLUT>();
      if (!parsed->LoadFromMemory(bytes, count, false, Tincta::ELUTKindFilter::Any, true)) {
        return kResultLUTFailed;
      }
      loaded = std::move(parsed);
    }
    lut = std::move(loaded);
    return kResultOK;
  });
}

}  // namespace CRANDLE
