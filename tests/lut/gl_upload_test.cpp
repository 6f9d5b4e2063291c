// The texture upload against a real OpenGL implementation: Mesa's software renderer through EGL
// without a window. Every upload is read back from the texture and compared.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/settings.h"
#include "lut/gl_upload.h"
#include "lut/lut3d.h"

namespace {

using Tincta::COv3DLUT;

enum class EProfile { Core, Compatibility, Legacy };

// Keeps Mesa's driver modules mapped after eglTerminate. Unloading them takes their globals
// along, and what those globals pointed at would then be reported as leaked.
void PinDriverModules() {
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void*) {
        const std::string_view name = info->dlpi_name ? info->dlpi_name : "";
        if (name.find("_dri.so") != std::string_view::npos ||
            name.find("libgallium") != std::string_view::npos) {
          // A second reference that is never given back; RTLD_NOLOAD opens nothing new.
          dlopen(info->dlpi_name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
        }
        return 0;
      },
      nullptr);
}

// Sets Mesa's version override for as long as it lives. Mesa hands out its newest version whatever
// is asked; only this makes a real 2.1 context, the kind without the per-index extension query.
struct SVersionOverride {
  explicit SVersionOverride(const char* version) : set(version != nullptr) {
    if (set) setenv("MESA_GL_VERSION_OVERRIDE", version, 1);
  }
  ~SVersionOverride() {
    if (set) unsetenv("MESA_GL_VERSION_OVERRIDE");
  }
  SVersionOverride(const SVersionOverride&) = delete;
  SVersionOverride& operator=(const SVersionOverride&) = delete;
  bool set;
};

// A current OpenGL context without any surface, or the reason there is none.
class CHeadlessContext {
 public:
  explicit CHeadlessContext(EProfile profile) {
    const auto getPlatformDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
        eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay) {
      failure_ = "no eglGetPlatformDisplayEXT";
      return;
    }
    // Mesa reads its version override once per loaded driver, and the driver stays loaded (see
    // PinDriverModules), so a 2.1 context needs a process of its own. ctest runs every test alone.
    static bool driverLoaded = false;
    if (profile == EProfile::Legacy && driverLoaded) {
      failure_ = "a 2.1 context needs a process of its own (run the test alone, as ctest does)";
      return;
    }
    driverLoaded = true;
    const SVersionOverride override(profile == EProfile::Legacy ? "2.1" : nullptr);
    display_ = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    EGLint major = 0, minor = 0;
    if (display_ == EGL_NO_DISPLAY || !eglInitialize(display_, &major, &minor)) {
      failure_ = "no surfaceless EGL display";
      display_ = EGL_NO_DISPLAY;
      return;
    }
    PinDriverModules();
    if (!eglBindAPI(EGL_OPENGL_API)) {
      failure_ = "EGL offers no desktop OpenGL";
      return;
    }
    // Surfaceless displays have no window configs, which EGL asks for unless told otherwise.
    const EGLint configAttributes[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                       EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    if (!eglChooseConfig(display_, configAttributes, &config, 1, &configs) || configs < 1) {
      failure_ = "no EGL config for OpenGL";
      return;
    }
    std::vector<EGLint> attributes;
    switch (profile) {
      case EProfile::Core:
        attributes = {EGL_CONTEXT_MAJOR_VERSION,       3,
                      EGL_CONTEXT_MINOR_VERSION,       3,
                      EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT};
        break;
      case EProfile::Compatibility:
        attributes = {
            EGL_CONTEXT_MAJOR_VERSION,       3,
            EGL_CONTEXT_MINOR_VERSION,       0,
            EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT};
        break;
      case EProfile::Legacy:
        attributes = {EGL_CONTEXT_MAJOR_VERSION, 2, EGL_CONTEXT_MINOR_VERSION, 1};
        break;
    }
    attributes.push_back(EGL_NONE);
    context_ = eglCreateContext(display_, config, EGL_NO_CONTEXT, attributes.data());
    if (context_ == EGL_NO_CONTEXT) {
      failure_ = "cannot create the OpenGL context";
      return;
    }
    if (!eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_)) {
      failure_ = "cannot make a context current without a surface";
      return;
    }
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (profile == EProfile::Legacy && (!version || std::string(version).rfind("2.1", 0) != 0)) {
      failure_ = "no OpenGL 2.1 context";
      return;
    }
    current_ = true;
  }

  ~CHeadlessContext() {
    if (display_ == EGL_NO_DISPLAY) return;
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display_, context_);
    eglTerminate(display_);
    eglReleaseThread();
  }

  CHeadlessContext(const CHeadlessContext&) = delete;
  CHeadlessContext& operator=(const CHeadlessContext&) = delete;

  bool Current() const { return current_; }
  const std::string& Failure() const { return failure_; }

 private:
  EGLDisplay display_ = EGL_NO_DISPLAY;
  EGLContext context_ = EGL_NO_CONTEXT;
  bool current_ = false;
  std::string failure_;
};

