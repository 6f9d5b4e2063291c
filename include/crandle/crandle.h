// crandle: the colour-LUT module's exported interface.
//
// Nine functions read a LUT from a path or from bytes into a shared handle, identify it, name it,
// serialise it, and apply it to a video frame. Every function can be called from any thread and
// from several at once; none throws. Failures are result codes (or empty values for the three
// queries), and an output argument is left untouched whenever a call fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/binary_data.h"
#include "host/guid.h"
#include "host/interface_ref.h"
#include "host/interpolation.h"
#include "host/strings.h"
#include "host/video_frame.h"

#if defined(CRANDLE_BUILDING_MODULE)
#define CRANDLE_API __attribute__((visibility("default")))
#else
#define CRANDLE_API
#endif

namespace CRANDLE {

/// Result codes.
inline constexpr int kResultOK = 0;
/// The LUT could not be read, or the renderer failed to apply it.
inline constexpr int kResultLUTFailed = static_cast<int>(0xa00f0001u);
/// The GPU path could not obtain its device buffers.
inline constexpr int kResultNoDeviceMemory = static_cast<int>(0xa00f0006u);
/// The frames differ in bounds or in where they live, or a vector overload was called.
inline constexpr int kResultUnsupported = static_cast<int>(0xa00f000cu);
/// An empty argument: frame reference, path, handle, byte pointer or size.
inline constexpr int kResultEmptyArgument = static_cast<int>(0xa00f000eu);
/// The host's pixel conversion failed on the CPU path.
inline constexpr int kResultConversionFailed = static_cast<int>(0x80000000u);

using host::BinaryData;
using host::Guid;
using host::InterfaceRef;
using host::IVideoFrame;
using host::LUTInterpolationMethod;

/// Applies the LUT file at `lutPath` (UTF-16; relative paths resolve against the host's LUT
/// directory) to `source`, writing `destination`, which must have the same bounds. Both frames
/// in host memory use the CPU path; both on a GPU use the GPU path. On the CPU path a source
/// already in BGRA float layout is left with red and blue exchanged.
/// Returns 0, or a result code; checks come in this order: empty frame (0xa00f000e), different
/// bounds (0xa00f000c), empty path (0xa00f000e), unreadable LUT (0xa00f0001).
CRANDLE_API int ApplyLUT(const InterfaceRef<IVideoFrame>& source, const std::u16string& lutPath,
                         LUTInterpolationMethod method, InterfaceRef<IVideoFrame>& destination);

/// As above with a handle from `ParseLUT`; a null handle gives 0xa00f000e after the frame checks.
CRANDLE_API int ApplyLUT(const InterfaceRef<IVideoFrame>& source, const std::shared_ptr<void>& lut,
                         LUTInterpolationMethod method, InterfaceRef<IVideoFrame>& destination);

/// Chains of LUTs are not applied in one call: always returns 0xa00f000c and touches nothing.
/// Apply the LUTs one at a time instead.
CRANDLE_API int ApplyLUT(const InterfaceRef<IVideoFrame>& source,
                         const std::vector<std::u16string>& lutPaths, LUTInterpolationMethod method,
                         InterfaceRef<IVideoFrame>& destination);

/// Always returns 0xa00f000c, like the path-vector overload.
CRANDLE_API int ApplyLUT(const InterfaceRef<IVideoFrame>& source,
                         const std::vector<std::shared_ptr<void>>& luts,
                         LUTInterpolationMethod method, InterfaceRef<IVideoFrame>& destination);

/// The LUT as an "OTX3" image: 40-byte header (magic, size, kind 1 or 3, 0, domain minimum and
/// maximum RGB as float32) and then RGB float32 triples in table order. An input shaper is not
/// written. Empty for a null handle or when memory is short. The buffer is the host's recycled
/// memory, owned by the returned value.
CRANDLE_API BinaryData GetLUTBlob(const std::shared_ptr<void>& lut);

/// The LUT's display name in UTF-8: its file's title when read from a file, else the title its
/// reader found, else "Embedded LUT". Returns 0, or 0xa00f000e for a null handle (`nameUtf8`
/// untouched).
CRANDLE_API int GetLUTDisplayName(const std::shared_ptr<void>& lut, std::string& nameUtf8);

/// A stable 128-bit identifier of the LUT's content, domain, title and file title (not its
/// directory). All zero for a null handle.
CRANDLE_API Guid GetLUTIdentifier(const std::shared_ptr<void>& lut);

/// Reads the LUT file at `path` (UTF-16) into `lut`. Returns 0; 0xa00f000e for an empty path;
/// 0xa00f0001 when the file is missing, too large (over 200 MiB) or no LUT. `lut` is replaced
/// only on success.
CRANDLE_API int ParseLUT(const std::u16string& path, std::shared_ptr<void>& lut);

/// Reads a LUT from `size` bytes (only the low 32 bits of `size` count), or from a look
/// reference to a camera look grid. Returns 0; 0xa00f000e for null bytes or a zero size;
/// 0xa00f0001 when the bytes hold no LUT. `lut` is replaced only on success.
CRANDLE_API int ParseLUT(const void* bytes, size_t size, std::shared_ptr<void>& lut);

}  // namespace CRANDLE
