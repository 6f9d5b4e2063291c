// Where the tool's commands get a LUT from a path: through the module as a host would, or, where
// the module cannot say enough, through the library with a diagnostics record. `--cc-id` (one
// correction of an ASC CDL collection) is handled here for every command that takes a LUT path.
#pragma once

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "foundation/file.h"
#include "lut/lut3d.h"

namespace crandle_tool {

/// The file the module opens for `path`: a relative path (or one with "..") in the LUT directory
/// when it is there, else the path as given.
std::string LUTPathAsTheModuleOpensIt(const std::string& path);

/// Why a file could not be read into memory ("no such file", "the file is larger than `limit`"
/// ...); empty for a file that was read.
std::string FileReadProblem(Tincta::EFileReadResult result, const std::string& limit);

/// Adds `--cc-id ID` to a command that takes a LUT path.
void AddCorrectionIdOption(CLI::App* command, std::string& correctionId);

/// What reading a LUT file as the module reads it found.
struct SLUTFileCheck {
  /// Why the file itself could not be read (missing, too large ...); empty when it was read.
  std::string fileProblem;
  Tincta::SLUTReadDiagnostics diagnostics;
  /// The table, when the read succeeded.
  std::shared_ptr<Tincta::COv3DLUT> lut;
};

/// Reads `path` with the module's arguments and a diagnostics record. With a `correctionId`, the
/// file must be ASC CDL text and the correction of that id is taken.
SLUTFileCheck CheckLUTFile(const std::string& path, const std::string& correctionId);

/// `CRANDLE::ParseLUT(path)`, or, with a `correctionId`, a handle over the chosen correction.
/// A name that is not UTF-8, which the module's UTF-16 paths cannot carry, is read here and
/// parsed from its bytes (up to the module's limit for LUT files). Returns the module's result
/// code.
int ParseLUTFile(const std::string& path, const std::string& correctionId,
                 std::shared_ptr<void>& lut);

/// The reason a read failed, in one line: "cube: line 7: '1 x 1' is not three numbers".
std::string FailureText(const SLUTFileCheck& check);

}  // namespace crandle_tool
