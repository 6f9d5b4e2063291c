// Frames in host memory: layout, interfaces, failures that leave the reference alone, views and
// frames with a chosen set of interfaces.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "host/binary_data.h"
#include "host/frame_interfaces.h"
#include "host/video_frame.h"

namespace {

using host::InterfaceRef;
using host::IVideoFrame;
using host::IVideoFrame2DPixelMemoryAccess;
using host::IVideoFrameMemoryAccess;
using FrameRef = InterfaceRef<IVideoFrame>;

constexpr const char* kHostMemoryInterfaces[] = {"IVideoFrame", "IVideoFrameMemoryAccess",
                                                 "IVideoFrame2DPixelMemoryAccess"};
constexpr const char* kGPUInterfaces[] = {"IGPUVideoFrame", "IGPUVideoFrameMemoryAccess",
                                          "ICompletionEventVideoFrame"};

TEST(CreateVideoFrame, PackedAlignedRowsInEveryFormat) {
  struct Case {
    host::PixelFormat format;
    size_t bytesPerPixel;
  };
  const Case cases[] = {{host::kPixelFormat_BGRA_4444_8u, 4},
                        {host::kPixelFormat_BGRA_4444_16u, 8},
                        {host::kPixelFormat_BGRA_4444_32f, 16},
                        {host::kPixelFormat_RGB_101010_10u_BE, 4}};
  for (const Case& c : cases) {
    for (uint32_t width : {1u, 3u, 1920u}) {
      const uint32_t height = 7;
      FrameRef frame;
      ASSERT_EQ(host::CreateVideoFrame(frame, c.format, width, height, 1.5f,
                                       host::ColorSpace::Rec2020, false, false),
                0);
      ASSERT_FALSE(frame.IsEmpty());
      EXPECT_EQ(frame->GetBounds(), (host::FrameBounds{0, 0, width, height}));
      EXPECT_EQ(frame->GetPixelFormat(), c.format);
      EXPECT_EQ(frame->GetPixelAspectRatio(), 1.5f);
      EXPECT_EQ(frame->GetColorSpace(), host::ColorSpace::Rec2020);
      const auto memory = frame.Query<IVideoFrameMemoryAccess>();
      const auto layout = frame.Query<IVideoFrame2DPixelMemoryAccess>();
      ASSERT_FALSE(memory.IsEmpty());
      ASSERT_FALSE(layout.IsEmpty());
      EXPECT_EQ(memory->GetRowBytes(), width * c.bytesPerPixel);
      EXPECT_EQ(layout->GetRowBytes(), width * c.bytesPerPixel);
      EXPECT_EQ(layout->GetPlaneCount(), 1u);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(memory->GetBaseAddress()) % 64, 0u);
      // The whole block is writable (the sanitizer build checks its extent).
      std::memset(memory->GetBaseAddress(), 0x3C, width * c.bytesPerPixel * height);
    }
  }
}

TEST(CreateVideoFrame, AnswersHostMemoryInterfacesOnly) {
  FrameRef frame;
  ASSERT_EQ(host::CreateVideoFrame(frame, host::kPixelFormat_BGRA_4444_8u, 2, 2, 1.0f,
                                   host::ColorSpace::Unknown, true, false),
            0);
  for (const char* name : kHostMemoryInterfaces)
    EXPECT_NE(frame.Object()->QueryInterface(name), nullptr) << name;
  for (const char* name : kGPUInterfaces)
    EXPECT_EQ(frame.Object()->QueryInterface(name), nullptr) << name;
  EXPECT_EQ(frame.Object()->QueryInterface("ivideoframe"), nullptr);
  EXPECT_EQ(frame.Object()->QueryInterface(""), nullptr);
}

