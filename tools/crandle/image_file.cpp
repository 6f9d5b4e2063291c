#include "image_file.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace crandle_tool {
namespace {

template <class T>
constexpr float FullScale() {
  if constexpr (std::is_same_v<T, uint8_t>) return 255.0f;
  if constexpr (std::is_same_v<T, uint16_t>) return 65535.0f;
  return 1.0f;
}

template <class T>
void Pack(const SImage& image, const SChannelLayout& layout, CPicture& picture) {
  const int channels = image.spec.nchannels;
  const auto* samples = reinterpret_cast<const T*>(image.samples.data());
  const T opaque = static_cast<T>(FullScale<T>());
  for (uint32_t y = 0; y < picture.Height(); ++y) {
    T* out = reinterpret_cast<T*>(picture.Row(y));
    const T* in = samples + size_t(y) * picture.Width() * channels;
    for (uint32_t x = 0; x < picture.Width(); ++x, in += channels, out += 4) {
      out[0] = in[layout.blue];
      out[1] = in[layout.green];
      out[2] = in[layout.red];
      out[3] = layout.alpha >= 0 ? in[layout.alpha] : opaque;
    }
  }
}

template <class T>
T FromUnit(float value) {
  if constexpr (std::is_same_v<T, float>) {
    return value;
  } else {
    const float scaled = std::clamp(value, 0.0f, 1.0f) * FullScale<T>();
    return static_cast<T>(std::isnan(scaled) ? 0.0f : std::nearbyint(scaled));
  }
}

// Channels the LUT does not touch (alpha, extra channels) come from the source, converted to the
// picture's sample type when the two differ.
template <class T>
T PassThrough(const SImage& source, size_t index) {
  if (source.sampleType.size() == sizeof(T) &&
      (std::is_same_v<T, float>) == (source.sampleType == OIIO::TypeDesc::FLOAT)) {
    return reinterpret_cast<const T*>(source.samples.data())[index];
  }
  return FromUnit<T>(UnitSample(source, index));
}

template <class T>
void Unpack(const CPicture& picture, const SImage& source, const SChannelLayout& layout,
            SImage& out) {
  const int inChannels = source.spec.nchannels;
  const int outChannels = out.spec.nchannels;
  auto* result = reinterpret_cast<T*>(out.samples.data());
  size_t in = 0;
  for (uint32_t y = 0; y < picture.Height(); ++y) {
    const T* bgra = reinterpret_cast<const T*>(picture.Row(y));
    for (uint32_t x = 0; x < picture.Width();
         ++x, bgra += 4, in += inChannels, result += outChannels) {
      if (layout.grey) {
        if (layout.alpha >= 0) result[3] = PassThrough<T>(source, in + layout.alpha);
      } else {
        for (int c = 0; c < inChannels; ++c)
          result[c] = PassThrough<T>(source, in + c);
      }
      const int red = layout.grey ? 0 : layout.red;
      const int green = layout.grey ? 1 : layout.green;
      const int blue = layout.grey ? 2 : layout.blue;
      result[red] = bgra[2];
      result[green] = bgra[1];
      result[blue] = bgra[0];
    }
  }
}

template <class T>
uint8_t To8Bit(T sample) {
  const float unit = std::clamp(float(sample) / FullScale<T>(), 0.0f, 1.0f);
  return std::isnan(unit) ? 0 : static_cast<uint8_t>(std::lround(unit * 255.0f));
}

template <class T>
void Preview(const CPicture& picture, uint32_t width, uint32_t height, std::vector<uint8_t>& rgb) {
  for (uint32_t y = 0; y < height; ++y) {
    const T* row =
        reinterpret_cast<const T*>(picture.Row(uint32_t(uint64_t(y) * picture.Height() / height)));
    for (uint32_t x = 0; x < width; ++x) {
      const T* pixel = row + 4 * (uint64_t(x) * picture.Width() / width);
      uint8_t* out = rgb.data() + (size_t(y) * width + x) * 3;
      out[0] = To8Bit(pixel[2]);
      out[1] = To8Bit(pixel[1]);
      out[2] = To8Bit(pixel[0]);
    }
  }
}

uint64_t PhysicalMemoryBytes() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long pageSize = ::sysconf(_SC_PAGESIZE);
  return pages > 0 && pageSize > 0 ? uint64_t(pages) * uint64_t(pageSize) : UINT64_MAX;
}

}  // namespace

