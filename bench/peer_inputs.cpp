// Writes the benchmark picture and LUTs of bench_apply as files another program can read, for
// bench/peers.sh: the picture as one raw frame of planar float (green, blue, red planes, the
// "gbrpf32le" layout), the LUTs as cube text.
//
//   bench_peer_inputs DIR
// writes DIR/frame.gbrpf32le, DIR/cube33.cube, DIR/cube65.cube, DIR/curve4096.cube,
// DIR/shaper256.cube and DIR/shapedcube33.cube.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "apply_inputs.h"

namespace {

using crandle_bench::kFrameHeight;
using crandle_bench::kFrameWidth;

bool WriteFile(const std::string& path, const void* bytes, size_t count) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  const bool written = std::fwrite(bytes, 1, count, file) == count;
  return std::fclose(file) == 0 && written;
}

bool WritePicture(const std::string& path) {
  const size_t plane = size_t(kFrameWidth) * kFrameHeight;
  std::vector<float> planes(3 * plane);
  for (uint32_t y = 0; y < kFrameHeight; ++y) {
    for (uint32_t x = 0; x < kFrameWidth; ++x) {
      float rgb[3];
      crandle_bench::PictureColour(x, y, rgb);
      const size_t at = size_t(y) * kFrameWidth + x;
      planes[at] = rgb[1];              // green
      planes[plane + at] = rgb[2];      // blue
      planes[2 * plane + at] = rgb[0];  // red
    }
  }
  return WriteFile(path, planes.data(), planes.size() * sizeof(float));
}

// Cube text of a table's red, green and blue, entries in table order (red fastest for a cube).
bool WriteCube(const std::string& path, const Tincta::COv3DLUT& lut) {
  std::string text = lut.Is3D() ? "LUT_3D_SIZE " : "LUT_1D_SIZE ";
  text += std::to_string(lut.Size()) + "\n";
  char line[96];
  for (size_t i = 0; i < lut.EntryCount(); ++i) {
    const float* e = lut.Table() + 4 * i;
    std::snprintf(line, sizeof line, "%.9g %.9g %.9g\n", e[0], e[1], e[2]);
    text += line;
  }
  return WriteFile(path, text.data(), text.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  // The shaper as a plain curve over [0, 1]; the shaped cube's own shaper holds the same curve
  // in the cube's texel-centre coordinates, which a chain of two filters does not need.
  auto shaper = std::make_shared<Tincta::COv3DLUT>();
  bool ok = shaper->Allocate(256, false);
  for (uint32_t i = 0; ok && i < 256; ++i) {
    for (int c = 0; c < 3; ++c)
      shaper->Table()[4 * i + c] = float(crandle_bench::ShaperCurve(i / 255.0));
  }
  const auto cube33 = crandle_bench::MakeCube(33);
  const auto cube65 = crandle_bench::MakeCube(65);
  const auto curve = crandle_bench::MakeCurve(4096);
  const auto shaped = crandle_bench::MakeCube(33, true);
  ok = ok && cube33 && cube65 && curve && shaped && WritePicture(dir + "/frame.gbrpf32le") &&
       WriteCube(dir + "/cube33.cube", *cube33) && WriteCube(dir + "/cube65.cube", *cube65) &&
       WriteCube(dir + "/curve4096.cube", *curve) && WriteCube(dir + "/shaper256.cube", *shaper) &&
       WriteCube(dir + "/shapedcube33.cube", *shaped);
  if (!ok) {
    std::fprintf(stderr, "%s: could not write the inputs into %s\n", argv[0], dir.c_str());
    return 1;
  }
  return 0;
}
