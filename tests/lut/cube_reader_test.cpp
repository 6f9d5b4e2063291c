// The cube text reader: size lines, domains, titles, data lines, and where it gives up.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "lut/formats/cube_reader.h"
#include "lut/lut3d.h"
#include "lut_test_helpers.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using Tincta::EReadOutcome;
using Tincta::Vec4;
using namespace crandle_test;
using namespace std::string_literals;

const char* Name(EReadOutcome outcome) {
  switch (outcome) {
    case EReadOutcome::NotThisFormat:
      return "NotThisFormat";
    case EReadOutcome::Failed:
      return "Failed";
    case EReadOutcome::Loaded:
      return "Loaded";
  }
  return "?";
}

// Reads `text` from an exactly sized heap copy, so that any read past its end is caught.
EReadOutcome Read(COv3DLUT& lut, std::string_view text,
                  ELUTKindFilter filter = ELUTKindFilter::Any) {
  std::vector<uint8_t> bytes(text.begin(), text.end());
  Tincta::SParseOptions options;
  options.kindFilter = filter;
  return Tincta::ReadCube(lut, bytes.data(), uint32_t(bytes.size()), options);
}

std::string Lines(size_t count, const char* line = "0.5 0.25 0.125\n") {
  std::string text;
  for (size_t i = 0; i < count; ++i)
    text += line;
  return text;
}

struct SCubeCase {
  const char* name;
  std::string text;
  ELUTKindFilter filter;
  EReadOutcome outcome;
  bool is3D = false;
  uint32_t size = 0;
  std::function<void(const COv3DLUT&)> check = nullptr;
};

const std::string kCube2 = CubeText("", 8, Identity3D(2));

