#include "engine/frame_buffer/pipeline_path.h"

namespace Tincta {

void COvPipelinePath::AddText(std::string text) {
  steps_.push_back(std::make_shared<const CStringStep>(std::move(text)));
}

void COvPipelinePath::AddFormat(const FrameBufferFormat& format) {
  steps_.push_back(std::make_shared<const COvFrameBufferFormatStep>(format));
}

void COvPipelinePath::AddSize(uint32_t width, uint32_t height) {
  AddText("Size: " + std::to_string(width) + " x " + std::to_string(height));
}

void COvPipelinePath::Append(const COvPipelinePath& other) {
  // A copy first: `other` may be this very path.
  const auto steps = other.steps_;
  steps_.insert(steps_.end(), steps.begin(), steps.end());
}

std::string COvPipelinePath::Text() const {
  std::string text;
  for (const auto& step : steps_) {
    text += step->Text();
    text += '\n';
  }
  return text;
}

}  // namespace Tincta
