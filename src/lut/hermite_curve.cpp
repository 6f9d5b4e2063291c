#include "lut/hermite_curve.h"

#include <algorithm>
#include <cmath>

namespace Tincta {

void COvHermiteCurve::AddKey(double position, double value) {
  // Keys nearly always arrive in order; the search is for the rest.
  if (keys_.empty() || position > keys_.back().position + kSamePosition) {
    keys_.push_back({position, value});
    return;
  }
  const auto next =
      std::lower_bound(keys_.begin(), keys_.end(), position - kSamePosition,
                       [](const SKey& key, double bound) { return key.position < bound; });
  if (next != keys_.end() && std::fabs(next->position - position) <= kSamePosition) {
    next->value = value;
    return;
  }
  keys_.insert(next, {position, value});
}

double COvHermiteCurve::Tangent(size_t index) const {
  const size_t last = keys_.size() - 1;
  const size_t before = index == 0 ? 0 : index - 1;
  const size_t after = index == last ? last : index + 1;
  return (keys_[after].value - keys_[before].value) /
         (keys_[after].position - keys_[before].position);
}

double COvHermiteCurve::Evaluate(double position) const {
  if (keys_.empty()) return 0.0;
  if (keys_.size() == 1 || !(position > keys_.front().position)) return keys_.front().value;
  if (position >= keys_.back().position) return keys_.back().value;

  // The segment [k, k + 1] that holds the position.
  const auto after =
      std::upper_bound(keys_.begin(), keys_.end(), position,
                       [](double bound, const SKey& key) { return bound < key.position; });
  const size_t k = size_t(after - keys_.begin()) - 1;
  return Interpolate(k, position, Tangent(k), Tangent(k + 1));
}

double COvHermiteCurve::EvaluateAscending(double position, SAscendingCursor& cursor) const {
  if (keys_.empty()) return 0.0;
  if (keys_.size() == 1 || !(position > keys_.front().position)) return keys_.front().value;
  if (position >= keys_.back().position) return keys_.back().value;
  // The last key at or before the position, as the search in Evaluate finds it.
  while (keys_[cursor.segment + 1].position <= position) {
    ++cursor.segment;
    cursor.tangentsKnown = false;
  }
  if (!cursor.tangentsKnown) {
    cursor.tangentFrom = Tangent(cursor.segment);
    cursor.tangentTo = Tangent(cursor.segment + 1);
    cursor.tangentsKnown = true;
  }
  return Interpolate(cursor.segment, position, cursor.tangentFrom, cursor.tangentTo);
}

double COvHermiteCurve::Interpolate(size_t k, double position, double tangentFrom,
                                    double tangentTo) const {
  const SKey& from = keys_[k];
  const SKey& to = keys_[k + 1];
  const double width = to.position - from.position;
  const double t = (position - from.position) / width;
  const double t2 = t * t;
  const double t3 = t2 * t;
  return (2 * t3 - 3 * t2 + 1) * from.value + (t3 - 2 * t2 + t) * width * tangentFrom +
         (-2 * t3 + 3 * t2) * to.value + (t3 - t2) * width * tangentTo;
}

}  // namespace Tincta