TEST(CreateVideoFrame, FailuresLeaveTheReferenceAlone) {
  FrameRef existing;
  ASSERT_EQ(host::CreateVideoFrame(existing, host::kPixelFormat_BGRA_4444_8u, 1, 1, 1.0f,
                                   host::ColorSpace::Unknown, false, false),
            0);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    const char* what;
    host::PixelFormat format;
    uint32_t width, height;
    float aspect;
    bool gpu;
    int expected;
  };
  const Case cases[] = {
      {"unknown format", {0x12345678u, 8}, 4, 4, 1.0f, false, host::kFrameErrorInvalidArgument},
      {"zero width", host::kPixelFormat_BGRA_4444_8u, 0, 4, 1.0f, false,
       host::kFrameErrorInvalidArgument},
      {"zero height", host::kPixelFormat_BGRA_4444_8u, 4, 0, 1.0f, false,
       host::kFrameErrorInvalidArgument},
      {"NaN aspect ratio", host::kPixelFormat_BGRA_4444_8u, 4, 4, nan, false,
       host::kFrameErrorInvalidArgument},
      {"zero aspect ratio", host::kPixelFormat_BGRA_4444_8u, 4, 4, 0.0f, false,
       host::kFrameErrorInvalidArgument},
      {"negative aspect ratio", host::kPixelFormat_BGRA_4444_8u, 4, 4, -1.0f, false,
       host::kFrameErrorInvalidArgument},
      {"GPU memory", host::kPixelFormat_BGRA_4444_8u, 4, 4, 1.0f, true, host::kFrameErrorNoDevice},
      {"size beyond 64 bits", host::kPixelFormat_BGRA_4444_32f, 0xFFFFFFFFu, 0xFFFFFFFFu, 1.0f,
       false, host::kFrameErrorOutOfMemory},
      {"size beyond the allocator", host::kPixelFormat_BGRA_4444_32f, 0xFFFFFFFFu, 0xFFFFu, 1.0f,
       false, host::kFrameErrorOutOfMemory},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FrameRef frame = existing;
    EXPECT_EQ(host::CreateVideoFrame(frame, c.format, c.width, c.height, c.aspect,
                                     host::ColorSpace::Rec709, true, c.gpu),
              c.expected);
    EXPECT_EQ(frame.Object(), existing.Object());
    EXPECT_EQ(frame.Get(), existing.Get());
  }
}

// Frame memory is recycled: a cleared frame must not show the previous frame's pixels.
TEST(CreateVideoFrame, ClearPixelsOverRecycledMemory) {
  host::RecycledMemory::Purge();
  constexpr uint32_t kWidth = 33, kHeight = 9;
  const size_t bytes = kWidth * kHeight * 16;
  void* previousBase = nullptr;
  {
    FrameRef dirty;
    ASSERT_EQ(host::CreateVideoFrame(dirty, host::kPixelFormat_BGRA_4444_32f, kWidth, kHeight, 1.0f,
                                     host::ColorSpace::Unknown, false, false),
              0);
    previousBase = dirty.Query<IVideoFrameMemoryAccess>()->GetBaseAddress();
    std::memset(previousBase, 0xCD, bytes);
  }
  FrameRef clean;
  ASSERT_EQ(host::CreateVideoFrame(clean, host::kPixelFormat_BGRA_4444_32f, kWidth, kHeight, 1.0f,
                                   host::ColorSpace::Unknown, true, false),
            0);
  const auto* pixels =
      static_cast<const uint8_t*>(clean.Query<IVideoFrameMemoryAccess>()->GetBaseAddress());
  EXPECT_EQ(pixels, previousBase) << "the block was expected to be reused";
  EXPECT_EQ(std::vector<uint8_t>(pixels, pixels + bytes), std::vector<uint8_t>(bytes, 0));
}

TEST(CreateVideoFrame, PixelsLiveAsLongAsAnyInterface) {
  InterfaceRef<IVideoFrameMemoryAccess> memory;
  {
    FrameRef frame;
    ASSERT_EQ(host::CreateVideoFrame(frame, host::kPixelFormat_BGRA_4444_16u, 8, 8, 1.0f,
                                     host::ColorSpace::Unknown, true, false),
              0);
    memory = frame.Query<IVideoFrameMemoryAccess>();
  }
  // Reading after the frame reference is gone is valid (the sanitizer build checks it).
  const auto* pixels = static_cast<const uint16_t*>(memory->GetBaseAddress());
  EXPECT_EQ(pixels[8 * 8 * 4 - 1], 0);
}

