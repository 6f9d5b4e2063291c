// The grading document: a look or preset as a colourist saves it. It holds a name (its
// animation's), a GUID, a version, the grading animation with its operations and mask, a
// property list, the LUT objects its operations use, the embedded-LUT strings that name LUTs
// travelling in a separate payload, and the import flag. The look document text (look_document_*)
// is its file form; the text last written is kept until the document changes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/guid.h"
#include "look/grading_animation.h"
#include "look/property_list.h"
#include "lut/lut3d.h"

namespace Tincta {

class IOvEmbeddedLUTSink;

/// A LUT object of a document, with the identifier text it travelled under when it came from an
/// embedded-LUT payload (empty otherwise), which it keeps when the document is written again.
struct SDocumentLUT {
  std::unique_ptr<COv3DLUT> lut;
  std::string embeddedIdentifier;
};

class COvGradingDocument {
 public:
  /// Version of documents this library makes.
  static constexpr uint32_t kCurrentVersion = 1;

  /// An empty document: current version, zero GUID, empty animation, empty property list.
  COvGradingDocument();
  COvGradingDocument(const COvGradingDocument&) = delete;
  COvGradingDocument& operator=(const COvGradingDocument&) = delete;

  // Identity. The name is the grading animation's.
  const std::string& Name() const { return animation_.Name(); }
  void SetName(std::string name);
  const host::Guid& Guid() const { return guid_; }
  void SetGuid(const host::Guid& guid);
  uint32_t Version() const { return version_; }
  void SetVersion(uint32_t version);

  const COvGradingAnimation& Animation() const { return animation_; }
  /// The animation for changing; the kept text is dropped.
  COvGradingAnimation& MutableAnimation();
  void SetAnimation(COvGradingAnimation animation);

  /// Inserts `operation` as a new layer of the first track (created when there is none), with one
  /// keyframe at frame 0.
  void InsertOperation(COvGradingOperation operation);

  /// The property list, or null when it was removed (a document read back from text always has
  /// one).
  const COvPropertyList* Properties() const { return properties_.get(); }
  COvPropertyList* MutableProperties();
  void SetProperties(std::unique_ptr<COvPropertyList> properties);

  const std::vector<SDocumentLUT>& LUTs() const { return luts_; }
  /// The LUT list for changing; the kept text is dropped.
  std::vector<SDocumentLUT>& MutableLUTs();
  void AddLUT(std::unique_ptr<COv3DLUT> lut, std::string embeddedIdentifier = {});
  void SetLUTs(std::vector<SDocumentLUT> luts);

  /// The embedded-LUT strings: 32 hexadecimal digits of a LUT identifier, then its file name.
  const std::vector<std::string>& EmbeddedLUTs() const { return embeddedLUTs_; }
  /// Embedded LUTs named by the text last read that found no payload record; they are named
  /// again whenever the document is written with a payload sink.
  const std::vector<std::string>& MissingEmbeddedLUTs() const { return missingEmbeddedLUTs_; }
  void SetMissingEmbeddedLUTs(std::vector<std::string> entries);

  /// Set for a document built from foreign data (LUT bytes, a colour decision list) rather than
  /// authored as a grading; hosts offer such documents for review before they replace a grade.
  /// Not part of the document text.
  bool IsImport() const { return import_; }
  void SetImport(bool import) { import_ = import; }

  /// Before the text is written with a payload sink: appends one record per LUT object to `sink`
  /// (its identifier and its "OTX3" image) and rebuilds the embedded-LUT strings from them,
  /// followed by the missing ones. A LUT's file name is its source path, else its display name.
  /// False when the sink refuses a record.
  bool PrepareEmbeddedLUTs(IOvEmbeddedLUTSink& sink);

  /// The text last written, empty after any change.
  const std::string& CachedText() const { return cachedText_; }
  void SetCachedText(std::string text) { cachedText_ = std::move(text); }

 private:
  void Changed() { cachedText_.clear(); }

  host::Guid guid_;
  uint32_t version_ = kCurrentVersion;
  COvGradingAnimation animation_;
  std::unique_ptr<COvPropertyList> properties_;
  std::vector<SDocumentLUT> luts_;
  std::vector<std::string> embeddedLUTs_;
  std::vector<std::string> missingEmbeddedLUTs_;
  bool import_ = false;
  std::string cachedText_;
};

}  // namespace Tincta
