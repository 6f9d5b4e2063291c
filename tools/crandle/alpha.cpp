#include "alpha.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace crandle_tool {
namespace {

constexpr const char* kUnassociatedAttribute = "oiio:UnassociatedAlpha";

}  // namespace

bool ColourIsAssociated(const SImage& image, const SChannelLayout& layout) {
  return layout.alpha >= 0 && image.spec.get_int_attribute(kUnassociatedAttribute, 0) == 0;
}

bool WriterKeepsUnassociatedAlpha(const std::string& path) {
  const auto output = OIIO::ImageOutput::create(path);
  if (!output) return false;
  // These writers honour the attribute (and mark the file as unassociated); the others take the
  // library's convention of associated colour and store it as their format defines.
  static constexpr std::array<std::string_view, 3> kKeeping = {"png", "tiff", "targa"};
  return std::find(kKeeping.begin(), kKeeping.end(), std::string_view(output->format_name())) !=
         kKeeping.end();
}

void DivideByAlpha(CPicture& picture, uint32_t rows) {
  for (uint32_t y = 0; y < std::min(rows, picture.Height()); ++y) {
    auto* bgra = reinterpret_cast<float*>(picture.Row(y));
    for (uint32_t x = 0; x < picture.Width(); ++x, bgra += 4) {
      const float alpha = bgra[3];
      if (!(alpha > 0.0f)) continue;
      bgra[0] /= alpha;
      bgra[1] /= alpha;
      bgra[2] /= alpha;
    }
  }
}

void ReassociateAlpha(CPicture& picture, const SImage& source, const SChannelLayout& layout) {
  const size_t channels = size_t(source.spec.nchannels);
  for (uint32_t y = 0; y < picture.Height(); ++y) {
    auto* bgra = reinterpret_cast<float*>(picture.Row(y));
    size_t in = size_t(y) * picture.Width() * channels;
    for (uint32_t x = 0; x < picture.Width(); ++x, bgra += 4, in += channels) {
      const float alpha = bgra[3];
      if (alpha > 0.0f) {
        bgra[0] *= alpha;
        bgra[1] *= alpha;
        bgra[2] *= alpha;
      } else {
        bgra[0] = UnitSample(source, in + size_t(layout.blue));
        bgra[1] = UnitSample(source, in + size_t(layout.green));
        bgra[2] = UnitSample(source, in + size_t(layout.red));
      }
    }
  }
}

void AssociateAlpha(SImage& image) {
  image.spec.erase_attribute(kUnassociatedAttribute);
  SChannelLayout layout;
  if (image.sampleType != OIIO::TypeDesc::FLOAT || !FindChannels(image.spec, layout) ||
      layout.alpha < 0) {
    return;
  }
  const size_t channels = size_t(image.spec.nchannels);
  const size_t pixels = image.samples.size() / sizeof(float) / channels;
  auto* samples = reinterpret_cast<float*>(image.samples.data());
  for (size_t p = 0; p < pixels; ++p, samples += channels) {
    const float alpha = samples[layout.alpha] > 0.0f ? samples[layout.alpha] : 0.0f;
    samples[layout.red] *= alpha;
    if (!layout.grey) {
      samples[layout.green] *= alpha;
      samples[layout.blue] *= alpha;
    }
  }
}

SAlphaPlan PlanAlpha(const SImage& image, const SChannelLayout& layout,
                     const std::string& outputPath, bool asStored) {
  SAlphaPlan plan;
  const bool associated = ColourIsAssociated(image, layout);
  plan.unassociate = associated && !asStored;
  plan.associateForWriter =
      layout.alpha >= 0 && !associated && !WriterKeepsUnassociatedAlpha(outputPath);
  return plan;
}

bool PackForGrade(const SImage& image, const SChannelLayout& layout, const SAlphaPlan& plan,
                  CPicture& picture) {
  if (!plan.unassociate) return PackImage(image, layout, picture);
  if (!PackImageAsFloat(image, layout, picture)) return false;
  DivideByAlpha(picture);
  return true;
}

SImage UnpackGraded(CPicture& picture, const SImage& source, const SChannelLayout& layout,
                    const SAlphaPlan& plan) {
  if (plan.unassociate) ReassociateAlpha(picture, source, layout);
  SImage output = UnpackPicture(picture, source, layout);
  if (plan.associateForWriter) AssociateAlpha(output);
  return output;
}

}  // namespace crandle_tool
