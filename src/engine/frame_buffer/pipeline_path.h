// A frame buffer's history: one line of English per change, kept for debugging.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/frame_buffer/frame_buffer_format.h"

namespace Tincta {

/// One entry of a pipeline path. Steps never change once made, so paths share them.
class COvPipelineStep {
 public:
  virtual ~COvPipelineStep() = default;
  /// The step's line of history (no line break).
  virtual std::string Text() const = 0;
};

/// A step that prints a frame buffer format (see `DescribeFrameBufferFormat`).
class COvFrameBufferFormatStep final : public COvPipelineStep {
 public:
  explicit COvFrameBufferFormatStep(const FrameBufferFormat& format) : format_(format) {}
  std::string Text() const override { return DescribeFrameBufferFormat(format_); }
  const FrameBufferFormat& Format() const { return format_; }

 private:
  FrameBufferFormat format_;
};

/// The ordered steps of a frame buffer's history.
class COvPipelinePath {
 public:
  /// A step holding one line of text.
  class CStringStep final : public COvPipelineStep {
   public:
    explicit CStringStep(std::string text) : text_(std::move(text)) {}
    std::string Text() const override { return text_; }

   private:
    std::string text_;
  };

  /// Appends a text step.
  void AddText(std::string text);
  /// Appends a format step.
  void AddFormat(const FrameBufferFormat& format);
  /// Appends "Size: <width> x <height>".
  void AddSize(uint32_t width, uint32_t height);
  /// Appends every step of `other`, in order.
  void Append(const COvPipelinePath& other);
  void Clear() { steps_.clear(); }

  size_t StepCount() const { return steps_.size(); }
  const COvPipelineStep& Step(size_t index) const { return *steps_[index]; }
  /// The lines of all steps, each ended by a line break.
  std::string Text() const;

 private:
  std::vector<std::shared_ptr<const COvPipelineStep>> steps_;
};

}  // namespace Tincta
