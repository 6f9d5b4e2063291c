// Data lines read without sscanf must give what sscanf gives: the same count and the same bits.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lut/formats/float_triple.h"

namespace {

using Tincta::ScanFloatTriple;
using Tincta::ScanPlainFloatTriple;
using namespace std::string_literals;

struct SScan {
  int count = 0;
  uint32_t bits[3] = {0, 0, 0};
};

// The reference: sscanf itself on a NUL-terminated copy.
SScan Reference(const std::string& line) {
  float v[3] = {0, 0, 0};
  SScan scan;
  scan.count = std::sscanf(line.c_str(), " %f %f %f ", &v[0], &v[1], &v[2]);
  for (int i = 0; i < 3; ++i)
    scan.bits[i] = std::bit_cast<uint32_t>(v[i]);
  return scan;
}

// Compares ScanFloatTriple, and the fast path where it claims a line, with sscanf.
void ExpectSameAsSscanf(const std::string& line, int* fastHits = nullptr) {
  const SScan expected = Reference(line);
  float v[3] = {0, 0, 0};
  const int count = ScanFloatTriple(line, v);
  ASSERT_EQ(count, expected.count) << '"' << line << '"';
  for (int i = 0; i < count && i < 3; ++i) {
    ASSERT_EQ(std::bit_cast<uint32_t>(v[i]), expected.bits[i]) << '"' << line << "\" value " << i;
  }
  float fast[3];
  if (ScanPlainFloatTriple(line, fast)) {
    if (fastHits) ++*fastHits;
    ASSERT_EQ(expected.count, 3) << '"' << line << '"';
    for (int i = 0; i < 3; ++i) {
      ASSERT_EQ(std::bit_cast<uint32_t>(fast[i]), expected.bits[i]) << '"' << line << '"';
    }
  }
}

std::string Print(const char* format, double value) {
  char text[128];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// One number in one of many spellings sscanf accepts.
std::string Spell(std::mt19937_64& rng, float value) {
  static const char* const kFormats[] = {"%g",    "%.9g", "%.6f", "%e", "%.3E", "%+g",
                                         "%.17g", "%.0f", "%f",   "%a", "%.1f", "%.12e"};
  std::string text = Print(kFormats[rng() % std::size(kFormats)], double(value));
  switch (rng() % 8) {
    case 0:  // ".5" rather than "0.5"
      if (text.starts_with("0.")) text.erase(0, 1);
      if (text.starts_with("-0.")) text.erase(1, 1);
      break;
    case 1:  // "5." rather than "5"
      if (text.find_first_not_of("-+0123456789") == std::string::npos) text += '.';
      break;
    case 2:
      if (text[0] != '-' && text[0] != '+') text = '+' + text;
      break;
    default:
      break;
  }
  return text;
}

float RandomFloat(std::mt19937_64& rng) {
  switch (rng() % 6) {
    case 0:
      return std::bit_cast<float>(uint32_t(rng()));  // anything, NaN and infinity included
    case 1:
      return std::bit_cast<float>(uint32_t(rng() % 0x800000));  // subnormal
    case 2:
      return std::ldexp(float(rng() % 0x1000000) / 0x1000000, int(rng() % 256) - 128);
    default:
      return std::uniform_real_distribution<float>(-0.1f, 1.2f)(rng);
  }
}

std::string Blank(std::mt19937_64& rng, bool needed) {
  static const char* const kBlanks[] = {" ", "\t", "  ", " \t ", "\v", "\f ", "   \t\t"};
  if (!needed && rng() % 3 == 0) return "";
  return kBlanks[rng() % std::size(kBlanks)];
}

TEST(FloatTriple, RandomSpellingsReadLikeSscanf) {
  std::mt19937_64 rng(20261121);
  for (int i = 0; i < 200000; ++i) {
    std::string line = Blank(rng, false);
    for (int n = 0; n < 3; ++n) {
      line += Spell(rng, RandomFloat(rng));
      line += Blank(rng, n < 2);
    }
    ExpectSameAsSscanf(line);
  }
}

TEST(FloatTriple, LongDecimalsAndRoundingTiesReadLikeSscanf) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 100000; ++i) {
    std::string numbers[3];
    for (auto& number : numbers) {
      if (rng() % 2) {
        // A decimal exactly halfway between two neighbouring floats, or a digit off it.
        const float low = std::ldexp(float(rng() % 0x1000000), int(rng() % 120) - 100);
        const double middle = (double(low) + double(std::nextafter(low, INFINITY))) / 2;
        number = Print("%.60g", middle);
        if (rng() % 2 && number.find('e') == std::string::npos) {
          number += rng() % 2 ? "1" : "";
        }
      } else {
        // Random digit strings: many digits, a point anywhere, any exponent.
        const size_t digits = 1 + rng() % 45;
        for (size_t d = 0; d < digits; ++d)
          number += char('0' + rng() % 10);
        if (rng() % 2) {
          const size_t point = rng() % (digits + 1);
          number = number.substr(0, point) + '.' + number.substr(point);
        }
        if (rng() % 2) {
          number += 'e';
          number += std::to_string(int(rng() % 100) - 60);
        }
      }
    }
    ExpectSameAsSscanf(numbers[0] + " " + numbers[1] + "\t" + numbers[2]);
  }
}

