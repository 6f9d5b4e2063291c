// Host frames, views of caller memory, frames with chosen interfaces, and their references.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "host/binary_data.h"
#include "host/frame_interfaces.h"
#include "host/video_frame.h"
#include "support/gpu_frames.h"

namespace {

using namespace host;
using crandle_test::FrameRef;
using crandle_test::HostFrame;
using Memory = InterfaceRef<IVideoFrameMemoryAccess>;
using Layout = InterfaceRef<IVideoFrame2DPixelMemoryAccess>;

// The text of the null-pointer exception that `call` raises ("" for none).
template <class F>
std::string NullPointerText(F call) {
  try {
    call();
  } catch (const NullPointerException& e) {
    return e.what();
  }
  return "";
}

TEST(CreateVideoFrame, PackedAlignedRowsAndHostInterfacesOnly) {
  const std::pair<PixelFormat, size_t> formats[] = {{kPixelFormat_BGRA_4444_8u, 4},
                                                    {kPixelFormat_BGRA_4444_16u, 8},
                                                    {kPixelFormat_BGRA_4444_32f, 16},
                                                    {kPixelFormat_RGB_101010_10u_BE, 4}};
  for (const auto& [format, bytesPerPixel] : formats) {
    for (uint32_t width : {1u, 3u, 1920u}) {
      const FrameRef frame = HostFrame(format, width, 7);
      const Memory memory = frame.Query<IVideoFrameMemoryAccess>();
      const Layout layout = frame.Query<IVideoFrame2DPixelMemoryAccess>();
      EXPECT_EQ(std::tuple(memory->GetRowBytes(), layout->GetRowBytes(), layout->GetPlaneCount()),
                std::tuple(width * bytesPerPixel, width * bytesPerPixel, 1u));
      EXPECT_EQ(reinterpret_cast<uintptr_t>(memory->GetBaseAddress()) % 64, 0u);
      std::memset(memory->GetBaseAddress(), 0x3C, width * bytesPerPixel * 7);  // all writable
      for (const char* name : {"IGPUVideoFrame", "IGPUVideoFrameMemoryAccess",
                               "ICompletionEventVideoFrame", "ivideoframe", ""})
        EXPECT_EQ(frame.Object()->QueryInterface(name), nullptr) << name;
    }
  }
}

TEST(CreateVideoFrame, FailuresLeaveTheReferenceAlone) {
  const FrameRef existing = HostFrame(kPixelFormat_BGRA_4444_8u, 1, 1);
  const PixelFormat k8 = kPixelFormat_BGRA_4444_8u, k32 = kPixelFormat_BGRA_4444_32f;
  const std::tuple<PixelFormat, uint32_t, uint32_t, float, bool, int> cases[] = {
      {{0x12345678u, 8}, 4, 4, 1, false, kFrameErrorInvalidArgument},
      {k8, 0, 4, 1, false, kFrameErrorInvalidArgument},
      {k8, 4, 0, 1, false, kFrameErrorInvalidArgument},
      {k8, 4, 4, NAN, false, kFrameErrorInvalidArgument},
      {k8, 4, 4, -1, false, kFrameErrorInvalidArgument},
      {kPixelFormat_RGB_101010_10u_BE, 4, 4, 1, true, kFrameErrorInvalidArgument},  // not on GPUs
      {k32, 0xFFFFFFFFu, 0xFFFFFFFFu, 1, false, kFrameErrorOutOfMemory},  // beyond 64 bits
      {k32, 0xFFFFFFFFu, 0xFFFFu, 1, false, kFrameErrorOutOfMemory}};     // beyond the allocator
  for (const auto& [format, width, height, aspect, gpu, result] : cases) {
    FrameRef frame = existing;
    EXPECT_EQ(CreateVideoFrame(frame, format, width, height, aspect, {}, true, gpu), result);
    EXPECT_TRUE(frame.Object() == existing.Object() && frame.Get() == existing.Get());
  }
}

// Frame memory is recycled: a cleared frame must not show the last frame's pixels, and the
// pixels live as long as any interface of the frame.
TEST(CreateVideoFrame, ClearedRecycledMemoryAndPixelLifetime) {
  RecycledMemory::Purge();
  Memory memory = HostFrame(kPixelFormat_BGRA_4444_32f, 33, 9).Query<IVideoFrameMemoryAccess>();
  void* const previous = memory->GetBaseAddress();
  std::memset(previous, 0xCD, 33 * 9 * 16);  // valid after the frame reference is gone
  memory.Reset();
  const FrameRef clean = HostFrame(kPixelFormat_BGRA_4444_32f, 33, 9);
  const auto* pixels =
      static_cast<const uint8_t*>(clean.Query<IVideoFrameMemoryAccess>()->GetBaseAddress());
  ASSERT_EQ(pixels, previous) << "the block was expected to be reused";
  EXPECT_EQ(std::vector<uint8_t>(pixels, pixels + 33 * 9 * 16), std::vector<uint8_t>(33 * 9 * 16));
}

TEST(CreateVideoFrameView, CallerMemoryAnyStrideAndRefusals) {
  auto storage = std::make_shared<std::vector<uint8_t>>(1024);
  const std::weak_ptr<std::vector<uint8_t>> watch = storage;
  uint8_t* const m = storage->data() + 1;  // unaligned on purpose: taken as it is
  FrameRef frame;
  ASSERT_EQ(CreateVideoFrameView(frame, kPixelFormat_BGRA_4444_32f, 3, 2, m, 55, storage), 0);
  storage.reset();
  EXPECT_FALSE(watch.expired()) << "the view holds its keep-alive object";
  EXPECT_EQ(frame.Query<IVideoFrameMemoryAccess>()->GetBaseAddress(), m);
  EXPECT_EQ(frame.Query<IVideoFrame2DPixelMemoryAccess>()->GetRowBytes(), 55u);
  const std::tuple<PixelFormat, uint32_t, void*, size_t> refused[] = {
      {kPixelFormat_BGRA_4444_8u, 4, nullptr, 16},
      {kPixelFormat_BGRA_4444_8u, 4, m, 15},
      {kPixelFormat_BGRA_4444_16u, 4, m, 16},
      {{1, 1}, 4, m, 64},
      {kPixelFormat_BGRA_4444_8u, 0, m, 16}};
  for (const auto& [format, width, base, rowBytes] : refused) {
    FrameRef none;
    EXPECT_EQ(CreateVideoFrameView(none, format, width, 4, base, rowBytes, nullptr),
              kFrameErrorInvalidArgument);
    EXPECT_EQ(none.Object(), nullptr);
  }
  frame.Reset();
  EXPECT_TRUE(watch.expired());
}

// The stand-in frames that hosts and tests use to leave interfaces out; the references that reach
// them name a missing interface when called through.
TEST(FrameWithInterfaces, AnswersTheChosenAndForwardsTheRest) {
  FrameRef frame;
  ASSERT_EQ(CreateVideoFrame(frame, kPixelFormat_BGRA_4444_8u, 4, 3, 1.25f, ColorSpace::sRGB, true,
                             false),
            0);
  EXPECT_EQ(CreateFrameWithInterfaces(FrameRef(), {}), nullptr);
  const std::tuple<FrameInterfaceChoice, bool, bool, bool, bool> cases[] = {
      {{}, true, true, true, false},
      {{.pixelMemoryAccess2D = false}, true, true, false, false},
      {{.memoryAccess = false, .pixelMemoryAccess2D = false}, true, false, false, false},
      {{.gpuVideoFrame = true, .deviceIndex = 3}, true, true, true, true},
      {{.videoFrame = false}, false, true, true, false}};
  for (const auto& [choice, videoFrame, memory, layout, gpu] : cases) {
    const auto object = CreateFrameWithInterfaces(frame, choice);
    EXPECT_EQ(FrameRef::FromObject(object).IsEmpty(), !videoFrame);
    EXPECT_EQ(Layout::FromObject(object).IsEmpty(), !layout);
    EXPECT_EQ(object->QueryInterface("IGPUVideoFrameMemoryAccess"), nullptr);
    const auto device = InterfaceRef<IGPUVideoFrame>::FromObject(object);
    EXPECT_EQ(NullPointerText([&] { EXPECT_EQ(device->GetDeviceIndex(), 3u); }).empty(), gpu);
    const auto pixels = Memory::FromObject(object);
    const std::string text = NullPointerText([&] { pixels->GetBaseAddress(); });
    EXPECT_EQ(text.find("IVideoFrameMemoryAccess") != std::string::npos, !memory);
  }
  EXPECT_TRUE(FrameRef(frame.Object(), nullptr).IsEmpty());
  EXPECT_TRUE(FrameRef(nullptr, frame.Get()).IsEmpty());
  EXPECT_NE(NullPointerText([] { FrameRef().Query<IGPUVideoFrame>(); }).find("IVideoFrame"),
            std::string::npos);

  auto object = CreateFrameWithInterfaces(frame, {.left = 5, .top = 6, .rowBytes2D = 999});
  const FrameRef ref = FrameRef::FromObject(object);
  EXPECT_EQ(std::tuple(ref->GetBounds(), ref->GetPixelFormat(), ref->GetColorSpace()),
            std::tuple(FrameBounds{5, 6, 4, 3}, kPixelFormat_BGRA_4444_8u, ColorSpace::sRGB));
  const auto pixels = ref.Query<IVideoFrameMemoryAccess>();
  EXPECT_EQ(pixels->GetBaseAddress(), frame.Query<IVideoFrameMemoryAccess>()->GetBaseAddress());
  EXPECT_EQ(pixels->GetRowBytes(), 16u);
  EXPECT_EQ(ref.Query<IVideoFrame2DPixelMemoryAccess>()->GetRowBytes(), 999u);
  const std::weak_ptr<IObject> watch = frame.Object();
  frame.Reset();
  object.reset();
  EXPECT_FALSE(watch.expired()) << "the stand-in holds the frame it forwards to";
}

}  // namespace
