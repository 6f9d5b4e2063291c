#include "engine/gpu/hw_texture.h"

#include <cstring>

#include "engine/gpu/gpu_handle_cache.h"
#include "foundation/crc32c.h"
#include "foundation/log.h"
#include "host/hash.h"
#include "host/pixel_convert.h"

namespace Tincta {
namespace {

constexpr size_t kTexelBytes = 16;
// The transposed layout's source rows: 1,024 texels.
constexpr uint32_t kTransposeRowTexels = 1024;

uint32_t KeyChecksum(const std::string& key) {
  return Crc32c(key.data(), key.size());
}

ELUTKindFilter KindFilterFor(uint32_t kind) {
  if (kind == kHwTextureKindFromFile) return ELUTKindFilter::Any;
  return kind == kHwTexture3D ? ELUTKindFilter::Only3D : ELUTKindFilter::Only1D;
}

}  // namespace

void COvHwTextureRegistry::Register(const std::string& key, COvHwTexture* texture) {
  std::lock_guard lock(mutex_);
  entries_.emplace(KeyChecksum(key), std::make_pair(key, texture));
}

bool COvHwTextureRegistry::bRemove(const std::string& key, const COvHwTexture* texture) {
  std::lock_guard lock(mutex_);
  auto [first, last] = entries_.equal_range(KeyChecksum(key));
  for (auto it = first; it != last; ++it) {
    if (it->second.first == key && it->second.second == texture) {
      entries_.erase(it);
      return true;
    }
  }
  return false;
}

COvHwTexture* COvHwTextureRegistry::Find(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto [first, last] = entries_.equal_range(KeyChecksum(key));
  COvHwTexture* found = nullptr;
  // Entries of one checksum keep their insertion order: the last match is the latest.
  for (auto it = first; it != last; ++it) {
    if (it->second.first == key) found = it->second.second;
  }
  return found;
}

size_t COvHwTextureRegistry::Count() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

COvHwTexture::COvHwTexture(std::string name, uint32_t kind, COvHwTextureRegistry* registry,
                           uint32_t sizeLimit)
    : name_(std::move(name)), kind_(kind), registry_(registry) {
  if (LoadFromFile(name_, false, KindFilterFor(kind_), true) && kind_ == kHwTextureKindFromFile) {
    kind_ = Is3D() ? kHwTexture3D : kHwTexture1D;
  }
  if (registry_ != nullptr) registry_->Register(RegistryKey(name_, kind_), this);
  if (sizeLimit != 0 && bLoaded() && !Is3D() && Size() > sizeLimit) {
    const Vec4 min = DomainMin(), max = DomainMax();
    if (Resample(sizeLimit)) SetDomain(min, max);
  }
}

COvHwTexture::COvHwTexture(const COv3DLUT& lut, std::shared_ptr<host::IGPUDevice> device)
    : COv3DLUT(lut),
      kind_(lut.Is3D() ? kHwTexture3D : kHwTexture1D),
      ownsTable_(0),
      device_(std::move(device)) {}

COvHwTexture::~COvHwTexture() {
  if (registry_ != nullptr) registry_->bRemove(RegistryKey(name_, kind_), this);
  if (ownsTable_ == 0) Clear();
}

std::string COvHwTexture::RegistryKey(const std::string& name, uint32_t kind) {
  switch (kind) {
    case kHwTexture2D:
      return name + "/2D";
    case kHwTexture3D:
      return name + "/3D";
    case kHwTextureRectangle:
      return name + "/RECT";
    default:
      return name + "/1D";
  }
}

host::Guid HwTextureCacheKey(const COvHwTexture& texture, bool shaperTable, bool bound) {
  host::HashValueMixerState state;
  static constexpr char kTag[] = "TinctaTexture";
  state.Mix(kTag, sizeof(kTag) - 1);
  if (!texture.Name().empty()) {
    state.Mix(texture.Name().data(), texture.Name().size());
  } else {
    uint8_t digest[16];
    host::Guid::GuidFromBytes(texture.ContentDigest().data()).GuidToBytes(digest);
    state.Mix(digest, sizeof(digest));
  }
  // The terminating zeros are part of the key.
  if (shaperTable) state.Mix("SubLUT", 7);
  if (bound) state.Mix("Bound", 6);
  return state.GetHashResult();
}

bool bDeviceNeedsTransposedTables(const host::GPUDeviceInfo&) {
  return false;
}

bool bCopyTableForDevice(const float* table, size_t entries, bool transposed,
                         std::vector<float>& out) {
  out.resize(entries * 4);
  if (entries == 0) return true;
  if (!transposed) {
    std::memcpy(out.data(), table, entries * kTexelBytes);
    return true;
  }
  OvLog(host::LogLevel::Trace, "Transposing LUT for device");
  if (entries % kTransposeRowTexels != 0) return false;
  const size_t rows = entries / kTransposeRowTexels;
  return host::IR_Transpose(table, kTransposeRowTexels * kTexelBytes, out.data(),
                            rows * kTexelBytes, kTransposeRowTexels, static_cast<uint32_t>(rows),
                            kTexelBytes) == 0;
}

bool bOvLoadAndBindHwTexture(COvHwTexture& texture, const std::shared_ptr<host::IGPUDevice>& device,
                             const char* module, const char* textureName, const void* data,
                             uint32_t width, uint32_t height, uint32_t depth, uint64_t byteCount,
                             ECUAddressMode, ECUFilterMode, host::PixelFormat format,
                             uint32_t flags, host::GPUTextureBindings& bindings,
                             std::shared_ptr<host::GPUDeviceTexture>& held) {
  if (!device || data == nullptr || width == 0 || height == 0 || depth == 0) return false;
  const host::GPUTexture* target = LoadTextureCached(device, module, textureName);
  if (target == nullptr) return false;
  // The upload reads what the extents cover and nothing more: a shaper is handed the cube's
  // byte count, which may be larger or smaller than its own table.
  const uint64_t texels = uint64_t(width) * height * depth;
  (void)byteCount;

  host::IGPUDeviceAssetCache& cache = host::GetDeviceAssetCache(*device);
  const host::Guid key =
      HwTextureCacheKey(texture, (flags & kHwBindShaperTable) != 0, (flags & kHwBindBound) != 0);
  std::shared_ptr<host::GPUDeviceTexture> uploaded = cache.Find(key);
  if (!uploaded) {
    const void* texelsToUpload = data;
    std::vector<float> copy;
    if (bDeviceNeedsTransposedTables(device->GetInfo())) {
      if (!bCopyTableForDevice(static_cast<const float*>(data), texels, true, copy)) return false;
      texelsToUpload = copy.data();
    }
    uploaded =
        device->UploadTexture(texelsToUpload, size_t(width) * kTexelBytes, width, height, depth);
    if (!uploaded) return false;
    uploaded = cache.Insert(key, std::move(uploaded));
    if (!uploaded) return false;
  }
  const int bound = depth > 1
                        ? device->Bind3DTexture(bindings, target, uploaded->texels,
                                                uploaded->rowBytes, width, height, depth, format, 0)
                        : device->BindTexture(bindings, target, uploaded->texels, 0,
                                              uploaded->rowBytes, width, height, format, 0);
  if (bound < 0) return false;
  held = std::move(uploaded);
  return true;
}

}  // namespace Tincta