float UnitSample(const SImage& image, size_t index) {
  if (image.sampleType == OIIO::TypeDesc::UINT8) return image.samples[index] / 255.0f;
  if (image.sampleType == OIIO::TypeDesc::UINT16) {
    return reinterpret_cast<const uint16_t*>(image.samples.data())[index] / 65535.0f;
  }
  return reinterpret_cast<const float*>(image.samples.data())[index];
}

namespace {

bool KeepsFileType(const OIIO::ImageSpec& spec) {
  return spec.channelformats.empty() &&
         (spec.format == OIIO::TypeDesc::UINT8 || spec.format == OIIO::TypeDesc::UINT16 ||
          spec.format == OIIO::TypeDesc::HALF || spec.format == OIIO::TypeDesc::FLOAT);
}

}  // namespace

bool OpenImage(const std::string& path, SOpenedImage& opened, std::string& error,
               const std::function<bool(const OIIO::ImageSpec&)>& keepFileType) {
  // Readers of formats that store unassociated colour (PNG, some TIFFs) would otherwise multiply
  // it by alpha on the way in, in the file's own precision; the grade decides what to do with it.
  OIIO::ImageSpec hints;
  hints.attribute("oiio:UnassociatedAlpha", 1);
  auto input = OIIO::ImageInput::open(path, &hints);
  if (!input) {
    error = OIIO::geterror();
    if (error.empty()) error = "cannot open the image";
    return false;
  }
  // Only the first picture would be graded and written: a movie or a file of several pictures is
  // refused rather than cut down to one.
  const int declared = input->spec().get_int_attribute("oiio:subimages", 0);
  const bool movie = input->spec().get_int_attribute("oiio:Movie", 0) != 0 ||
                     std::string_view(input->format_name()) == "FFmpeg movie";
  const bool several = declared > 1 || input->seek_subimage(1, 0);
  (void)input->geterror();  // the probe for a second picture records one where there is none
  if (movie || several) {
    const std::string count = declared > 1 ? std::to_string(declared) + " " : "several ";
    error = movie ? "a movie (" + count +
                        "frames) is not applied frame by frame; write its frames out as an image "
                        "sequence and apply to that"
                  : "the file holds " + count +
                        "pictures (pages, parts or frames), and only a file of one picture can be "
                        "applied";
    return false;
  }
  if (!input->seek_subimage(0, 0)) {
    error = input->geterror();
    if (error.empty()) error = "cannot read the first picture";
    return false;
  }
  SImage& image = opened.image;
  image.spec = input->spec();
  image.samples.clear();
  const OIIO::TypeDesc fileType = image.spec.format;
  if (keepFileType && KeepsFileType(image.spec) && keepFileType(image.spec)) {
    image.sampleType = fileType;
  } else if (fileType.basetype == OIIO::TypeDesc::UINT8 ||
             fileType.basetype == OIIO::TypeDesc::INT8) {
    image.sampleType = OIIO::TypeDesc::UINT8;
  } else if (fileType.basetype == OIIO::TypeDesc::UINT16 ||
             fileType.basetype == OIIO::TypeDesc::INT16) {
    image.sampleType = OIIO::TypeDesc::UINT16;
  } else {
    image.sampleType = OIIO::TypeDesc::FLOAT;
  }
  const uint64_t bytes = uint64_t(image.spec.width) * image.spec.height * image.spec.nchannels *
                         image.sampleType.size();
  if (image.spec.width <= 0 || image.spec.height <= 0 || image.spec.depth > 1 || bytes == 0) {
    error = "unsupported image shape";
    return false;
  }
  // The size is the header's word: a few bytes can declare more pixels than any memory holds.
  if (bytes > PhysicalMemoryBytes()) {
    error = "the image declares " + std::to_string(image.spec.width) + " x " +
            std::to_string(image.spec.height) + " pixels, more than this machine's memory holds";
    return false;
  }
  opened.input = std::move(input);
  return true;
}

size_t SOpenedImage::RowBytes() const {
  return size_t(image.spec.width) * size_t(image.spec.nchannels) * image.sampleType.size();
}

bool SOpenedImage::ReadsInRows() const {
  return image.spec.tile_width <= 0;
}

namespace {

// A reader that fills what it could not read (a short strip, say) and goes on still records an
// error; a truncated image is refused, not passed on with zeroed pixels.
bool CheckedRead(SOpenedImage& opened, bool read, std::string& error) {
  if (read && !opened.input->has_error()) return true;
  error = opened.input->geterror();
  if (error.empty()) error = "cannot read the pixels";
  return false;
}

}  // namespace

bool ReadImageRows(SOpenedImage& opened, int first, int count, uint8_t* samples,
                   std::string& error) {
  const OIIO::ImageSpec& spec = opened.image.spec;
  return CheckedRead(
      opened,
      opened.input->read_scanlines(0, 0, spec.y + first, spec.y + first + count, 0, 0,
                                   spec.nchannels, opened.image.sampleType, samples),
      error);
}

