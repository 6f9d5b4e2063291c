// Arbitrary bytes through the format detector and every reader, with each kind filter and with
// and without upsampling, each read once more with a diagnostics record that must not change it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "host/log.h"
#include "host/settings.h"
#include "lut/lut3d.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host::SetLogCallback(nullptr, nullptr);
  host::Settings::Instance().Remove(host::kSettingAlwaysUpsampleToPoT);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > UINT32_MAX) return 0;
  for (const Tincta::ELUTKindFilter kind :
       {Tincta::ELUTKindFilter::Any, Tincta::ELUTKindFilter::Only1D,
        Tincta::ELUTKindFilter::Only3D}) {
    for (const bool upsample : {false, true}) {
      Tincta::COv3DLUT lut;
      const bool loaded = lut.ParseLUTData(data, uint32_t(size), upsample, kind, true);
      // A failed read leaves nothing; a loaded one respects the filter and the limits.
      if (!loaded && (lut.Size() != 0 || lut.Table() || lut.InputShaper())) std::abort();
      // Asking why must never change what is read.
      Tincta::COv3DLUT diagnosed;
      Tincta::SLUTReadDiagnostics diagnostics;
      const bool diagnosedLoaded =
          diagnosed.ParseLUTData(data, uint32_t(size), upsample, kind, true, &diagnostics);
      if (diagnosedLoaded != loaded || diagnosedLoaded == diagnostics.failure.has_value())
        std::abort();
      if (loaded && (diagnosed.Size() != lut.Size() || diagnosed.Is3D() != lut.Is3D() ||
                     std::memcmp(diagnosed.Table(), lut.Table(),
                                 lut.EntryCount() * 4 * sizeof(float)) != 0)) {
        std::abort();
      }
      if (!loaded) continue;
      if (lut.Size() == 0 || !lut.Table()) std::abort();
      if (kind == Tincta::ELUTKindFilter::Only1D && lut.Is3D()) std::abort();
      if (kind == Tincta::ELUTKindFilter::Only3D && !lut.Is3D()) std::abort();
      if (lut.Size() > (lut.Is3D() ? Tincta::kMax3DSize : Tincta::kMax1DEntries)) std::abort();
      // Touch every entry, so that a table shorter than its size shows under the sanitizers.
      volatile float sum = 0;
      for (size_t i = 0; i < lut.EntryCount() * 4; ++i)
        sum = sum + lut.Table()[i];
    }
  }
  return 0;
}