class CTexture {
 public:
  explicit CTexture(GLenum target) : target_(target) {
    glGenTextures(1, &name_);
    glBindTexture(target_, name_);
  }
  ~CTexture() { glDeleteTextures(1, &name_); }
  CTexture(const CTexture&) = delete;
  CTexture& operator=(const CTexture&) = delete;

  GLint Level0(GLenum parameter) const {
    GLint value = 0;
    const GLenum query = target_ == GL_TEXTURE_3D ? GL_TEXTURE_3D : target_;
    glGetTexLevelParameteriv(query, 0, parameter, &value);
    return value;
  }
  std::vector<float> ReadBack(size_t texels) const {
    std::vector<float> texels4(texels * 4, -99.0f);
    glGetTexImage(target_, 0, GL_RGBA, GL_FLOAT, texels4.data());
    return texels4;
  }

 private:
  GLenum target_;
  GLuint name_ = 0;
};

// Values that half floats hold exactly, in and out of [0, 1].
float TestValue(size_t i, int channel) {
  const float values[] = {0.0f, 0.25f, 1.0f, -0.5f, 2.0f, 0.125f, 0.75f, 1.5f, 0.5f, 0.0625f};
  return values[(i * 3 + size_t(channel)) % 10];
}

void FillTable(COv3DLUT& lut) {
  for (size_t i = 0; i < lut.EntryCount(); ++i) {
    float* entry = lut.Table() + 4 * i;
    for (int c = 0; c < 3; ++c)
      entry[c] = TestValue(i, c);
    entry[3] = 1.0f;
  }
}

// What the texture must hold for entry i: the value itself in float storage, the value clamped
// to [0, 1] and rounded to 1/255 steps in 8-bit storage.
float Stored(float value, bool floatStorage) {
  if (floatStorage) return value;
  return std::round(std::clamp(value, 0.0f, 1.0f) * 255.0f) / 255.0f;
}

void ExpectTexels(const std::vector<float>& texels, const COv3DLUT& lut, bool floatStorage) {
  ASSERT_EQ(texels.size(), lut.EntryCount() * 4);
  for (size_t i = 0; i < lut.EntryCount(); ++i)
    for (int c = 0; c < 4; ++c)
      ASSERT_NEAR(texels[4 * i + c], Stored(lut.Table()[4 * i + c], floatStorage), 1e-6)
          << "texel " << i << " channel " << c;
}

class GLUploadTest : public testing::TestWithParam<EProfile> {
 protected:
  void SetUp() override {
    host::Settings::Instance().Remove(host::kSettingEnableFloatLUTs);
    context_ = std::make_unique<CHeadlessContext>(GetParam());
    if (!context_->Current()) GTEST_SKIP() << "no headless OpenGL: " << context_->Failure();
  }
  void TearDown() override {
    context_.reset();
    host::Settings::Instance().Remove(host::kSettingEnableFloatLUTs);
  }

  std::unique_ptr<CHeadlessContext> context_;
};

TEST_P(GLUploadTest, FloatStorageWhenTheExtensionAndSettingAllow) {
  // Mesa's software renderer offers float textures on every profile.
  EXPECT_EQ(Tincta::LUTTextureInternalFormat(), Tincta::kGLInternalFormatRGBA16F);
  host::Settings::Instance().SetBool(host::kSettingEnableFloatLUTs, false);
  EXPECT_EQ(Tincta::LUTTextureInternalFormat(), Tincta::kGLInternalFormatRGBA8);
}

