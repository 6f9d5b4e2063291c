// The GPU way of applying a LUT: both frames live on one device. The domain mapping goes to the
// device as a small constant block, the LUT's tables are found in (or uploaded to) the device's
// asset cache, and one kernel, chosen by the LUT's kind and the interpolation method, runs over
// the picture. Kernels, texture slots and tables are kept across calls; everything else is
// released before the call returns, on every path.
#include <cstring>
#include <memory>

#include "api/apply_paths.h"
#include "api/lut_handle.h"
#include "crandle/crandle.h"
#include "engine/gpu/gpu_handle_cache.h"
#include "engine/gpu/hw_compositing_engine.h"
#include "engine/gpu/hw_texture.h"
#include "engine/lut_binding.h"
#include "foundation/heap_buffer.h"
#include "host/gpu.h"
#include "host/video_frame.h"

namespace CRANDLE::detail {
namespace {

using host::GPUDim3;
using host::IGPUDevice;
using Tincta::COvHwCompositingEngine;
using Tincta::COvHwTexture;

using DevicePtr = std::shared_ptr<IGPUDevice>;
using TexturePtr = std::shared_ptr<COvHwTexture>;

constexpr const char* kSourceTexture = "texture0_RECT";
constexpr host::PixelFormat kTableFormat = host::kPixelFormat_BGRA_4444_32f;

// Blocks from the device's allocators go back to them when the call ends.
struct SStagingRelease {
  host::IGPUHostAllocator* allocator;
  void operator()(host::GPUHostBlock* block) const { allocator->Release(block); }
};
struct SDeviceRelease {
  host::IGPUDeviceAllocator* allocator;
  void operator()(host::GPUDeviceBlock* block) const { allocator->Release(block); }
};

// Threads per block from the device's framework and kind codes.
GPUDim3 BlockSizeFor(const host::GPUDeviceInfo& info) {
  if (info.frameworkCode == host::kGPUFrameworkOpenCL) return {1, 1, 1};
  if (info.frameworkCode == 3) return {16, 16, 1};
  switch (info.kindCode) {
    case 1:
      return {64, 1, 1};
    case 3:
    case 5:
    case 6:
      return {16, 16, 1};
    default:
      return {1, 1, 1};
  }
}

uint32_t BlocksOver(uint32_t extent, uint32_t block) {
  return (extent + block - 1) / block;
}

// One LUT kernel over the destination: the three variants differ only in which tables they bind
// and in when the kernel is loaded.
class CVariant {
 public:
  CVariant(const DevicePtr& device, const FrameRef& source, COvHwTexture& texture,
           host::DevicePointer constants, host::LUTInterpolationMethod method,
           FrameRef& destination)
      : device_(device),
        source_(source),
        texture_(texture),
        constants_(constants),
        method_(method),
        destination_(destination),
        engine_(device) {}

  int Run(Tincta::ELUTKind kind);

 private:
  int BindSource();
  bool bBindTable(const char* name, const float* data, uint32_t width, uint32_t height,
                  uint32_t depth, uint64_t byteCount, uint32_t flags, size_t slot);
  int Launch(uint32_t width, uint32_t height);

