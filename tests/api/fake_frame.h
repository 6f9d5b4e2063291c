// A host frame double for the dispatcher's checks: bounds and pixel format only, optionally
// claiming to live on a GPU. It has no pixel memory.
#pragma once

#include <memory>
#include <string_view>

#include "host/video_frame.h"

namespace crandle_test {

class FakeFrame final : public host::IObject, public host::IVideoFrame, public host::IGPUVideoFrame {
 public:
  FakeFrame(uint32_t width, uint32_t height, bool onGPU) : bounds_{0, 0, width, height}, onGPU_(onGPU) {}

  static host::InterfaceRef<host::IVideoFrame> Make(uint32_t width, uint32_t height, bool onGPU = false) {
    return host::InterfaceRef<host::IVideoFrame>::FromObject(std::make_shared<FakeFrame>(width, height, onGPU));
  }

  void* QueryInterface(std::string_view name) noexcept override {
    if (name == host::IVideoFrame::kInterfaceName) return static_cast<host::IVideoFrame*>(this);
    if (onGPU_ && name == host::IGPUVideoFrame::kInterfaceName) return static_cast<host::IGPUVideoFrame*>(this);
    return nullptr;
  }
  host::FrameBounds GetBounds() const override { return bounds_; }
  float GetPixelAspectRatio() const override { return 1.0f; }
  host::PixelFormat GetPixelFormat() const override { return host::kPixelFormat_BGRA_4444_32f; }
  host::ColorSpace GetColorSpace() const override { return host::ColorSpace::Unknown; }
  uint32_t GetDeviceIndex() const override { return 0; }

 private:
  host::FrameBounds bounds_;
  bool onGPU_;
};

}  // namespace crandle_test