bool ReadOpenedImage(SOpenedImage& opened, SImage& image, std::string& error) {
  SImage& read = opened.image;
  read.samples.resize(opened.RowBytes() * size_t(read.spec.height));
  if (opened.ReadsInRows()) {
    // Read whole, a scanline file can pass through a second copy of the picture inside the
    // reader; read in bands it passes through one band.
    for (int y = 0; y < read.spec.height; y += kImageBandRows) {
      if (!ReadImageRows(opened, y, std::min(read.spec.height - y, kImageBandRows),
                         read.samples.data() + size_t(y) * opened.RowBytes(), error)) {
        return false;
      }
    }
  } else if (!CheckedRead(opened,
                          opened.input->read_image(0, 0, 0, read.spec.nchannels, read.sampleType,
                                                   read.samples.data()),
                          error)) {
    return false;
  }
  opened.input->close();
  image = std::move(read);
  return true;
}

bool ReadImage(const std::string& path, SImage& image, std::string& error,
               const std::function<bool(const OIIO::ImageSpec&)>& keepFileType) {
  SOpenedImage opened;
  return OpenImage(path, opened, error, keepFileType) && ReadOpenedImage(opened, image, error);
}

bool FindChannels(const OIIO::ImageSpec& spec, SChannelLayout& layout) {
  layout = SChannelLayout();
  layout.alpha = spec.alpha_channel;
  // Writers that do not mark alpha still put it last in grey-alpha and RGBA images.
  if (layout.alpha < 0 && (spec.nchannels == 2 || spec.nchannels == 4))
    layout.alpha = spec.nchannels - 1;
  int colour[3];
  int found = 0;
  for (int c = 0; c < spec.nchannels && found < 3; ++c) {
    if (c != layout.alpha && c != spec.z_channel) colour[found++] = c;
  }
  if (found == 0) return false;
  if (found < 3) {
    layout.grey = true;
    layout.red = layout.green = layout.blue = colour[0];
  } else {
    layout.red = colour[0];
    layout.green = colour[1];
    layout.blue = colour[2];
  }
  return true;
}

host::PixelFormat PictureFormatFor(OIIO::TypeDesc sampleType) {
  if (sampleType == OIIO::TypeDesc::UINT8) return host::kPixelFormat_BGRA_4444_8u;
  if (sampleType == OIIO::TypeDesc::UINT16) return host::kPixelFormat_BGRA_4444_16u;
  return host::kPixelFormat_BGRA_4444_32f;
}

OIIO::TypeDesc SampleTypeOf(host::PixelFormat format) {
  if (format == host::kPixelFormat_BGRA_4444_8u) return OIIO::TypeDesc::UINT8;
  if (format == host::kPixelFormat_BGRA_4444_16u) return OIIO::TypeDesc::UINT16;
  return OIIO::TypeDesc::FLOAT;
}

bool PackImage(const SImage& image, const SChannelLayout& layout, CPicture& picture) {
  if (!picture.Allocate(uint32_t(image.spec.width), uint32_t(image.spec.height),
                        PictureFormatFor(image.sampleType))) {
    return false;
  }
  if (image.sampleType == OIIO::TypeDesc::UINT8) {
    Pack<uint8_t>(image, layout, picture);
  } else if (image.sampleType == OIIO::TypeDesc::UINT16) {
    Pack<uint16_t>(image, layout, picture);
  } else {
    Pack<float>(image, layout, picture);
  }
  return true;
}

bool PackImageAsFloat(const SImage& image, const SChannelLayout& layout, CPicture& picture) {
  if (!picture.Allocate(uint32_t(image.spec.width), uint32_t(image.spec.height),
                        host::kPixelFormat_BGRA_4444_32f)) {
    return false;
  }
  const size_t channels = size_t(image.spec.nchannels);
  for (uint32_t y = 0; y < picture.Height(); ++y) {
    auto* out = reinterpret_cast<float*>(picture.Row(y));
    size_t in = size_t(y) * picture.Width() * channels;
    for (uint32_t x = 0; x < picture.Width(); ++x, in += channels, out += 4) {
      out[0] = UnitSample(image, in + size_t(layout.blue));
      out[1] = UnitSample(image, in + size_t(layout.green));
      out[2] = UnitSample(image, in + size_t(layout.red));
      out[3] = layout.alpha >= 0 ? UnitSample(image, in + size_t(layout.alpha)) : 1.0f;
    }
  }
  return true;
}