TEST(CreateVideoFrameView, ViewsCallerMemoryWithAnyStride) {
  constexpr uint32_t kWidth = 3, kHeight = 2;
  auto storage = std::make_shared<std::vector<uint8_t>>(1 + kWidth * 16 * kHeight + 64);
  std::weak_ptr<std::vector<uint8_t>> watch = storage;
  uint8_t* base = storage->data() + 1;  // unaligned on purpose: taken as it is
  FrameRef frame;
  ASSERT_EQ(
      host::CreateVideoFrameView(frame, host::kPixelFormat_BGRA_4444_32f, kWidth, kHeight, base,
                                 kWidth * 16 + 7, storage, 2.0f, host::ColorSpace::ACEScg),
      0);
  storage.reset();
  EXPECT_FALSE(watch.expired()) << "the view must hold its keep-alive object";
  EXPECT_EQ(frame->GetBounds(), (host::FrameBounds{0, 0, kWidth, kHeight}));
  EXPECT_EQ(frame->GetPixelAspectRatio(), 2.0f);
  EXPECT_EQ(frame->GetColorSpace(), host::ColorSpace::ACEScg);
  EXPECT_EQ(frame.Query<IVideoFrameMemoryAccess>()->GetBaseAddress(), base);
  EXPECT_EQ(frame.Query<IVideoFrameMemoryAccess>()->GetRowBytes(), kWidth * 16 + 7);
  EXPECT_EQ(frame.Query<IVideoFrame2DPixelMemoryAccess>()->GetRowBytes(), kWidth * 16 + 7);
  for (const char* name : kGPUInterfaces)
    EXPECT_EQ(frame.Object()->QueryInterface(name), nullptr);
  frame.Reset();
  EXPECT_TRUE(watch.expired());

  // Exactly the packed row length is accepted (with no keep-alive object at all).
  std::vector<uint8_t> memory(kWidth * 4 * kHeight);
  FrameRef packed;
  EXPECT_EQ(host::CreateVideoFrameView(packed, host::kPixelFormat_BGRA_4444_8u, kWidth, kHeight,
                                       memory.data(), kWidth * 4, nullptr),
            0);
}

TEST(CreateVideoFrameView, RefusesBadArgumentsWithoutTouchingTheReference) {
  std::vector<uint8_t> memory(1024);
  struct Case {
    const char* what;
    host::PixelFormat format;
    uint32_t width, height;
    void* base;
    size_t rowBytes;
  };
  const Case cases[] = {
      {"null memory", host::kPixelFormat_BGRA_4444_8u, 4, 4, nullptr, 16},
      {"rows one byte short", host::kPixelFormat_BGRA_4444_8u, 4, 4, memory.data(), 15},
      {"rows short for 16-bit", host::kPixelFormat_BGRA_4444_16u, 4, 4, memory.data(), 16},
      {"unknown format", {1, 1}, 4, 4, memory.data(), 64},
      {"zero width", host::kPixelFormat_BGRA_4444_8u, 0, 4, memory.data(), 16},
      {"zero height", host::kPixelFormat_BGRA_4444_8u, 4, 0, memory.data(), 16},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FrameRef frame;
    EXPECT_EQ(
        host::CreateVideoFrameView(frame, c.format, c.width, c.height, c.base, c.rowBytes, nullptr),
        host::kFrameErrorInvalidArgument);
    EXPECT_TRUE(frame.IsEmpty());
    EXPECT_EQ(frame.Object(), nullptr);
  }
}

class FrameWithInterfaces : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(host::CreateVideoFrame(frame_, host::kPixelFormat_BGRA_4444_8u, 4, 3, 1.25f,
                                     host::ColorSpace::sRGB, true, false),
              0);
  }
  FrameRef frame_;
};

