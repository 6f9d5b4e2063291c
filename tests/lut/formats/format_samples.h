// Small LUT files of every format, generated from known values so that the tests can compare a
// reader's table with what went into the file. Also the seed corpora of the fuzz targets and the
// inputs of the format benchmarks.
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

/// A colour that differs per node and channel, so that a wrong entry order shows: red rises with
/// r, green with g, blue with b, each with a different share of the other two.
Rgb NodeColour(uint32_t r, uint32_t g, uint32_t b, uint32_t size);
NodeFunction NodeColours(uint32_t size);

/// Integer codes below `levels` that differ per node and channel in the same way.
Codes NodeCodes(uint32_t r, uint32_t g, uint32_t b, uint32_t size, uint32_t levels);
CodeFunction NodeCodesOf(uint32_t size, uint32_t levels);

/// The float a reader gets back from "%.6f" of `value`.
float Printed(float value);
/// "%.6f %.6f %.6f".
std::string RgbLine(const Rgb& rgb);

/// A Truelight cube: version line, header, an InputLUT block when `inputLUT` is not empty, the
/// Cube block of `width` points per axis (red fastest) unless `width` is 0, and "# end".
std::string TruelightText(uint32_t width, const std::vector<Rgb>& inputLUT,
                          const NodeFunction& colour);
/// Entries i / (n - 1) on every channel.
std::vector<Rgb> IdentityRamp(uint32_t n);

/// `header` (lines of its own, each ending in "\n"), then size^3 lines of three integers in
/// mesh order: blue fastest, then green, then red.
std::string MeshText(std::string_view header, uint32_t size, const CodeFunction& codes);
/// "0 step 2*step ... last": n positions evenly spaced over [0, last], rounded to whole codes.
std::string EvenShaperLine(uint32_t n, uint32_t last);

/// A packed 10-bit cube of 2^exponent + 1 points per axis: "3LUT" (big-endian) or "TUL3".
/// Words are given per node (r, g, b) and stored blue fastest.
std::vector<uint8_t> Packed10Bytes(
    bool bigEndian, uint32_t exponent,
    const std::function<uint32_t(uint32_t, uint32_t, uint32_t)>& word, uint32_t dataOffset = 800);
/// The packed word of three 10-bit codes (red in bits 20..29).
uint32_t PackWord(uint32_t red, uint32_t green, uint32_t blue);

/// Upper-case hexadecimal of the bytes.
std::string HexOf(const void* bytes, size_t count);

/// An XML look with a LUT of `size` points per axis (RGB float32 as hexadecimal, red fastest),
/// optional domain lines (empty: none).
std::string XMLLookText(uint32_t size, const NodeFunction& colour, std::string_view domainMin = {},
                        std::string_view domainMax = {});

/// An ASC CDL ColorCorrection with the given slope, offset and power text.
std::string CDLText(std::string_view slope, std::string_view offset, std::string_view power,
                    std::string_view extra = {});

/// Cube text with a LUT_3D_SIZE line, red fastest.
std::string CubeText(uint32_t size, const NodeFunction& colour);

/// A float LUT image: "OVTX" (16-byte header) or "OTX2"/"OTX3" (40-byte header with a domain).
std::vector<uint8_t> FloatImageBytes(std::string_view magic, uint32_t size, bool is3D);

/// One named input of a fuzz target's seed corpus.
struct SSeed {
  std::string name;
  std::string bytes;
};
/// Small valid inputs of every format that `ParseLUTData` reads.
std::vector<SSeed> ParseLUTDataSeeds();
/// Small valid XML LUT element documents (1-D, 3-D, with a shaper, with a hash).
std::vector<SSeed> XMLLUTElementSeeds();

}  // namespace crandle_test
