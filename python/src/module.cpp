// crandle._crandle: the module's nine exports and the reference host, seen from Python. Every
// LUT operation goes through CRANDLE::ParseLUT, GetLUTIdentifier, GetLUTDisplayName, GetLUTBlob
// and ApplyLUT; pixels reach the module as host frames over the caller's arrays.
#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>
#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "alpha.h"
#include "array_apply.h"
#include "crandle/crandle.h"
#include "host/initializer.h"
#include "image_file.h"
#include "strip_apply.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace crandle_python {
namespace {

// Becomes crandle.LUTError (python/crandle/_errors.py) on its way out.
struct SLUTFailure {
  int code;
  std::string reason;
  std::string source;
};

// Files the module reads by path are at most this long.
constexpr uintmax_t kMaxLUTFileBytes = 200u * 1024 * 1024;

std::string PathFailureReason(const std::string& path, int code) {
  if (code == CRANDLE::kResultEmptyArgument) return "the path is empty";
  if (code != CRANDLE::kResultLUTFailed) return "unexpected result";
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (error || !std::filesystem::exists(status)) return "no such file";
  if (std::filesystem::is_directory(status)) return "it is a directory";
  if (!std::ifstream(path, std::ios::binary)) return "the file cannot be read";
  const auto size = std::filesystem::file_size(path, error);
  if (!error && size > kMaxLUTFileBytes) return "the file is larger than 200 MiB";
  return "not a LUT in a format crandle reads, or a damaged one";
}

std::u16string Utf16(const std::string& utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    const int extra = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t code = extra == 0 ? lead : lead & (0x3F >> extra);
    for (int k = 1; k <= extra && i + k < utf8.size(); ++k)
      code = (code << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
    i += extra + 1;
    if (code >= 0x10000) {
      code -= 0x10000;
      out.push_back(char16_t(0xD800 + (code >> 10)));
      out.push_back(char16_t(0xDC00 + (code & 0x3FF)));
    } else {
      out.push_back(char16_t(code));
    }
  }
  return out;
}

std::string PathOf(const nb::handle& path) {
  return nb::cast<std::string>(nb::module_::import_("os").attr("fsdecode")(path));
}

// A parsed LUT. What the Python side shows of its table (kind, size, domain) is read from its
// OTX3 blob: the module offers nothing else, and an input shaper is not part of the blob.
class CLUT {
 public:
  CLUT(std::shared_ptr<void> handle, std::string source)
      : handle_(std::move(handle)), source_(std::move(source)) {
    const host::BinaryData blob = CRANDLE::GetLUTBlob(handle_);
    if (blob.Size() >= 40) {
      uint32_t words[3];
      std::memcpy(words, blob.Data() + 4, sizeof(words));
      size_ = words[0];
      kind_ = words[1] == 1 ? "1D" : "3D";
      std::memcpy(domainMin_.data(), blob.Data() + 16, 12);
      std::memcpy(domainMax_.data(), blob.Data() + 28, 12);
    }
  }

  static CLUT Open(const nb::handle& pathObject) {
    const std::string path = PathOf(pathObject);
    std::shared_ptr<void> handle;
    const int code = CRANDLE::ParseLUT(Utf16(path), handle);
    if (code != CRANDLE::kResultOK) throw SLUTFailure{code, PathFailureReason(path, code), path};
    return CLUT(std::move(handle), path);
  }

  static CLUT FromBytes(nb::bytes data) {
    std::shared_ptr<void> handle;
    const int code = CRANDLE::ParseLUT(data.c_str(), data.size(), handle);
    if (code != CRANDLE::kResultOK) {
      throw SLUTFailure{code,
                        code == CRANDLE::kResultEmptyArgument
                            ? "no bytes"
                            : "the bytes hold no LUT in a format crandle reads",
                        ""};
    }
    return CLUT(std::move(handle), "");
  }

  const std::shared_ptr<void>& Handle() const { return handle_; }
  std::string Identifier() const { return CRANDLE::GetLUTIdentifier(handle_).ToString(); }
  std::string DisplayName() const {
    std::string name;
    CRANDLE::GetLUTDisplayName(handle_, name);
    return name;
  }
  nb::bytes Blob() const {
    const host::BinaryData blob = CRANDLE::GetLUTBlob(handle_);
    return nb::bytes(reinterpret_cast<const char*>(blob.Data()), blob.Size());
  }
  const std::string& Kind() const { return kind_; }
  uint32_t Size() const { return size_; }
  nb::tuple Domain() const {
    return nb::make_tuple(nb::make_tuple(domainMin_[0], domainMin_[1], domainMin_[2]),
                          nb::make_tuple(domainMax_[0], domainMax_[1], domainMax_[2]));
  }
  const std::string& Source() const { return source_; }