std::vector<SCubeCase> CubeCases() {
  const auto any = ELUTKindFilter::Any;
  return {
      {"3-D size", "LUT_3D_SIZE 2\n" + kCube2, any, EReadOutcome::Loaded, true, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 1), (Vec4{1, 0, 0, 1}));
         EXPECT_EQ(EntryAt(lut, 2), (Vec4{0, 1, 0, 1}));
         EXPECT_EQ(EntryAt(lut, 4), (Vec4{0, 0, 1, 1}));
         EXPECT_EQ(lut.DomainMin(), (Vec4{0, 0, 0, 1}));
         EXPECT_EQ(lut.DomainMax(), (Vec4{1, 1, 1, 1}));
       }},
      {"1-D size 4096", "LUT_1D_SIZE 4096\n" + Lines(4096), any, EReadOutcome::Loaded, false, 4096},
      {"any other word is 1-D", "LUT_FOO_SIZE 17\n" + Lines(17), any, EReadOutcome::Loaded, false,
       17},
      {"3D_SIZE without case", "LUT_3d_Size 2\n" + kCube2, any, EReadOutcome::Loaded, true, 2},
      {"LUT_ itself keeps its case", "lut_3d_size 2\n" + kCube2, any, EReadOutcome::NotThisFormat},
      {"surplus lines ignored",
       "LUT_3D_SIZE 2\n" + kCube2 + "9 9 9\nnot numbers\nDOMAIN_MID 1 1 1\n", any,
       EReadOutcome::Loaded, true, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 7), (Vec4{1, 1, 1, 1}));
       }},
      {"too few lines", "LUT_3D_SIZE 2\n" + CubeText("", 7, Identity3D(2)), any,
       EReadOutcome::Failed},
      {"data before the size", "0 0 0\nLUT_1D_SIZE 2\n1 1 1\n", any, EReadOutcome::NotThisFormat},
      {"no size line at all", "# only a comment\nTITLE \"t\"\nDOMAIN_MIN 0 0 0\n", any,
       EReadOutcome::NotThisFormat},
      {"empty text", "", any, EReadOutcome::NotThisFormat},
      {"an input range is a size of 0", "LUT_3D_INPUT_RANGE 0 1\n" + kCube2, any,
       EReadOutcome::NotThisFormat},
      {"an input range after the size", "LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE 0.0 1.0\n" + kCube2, any,
       EReadOutcome::NotThisFormat},
      {"an input range before the size", "LUT_3D_INPUT_RANGE 0 1\nLUT_3D_SIZE 2\n" + kCube2, any,
       EReadOutcome::Loaded, true, 2},
      {"an input range and no data", "LUT_3D_SIZE 0\n", any, EReadOutcome::NotThisFormat},
      {"domain words without case",
       "DOMAIN_min -1 -2 -3\nDOMAIN_Max 4 5 6\nLUT_1D_SIZE 2\n" + Lines(2), any,
       EReadOutcome::Loaded, false, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(lut.DomainMin(), (Vec4{-1, -2, -3, 1}));
         EXPECT_EQ(lut.DomainMax(), (Vec4{4, 5, 6, 1}));
         EXPECT_FLOAT_EQ(lut.IndexScale()[0], 1.0f / 5);
       }},
      {"DOMAIN_MID fails", "LUT_1D_SIZE 2\nDOMAIN_MID 0.5 0.5 0.5\n" + Lines(2), any,
       EReadOutcome::Failed},
      {"DOMAIN_MID fails before the size", "DOMAIN_MID 0.5 0.5 0.5\nLUT_1D_SIZE 2\n" + Lines(2),
       any, EReadOutcome::Failed},
      {"short domain line is data", "DOMAIN_MIN 0 0\nLUT_1D_SIZE 2\n" + Lines(2), any,
       EReadOutcome::NotThisFormat},
      {"domain after the data is not read", "LUT_1D_SIZE 1\n0 0 0\nDOMAIN_MIN 9 9 9\n", any,
       EReadOutcome::Loaded, false, 1,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(lut.DomainMin(), (Vec4{0, 0, 0, 1}));
       }},
      {"comments anywhere", "# LUT_3D_SIZE 9\nLUT_1D_SIZE 2\n#0 0 0\n1 2 3\n# x\n4 5 6\n", any,
       EReadOutcome::Loaded, false, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 1), (Vec4{4, 5, 6, 1}));
       }},
      {"CR, LF, blank runs and tabs", "\r\n\r\n\tLUT_1D_SIZE\t2 \r\r\n  1\t2 3\t\r\n\n\n4 5 6", any,
       EReadOutcome::Loaded, false, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 0), (Vec4{1, 2, 3, 1}));
       }},
      {"values stored as read", "LUT_1D_SIZE 2\n-0.5 2 1e3\nnan inf -inf\n", any,
       EReadOutcome::Loaded, false, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 0), (Vec4{-0.5f, 2, 1000, 1}));
         EXPECT_TRUE(std::isnan(EntryAt(lut, 1)[0]));
         EXPECT_EQ(EntryAt(lut, 1)[1], INFINITY);
         EXPECT_EQ(EntryAt(lut, 1)[2], -INFINITY);
       }},
      {"a short data line ends the data", "LUT_1D_SIZE 3\n1 1 1\n2 2\n3 3 3\n", any,
       EReadOutcome::Failed},
      {"a fourth number is ignored", "LUT_1D_SIZE 2\n1 1 1 1\n2 2 2 x\n", any, EReadOutcome::Loaded,
       false, 2},
      {"a NUL ends what a line holds", "LUT_1D_SIZE 2\n1 1 1\n2 2\0 2\n"s, any,
       EReadOutcome::Failed},
      {"a size line after the data ends is not read",
       "LUT_1D_SIZE 2\n" + Lines(2) + "LUT_3D_SIZE 300\n", any, EReadOutcome::Loaded, false, 2},
      {"a later size line replaces the table", "LUT_3D_SIZE 3\nLUT_1D_SIZE 2\n" + Lines(2), any,
       EReadOutcome::Loaded, false, 2},
      {"a size line amid the data starts again",
       "LUT_3D_SIZE 2\n" + Lines(3, "7 7 7\n") + "LUT_1D_SIZE 2\n1 2 3\n4 5 6\n", any,
       EReadOutcome::Loaded, false, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 0), (Vec4{1, 2, 3, 1}));
       }},
      {"one-point cube", "LUT_3D_SIZE 1\n0.5 0.5 0.5", any, EReadOutcome::Loaded, true, 1},
      {"3-D limit", "LUT_3D_SIZE 257\n" + Lines(10), any, EReadOutcome::Failed},
      {"1-D limit", "LUT_1D_SIZE 65537\n" + Lines(10), any, EReadOutcome::Failed},
      {"1-D at the limit", "LUT_1D_SIZE 65536\n" + Lines(65536), any, EReadOutcome::Loaded, false,
       65536},
      {"negative size", "LUT_3D_SIZE -1\n" + Lines(10), any, EReadOutcome::Failed},
      {"3-D refused by the 1-D filter", "LUT_3D_SIZE 2\n" + kCube2, ELUTKindFilter::Only1D,
       EReadOutcome::Failed},
      {"1-D refused by the 3-D filter", "LUT_1D_SIZE 2\n" + Lines(2), ELUTKindFilter::Only3D,
       EReadOutcome::Failed},
      {"an input range under the 3-D filter", "LUT_3D_INPUT_RANGE 0 1\nLUT_3D_SIZE 2\n" + kCube2,
       ELUTKindFilter::Only3D, EReadOutcome::Failed},
      {"3-D accepted by the 3-D filter", "LUT_3D_SIZE 2\n" + kCube2, ELUTKindFilter::Only3D,
       EReadOutcome::Loaded, true, 2},
      {"declared far beyond the text", "LUT_3D_SIZE 256\n0 0 0\n0 0 0\n0 0 0\n", any,
       EReadOutcome::Failed},
      {"declared beyond the text, then replaced", "LUT_3D_SIZE 256\nLUT_3D_SIZE 2\n" + kCube2, any,
       EReadOutcome::Loaded, true, 2},
      {"shortest possible data, no final break",
       "LUT_3D_SIZE 2\n1-2-3\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n4-5-6", any,
       EReadOutcome::Loaded, true, 2,
       [](const COv3DLUT& lut) {
         EXPECT_EQ(EntryAt(lut, 0), (Vec4{1, -2, -3, 1}));
         EXPECT_EQ(EntryAt(lut, 7), (Vec4{4, -5, -6, 1}));
       }},
      {"shortest data one line short", "LUT_3D_SIZE 2\n" + Lines(7, "0 0 0\n") + "0 0", any,
       EReadOutcome::Failed},
  };
}

