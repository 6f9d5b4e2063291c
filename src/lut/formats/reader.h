// What every reader reports to the format detector.
#pragma once

namespace Tincta {

enum class EReadOutcome {
  /// The bytes are not this reader's format; the detector tries the next step.
  NotThisFormat,
  /// The bytes are this format but cannot be read; detection ends with a failure.
  Failed,
  /// The object holds the table.
  Loaded,
};

}  // namespace Tincta
