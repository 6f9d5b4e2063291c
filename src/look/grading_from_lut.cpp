#include "look/grading_from_lut.h"

#include <new>
#include <string>

#include "look/look_grid.h"
#include "look/shipped_luts.h"
#include "lut/lut_identifier.h"

namespace Tincta {

bool bAppendLUTOperation(COvGradingDocument& document, const void* bytes, uint32_t size,
                         std::string_view name) {
  auto lut = std::make_unique<COv3DLUT>();
  if (!lut->LoadFromMemory(bytes, size, false, ELUTKindFilter::Any, true)) return false;
  const host::Guid identifier = LUTIdentifier(*lut);
  std::string operationName;
  if (auto shipped = COvShippedLUTTable::Instance().FindFileName(identifier)) {
    operationName = std::move(*shipped);
    lut.reset();
  } else {
    operationName = name.empty() ? "LUT: " + identifier.ToString() : std::string(name);
    lut->SetSourcePath(operationName);
  }
  COvGradingOperation operation("LUT");
  operation.SetParameter("LUT", operationName);
  if (lut) document.AddLUT(std::move(lut));
  document.InsertOperation(std::move(operation));
  return true;
}

std::unique_ptr<COvGradingDocument> CreateGradingFromLUTData(const void* bytes, uint32_t size,
                                                             std::string_view name) {
  try {
    auto document = std::make_unique<COvGradingDocument>();
    if (!bAppendLUTOperation(*document, bytes, size, name)) return nullptr;
    document->SetImport(true);
    return document;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::unique_ptr<COvGradingDocument> CreateGradingFromLookGrid(const void* grid, uint32_t length) {
  std::unique_ptr<uint8_t[]> image;
  uint32_t imageLength = 0;
  if (!ConvertLookGridToOTX3(grid, length, image, imageLength)) return nullptr;
  return CreateGradingFromLUTData(image.get(), imageLength, {});
}

}  // namespace Tincta