TEST_P(GLUploadTest, TablesReadBackFromTheTexture) {
  struct SCase {
    uint32_t size;
    bool is3D;
    GLenum target;
    bool floatStorage;
  };
  const SCase cases[] = {
      {37, false, GL_TEXTURE_2D, true},       {37, false, GL_TEXTURE_2D, false},
      {5, false, GL_TEXTURE_RECTANGLE, true}, {5, false, GL_TEXTURE_RECTANGLE, false},
      {5, true, GL_TEXTURE_3D, true},         {5, true, GL_TEXTURE_3D, false},
      {1, true, GL_TEXTURE_3D, true},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(testing::Message() << c.size << (c.is3D ? " 3-D " : " 1-D ") << c.target << " "
                                    << (c.floatStorage ? "float" : "8-bit"));
    host::Settings::Instance().SetBool(host::kSettingEnableFloatLUTs, c.floatStorage);
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(c.size, c.is3D));
    FillTable(lut);
    CTexture texture(c.target);
    ASSERT_TRUE(Tincta::bOvUploadLUTTexture(lut, c.target));
    EXPECT_EQ(texture.Level0(GL_TEXTURE_WIDTH), GLint(c.size));
    EXPECT_EQ(texture.Level0(GL_TEXTURE_HEIGHT), c.is3D ? GLint(c.size) : 1);
    if (c.is3D) {
      EXPECT_EQ(texture.Level0(GL_TEXTURE_DEPTH), GLint(c.size));
    }
    EXPECT_EQ(texture.Level0(GL_TEXTURE_INTERNAL_FORMAT),
              GLint(c.floatStorage ? GL_RGBA16F : GL_RGBA8));
    ExpectTexels(texture.ReadBack(lut.EntryCount()), lut, c.floatStorage);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
  }
}

TEST_P(GLUploadTest, UnpackStateIsResetForTheUpload) {
  // Rows, skips and image heights left by the caller would scramble or overrun the table.
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(4, true));
  FillTable(lut);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 7);
  glPixelStorei(GL_UNPACK_SKIP_ROWS, 1);
  glPixelStorei(GL_UNPACK_SKIP_PIXELS, 2);
  glPixelStorei(GL_UNPACK_IMAGE_HEIGHT, 9);
  glPixelStorei(GL_UNPACK_SKIP_IMAGES, 1);
  CTexture texture(GL_TEXTURE_3D);
  ASSERT_TRUE(Tincta::bOvUploadLUTTexture(lut, GL_TEXTURE_3D));
  ExpectTexels(texture.ReadBack(lut.EntryCount()), lut, true);
  for (const GLenum state : {GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                             GL_UNPACK_IMAGE_HEIGHT, GL_UNPACK_SKIP_IMAGES}) {
    GLint value = -1;
    glGetIntegerv(state, &value);
    EXPECT_EQ(value, 0) << state;
  }
}

TEST_P(GLUploadTest, ErrorsLeftByTheCallerDoNotFailTheUpload) {
  glEnable(0xFFFF);  // GL_INVALID_ENUM, left pending
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(8, false));
  FillTable(lut);
  CTexture texture(GL_TEXTURE_2D);
  EXPECT_TRUE(Tincta::bOvUploadLUTTexture(lut, GL_TEXTURE_2D));
}

TEST_P(GLUploadTest, RefusedUploadsLeaveTheTextureEmpty) {
  COv3DLUT oneD;
  ASSERT_TRUE(oneD.Allocate(16, false));
  FillTable(oneD);
  COv3DLUT threeD;
  ASSERT_TRUE(threeD.Allocate(2, true));
  FillTable(threeD);
  GLint limit = 0;
  glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
  COv3DLUT tooLong;
  if (limit < GLint(Tincta::kMax1DEntries)) {
    ASSERT_TRUE(tooLong.Allocate(uint32_t(limit) + 1, false));
    FillTable(tooLong);
  }
  const COv3DLUT empty;
  struct SCase {
    const char* what;
    const COv3DLUT* lut;
    GLenum target;
  };
  const SCase cases[] = {
      {"empty table", &empty, GL_TEXTURE_2D},
      {"1-D table to a 1-D texture", &oneD, GL_TEXTURE_1D},
      {"1-D table to a 3-D texture", &oneD, GL_TEXTURE_3D},
      {"3-D table to a 2-D texture", &threeD, GL_TEXTURE_2D},
      {"3-D table to a rectangle", &threeD, GL_TEXTURE_RECTANGLE},
      {"1-D table longer than GL_MAX_TEXTURE_SIZE", &tooLong, GL_TEXTURE_2D},
  };
  for (const SCase& c : cases) {
    if (c.lut == &tooLong && tooLong.Size() == 0) continue;
    CTexture texture(c.target);
    EXPECT_FALSE(Tincta::bOvUploadLUTTexture(*c.lut, c.target)) << c.what;
    EXPECT_EQ(texture.Level0(GL_TEXTURE_WIDTH), 0) << c.what;
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)) << c.what;
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, GLUploadTest,
                         testing::Values(EProfile::Core, EProfile::Compatibility, EProfile::Legacy),
                         [](const testing::TestParamInfo<EProfile>& param) {
                           switch (param.param) {
                             case EProfile::Core:
                               return std::string("Core");
                             case EProfile::Compatibility:
                               return std::string("Compatibility");
                             case EProfile::Legacy:
                               return std::string("Legacy");
                           }
                           return std::string("Unknown");
                         });

}  // namespace
