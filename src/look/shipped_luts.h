// The shipped LUT table: the LUT files that ship with the host, each with the identifier its bytes
// read to. Look documents refer to such a LUT by its file name instead of carrying it.
//
// Built on first use from the LUT files of the directory named by the setting
// "ColorTransforms.ShippedLUTDirectory" (file name order; files that hold no LUT and hidden files
// are passed over), and built again whenever that setting names another directory. Empty when the
// setting is unset.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/guid.h"

namespace Tincta {

class COvShippedLUTTable {
 public:
  struct SRow {
    std::string fileName;
    host::Guid identifier;
  };

  /// The process-wide table.
  static COvShippedLUTTable& Instance();

  /// The file name of the first row with `identifier`, or nothing.
  std::optional<std::string> FindFileName(const host::Guid& identifier);
  /// A copy of the rows, in order.
  std::vector<SRow> Rows();
  /// Forgets the rows; the next use reads the directory again (after its files changed).
  void Rebuild();

 private:
  COvShippedLUTTable() = default;
  void EnsureCurrentLocked();

  std::mutex mutex_;
  bool built_ = false;
  std::string directory_;
  std::vector<SRow> rows_;
};

}  // namespace Tincta