 private:
  std::shared_ptr<void> handle_;
  std::string source_;
  std::string kind_ = "3D";
  uint32_t size_ = 0;
  std::array<float, 3> domainMin_{};
  std::array<float, 3> domainMax_{};
};

using AnyArray = nb::ndarray<nb::ro, nb::device::cpu>;
using WritableArray = nb::ndarray<nb::device::cpu>;

std::optional<ESampleType> SampleTypeOf(nb::dlpack::dtype dtype) {
  if (dtype == nb::dtype<uint8_t>()) return ESampleType::kUInt8;
  if (dtype == nb::dtype<uint16_t>()) return ESampleType::kUInt16;
  if (dtype == nb::dtype<float>()) return ESampleType::kFloat;
  if (dtype.code == uint8_t(nb::dlpack::dtype_code::Float) && dtype.bits == 16 && dtype.lanes == 1)
    return ESampleType::kHalf;
  return std::nullopt;
}

template <class Array>
SPixelArray Describe(const Array& array, const char* name) {
  if (array.ndim() != 3 || (array.shape(2) != 3 && array.shape(2) != 4)) {
    throw nb::value_error((std::string(name) + " must have shape (H, W, 3) or (H, W, 4)").c_str());
  }
  const auto type = SampleTypeOf(array.dtype());
  if (!type) throw nb::type_error("dtype must be float32, float16, uint16 or uint8");
  if (array.shape(0) > UINT32_MAX || array.shape(1) > UINT32_MAX)
    throw nb::value_error("the array is too large for a host frame");
  SPixelArray pixels;
  pixels.base = static_cast<uint8_t*>(const_cast<void*>(static_cast<const void*>(array.data())));
  pixels.height = uint32_t(array.shape(0));
  pixels.width = uint32_t(array.shape(1));
  pixels.channels = int(array.shape(2));
  pixels.type = *type;
  const auto sample = static_cast<ptrdiff_t>(SampleBytes(*type));
  pixels.rowStride = array.stride(0) * sample;
  pixels.pixelStride = array.stride(1) * sample;
  pixels.channelStride = array.stride(2) * sample;
  return pixels;
}

nb::object NewArrayLike(const SPixelArray& like, const nb::handle& source) {
  return nb::module_::import_("numpy").attr("empty")(
      nb::make_tuple(like.height, like.width, like.channels), "dtype"_a = source.attr("dtype"));
}

nb::object Apply(const CLUT& lut, nb::handle input, nb::handle out) {
  const auto inputArray = nb::cast<AnyArray>(input, false);
  const SPixelArray source = Describe(inputArray, "the array");
  nb::object result = out.is_none() ? NewArrayLike(source, input) : nb::borrow(out);
  WritableArray outArray;
  if (!nb::try_cast<WritableArray>(result, outArray, false))
    throw nb::type_error("out must be a writable numpy array");
  const SPixelArray destination = Describe(outArray, "out");
  if (const std::string problem = CheckArrays(source, destination); !problem.empty())
    throw nb::value_error(problem.c_str());
  int code;
  {
    nb::gil_scoped_release unlocked;
    code = ApplyToArray(lut.Handle(), source, destination);
  }
  if (code != CRANDLE::kResultOK) throw SLUTFailure{code, "applying the LUT failed", lut.Source()};
  return result;
}

// One colour gives a tuple, an (N, 3) array of colours an array; anything numpy can turn into
// float32 is taken.
nb::object Eval(const CLUT& lut, nb::handle rgb) {
  nb::module_ numpy = nb::module_::import_("numpy");
  nb::object colours = numpy.attr("ascontiguousarray")(rgb, "dtype"_a = "float32");
  const auto ndim = nb::cast<size_t>(colours.attr("ndim"));
  const auto shape = nb::cast<std::vector<size_t>>(colours.attr("shape"));
  if (!(ndim == 1 && shape[0] == 3) && !(ndim == 2 && shape[1] == 3))
    throw nb::value_error("rgb must be one colour (r, g, b) or an (N, 3) array of colours");
  nb::object result = numpy.attr("empty_like")(colours);
  const auto in = nb::cast<nb::ndarray<const float, nb::c_contig>>(colours, false);
  auto out = nb::cast<nb::ndarray<float, nb::c_contig>>(result, false);
  const size_t count = ndim == 1 ? 1 : shape[0];
  int code;
  {
    nb::gil_scoped_release unlocked;
    code = EvaluateColours(lut.Handle(), in.data(), count, out.data());
  }
  if (code != CRANDLE::kResultOK) throw SLUTFailure{code, "applying the LUT failed", lut.Source()};
  if (ndim == 1) return nb::tuple(result.attr("tolist")());
  return result;
}

OIIO::TypeDesc FileTypeFor(const std::optional<std::string>& depth, OIIO::TypeDesc inputType) {
  if (!depth) return inputType;
  if (*depth == "8") return OIIO::TypeDesc::UINT8;
  if (*depth == "16") return OIIO::TypeDesc::UINT16;
  if (*depth == "half") return OIIO::TypeDesc::HALF;
  if (*depth == "float") return OIIO::TypeDesc::FLOAT;
  throw nb::value_error("depth must be '8', '16', 'half' or 'float'");
}

// What `crandle apply LUT IN OUT [--threads N] [--depth D]` does for one image, with the tool's
// own image code, so that the files come out the same byte for byte.
void ApplyFile(nb::handle lutOrPath, nb::handle inPath, nb::handle outPath, unsigned threads,
               std::optional<std::string> depth) {
  const CLUT lut =
      nb::isinstance<CLUT>(lutOrPath) ? nb::cast<const CLUT&>(lutOrPath) : CLUT::Open(lutOrPath);
  if (threads < 1 || threads > 256) throw nb::value_error("threads must be 1 to 256");
  FileTypeFor(depth, OIIO::TypeDesc::UINT8);  // refuses an unknown depth while it can raise
  const std::string input = PathOf(inPath);
  const std::string output = PathOf(outPath);
  std::string error;
  int code = CRANDLE::kResultOK;
  {
    nb::gil_scoped_release unlocked;
    crandle_tool::SImage image;
    crandle_tool::SChannelLayout layout;
    crandle_tool::CPicture source, destination;
    if (!crandle_tool::ReadImage(input, image, error)) {
      error = "cannot read " + input + ": " + error;
    } else if (!crandle_tool::FindChannels(image.spec, layout)) {
      error = input + " has no colour channel";
    }
    OIIO::TypeDesc fileType;
    crandle_tool::SAlphaPlan alpha;
    if (error.empty()) {
      fileType = FileTypeFor(depth, image.spec.format);
      alpha = crandle_tool::PlanAlpha(image, layout, output, false);
      const host::PixelFormat resultFormat = alpha.FloatResult() ? host::kPixelFormat_BGRA_4444_32f
                                             : depth
                                                 ? crandle_tool::PictureFormatFor(fileType)
                                                 : crandle_tool::PictureFormatFor(image.sampleType);
      if (!crandle_tool::PackForGrade(image, layout, alpha, source) ||
          !destination.Allocate(source.Width(), source.Height(), resultFormat)) {
        error = "not enough memory for " + input;
      }
    }
    if (error.empty()) {
      code = crandle_tool::ApplyInStrips(lut.Handle(), host::LUTInterpolationMethod::Trilinear,
                                         source, destination, threads);
    }
    if (error.empty() && code == CRANDLE::kResultOK) {
      crandle_tool::SImage result = crandle_tool::UnpackGraded(destination, image, layout, alpha);
      if (depth) result.spec.erase_attribute("oiio:BitsPerSample");
      if (!crandle_tool::WriteImageAtomically(output, result, fileType, error))
        error = "cannot write " + output + ": " + error;
    }
  }
  if (code != CRANDLE::kResultOK)
    throw SLUTFailure{code, "applying the LUT to " + input + " failed", lut.Source()};
  if (!error.empty()) {
    PyErr_SetString(PyExc_OSError, error.c_str());
    throw nb::python_error();
  }
}

}  // namespace
}  // namespace crandle_python