TEST(CubeReader, Cases) {
  for (const auto& c : CubeCases()) {
    SCOPED_TRACE(c.name);
    COv3DLUT lut;
    lut.SetTitle("before");
    const EReadOutcome outcome = Read(lut, c.text, c.filter);
    ASSERT_STREQ(Name(outcome), Name(c.outcome));
    if (outcome != EReadOutcome::Loaded) continue;
    EXPECT_EQ(lut.Is3D(), c.is3D);
    ASSERT_EQ(lut.Size(), c.size);
    EXPECT_EQ(lut.Title(), "before");
    for (size_t i = 0; i < lut.EntryCount(); ++i)
      ASSERT_EQ(EntryAt(lut, i)[3], 1.0f) << i;
    if (c.check) c.check(lut);
  }
}

struct STitleCase {
  const char* text;
  const char* title;  // null: the line is no TITLE line, so the text is no cube
};

TEST(CubeReader, Titles) {
  const std::string longTitle(2000, 'x');
  const STitleCase cases[] = {
      {"TITLE \"Kodak 2383\"\n", "Kodak 2383"},
      {"TITLE   \"  padded\"  \n", "  padded"},
      {"TITLE \"unclosed\n", "unclosed"},
      {"TITLE \"first\"\nTITLE \"second\"\n", "second"},
      {"TITLE unquoted\n", "kept"},
      {"TITLE \"\"\n", "kept"},
      {"TITLEX \"glued\"\n", "kept"},
      {"title \"lower\"\n", nullptr},  // not a TITLE line: a data line before the size
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    COv3DLUT lut;
    lut.SetTitle("kept");
    const EReadOutcome outcome = Read(lut, std::string(c.text) + "LUT_1D_SIZE 1\n0 0 0\n");
    if (!c.title) {
      EXPECT_EQ(outcome, EReadOutcome::NotThisFormat);
      continue;
    }
    ASSERT_EQ(outcome, EReadOutcome::Loaded);
    EXPECT_EQ(lut.Title(), c.title);
  }
  COv3DLUT lut;
  ASSERT_EQ(Read(lut, "TITLE \"" + longTitle + "\"\nLUT_1D_SIZE 1\n0 0 0\n"), EReadOutcome::Loaded);
  EXPECT_EQ(lut.Title(), longTitle.substr(0, 1023));
  // A title after the data is not read, and a failed read changes no title.
  COv3DLUT late;
  late.SetTitle("kept");
  ASSERT_EQ(Read(late, "LUT_1D_SIZE 1\n0 0 0\nTITLE \"late\"\n"), EReadOutcome::Loaded);
  EXPECT_EQ(late.Title(), "kept");
  COv3DLUT failed;
  failed.SetTitle("kept");
  ASSERT_EQ(Read(failed, "TITLE \"new\"\nLUT_1D_SIZE 2\n0 0 0\n"), EReadOutcome::Failed);
  EXPECT_EQ(failed.Title(), "kept");
}