SImage UnpackPicture(const CPicture& picture, const SImage& source, const SChannelLayout& layout) {
  SImage out;
  out.spec = source.spec;
  out.sampleType = SampleTypeOf(picture.Format());
  if (layout.grey) {
    const bool alpha = layout.alpha >= 0;
    out.spec.nchannels = alpha ? 4 : 3;
    out.spec.channelnames = alpha ? std::vector<std::string>{"R", "G", "B", "A"}
                                  : std::vector<std::string>{"R", "G", "B"};
    out.spec.alpha_channel = alpha ? 3 : -1;
    out.spec.z_channel = -1;
  }
  out.samples.resize(size_t(picture.Width()) * picture.Height() * out.spec.nchannels *
                     out.sampleType.size());
  if (out.sampleType == OIIO::TypeDesc::UINT8) {
    Unpack<uint8_t>(picture, source, layout, out);
  } else if (out.sampleType == OIIO::TypeDesc::UINT16) {
    Unpack<uint16_t>(picture, source, layout, out);
  } else {
    Unpack<float>(picture, source, layout, out);
  }
  return out;
}

CPendingImage::CPendingImage(CPendingImage&& other) noexcept
    : partial_(std::move(other.partial_)),
      target_(std::move(other.target_)),
      output_(std::move(other.output_)) {
  other.partial_.clear();
}

CPendingImage::~CPendingImage() {
  // A writer still open holds the file; it is let go before the file is removed.
  output_.reset();
  if (partial_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove(partial_, ignored);
}

bool CPendingImage::Failed(std::string& error, const char* fallback) {
  error = output_ ? output_->geterror() : OIIO::geterror();
  if (error.empty()) error = fallback;
  return false;  // the destructor removes what was written
}

bool CPendingImage::Open(const std::string& path, const OIIO::ImageSpec& spec,
                         OIIO::TypeDesc fileType, std::string& error) {
  const std::filesystem::path target(path);
  // The temporary keeps the extension, which is how the writer's format is chosen.
  std::string partialName(".");
  partialName += target.filename().string();
  partialName += ".partial-";
  partialName += std::to_string(::getpid());
  partialName += target.extension().string();
  const std::filesystem::path partial = target.parent_path() / partialName;
  output_ = OIIO::ImageOutput::create(path);
  if (!output_) return Failed(error, "no image writer for this file name");
  OIIO::ImageSpec fileSpec = spec;
  fileSpec.set_format(fileType);
  partial_ = partial.string();
  target_ = path;
  if (!output_->open(partial_, fileSpec)) return Failed(error, "cannot write the image");
  return true;
}

bool CPendingImage::WriteRows(int first, int count, OIIO::TypeDesc sampleType, const void* samples,
                              std::string& error) {
  const OIIO::ImageSpec& spec = output_->spec();
  if (!output_->write_scanlines(spec.y + first, spec.y + first + count, 0, sampleType, samples))
    return Failed(error, "cannot write the image");
  return true;
}

bool CPendingImage::Close(std::string& error) {
  if (!output_->close()) return Failed(error, "cannot write the image");
  output_.reset();
  return true;
}

bool CPendingImage::Write(const std::string& path, const SImage& image, OIIO::TypeDesc fileType,
                          std::string& error) {
  if (!Open(path, image.spec, fileType, error)) return false;
  if (!output_->write_image(image.sampleType, image.samples.data()))
    return Failed(error, "cannot write the image");
  return Close(error);
}

bool CPendingImage::Commit(std::string& error) {
  std::error_code renameError;
  std::filesystem::rename(partial_, target_, renameError);
  if (renameError) {
    error = "cannot move the written image into place: " + renameError.message();
    return false;
  }
  partial_.clear();
  return true;
}

bool WriteImageAtomically(const std::string& path, const SImage& image, OIIO::TypeDesc fileType,
                          std::string& error) {
  CPendingImage pending;
  return pending.Write(path, image, fileType, error) && pending.Commit(error);
}

std::vector<uint8_t> PreviewRGB8(const CPicture& picture, uint32_t width, uint32_t height) {
  std::vector<uint8_t> rgb(size_t(width) * height * 3);
  if (picture.Format() == host::kPixelFormat_BGRA_4444_8u) {
    Preview<uint8_t>(picture, width, height, rgb);
  } else if (picture.Format() == host::kPixelFormat_BGRA_4444_16u) {
    Preview<uint16_t>(picture, width, height, rgb);
  } else {
    Preview<float>(picture, width, height, rgb);
  }
  return rgb;
}

}  // namespace crandle_tool
