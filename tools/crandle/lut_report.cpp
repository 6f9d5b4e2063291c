#include "lut_report.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "api/lut_handle.h"
#include "crandle/crandle.h"
#include "foundation/file.h"
#include "lut_source.h"

namespace crandle_tool {

SLUTReport DescribeLUT(const std::shared_ptr<void>& lut) {
  const Tincta::COv3DLUT& table = *CRANDLE::detail::LUTOf(lut);
  SLUTReport report;
  const bool hasShaper = table.InputShaper() != nullptr;
  report.kind = !table.Is3D() ? "1D" : hasShaper ? "1D3D" : "3D";
  report.size = table.Size();
  report.shaperSize = hasShaper ? table.InputShaper()->Size() : 0;
  for (int c = 0; c < 3; ++c) {
    report.domainMin[c] = table.DomainMin()[c];
    report.domainMax[c] = table.DomainMax()[c];
  }
  report.title = table.Title();
  CRANDLE::GetLUTDisplayName(lut, report.displayName);
  report.identifier = CRANDLE::GetLUTIdentifier(lut).ToString();
  report.blobBytes = CRANDLE::GetLUTBlob(lut).Size();
  return report;
}

std::string ResultCodeText(int result) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08x", static_cast<unsigned>(result));
  return text;
}

std::string ParseFailureReason(const std::string& path, int result,
                               const std::string& correctionId) {
  const std::string opened = LUTPathAsTheModuleOpensIt(path);
  if (result == CRANDLE::kResultEmptyArgument) return "the path or the file is empty";
  if (result != CRANDLE::kResultLUTFailed) return "unexpected result";
  std::error_code error;
  const auto status = std::filesystem::status(opened, error);
  if (error || !std::filesystem::exists(status)) return "no such file";
  if (std::filesystem::is_directory(status)) return "it is a directory";
  // Checked by kind rather than by opening it: opening a named pipe would wait for a writer.
  if (!std::filesystem::is_regular_file(status)) return "not a regular file (a pipe or a device)";
  if (Tincta::COvFile file; !file.Open(opened)) return "the file cannot be read";
  const auto size = std::filesystem::file_size(opened, error);
  if (!error && size > Tincta::kMaxLUTFileBytes) return "the file is larger than 200 MiB";
  // The module says no more than its result code; the library, asked again, says why.
  return "not a LUT in a format this tool reads, or a damaged one: " +
         FailureText(CheckLUTFile(path, correctionId));
}

}  // namespace crandle_tool
