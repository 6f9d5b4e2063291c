// The texture upload against a real OpenGL, Mesa's software renderer through EGL without a window:
// every upload is read back from the texture.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <cmath>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/settings.h"
#include "lut/gl_upload.h"

namespace {

using Tincta::COv3DLUT;

// Values that half floats hold exactly, in and out of [0, 1].
COv3DLUT Table(uint32_t size, bool is3D) {
  const float values[] = {0.0f, 0.25f, 1.0f, -0.5f, 2.0f, 0.125f, 0.75f, 1.5f, 0.5f, 0.0625f};
  COv3DLUT lut;
  EXPECT_TRUE(lut.Allocate(size, is3D));
  for (size_t i = 0; i < lut.EntryCount() * 4; ++i)
    lut.Table()[i] = i % 4 == 3 ? 1.0f : values[(i - i / 4) % 10];
  return lut;
}

// Each test runs in a current context of OpenGL 3.3 core, or skips.
class GLUpload : public testing::Test {
 protected:
  void SetUp() override {
    host::Settings::Instance().Remove(host::kSettingEnableFloatLUTs);
    const auto getDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
        eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getDisplay)
      display_ = getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display_ == EGL_NO_DISPLAY || !eglInitialize(display_, nullptr, nullptr)) {
      display_ = EGL_NO_DISPLAY;
      GTEST_SKIP() << "no surfaceless EGL display";
    }
    // Unloading Mesa's driver at eglTerminate would take its globals along, and what they
    // pointed at would be reported as leaked: keep a reference that is never given back.
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void*) {
          const std::string_view name = info->dlpi_name ? info->dlpi_name : "";
          if (name.find("_dri.so") != name.npos || name.find("libgallium") != name.npos)
            dlopen(info->dlpi_name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
          return 0;
        },
        nullptr);
    // Surfaceless displays have no window configs, which EGL asks for unless told otherwise.
    const EGLint configAttributes[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                       EGL_NONE};
    // The core profile is EGL's default.
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                                 EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    if (eglBindAPI(EGL_OPENGL_API) &&
        eglChooseConfig(display_, configAttributes, &config, 1, &configs) && configs == 1)
      context_ = eglCreateContext(display_, config, EGL_NO_CONTEXT, attributes);
    if (context_ == EGL_NO_CONTEXT ||
        !eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_))
      GTEST_SKIP() << "no desktop OpenGL 3.3 context without a surface";
  }
  void TearDown() override {
    host::Settings::Instance().Remove(host::kSettingEnableFloatLUTs);
    if (display_ == EGL_NO_DISPLAY) return;
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display_, context_);
    eglTerminate(display_);
    eglReleaseThread();
  }
  // A new texture bound to `target`, uploaded, and its level 0 as {width, height, depth, format}.
  static std::array<GLint, 4> Upload(const COv3DLUT& lut, GLenum target, bool expected) {
    GLuint name = 0;
    glGenTextures(1, &name);
    glBindTexture(target, name);
    EXPECT_EQ(Tincta::bOvUploadLUTTexture(lut, target), expected);
    std::array<GLint, 4> level{};
    const GLenum parameters[] = {GL_TEXTURE_WIDTH, GL_TEXTURE_HEIGHT, GL_TEXTURE_DEPTH,
                                 GL_TEXTURE_INTERNAL_FORMAT};
    for (int i = 0; i < 4; ++i)
      glGetTexLevelParameteriv(target, 0, parameters[i], &level[i]);
    return level;
  }
  EGLDisplay display_ = EGL_NO_DISPLAY;
  EGLContext context_ = EGL_NO_CONTEXT;
};

TEST_F(GLUpload, TablesReadBackWhateverTheCallerLeftBehind) {
  const std::tuple<uint32_t, bool, GLenum, bool> cases[] = {
      {37, false, GL_TEXTURE_2D, true},       {37, false, GL_TEXTURE_2D, false},
      {5, false, GL_TEXTURE_RECTANGLE, true}, {5, true, GL_TEXTURE_3D, true},
      {5, true, GL_TEXTURE_3D, false},        {1, true, GL_TEXTURE_3D, true}};
  for (const auto& [size, is3D, target, floatStorage] : cases) {
    SCOPED_TRACE(testing::Message() << size << " " << is3D << " " << floatStorage);
    host::Settings::Instance().SetBool(host::kSettingEnableFloatLUTs, floatStorage);
    const COv3DLUT lut = Table(size, is3D);
    // Unpack rows, skips and image heights would scramble or overrun the table (the last two
    // matter to 3-D uploads only); a pending error is the caller's, not the upload's.
    const GLenum unpack[] = {GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                             GL_UNPACK_IMAGE_HEIGHT, GL_UNPACK_SKIP_IMAGES};
    for (const GLenum state : unpack)
      glPixelStorei(state, 3);
    glEnable(0xFFFF);
    const GLint n = GLint(size), format = floatStorage ? GL_RGBA16F : GL_RGBA8;
    EXPECT_EQ(Upload(lut, target, true),
              (std::array<GLint, 4>{n, is3D ? n : 1, is3D ? n : 1, format}));
    for (size_t i = 0; i < (is3D ? 5u : 3u); ++i) {
      GLint value = -1;
      glGetIntegerv(unpack[i], &value);
      EXPECT_EQ(value, 0) << unpack[i];
    }
    std::vector<float> texels(lut.EntryCount() * 4, -99.0f);
    glGetTexImage(target, 0, GL_RGBA, GL_FLOAT, texels.data());
    for (size_t i = 0; i < texels.size(); ++i) {
      // 8-bit storage clamps to [0, 1] and rounds to 1/255 steps.
      const float v = lut.Table()[i];
      ASSERT_NEAR(texels[i], floatStorage ? v : std::round(std::clamp(v, 0.0f, 1.0f) * 255) / 255,
                  1e-6)
          << i;
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
  }
}

TEST_F(GLUpload, RefusedUploadsLeaveTheTextureEmpty) {
  GLint limit = 0;
  glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
  ASSERT_LT(limit, GLint(Tincta::kMax1DEntries));
  const COv3DLUT oneD = Table(16, false), threeD = Table(2, true), empty;
  const COv3DLUT tooLong = Table(uint32_t(limit) + 1, false);
  const std::pair<const COv3DLUT*, GLenum> cases[] = {
      {&empty, GL_TEXTURE_2D},  {&oneD, GL_TEXTURE_1D},          {&oneD, GL_TEXTURE_3D},
      {&threeD, GL_TEXTURE_2D}, {&threeD, GL_TEXTURE_RECTANGLE}, {&tooLong, GL_TEXTURE_2D}};
  for (const auto& [lut, target] : cases) {
    EXPECT_EQ(Upload(*lut, target, false)[0], 0) << lut->Size() << " " << target;
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
  }
}

}  // namespace
