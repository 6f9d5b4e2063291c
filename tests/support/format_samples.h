// LUT files of every format but cube text (support/lut_samples.h), made from known values; also the
// fuzz targets' seed corpora and the inputs of the format benchmarks.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace crandle_test {

using Rgb = std::array<float, 3>;
using Codes = std::array<uint32_t, 3>;
using NodeFunction = std::function<Rgb(uint32_t r, uint32_t g, uint32_t b)>;
using CodeFunction = std::function<Codes(uint32_t r, uint32_t g, uint32_t b)>;

/// A colour that differs per node and channel; as a function, and as integer codes below `levels`.
Rgb NodeColour(uint32_t r, uint32_t g, uint32_t b, uint32_t size);
NodeFunction NodeColours(uint32_t size);
CodeFunction NodeCodesOf(uint32_t size, uint32_t levels);

/// The float a reader gets back from "%.6f" of `value`.
float Printed(float value);
/// Entries i / (n - 1) on every channel.
std::vector<Rgb> IdentityRamp(uint32_t n);

/// A Truelight cube: header, an InputLUT block unless empty, a Cube block unless `width` is 0.
std::string TruelightText(uint32_t width, const std::vector<Rgb>& inputLUT,
                          const NodeFunction& colour);

/// `header`, then size^3 lines of three integers in mesh order (blue fastest, red slowest).
std::string MeshText(std::string_view header, uint32_t size, const CodeFunction& codes);
/// n positions evenly spaced over [0, last], rounded to whole codes.
std::string EvenShaperLine(uint32_t n, uint32_t last);

/// A packed 10-bit cube of 2^exponent + 1 points per axis, "3LUT" (big-endian) or "TUL3".
std::vector<uint8_t> Packed10Bytes(
    bool bigEndian, uint32_t exponent,
    const std::function<uint32_t(uint32_t, uint32_t, uint32_t)>& word, uint32_t dataOffset = 800);
/// Three codes in one packed word, red from bit 20 up.
uint32_t PackWord(uint32_t red, uint32_t green, uint32_t blue);

/// A float LUT image: "OVTX" (16-byte header) or "OTX2"/"OTX3" (with the domain), then triples.
struct SFloatImage {
  std::string magic;
  uint32_t size = 0, kind = 1, enciphered = 0;
  Rgb min{0, 0, 0}, max{1, 1, 1};
};
std::vector<uint8_t> FloatImageBytes(const SFloatImage& image, uint64_t entries,
                                     const std::function<Rgb(uint64_t)>& rgb);

inline std::string AsText(const std::vector<uint8_t>& bytes) {
  return {bytes.begin(), bytes.end()};
}
/// Upper-case hexadecimal of the bytes.
std::string HexOf(const void* bytes, size_t count);
/// An XML look with a LUT of `size` points per axis and optional domain elements.
std::string XMLLookText(uint32_t size, const NodeFunction& colour, std::string_view domainMin = {},
                        std::string_view domainMax = {});
/// An ASC CDL ColorCorrection with the given slope, offset and power text.
std::string CDLText(std::string_view slope, std::string_view offset, std::string_view power,
                    std::string_view extra = {});

struct SSeed {
  std::string name, bytes;
};
/// Small valid inputs of every format that `ParseLUTData` reads.
std::vector<SSeed> ParseLUTDataSeeds();
/// Small valid XML LUT element documents (1-D, 3-D, with a shaper, with a hash).
std::vector<SSeed> XMLLUTElementSeeds();

}  // namespace crandle_test
