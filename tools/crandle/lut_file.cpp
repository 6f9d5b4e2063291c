#include "lut_file.h"

#include "crandle/crandle.h"
#include "foundation/file.h"
#include "foundation/utf16.h"
#include "gpu_device.h"
#include "lut/lut3d.h"
#include "output_checks.h"

namespace crandle_tool {

int ParseLUTFile(const std::string& path, std::shared_ptr<void>& lut) {
  if (IsValidUtf8(path)) return CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(path), lut);
  Tincta::SFileContents contents;
  if (Tincta::ReadWholeFile(path, Tincta::kMaxLUTFileBytes, contents) !=
      Tincta::EFileReadResult::Ok) {
    return CRANDLE::kResultLUTFailed;
  }
  return CRANDLE::ParseLUT(contents.bytes.get(), contents.size, lut);
}

std::string TetrahedralOnCPUMessage() {
  return "--interp tetrahedral runs on GPU devices only (the CPU path is trilinear); choose "
         "--device opencl[:N] or --device cuda[:N] (GPU devices here: " +
         GPUDeviceList() + ")";
}

}  // namespace crandle_tool
