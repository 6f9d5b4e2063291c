// The grading animation: tracks of stacked layers, each layer animated by keyframes that hold the
// layer's operations at a frame, and an optional shading mask shared by the layers of a track.
//
// Each keyframe is written as its own element, at the level of the document's other elements:
//   <keyframe>
//     <track>"0"</track>        tracks and layers are numbered densely from 0, in order
//     <layer>"0"</layer>
//     <time>"0"</time>          frame number; strictly increasing within a layer
//     <operation>...</operation> ...
//   </keyframe>
// followed by the mask element (shading_mask.h) when the layers of the only track carry a mask. The
// writer emits tracks, layers and keyframes in order, which is the order the reader accepts, so
// what is read writes back byte for byte.
#pragma once

#include <pugixml.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "look/grading_operation.h"
#include "look/shading_mask.h"

namespace Tincta {

class COvGradingAnimation {
 public:
  struct SKeyframe {
    int64_t time = 0;
    std::vector<COvGradingOperation> operations;
  };
  struct SLayer {
    std::vector<SKeyframe> keyframes;
    /// The mask the layer acts through, or null.
    std::shared_ptr<const COvShadingMask> mask;
    /// False for the layer that evaluates the mask first, true for the later layers, which reuse
    /// its result.
    bool reusesMask = false;
  };
  struct STrack {
    std::vector<SLayer> layers;
  };

  const std::string& Name() const { return name_; }
  void SetName(std::string name) { name_ = std::move(name); }

  const std::vector<STrack>& Tracks() const { return tracks_; }
  bool Empty() const { return tracks_.empty(); }

  /// Adds a keyframe to layer `layer` of track `track`. A track or layer one past the last is
  /// created. False, nothing changed, for a track or layer further on, or a time not after the
  /// layer's last keyframe.
  bool AddKeyframe(uint32_t track, uint32_t layer, SKeyframe keyframe);

  /// Appends a new layer to track `track` (created when it is one past the last) holding one
  /// keyframe. False, nothing changed, for a track further on.
  bool AppendLayer(uint32_t track, SKeyframe keyframe);

  /// Attaches `mask` to every layer of the only track, in layer order: the first layer evaluates
  /// it, the later ones reuse it. False, nothing attached, unless there is exactly one track.
  bool AttachMask(std::shared_ptr<const COvShadingMask> mask);
  /// The mask of the first layer that has one, or null.
  const COvShadingMask* Mask() const;

  /// Reads a keyframe element into its track and layer. False, with `error` set and the
  /// animation unchanged, when the track, layer or time is missing or out of order, or an
  /// operation cannot be read; unknown children are skipped.
  bool ReadKeyframe(const pugi::xml_node& element, std::string& error);

  /// Appends the keyframe elements and, when there is exactly one track, the mask element,
  /// indented by `indent` blanks.
  void Write(int indent, std::string& out) const;

 private:
  std::string name_;
  std::vector<STrack> tracks_;
};

}  // namespace Tincta
