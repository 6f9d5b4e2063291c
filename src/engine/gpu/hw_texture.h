// Device textures: a LUT that also knows its texture kind, kept in a registry by name, and the
// upload of its tables into a device's asset cache for one launch.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/gpu.h"
#include "host/guid.h"
#include "lut/lut3d.h"

namespace Tincta {

/// Texture kinds, by their OpenGL enumerations; 0 lets the file decide.
inline constexpr uint32_t kHwTextureKindFromFile = 0;
inline constexpr uint32_t kHwTexture1D = 0x0DE0;
inline constexpr uint32_t kHwTexture2D = 0x0DE1;
inline constexpr uint32_t kHwTexture3D = 0x806F;
inline constexpr uint32_t kHwTextureRectangle = 0x84F5;

class COvHwTexture;

/// Device textures by key (name + "/1D", "/2D", "/3D" or "/RECT"), looked up by the key's
/// CRC-32C. Thread-safe. Holds no ownership: a texture registers itself and leaves when it dies.
class COvHwTextureRegistry {
 public:
  void Register(const std::string& key, COvHwTexture* texture);
  /// Removes `texture` under `key`; false when it was not there.
  bool bRemove(const std::string& key, const COvHwTexture* texture);
  /// The texture registered under `key` (the latest when several are), or null.
  COvHwTexture* Find(const std::string& key) const;
  size_t Count() const;

 private:
  mutable std::mutex mutex_;
  std::multimap<uint32_t, std::pair<std::string, COvHwTexture*>> entries_;
};

/// A LUT prepared for a device.
class COvHwTexture : public COv3DLUT {
 public:
  /// Loads the LUT file `name` (UTF-8) through the LUT loader: only 3-D tables for the 3-D kind,
  /// only 1-D tables for the other kinds, either for kind 0, which then becomes 3-D or 1-D by
  /// the table. Registers the texture in `registry` (when given) under RegistryKey. A 1-D table
  /// with more entries than a non-zero `sizeLimit` is resampled down to it. `bLoaded` tells
  /// whether the file was read.
  COvHwTexture(std::string name, uint32_t kind, COvHwTextureRegistry* registry,
               uint32_t sizeLimit = 0);
  /// A texture over an already loaded LUT for `device`: the table is borrowed (shared with
  /// `lut`, not freed with the texture), the kind follows the table and there is no name.
  COvHwTexture(const COv3DLUT& lut, std::shared_ptr<host::IGPUDevice> device);
  COvHwTexture(const COvHwTexture&) = delete;
  COvHwTexture& operator=(const COvHwTexture&) = delete;
  /// Leaves the registry; a borrowed table is cleared first so that it is not freed here.
  ~COvHwTexture() override;

  /// Destroys the texture (for CustomDeleter).
  void Release() { delete this; }

  bool bLoaded() const { return Size() != 0; }
  /// The file path the texture was loaded from; empty for a texture over a loaded LUT.
  const std::string& Name() const { return name_; }
  uint32_t Kind() const { return kind_; }
  /// 1 when the texture owns its table, 0 when it borrows it.
  uint32_t OwnsTable() const { return ownsTable_; }
  const std::shared_ptr<host::IGPUDevice>& Device() const { return device_; }

  /// name + "/1D", "/2D", "/3D" or "/RECT" by kind ("/1D" for an unknown kind).
  static std::string RegistryKey(const std::string& name, uint32_t kind);

 private:
  std::string name_;
  uint32_t kind_ = kHwTextureKindFromFile;
  COvHwTextureRegistry* registry_ = nullptr;
  uint32_t ownsTable_ = 1;
  std::shared_ptr<host::IGPUDevice> device_;
};

/// The key of one of a texture's tables in a device's asset cache: the host's value hash over
/// "TinctaTexture", the texture's name (or, without one, the LUT's content digest through the
/// Guid byte conversions), "SubLUT" and a zero byte for a shaper's table, "Bound" and a zero byte
/// when `bound`.
host::Guid HwTextureCacheKey(const COvHwTexture& texture, bool shaperTable, bool bound);

/// The CUDA driver's texture address and filter modes, by their values. Kernels here always
/// clamp and read points; the modes are kept for the binding's signature.
enum class ECUAddressMode : int32_t { Wrap = 0, Clamp = 1, Mirror = 2, Border = 3 };
enum class ECUFilterMode : int32_t { Point = 0, Linear = 1 };

/// Flags of bOvLoadAndBindHwTexture.
inline constexpr uint32_t kHwBindShaperTable = 1;  ///< the table is the LUT's input shaper
inline constexpr uint32_t kHwBindBound = 2;        ///< the key carries "Bound"

/// Finds the table in `device`'s asset cache under its key (HwTextureCacheKey) or uploads it
/// there, then binds it to the texture slot `textureName` of `module` in `bindings`: a 3-D
/// texture when `depth` > 1, else a 2-D one. `data` holds the texels (16 bytes each, rows of
/// `width` texels); only width x height x depth texels are ever read, whatever `byteCount` the
/// caller hands over (the GPU path hands a shaper the cube's byte count). `held` receives the
/// device texture, which must outlive the launch's queueing (the cache may evict it meanwhile).
/// False when the slot, the upload or the binding fails.
bool bOvLoadAndBindHwTexture(COvHwTexture& texture, const std::shared_ptr<host::IGPUDevice>& device,
                             const char* module, const char* textureName, const void* data,
                             uint32_t width, uint32_t height, uint32_t depth, uint64_t byteCount,
                             ECUAddressMode addressMode, ECUFilterMode filterMode,
                             host::PixelFormat format, uint32_t flags,
                             host::GPUTextureBindings& bindings,
                             std::shared_ptr<host::GPUDeviceTexture>& held);

/// Whether a device wants its tables transposed. No back end here does; the transposed copy is
/// kept for those that would.
bool bDeviceNeedsTransposedTables(const host::GPUDeviceInfo& info);

/// Copies `entries` texels (16 bytes each) of `table` into `out` for a device: byte for byte, or,
/// when `transposed`, as the transpose of rows of 1,024 texels into rows of entries / 1,024
/// texels, writing the trace line "Transposing LUT for device". False when a transposed table is
/// not a whole number of 1,024-texel rows or the transpose fails.
bool bCopyTableForDevice(const float* table, size_t entries, bool transposed,
                         std::vector<float>& out);

}  // namespace Tincta
