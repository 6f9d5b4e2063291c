// The keyframe curve in its cubic Hermite mode: a smooth curve through keys at increasing
// positions, with Catmull-Rom tangents.
#pragma once

#include <cstddef>
#include <vector>

namespace Tincta {

class COvHermiteCurve {
 public:
  /// Keys closer than this to an existing key replace that key's value.
  static constexpr double kSamePosition = 1e-9;

  /// Adds a key at `position`, or replaces the value of the key within `kSamePosition` of it.
  void AddKey(double position, double value);
  /// Removes every key (the memory is kept for the next curve).
  void Clear() { keys_.clear(); }
  size_t KeyCount() const { return keys_.size(); }

  /// The curve at `position`. Between two keys it is the cubic Hermite segment whose tangents
  /// are (next − previous) / (their distance) at inner keys and the one-sided difference at the
  /// first and last key, so that keys on a straight line give that line. Before the first key and
  /// after the last the curve holds the end value; one key gives a constant, no key 0.
  double Evaluate(double position) const;
  /// Where an ascending evaluation stands: the segment found last and its two tangents.
  struct SAscendingCursor {
    size_t segment = 0;
    bool tangentsKnown = false;
    double tangentFrom = 0;
    double tangentTo = 0;
  };
  /// The same value as `Evaluate`, for positions that never decrease from one call to the next
  /// (a fresh cursor before the first call): the cursor keeps the segment found last and its
  /// tangents, so that evaluating a whole run walks the keys once instead of searching them for
  /// every position.
  double EvaluateAscending(double position, SAscendingCursor& cursor) const;

 private:
  struct SKey {
    double position;
    double value;
  };
  double Tangent(size_t index) const;
  // Inside the curve: the Hermite segment from key k to key k + 1 at `position`, with the
  // tangents at both keys.
  double Interpolate(size_t k, double position, double tangentFrom, double tangentTo) const;

  std::vector<SKey> keys_;
};

}  // namespace Tincta