TEST_F(FrameWithInterfaces, AnswersTheChosenInterfaces) {
  struct Case {
    const char* what;
    host::FrameInterfaceChoice choice;
    bool videoFrame, memory, layout, gpu;
  };
  const Case cases[] = {
      {"all host interfaces", {}, true, true, true, false},
      {"no 2-D layout", {.pixelMemoryAccess2D = false}, true, true, false, false},
      {"no memory access", {.memoryAccess = false}, true, false, true, false},
      {"no row bytes at all",
       {.memoryAccess = false, .pixelMemoryAccess2D = false},
       true,
       false,
       false,
       false},
      {"claims the GPU", {.gpuVideoFrame = true, .deviceIndex = 3}, true, true, true, true},
      {"not a video frame", {.videoFrame = false}, false, true, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto object = host::CreateFrameWithInterfaces(frame_, c.choice);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->QueryInterface("IVideoFrame") != nullptr, c.videoFrame);
    EXPECT_EQ(object->QueryInterface("IVideoFrameMemoryAccess") != nullptr, c.memory);
    EXPECT_EQ(object->QueryInterface("IVideoFrame2DPixelMemoryAccess") != nullptr, c.layout);
    EXPECT_EQ(object->QueryInterface("IGPUVideoFrame") != nullptr, c.gpu);
    EXPECT_EQ(object->QueryInterface("IGPUVideoFrameMemoryAccess"), nullptr);
    if (c.gpu) {
      EXPECT_EQ(InterfaceRef<host::IGPUVideoFrame>::FromObject(object)->GetDeviceIndex(), 3u);
    }
    const auto ref = FrameRef::FromObject(object);
    EXPECT_EQ(ref.IsEmpty(), !c.videoFrame);
    if (!c.memory) {
      // Calling through the missing interface names it.
      const auto memory = InterfaceRef<IVideoFrameMemoryAccess>::FromObject(object);
      try {
        memory->GetBaseAddress();
        ADD_FAILURE() << "no exception";
      } catch (const host::NullPointerException& e) {
        EXPECT_NE(std::string(e.what()).find("IVideoFrameMemoryAccess"), std::string::npos);
      }
    }
  }
}

TEST_F(FrameWithInterfaces, ForwardsTheFrameAndItsOverrides) {
  host::FrameInterfaceChoice choice;
  choice.left = 5;
  choice.top = 6;
  choice.rowBytes2D = 999;
  auto object = host::CreateFrameWithInterfaces(frame_, choice);
  ASSERT_NE(object, nullptr);
  const auto ref = FrameRef::FromObject(object);
  EXPECT_EQ(ref->GetBounds(), (host::FrameBounds{5, 6, 4, 3}));
  EXPECT_EQ(ref->GetPixelFormat(), host::kPixelFormat_BGRA_4444_8u);
  EXPECT_EQ(ref->GetPixelAspectRatio(), 1.25f);
  EXPECT_EQ(ref->GetColorSpace(), host::ColorSpace::sRGB);
  const auto original = frame_.Query<IVideoFrameMemoryAccess>();
  const auto memory = ref.Query<IVideoFrameMemoryAccess>();
  EXPECT_EQ(memory->GetBaseAddress(), original->GetBaseAddress());
  EXPECT_EQ(memory->GetRowBytes(), 16u);
  EXPECT_EQ(ref.Query<IVideoFrame2DPixelMemoryAccess>()->GetRowBytes(), 999u);
  EXPECT_EQ(ref.Query<IVideoFrame2DPixelMemoryAccess>()->GetPlaneCount(), 1u);

  // It holds the frame: the pixels stay valid after the caller drops its own reference.
  std::weak_ptr<host::IObject> watch = frame_.Object();
  frame_.Reset();
  EXPECT_FALSE(watch.expired());
  object.reset();
  EXPECT_FALSE(watch.expired());  // `ref` and `memory` still hold it
}

TEST(FrameWithInterfacesOfNothing, IsNull) {
  EXPECT_EQ(host::CreateFrameWithInterfaces(FrameRef(), {}), nullptr);
}

}  // namespace
