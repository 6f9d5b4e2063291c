#include "lut/gl_upload.h"

#include "host/settings.h"

#if CRANDLE_HAS_OPENGL
#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstring>
#include <string_view>
#endif

namespace Tincta {

#if CRANDLE_HAS_OPENGL
namespace {

constexpr std::string_view kFloatTextureExtension = "GL_ARB_texture_float";

bool HasExtension(std::string_view wanted) {
  // Core profiles list extensions one by one; the single string is gone from them.
  GLint major = 0;
  glGetIntegerv(GL_MAJOR_VERSION, &major);
  if (glGetError() == GL_NO_ERROR && major >= 3) {
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    for (GLint i = 0; i < count; ++i) {
      const auto* name = reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, GLuint(i)));
      if (name && wanted == name) return true;
    }
    return false;
  }
  const auto* all = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
  if (!all) return false;
  // Whole names only: a longer extension may begin with the wanted one.
  for (std::string_view rest(all); !rest.empty();) {
    const size_t blank = rest.find(' ');
    if (rest.substr(0, blank) == wanted) return true;
    if (blank == std::string_view::npos) break;
    rest.remove_prefix(blank + 1);
  }
  return false;
}

void DrainErrors() {
  // Bounded: without a current context glGetError may keep reporting.
  for (int i = 0; i < 64 && glGetError() != GL_NO_ERROR; ++i) {
  }
}

}  // namespace

uint32_t LUTTextureInternalFormat() {
  const bool floatLUTs = host::Settings::Instance().GetBool(host::kSettingEnableFloatLUTs, true);
  return floatLUTs && HasExtension(kFloatTextureExtension) ? kGLInternalFormatRGBA16F
                                                           : kGLInternalFormatRGBA8;
}

bool bOvUploadLUTTexture(const COv3DLUT& lut, uint32_t target) {
  if (lut.Size() == 0 || !lut.Table()) return false;
  const GLsizei size = GLsizei(lut.Size());
  // Errors left over from the caller's own calls would be taken for this upload's.
  DrainErrors();
  if (!lut.Is3D()) {
    if (target != GL_TEXTURE_2D && target != GL_TEXTURE_RECTANGLE) return false;
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    if (size > limit) return false;
    const GLint internalFormat = GLint(LUTTextureInternalFormat());
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    glTexImage2D(target, 0, internalFormat, size, 1, 0, GL_RGBA, GL_FLOAT, lut.Table());
  } else {
    if (target != GL_TEXTURE_3D) return false;
    GLint limit = 0;
    glGetIntegerv(GL_MAX_3D_TEXTURE_SIZE, &limit);
    if (size > limit) return false;
    const GLint internalFormat = GLint(LUTTextureInternalFormat());
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_IMAGE_HEIGHT, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_IMAGES, 0);
    glTexImage3D(target, 0, internalFormat, size, size, size, 0, GL_RGBA, GL_FLOAT, lut.Table());
  }
  return glGetError() == GL_NO_ERROR;
}

#else

uint32_t LUTTextureInternalFormat() {
  return kGLInternalFormatRGBA8;
}

bool bOvUploadLUTTexture(const COv3DLUT&, uint32_t) {
  return false;
}

#endif

}  // namespace Tincta
