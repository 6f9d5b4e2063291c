#include "host/frame_interfaces.h"

#include <new>
#include <string_view>

namespace host {
namespace {

// Forwards to the frame it stands for; which interfaces it admits to is fixed at creation. The
// row-bytes interfaces are separate members because the 2-D one may report its own value (so
// that callers can be checked for asking the right one).
class CFrameWithInterfaces final : public IObject, public IVideoFrame, public IGPUVideoFrame {
 public:
  CFrameWithInterfaces(const InterfaceRef<IVideoFrame>& frame, const FrameInterfaceChoice& choice)
      : frame_(frame),
        memory_(frame.Query<IVideoFrameMemoryAccess>()),
        layout_(frame.Query<IVideoFrame2DPixelMemoryAccess>(), choice.rowBytes2D),
        choice_(choice) {}

  void* QueryInterface(std::string_view name) noexcept override {
    if (name == IVideoFrame::kInterfaceName && choice_.videoFrame)
      return static_cast<IVideoFrame*>(this);
    if (name == IVideoFrameMemoryAccess::kInterfaceName && choice_.memoryAccess && memory_.Has())
      return static_cast<IVideoFrameMemoryAccess*>(&memory_);
    if (name == IVideoFrame2DPixelMemoryAccess::kInterfaceName && choice_.pixelMemoryAccess2D &&
        layout_.Has())
      return static_cast<IVideoFrame2DPixelMemoryAccess*>(&layout_);
    if (name == IGPUVideoFrame::kInterfaceName && choice_.gpuVideoFrame)
      return static_cast<IGPUVideoFrame*>(this);
    return nullptr;
  }

  FrameBounds GetBounds() const override {
    FrameBounds bounds = frame_->GetBounds();
    bounds.left = choice_.left;
    bounds.top = choice_.top;
    return bounds;
  }
  float GetPixelAspectRatio() const override { return frame_->GetPixelAspectRatio(); }
  PixelFormat GetPixelFormat() const override { return frame_->GetPixelFormat(); }
  ColorSpace GetColorSpace() const override { return frame_->GetColorSpace(); }
  uint32_t GetDeviceIndex() const override { return choice_.deviceIndex; }

 private:
  class CMemoryAccess final : public IVideoFrameMemoryAccess {
   public:
    explicit CMemoryAccess(InterfaceRef<IVideoFrameMemoryAccess> inner)
        : inner_(std::move(inner)) {}
    bool Has() const { return !inner_.IsEmpty(); }
    void* GetBaseAddress() const override { return inner_->GetBaseAddress(); }
    size_t GetRowBytes() const override { return inner_->GetRowBytes(); }

   private:
    InterfaceRef<IVideoFrameMemoryAccess> inner_;
  };

  class CLayout final : public IVideoFrame2DPixelMemoryAccess {
   public:
    CLayout(InterfaceRef<IVideoFrame2DPixelMemoryAccess> inner, size_t rowBytes)
        : inner_(std::move(inner)), rowBytes_(rowBytes) {}
    bool Has() const { return !inner_.IsEmpty(); }
    uint32_t GetPlaneCount() const override { return inner_->GetPlaneCount(); }
    size_t GetRowBytes() const override {
      return rowBytes_ != 0 ? rowBytes_ : inner_->GetRowBytes();
    }

   private:
    InterfaceRef<IVideoFrame2DPixelMemoryAccess> inner_;
    size_t rowBytes_;
  };

  InterfaceRef<IVideoFrame> frame_;
  CMemoryAccess memory_;
  CLayout layout_;
  FrameInterfaceChoice choice_;
};

}  // namespace

std::shared_ptr<IObject> CreateFrameWithInterfaces(const InterfaceRef<IVideoFrame>& frame,
                                                   const FrameInterfaceChoice& choice) {
  if (frame.IsEmpty()) return nullptr;
  try {
    return std::make_shared<CFrameWithInterfaces>(frame, choice);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace host