  const DevicePtr& device_;
  const FrameRef& source_;
  COvHwTexture& texture_;
  host::DevicePointer constants_;
  host::LUTInterpolationMethod method_;
  FrameRef& destination_;
  COvHwCompositingEngine engine_;
  Tincta::SHwLUTOperator operator_{};
  const host::GPUKernel* kernel_ = nullptr;
  host::GPUTextureBindings bindings_{};
  // The LUT textures of this launch, held until it is queued.
  std::shared_ptr<host::GPUDeviceTexture> tables_[2];
};

int CVariant::BindSource() {
  const host::FrameBounds bounds = source_->GetBounds();
  const auto memory = source_.Query<host::IGPUVideoFrameMemoryAccess>();
  const auto layout = source_.Query<host::IVideoFrame2DPixelMemoryAccess>();
  const host::GPUTexture* slot =
      Tincta::LoadTextureCached(device_, operator_.module, kSourceTexture);
  // A module without the slot cannot bind it: a failed binding, as the library would report.
  if (slot == nullptr) return host::kGPUErrorNotFound;
  return device_->BindTexture(bindings_, slot, memory->GetDevicePointer(), 0, layout->GetRowBytes(),
                              bounds.width, bounds.height, source_->GetPixelFormat(), 0);
}

bool CVariant::bBindTable(const char* name, const float* data, uint32_t width, uint32_t height,
                          uint32_t depth, uint64_t byteCount, uint32_t flags, size_t slot) {
  return Tincta::bOvLoadAndBindHwTexture(
      texture_, device_, operator_.module.data(), name, data, width, height, depth, byteCount,
      Tincta::ECUAddressMode::Clamp, Tincta::ECUFilterMode::Point, kTableFormat,
      flags | Tincta::kHwBindBound, bindings_, tables_[slot]);
}

int CVariant::Launch(uint32_t width, uint32_t height) {
  const auto memory = destination_.Query<host::IGPUVideoFrameMemoryAccess>();
  const auto layout = destination_.Query<host::IVideoFrame2DPixelMemoryAccess>();
  const host::PixelFormat format = destination_->GetPixelFormat();
  const size_t pixelBytes = host::BytesPerPixel(format);
  if (pixelBytes == 0) return host::kGPUErrorInvalidArgument;
  const uint32_t pitch = static_cast<uint32_t>(layout->GetRowBytes() / pixelBytes);

  const GPUDim3 block = BlockSizeFor(device_->GetInfo());
  const GPUDim3 grid{BlocksOver(width, block.x), BlocksOver(height, block.y), 1};
  const host::GPUKernelArgument arguments[] = {
      host::GPUKernelArgument::Pointer(constants_),
      host::GPUKernelArgument::Pointer(memory->GetDevicePointer()),
      host::GPUKernelArgument::UInt32(pitch),
      host::GPUKernelArgument::UInt32(format.variant),
      host::GPUKernelArgument::UInt32(width),
      host::GPUKernelArgument::UInt32(height),
  };
  const int launched = device_->Launch(kernel_, grid, block, bindings_, arguments);
  if (launched >= 0) {
    const auto completion = destination_.Query<host::ICompletionEventVideoFrame>();
    if (!completion.IsEmpty()) completion->SignalCompletion();
  }
  return launched;
}

int CVariant::Run(Tincta::ELUTKind kind) {
  using Tincta::ELUTKind;
  const host::FrameBounds bounds = source_->GetBounds();
  operator_ = COvHwCompositingEngine::ChooseLUTOperator(texture_.Kind(),
                                                        texture_.InputShaper() != nullptr, method_);
  // The cube's kernels are loaded before anything is bound, the 1-D kernel after its table.
  if (kind != ELUTKind::k1D) {
    const int prepared = engine_.PrepareLUTOperator(texture_, method_, operator_, kernel_);
    if (prepared != 0) return prepared;
  }
  const int sourceBound = BindSource();
  if (sourceBound < 0) return sourceBound;

  const uint32_t size = texture_.Size();
  const uint64_t tableBytes = texture_.TableBytes();
  bool tablesBound = false;
  switch (kind) {
    case ELUTKind::k1D:
      tablesBound = bBindTable("texture1_2D", texture_.Table(), size, 1, 1, tableBytes, 0, 0);
      break;
    case ELUTKind::k3D:
      tablesBound = bBindTable("texture1_3D", texture_.Table(), size, size, size, tableBytes, 0, 0);
      break;
    case ELUTKind::k1D3D: {
      const Tincta::COv3DLUT& shaper = *texture_.InputShaper();
      // The shaper is handed the cube's byte count; its upload reads only its own entries.
      tablesBound = bBindTable("texture1_2D", shaper.Table(), shaper.Size(), 1, 1, tableBytes,
                               Tincta::kHwBindShaperTable, 0) &&
                    bBindTable("texture2_3D", texture_.Table(), size, size, size, tableBytes, 0, 1);
      break;
    }
  }
  if (!tablesBound) return kResultLUTFailed;
  if (kind == ELUTKind::k1D) {
    const int prepared = engine_.PrepareLUTOperator(texture_, method_, operator_, kernel_);
    if (prepared != 0) return prepared;
  }
  return Launch(bounds.width, bounds.height);
}

}  // namespace

int ApplyLUTOnGPU(const FrameRef& source, const std::shared_ptr<void>& lut,
                  host::LUTInterpolationMethod method, FrameRef& destination) {
  if (source.Get() == nullptr || lut == nullptr) return kResultEmptyArgument;
  const Tincta::COv3DLUT& table = *LUTOf(lut);
  // A source without completion tracking raises the host's null-pointer exception here.
  const DevicePtr device = source.Query<host::ICompletionEventVideoFrame>()->GetDevice();
  if (!device) return kResultNoDeviceMemory;

  const Tincta::SHwLUTConstants constants = COvHwCompositingEngine::LUTConstants(table, method);
  host::IGPUHostAllocator* hostAllocator = device->GetHostAllocator();
  host::IGPUDeviceAllocator* deviceAllocator = device->GetDeviceAllocator();
  if (hostAllocator == nullptr || deviceAllocator == nullptr) return kResultNoDeviceMemory;
  const std::unique_ptr<host::GPUHostBlock, SStagingRelease> staging(
      hostAllocator->Allocate(constants.bytes, 0, host::kGPUUsageConstants),
      SStagingRelease{hostAllocator});
  const std::unique_ptr<host::GPUDeviceBlock, SDeviceRelease> block(
      deviceAllocator->Allocate(constants.bytes, 0, host::kGPUUsageConstants),
      SDeviceRelease{deviceAllocator});
  if (!staging || staging->mappedView == nullptr || !block) return kResultNoDeviceMemory;

  std::memcpy(staging->mappedView, constants.values.data(), constants.bytes);
  // A successful unmap clears the view and the copy reads the block; a failed one keeps the view
  // for the copy to read.
  hostAllocator->Unmap(staging.get());
  const bool fromMappedView = staging->mappedView != nullptr;
  if (device->CopyStagingToDevice(block->pointer, *staging, constants.bytes, fromMappedView) < 0) {
    // The constants never reached the device: nothing is applied, and that is not an error.
    return kResultOK;
  }

  // The device texture is keyed by the table's digest. Worked out here on the handle's LUT, it is
  // computed once and every call's copy inherits it; worked out on the copy, it was computed again
  // on every call (8 ms for a 65-point cube on an H100 host, more than the apply itself).
  table.ContentDigest();
  const TexturePtr texture(new COvHwTexture(table, device), Tincta::CustomDeleter<COvHwTexture>());
  CVariant variant(device, source, *texture, block->pointer, method, destination);
  return variant.Run(Tincta::LUTKindOf(table));
}

}  // namespace CRANDLE::detail