TEST(CubeReader, LongWordsInSizeAndDomainLinesAreReadWhole) {
  // "%s" has no width: a word as long as the line must neither overflow nor be cut.
  const std::string word(5000, 'Q');
  COv3DLUT lut;
  EXPECT_EQ(Read(lut, "LUT_" + word + " 2\n" + Lines(2)), EReadOutcome::Loaded);
  EXPECT_EQ(lut.Size(), 2u);
  EXPECT_EQ(Read(lut, "DOMAIN_" + word + " 1 2 3\nLUT_1D_SIZE 1\n0 0 0\n"), EReadOutcome::Failed);
  EXPECT_EQ(Read(lut, "LUT_3D_SIZE" + word + " 2\n" + kCube2), EReadOutcome::Loaded);
  EXPECT_FALSE(lut.Is3D()) << "the word is 3D_SIZEQQQ..., not 3D_SIZE";
}

TEST(CubeReader, ThroughTheDetectorAFailureLeavesAnEmptyObject) {
  const std::string good = "TITLE \"Good\"\nLUT_3D_SIZE 2\n" + kCube2;
  const std::string bad = "LUT_3D_SIZE 2\n" + Lines(3);
  COv3DLUT lut;
  ASSERT_TRUE(
      lut.ParseLUTData(good.data(), uint32_t(good.size()), true, ELUTKindFilter::Any, false));
  EXPECT_EQ(lut.Title(), "Good");
  EXPECT_EQ(lut.Size(), 2u) << "cube tables are never resampled";
  EXPECT_FALSE(
      lut.ParseLUTData(bad.data(), uint32_t(bad.size()), false, ELUTKindFilter::Any, false));
  EXPECT_EQ(lut.Size(), 0u);
  EXPECT_EQ(lut.Table(), nullptr);
}

TEST(CubeReader, ThreadsReadingAtOnceGetTheSameTable) {
  const std::string text = CubeText("LUT_3D_SIZE 9\n", 729, Identity3D(9));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&text] {
      for (int i = 0; i < 20; ++i) {
        COv3DLUT lut;
        if (Read(lut, text) != EReadOutcome::Loaded) {
          ADD_FAILURE() << "read failed";
          return;
        }
        for (uint32_t e = 0; e < 729; ++e) {
          const auto expected = Identity3D(9)(e);
          if (EntryAt(lut, e)[0] != expected[0] || EntryAt(lut, e)[2] != expected[2]) {
            ADD_FAILURE() << "entry " << e;
            return;
          }
        }
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
}

TEST(CubeReaderDeathTest, ADeclaredSizeTheTextCannotHoldAllocatesNothing) {
  if (kUnderSanitizer) GTEST_SKIP() << "an address-space cap breaks the sanitizers";
  // 256^3 entries would be 268 MB; with 64 MiB of room left, reading must not ask for them.
  const std::string text = "LUT_3D_SIZE 256\nLUT_3D_SIZE 2\n" + kCube2;
  EXPECT_EXIT(
      {
        if (!LimitAddressSpace(64u << 20)) std::_Exit(2);
        COv3DLUT lut;
        std::_Exit(Read(lut, text) == EReadOutcome::Loaded && lut.Size() == 2 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