TEST(FloatTriple, MalformedAndEdgeLinesReadLikeSscanf) {
  const std::string lines[] = {
      "1 2",
      "1 2 x",
      "1e",
      "1e 2 3",
      "1 2 3e",
      "1 2 3e+",
      "--1 2 3",
      "+-1 2 3",
      "1 2 3 4",
      "1 2 3x",
      "1-2-3",
      "1+2+3",
      ".5 5. .5",
      ". 1 2",
      "1 . 2",
      "e5 1 2",
      "0x 1 2",
      "0x1p3 1 2",
      "1 0x1.8p1 2",
      "inf 1 2",
      "1 nan 2",
      "1 2 -infinity",
      "nan(12) 1 2",
      "1.2.3 4 5",
      "1..2 3 4",
      "1e400 2 3",
      "1 -1e400 3",
      "1e-400 2 3",
      "1 1e-45 7e-46",
      "3.4028236e38 1 2",
      "3.4028235e38 1 2",
      "1.17549435e-38 1 2",
      "-0 -0.0 +0",
      "00001 0002.5000 03e+00",
      "1e+0000000000000000000007 1 1",
      "1e-99999999999999999999 1 2",
      "",
      " ",
      "\t",
      "\v\f",
      "1,2,3",
      "1;2;3",
      "１ 2 3",
      "1\xA0"
      "2 3",
      "1 2 \x80",
      "1 2\0 3"s,
      "1\0 2 3"s,
      "\0"s,
      "1 2 3\0 4"s,
      "0 0 0",
      "-1 -2 -3",
  };
  int fastHits = 0;
  for (const auto& line : lines)
    ExpectSameAsSscanf(line, &fastHits);
  EXPECT_GT(fastHits, 5) << "the plain lines among them take the fast path";
}

TEST(FloatTriple, PlainCubeDataTakesTheFastPath) {
  std::mt19937_64 rng(3);
  int fastHits = 0;
  const int lines = 20000;
  for (int i = 0; i < lines; ++i) {
    const auto u = [&rng] { return std::uniform_real_distribution<double>(-0.5, 2.0)(rng); };
    const char* format = i % 2 ? "%.6f %.6f %.6f" : "%.10g\t%.10g\t%.10g  ";
    char line[128];
    std::snprintf(line, sizeof line, format, u(), u(), u());
    ExpectSameAsSscanf(line, &fastHits);
  }
  EXPECT_EQ(fastHits, lines);
}

TEST(FloatTriple, WithTheFastPathOffEveryLineStillReads) {
  Tincta::SetFloatTripleFastPath(false);
  float v[3];
  const int count = ScanFloatTriple("0.25 0.5 1", v);
  Tincta::SetFloatTripleFastPath(true);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(v[0], 0.25f);
  EXPECT_EQ(v[2], 1.0f);
}

// The cube reader refuses to allocate for a declared count the text is too short to hold, on the
// ground that three numbers need five characters: checked here for every short line.
TEST(FloatTriple, NoLineShorterThanFiveCharactersHoldsThreeNumbers) {
  const std::string alphabet = "0123456789.+-eExXpPiInNfFaA \t\v\f";
  std::string line;
  int lines = 0;
  for (size_t length = 1; length <= 4; ++length) {
    std::vector<size_t> digit(length, 0);
    for (;;) {
      line.resize(length);
      for (size_t i = 0; i < length; ++i)
        line[i] = alphabet[digit[i]];
      float v[3];
      ++lines;
      ASSERT_LT(std::sscanf(line.c_str(), " %f %f %f ", &v[0], &v[1], &v[2]), 3) << line;
      size_t i = 0;
      while (i < length && ++digit[i] == alphabet.size())
        digit[i++] = 0;
      if (i == length) break;
    }
  }
  EXPECT_EQ(lines, 31 + 31 * 31 + 31 * 31 * 31 + 31 * 31 * 31 * 31);
}

}  // namespace
