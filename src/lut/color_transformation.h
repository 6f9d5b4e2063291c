// COvColorTransformation: a per-channel colour correction given as text, which a 1-D table can
// hold. The text is an ASC CDL correction: one ColorCorrection element with a SOPNode (Slope,
// Offset, Power, three numbers each), alone or inside a ColorDecisionList (directly or in a
// ColorDecision) or a ColorCorrectionCollection. Element names compare without regard to case or
// namespace prefix.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace Tincta {

class COvColorTransformation {
 public:
  /// Reads the correction from `length` bytes of XML. False, the object unchanged, when the text
  /// is no such correction: malformed XML, no or more than one ColorCorrection, a SOPNode
  /// missing or holding other than three finite numbers per element, a power not above 0, or a
  /// SatNode whose saturation is not 1 (saturation mixes channels, which a 1-D table cannot).
  /// With a `correctionId`, the ColorCorrection whose id attribute it is is taken, however many
  /// the text holds. `whyNot`, when given, receives the reason of a refusal.
  bool bParse(const void* text, size_t length, std::string_view correctionId = {},
              std::string* whyNot = nullptr);

  /// out = clamp(in * slope + offset, 0, 1) ^ power, per channel.
  void Apply(const float in[3], float out[3]) const;

  const std::array<double, 3>& Slope() const { return slope_; }
  const std::array<double, 3>& Offset() const { return offset_; }
  const std::array<double, 3>& Power() const { return power_; }

 private:
  std::array<double, 3> slope_{1, 1, 1};
  std::array<double, 3> offset_{0, 0, 0};
  std::array<double, 3> power_{1, 1, 1};
};

}  // namespace Tincta
