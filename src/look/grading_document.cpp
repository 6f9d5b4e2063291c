#include "look/grading_document.h"

#include "foundation/hex_codec.h"
#include "look/embedded_lut_payload.h"
#include "lut/lut_identifier.h"
#include "lut/otx3_writer.h"

namespace Tincta {

COvGradingDocument::COvGradingDocument() : properties_(std::make_unique<COvPropertyList>()) {}

void COvGradingDocument::SetName(std::string name) {
  animation_.SetName(std::move(name));
  Changed();
}

void COvGradingDocument::SetGuid(const host::Guid& guid) {
  guid_ = guid;
  Changed();
}

void COvGradingDocument::SetVersion(uint32_t version) {
  version_ = version;
  Changed();
}

COvGradingAnimation& COvGradingDocument::MutableAnimation() {
  Changed();
  return animation_;
}

void COvGradingDocument::SetAnimation(COvGradingAnimation animation) {
  animation_ = std::move(animation);
  Changed();
}

void COvGradingDocument::InsertOperation(COvGradingOperation operation) {
  COvGradingAnimation::SKeyframe keyframe;
  keyframe.operations.push_back(std::move(operation));
  // Track 0 always takes a new layer: it exists, or it is the one to be created.
  animation_.AppendLayer(0, std::move(keyframe));
  Changed();
}

COvPropertyList* COvGradingDocument::MutableProperties() {
  Changed();
  return properties_.get();
}

void COvGradingDocument::SetProperties(std::unique_ptr<COvPropertyList> properties) {
  properties_ = std::move(properties);
  Changed();
}

void COvGradingDocument::AddLUT(std::unique_ptr<COv3DLUT> lut, std::string embeddedIdentifier) {
  luts_.push_back({std::move(lut), std::move(embeddedIdentifier)});
  Changed();
}

std::vector<SDocumentLUT>& COvGradingDocument::MutableLUTs() {
  Changed();
  return luts_;
}

void COvGradingDocument::SetLUTs(std::vector<SDocumentLUT> luts) {
  luts_ = std::move(luts);
  Changed();
}

void COvGradingDocument::SetMissingEmbeddedLUTs(std::vector<std::string> entries) {
  missingEmbeddedLUTs_ = std::move(entries);
  Changed();
}

bool COvGradingDocument::PrepareEmbeddedLUTs(IOvEmbeddedLUTSink& sink) {
  std::vector<std::string> entries;
  entries.reserve(luts_.size() + missingEmbeddedLUTs_.size());
  std::vector<uint8_t> image;
  for (const SDocumentLUT& entry : luts_) {
    const COv3DLUT& lut = *entry.lut;
    uint8_t identifier[16];
    if (entry.embeddedIdentifier.size() == 32 &&
        DecodeTextToBytes(entry.embeddedIdentifier, identifier, sizeof(identifier))) {
      // Written again under the identifier it came with, so that a read text writes back as is.
    } else {
      LUTIdentifier(lut).GuidToBytes(identifier);
    }
    image.resize(Otx3ImageBytes(lut));
    WriteOtx3Image(lut, image.data());
    if (!sink.AppendRecord(identifier, image.data(), uint32_t(image.size()))) return false;
    const std::string fileName = lut.SourcePath().empty() ? LUTDisplayName(lut) : lut.SourcePath();
    entries.push_back(
        EncodeBytesAsText(identifier, sizeof(identifier), ETextCodecMode::Hexadecimal) + fileName);
  }
  entries.insert(entries.end(), missingEmbeddedLUTs_.begin(), missingEmbeddedLUTs_.end());
  embeddedLUTs_ = std::move(entries);
  return true;
}

}  // namespace Tincta
