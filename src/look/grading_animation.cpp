#include "look/grading_animation.h"

#include "foundation/xml_storage.h"
#include "look/look_xml_text.h"

namespace Tincta {

bool COvGradingAnimation::AddKeyframe(uint32_t track, uint32_t layer, SKeyframe keyframe) {
  if (track > tracks_.size()) return false;
  const bool newTrack = track == tracks_.size();
  const size_t layers = newTrack ? 0 : tracks_[track].layers.size();
  if (layer > layers) return false;
  if (layer < layers) {
    const auto& keyframes = tracks_[track].layers[layer].keyframes;
    if (!keyframes.empty() && keyframe.time <= keyframes.back().time) return false;
  }
  if (newTrack) tracks_.emplace_back();
  auto& layerList = tracks_[track].layers;
  if (layer == layerList.size()) layerList.emplace_back();
  layerList[layer].keyframes.push_back(std::move(keyframe));
  return true;
}

bool COvGradingAnimation::AppendLayer(uint32_t track, SKeyframe keyframe) {
  if (track > tracks_.size()) return false;
  const size_t layer = track == tracks_.size() ? 0 : tracks_[track].layers.size();
  return AddKeyframe(track, uint32_t(layer), std::move(keyframe));
}

bool COvGradingAnimation::AttachMask(std::shared_ptr<const COvShadingMask> mask) {
  if (tracks_.size() != 1) return false;
  bool first = true;
  for (SLayer& layer : tracks_.front().layers) {
    layer.mask = mask;
    layer.reusesMask = !first;
    first = false;
  }
  return true;
}

const COvShadingMask* COvGradingAnimation::Mask() const {
  for (const STrack& track : tracks_) {
    for (const SLayer& layer : track.layers) {
      if (layer.mask) return layer.mask.get();
    }
  }
  return nullptr;
}

bool COvGradingAnimation::ReadKeyframe(const pugi::xml_node& element, std::string& error) {
  bool hasTrack = false, hasLayer = false, hasTime = false;
  uint32_t track = 0, layer = 0;
  SKeyframe keyframe;
  std::string text;
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (ElementNameIs(child, "operation")) {
      COvGradingOperation operation;
      if (!operation.Read(child, error)) return false;
      keyframe.operations.push_back(std::move(operation));
      continue;
    }
    const bool isTrack = ElementNameIs(child, "track");
    const bool isLayer = ElementNameIs(child, "layer");
    const bool isTime = ElementNameIs(child, "time");
    if (!isTrack && !isLayer && !isTime) continue;
    if (!ReadElementText(child, text, &error)) return false;
    const bool parsed = isTrack   ? ParseLookUnsigned(text, track)
                        : isLayer ? ParseLookUnsigned(text, layer)
                                  : ParseLookSigned(text, keyframe.time);
    if (!parsed) {
      error =
          "a keyframe's " + std::string(child.name()) + " is not a whole number: \"" + text + "\"";
      return false;
    }
    (isTrack ? hasTrack : isLayer ? hasLayer : hasTime) = true;
  }
  if (!hasTrack || !hasLayer || !hasTime) {
    error = "a keyframe lacks its track, layer or time";
    return false;
  }
  if (!AddKeyframe(track, layer, std::move(keyframe))) {
    error = "a keyframe of track " + std::to_string(track) + ", layer " + std::to_string(layer) +
            " is out of order";
    return false;
  }
  return true;
}

void COvGradingAnimation::Write(int indent, std::string& out) const {
  const std::string padding(size_t(indent), ' ');
  for (size_t track = 0; track < tracks_.size(); ++track) {
    const auto& layers = tracks_[track].layers;
    for (size_t layer = 0; layer < layers.size(); ++layer) {
      for (const SKeyframe& keyframe : layers[layer].keyframes) {
        out += padding + "<keyframe>\n";
        AppendLookTextElement(out, indent + 2, "track", std::to_string(track));
        AppendLookTextElement(out, indent + 2, "layer", std::to_string(layer));
        AppendLookTextElement(out, indent + 2, "time", std::to_string(keyframe.time));
        for (const COvGradingOperation& operation : keyframe.operations) {
          operation.Write(indent + 2, out);
        }
        out += padding + "</keyframe>\n";
      }
    }
  }
  // A reader attaches a mask only to the layers of a single track; written elsewhere it would not
  // read back.
  const COvShadingMask* mask = Mask();
  if (mask && tracks_.size() == 1) mask->WriteElement(indent, out);
}

}  // namespace Tincta
