// Grading under alpha: which files hold colour associated with alpha, and the division and
// multiplication that let a LUT grade the colour itself rather than colour scaled by coverage.
#pragma once

#include <cstdint>
#include <string>

#include "image_file.h"
#include "picture.h"

namespace crandle_tool {

/// True when `image` has an alpha channel and its colour, as read, is associated with it (EXR,
/// TIFF with associated extra samples). Images read unassociated (PNG, Targa, TIFF with
/// unassociated extra samples) carry "oiio:UnassociatedAlpha" in their spec.
bool ColourIsAssociated(const SImage& image, const SChannelLayout& layout);

/// True when the writer chosen for `path` stores colour unassociated from alpha as given when the
/// image description says "oiio:UnassociatedAlpha", and marks the file so; other writers take
/// associated colour.
bool WriterKeepsUnassociatedAlpha(const std::string& path);

/// Divides the colour of a float picture (its first `rows` rows) by its alpha where alpha is
/// above 0; pixels with no coverage keep their colour.
void DivideByAlpha(CPicture& picture, uint32_t rows = UINT32_MAX);

/// Undoes `DivideByAlpha` on a float picture graded after it: colour times alpha where alpha is
/// above 0, and the stored colour of `source` (the image the picture was packed from) where it is
/// not, so that a pixel with no coverage leaves the grade as it was.
void ReassociateAlpha(CPicture& picture, const SImage& source, const SChannelLayout& layout);

/// Multiplies the colour of a float image by its alpha (alpha below 0 counts as 0): unassociated
/// colour made associated for a writer that takes it so. The image description loses
/// "oiio:UnassociatedAlpha".
void AssociateAlpha(SImage& image);

/// What grading one image under alpha takes, decided from the image and where it goes.
struct SAlphaPlan {
  bool unassociate = false;         ///< divide by alpha before the LUT, multiply after
  bool associateForWriter = false;  ///< multiply the result for a writer of associated colour
  /// Both steps work on float pictures, so that the grade is not quantised between them.
  bool FloatResult() const { return unassociate || associateForWriter; }
};

/// The plan for grading `image` into `outputPath`; `asStored` grades the stored values as they
/// are (no division).
SAlphaPlan PlanAlpha(const SImage& image, const SChannelLayout& layout,
                     const std::string& outputPath, bool asStored);

/// Packs `image` into `picture` for the grade: as `PackImage` does, or in float divided by alpha
/// when the plan says so. False when the memory is not there.
bool PackForGrade(const SImage& image, const SChannelLayout& layout, const SAlphaPlan& plan,
                  CPicture& picture);

/// The graded `picture` as an image to write (`UnpackPicture`), with alpha put back as the plan
/// says; `picture` is reassociated in place, so a preview made from it afterwards shows what the
/// file holds.
SImage UnpackGraded(CPicture& picture, const SImage& source, const SChannelLayout& layout,
                    const SAlphaPlan& plan);

}  // namespace crandle_tool
