// Uploading a COv3DLUT into the OpenGL texture bound to a target of the current context.
#pragma once

#include <cstdint>

#include "lut/lut3d.h"

namespace Tincta {

/// Texture targets and internal formats, by their OpenGL values.
inline constexpr uint32_t kGLTexture2D = 0x0DE1;
inline constexpr uint32_t kGLTexture3D = 0x806F;
inline constexpr uint32_t kGLTextureRectangle = 0x84F5;
inline constexpr uint32_t kGLInternalFormatRGBA16F = 0x881A;
inline constexpr uint32_t kGLInternalFormatRGBA8 = 0x8058;

/// The internal format an upload in the current context uses: RGBA16F when the context offers
/// "GL_ARB_texture_float" (core or compatibility profile) and the setting
/// "ColorTransforms.EnableFloatLUTs" (default true) is on, RGBA8 otherwise.
uint32_t LUTTextureInternalFormat();

/// Uploads the table into the texture bound to `target` of the current context: a 1-D table as
/// size x 1 texels to GL_TEXTURE_2D or GL_TEXTURE_RECTANGLE, a 3-D table as size^3 texels to
/// GL_TEXTURE_3D (red along the width, blue along the depth). The unpack row length, image height
/// and skips are set to 0 and stay so. False, nothing uploaded, for an empty table, any other
/// target, a size above GL_MAX_TEXTURE_SIZE (1-D) or GL_MAX_3D_TEXTURE_SIZE (3-D), without
/// OpenGL in the build, or when OpenGL reports an error for the upload. Needs a current context.
bool bOvUploadLUTTexture(const COv3DLUT& lut, uint32_t target);

}  // namespace Tincta
