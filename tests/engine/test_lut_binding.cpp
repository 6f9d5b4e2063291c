// The binding from a LUT to the engines, against mappings worked out by hand from exact domains.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "engine/lut_binding.h"
#include "lut/lut3d.h"

namespace crandle_test {
namespace {

using namespace Tincta;

std::shared_ptr<COv3DLUT> Table(uint32_t size, bool is3D, const std::array<float, 3>& min,
                                const std::array<float, 3>& max) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(size, is3D));
  lut->SetDomain({min[0], min[1], min[2], 0.0f}, {max[0], max[1], max[2], 1.0f});
  return lut;
}

// Scale (1 - 1/n) / (max - min) and offset 0.5/n - scale x min, worked out per channel:
//   4 entries over R 0..1, G -1..3, B 0..0.5: scale 0.75, 0.1875, 1.5; offset 0.125, 0.3125, 0.125
//   2 entries over R 0..1, G 0..2, B -2..2:   scale 0.5, 0.25, 0.125;  offset 0.25, 0.25, 0.5
constexpr std::array<float, 3> kOwnMin = {0.0f, -1.0f, 0.0f}, kOwnMax = {1.0f, 3.0f, 0.5f};
constexpr std::array<float, 3> kOwnScale = {0.75f, 0.1875f, 1.5f};
constexpr std::array<float, 3> kOwnOffset = {0.125f, 0.3125f, 0.125f};
constexpr std::array<float, 3> kShaperMin = {0.0f, 0.0f, -2.0f}, kShaperMax = {1.0f, 2.0f, 2.0f};
constexpr std::array<float, 3> kShaperScale = {0.5f, 0.25f, 0.125f};
constexpr std::array<float, 3> kShaperOffset = {0.25f, 0.25f, 0.5f};

TEST(LUTBinding, KindUnitsAndDomainOfEveryShape) {
  // 3-D, shaped; the kind, its name and texture units (table, shaper), the domain mapping. A 1-D
  // LUT's shaper does not make it shaped, but its domain is the one that maps.
  const std::tuple<bool, bool, ELUTKind, std::string, uint32_t, uint32_t, std::array<float, 3>,
                   std::array<float, 3>>
      cases[] = {
          {false, false, ELUTKind::k1D, "ORVANE.LUT.1D", 1, 0, kOwnScale, kOwnOffset},
          {false, true, ELUTKind::k1D, "ORVANE.LUT.1D", 1, 0, kShaperScale, kShaperOffset},
          {true, false, ELUTKind::k3D, "ORVANE.LUT.3D", 1, 0, kOwnScale, kOwnOffset},
          {true, true, ELUTKind::k1D3D, "ORVANE.LUT.1D3D", 2, 1, kShaperScale, kShaperOffset}};
  for (const auto& [is3D, shaped, wantKind, name, table, shaper, scale, offset] : cases) {
    SCOPED_TRACE(testing::Message() << "3-D " << is3D << " shaped " << shaped);
    const auto lut = Table(4, is3D, kOwnMin, kOwnMax);
    if (shaped) lut->SetInputShaper(Table(2, false, kShaperMin, kShaperMax));
    const ELUTKind kind = LUTKindOf(*lut);
    EXPECT_EQ(kind, wantKind);
    EXPECT_EQ(std::string(LUTKindName(kind).data()), name);  // usable as C text
    EXPECT_EQ(std::pair(LUTTextureUnits(kind).table, LUTTextureUnits(kind).shaper),
              std::pair(table, shaper));
    const SDomainMapping mapping = DomainMappingOf(*lut);
    EXPECT_TRUE(mapping.scale == scale && mapping.offset == offset);
    EXPECT_EQ(mapping.size, 4u);  // the LUT's own edge, never the shaper's
    const auto parameters = DomainParameters(mapping);
    for (int i = 0; i < 8; ++i) {
      const std::string named = std::string(i < 4 ? "__scale1." : "__offset1.") + "xyzw"[i % 4];
      EXPECT_EQ(parameters[i].name, named);
      EXPECT_EQ(parameters[i].value, i % 4 == 3 ? i < 4 : (i < 4 ? scale : offset)[i % 4]) << named;
    }
  }
}

}  // namespace
}  // namespace crandle_test