NB_MODULE(_crandle, m) {
  using namespace crandle_python;
  m.doc() = "The crandle module's exported functions over numpy arrays (see the crandle package).";
  // A host runs the module's initialisers once, before its first call.
  host::InitializerRegistrar::RunInitializers();

  nb::register_exception_translator([](const std::exception_ptr& pointer, void*) {
    try {
      std::rethrow_exception(pointer);
    } catch (const SLUTFailure& failure) {
      nb::object type = nb::module_::import_("crandle._errors").attr("LUTError");
      nb::object error = type(uint32_t(failure.code), failure.reason,
                              failure.source.empty() ? nb::none() : nb::cast(failure.source));
      PyErr_SetObject(type.ptr(), error.ptr());
    }
  });

  nb::class_<CLUT>(m, "LUT",
                   "A parsed colour look-up table, shared and immutable.\n\n"
                   "Made by LUT.open(path) or LUT.from_bytes(data); both raise crandle.LUTError "
                   "when the input holds no LUT.")
      .def_static("open", &CLUT::Open, "path"_a,
                  nb::sig("def open(path: str | os.PathLike[str]) -> LUT"),
                  "Reads the LUT file at `path` (any format crandle reads). Repeated opens of an "
                  "unchanged file are served from the module's LUT cache.\n\n"
                  "Raises crandle.LUTError with the result code and the reason.")
      .def_static("from_bytes", &CLUT::FromBytes, "data"_a,
                  "Reads a LUT from the bytes of a LUT file or of a look reference.\n\n"
                  "Raises crandle.LUTError when the bytes hold no LUT.")
      .def_prop_ro("identifier", &CLUT::Identifier,
                   "Stable identifier of the table, its domain, title and file name (not its "
                   "directory): 32 upper-case hexadecimal digits.")
      .def_prop_ro("display_name", &CLUT::DisplayName,
                   "The file's name without extension when read from a file, else the title in "
                   "the data, else 'Embedded LUT'.")
      .def_prop_ro("blob", &CLUT::Blob,
                   "The table as an OTX3 image (40-byte header, then float32 RGB triples); an "
                   "input shaper is not part of it.")
      .def_prop_ro("kind", &CLUT::Kind,
                   "'1D' or '3D', the kind of the main table (a 3-D table with an input shaper "
                   "is '3D').")
      .def_prop_ro("size", &CLUT::Size, "Entries of a 1-D table, points per axis of a 3-D one.")
      .def_prop_ro("domain", &CLUT::Domain,
                   nb::sig("def domain(self) -> tuple[tuple[float, float, float], "
                           "tuple[float, float, float]]"),
                   "((min_r, min_g, min_b), (max_r, max_g, max_b)): the input range the table "
                   "spans.")
      .def("apply", &Apply, "array"_a, "out"_a = nb::none(),
           nb::sig("def apply(self, array: numpy.ndarray, out: numpy.ndarray | None = None) -> "
                   "numpy.ndarray"),
           "Applies the LUT to an image array and returns the result.\n\n"
           "`array` is (H, W, 3) or (H, W, 4), RGB or RGBA, float32, float16, uint16 or uint8, "
           "any strides. The result has the same shape and dtype: `out` when given (it may be "
           "`array` itself, to apply in place), else a new array. Alpha passes through. "
           "Integer samples are fractions of their full scale and are rounded back.\n\n"
           "The interpreter's lock is released while the pixels are worked on, so threads "
           "applying at once run in parallel. When `out` is packed RGBA of float32, uint16 "
           "or uint8, the module works in its memory with no other copy of the image.\n\n"
           "Raises ValueError or TypeError for arrays it cannot take, crandle.LUTError when "
           "the module fails (`out` may then be partly written).")
      .def("eval", &Eval, "rgb"_a,
           nb::sig("def eval(self, rgb: typing.Sequence[float] | numpy.typing.ArrayLike) -> "
                   "tuple[float, float, float] | numpy.ndarray"),
           "The LUT's output for one colour (r, g, b), as a tuple of three floats, or for an "
           "(N, 3) array of colours, as a new float32 (N, 3) array (computed in float32).")
      .def("__repr__", [](const CLUT& lut) {
        return "<crandle.LUT '" + lut.DisplayName() + "' " + lut.Kind() + " size " +
               std::to_string(lut.Size()) + " " + lut.Identifier() + ">";
      });

  m.def("apply_file", &ApplyFile, "lut"_a, "in_path"_a, "out_path"_a, nb::kw_only(),
        "threads"_a = 1u, "depth"_a = nb::none(),
        nb::sig("def apply_file(lut: LUT | str | os.PathLike[str], in_path: str | "
                "os.PathLike[str], out_path: str | os.PathLike[str], *, threads: int = 1, "
                "depth: typing.Literal['8', '16', 'half', 'float'] | None = None) -> None"),
        "Applies `lut` (a crandle.LUT or the path of a LUT file) to the image file `in_path` and "
        "writes `out_path`, as `crandle apply LUT IN OUT` does: EXR, DPX, TIFF, PNG, JPEG; "
        "alpha, other channels and metadata kept; the output written whole or not at all.\n\n"
        "threads: horizontal strips applied at once (1 to 256).\n"
        "depth: output samples '8', '16', 'half' or 'float' (default: as the input).\n\n"
        "Raises crandle.LUTError for a LUT that cannot be read or applied, OSError for images "
        "that cannot be read or written.");
}
