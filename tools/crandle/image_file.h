// Image files through OpenImageIO: read whole, pack into BGRA pictures and back, write without
// ever leaving a partial file under the final name.
#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "picture.h"

namespace crandle_tool {

/// An image as read: its description (size, channels, metadata) and its samples, interleaved, in
/// one of three sample types (8-bit, 16-bit, or float for half, float and anything wider), or in
/// the file's own type when the reader was asked to keep it.
struct SImage {
  OIIO::ImageSpec spec;
  OIIO::TypeDesc sampleType;
  std::vector<uint8_t> samples;
};

/// Where the colour and alpha channels of an image sit. A grey image has one colour channel.
struct SChannelLayout {
  int red = -1;
  int green = -1;
  int blue = -1;
  int alpha = -1;
  bool grey = false;
};

/// Rows per band when a scanline image is read or written a part at a time: a multiple of every
/// EXR block's height, and a small part of a frame.
inline constexpr int kImageBandRows = 256;

/// An image file open for reading: its description and the sample type its rows are read in
/// (`image.samples` stays empty), and the reader, which is used by one thread at a time.
struct SOpenedImage {
  SImage image;
  std::unique_ptr<OIIO::ImageInput> input;

  /// Bytes of one row in the sample type.
  size_t RowBytes() const;
  /// True when the file is stored in rows (not tiles), so that it can be read a band at a time.
  bool ReadsInRows() const;
};

/// Opens the first subimage of `path`; false with `error` set when it cannot. Colour is read as
/// stored: a file that keeps it unassociated from alpha gives it so, with "oiio:UnassociatedAlpha"
/// set in its image description. A movie or a file of several pictures is refused, and so is a
/// header that declares more pixels than the machine's memory holds.
/// When `keepFileType` says so for the image's description, and the file's samples are all of
/// one of 8-bit, 16-bit, half or float, the samples are kept in that type (half stays half);
/// otherwise they are read as 8-bit, 16-bit or float.
bool OpenImage(const std::string& path, SOpenedImage& opened, std::string& error,
               const std::function<bool(const OIIO::ImageSpec&)>& keepFileType = {});

/// Reads `count` rows from row `first` (0 is the top) of an image that `ReadsInRows()` into
/// `samples`, interleaved, in the opened sample type. A short or damaged file fails with `error`
/// set rather than giving zeroed rows.
bool ReadImageRows(SOpenedImage& opened, int first, int count, uint8_t* samples,
                   std::string& error);

/// Reads all of an opened image into `image` (its description, sample type and samples) and
/// closes the file; false with `error` set when it cannot.
bool ReadOpenedImage(SOpenedImage& opened, SImage& image, std::string& error);

/// Opens and reads all of the first subimage of `path`, as `OpenImage` describes.
bool ReadImage(const std::string& path, SImage& image, std::string& error,
               const std::function<bool(const OIIO::ImageSpec&)>& keepFileType = {});

/// The colour and alpha channels of `spec`; false when it has no colour channel.
bool FindChannels(const OIIO::ImageSpec& spec, SChannelLayout& layout);

/// The host BGRA format that carries samples of `sampleType` without loss.
host::PixelFormat PictureFormatFor(OIIO::TypeDesc sampleType);

/// The sample type that carries a picture format's samples.
OIIO::TypeDesc SampleTypeOf(host::PixelFormat format);

/// Fills `picture` (allocated here in `PictureFormatFor(image.sampleType)`) from the image's
/// colour and alpha channels; alpha is full scale when the image has none.
bool PackImage(const SImage& image, const SChannelLayout& layout, CPicture& picture);

/// The same in the float format, whatever the image's sample type.
bool PackImageAsFloat(const SImage& image, const SChannelLayout& layout, CPicture& picture);

/// Sample `index` of `image` as a fraction of its full scale.
float UnitSample(const SImage& image, size_t index);

/// The image that holds `picture`'s colours, in the picture's sample type: same channels and
/// metadata as `source` (a grey image becomes RGB, keeping its alpha); channels other than colour
/// are taken from `source`, converted where the sample types differ.
SImage UnpackPicture(const CPicture& picture, const SImage& source, const SChannelLayout& layout);

/// An image written under a temporary name beside its target, moved into place by `Commit`;
/// removed when dropped uncommitted, so that several files can be written before any replaces
/// what is there.
class CPendingImage {
 public:
  CPendingImage() = default;
  CPendingImage(CPendingImage&& other) noexcept;
  CPendingImage& operator=(CPendingImage&&) = delete;
  ~CPendingImage();

  /// Writes `image` for `path`, with samples stored as `fileType` where the format allows.
  bool Write(const std::string& path, const SImage& image, OIIO::TypeDesc fileType,
             std::string& error);

  /// Starts writing an image of description `spec` for `path` a band of rows at a time, with
  /// samples stored as `fileType` where the format allows.
  bool Open(const std::string& path, const OIIO::ImageSpec& spec, OIIO::TypeDesc fileType,
            std::string& error);
  /// Writes the next `count` rows, from row `first`, of an image opened with `Open`; `samples` are
  /// interleaved in `sampleType`.
  bool WriteRows(int first, int count, OIIO::TypeDesc sampleType, const void* samples,
                 std::string& error);
  /// Completes the file opened with `Open`, once every row is written.
  bool Close(std::string& error);

  /// Renames the written file to its target.
  bool Commit(std::string& error);

 private:
  bool Failed(std::string& error, const char* fallback);

  std::string partial_;
  std::string target_;
  std::unique_ptr<OIIO::ImageOutput> output_;
};

/// Writes `image` to `path` through a `CPendingImage`, committed at once.
bool WriteImageAtomically(const std::string& path, const SImage& image, OIIO::TypeDesc fileType,
                          std::string& error);

/// 8-bit RGB of a picture, clamped to [0, 1] of its format, nearest-neighbour scaled to
/// `width` x `height`.
std::vector<uint8_t> PreviewRGB8(const CPicture& picture, uint32_t width, uint32_t height);

}  // namespace crandle_tool
