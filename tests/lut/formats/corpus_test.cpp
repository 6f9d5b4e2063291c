// The fuzz targets' seeds: valid files of every format, written to CRANDLE_WRITE_FUZZ_SEEDS when
// it names a folder (fuzz/corpus/ is made this way), read on several threads at once; and every
// kept input stays harmless.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "lut/formats/xml_lut_element.h"
#include "lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
namespace fs = std::filesystem;

using Corpus = LUTTest;

std::unique_ptr<COv3DLUT> ReadElement(const std::string& bytes) {
  pugi::xml_document document;
  if (!document.load_buffer(bytes.data(), bytes.size())) return nullptr;
  return Tincta::ReadXMLLUTElement(document.document_element());
}

TEST_F(Corpus, EverySeedLoadsAndIsWrittenWhenAsked) {
  const char* folder = std::getenv("CRANDLE_WRITE_FUZZ_SEEDS");
  for (const auto& [target, seeds] : {std::pair{"parse_lut_data", ParseLUTDataSeeds()},
                                      std::pair{"xml_lut_element", XMLLUTElementSeeds()}}) {
    for (const SSeed& seed : seeds) {
      COv3DLUT lut;
      const auto element = ReadElement(seed.bytes);
      EXPECT_TRUE(std::string_view(target) == "parse_lut_data"
                      ? Parse(lut, seed.bytes) && lut.Size() > 0
                      : element && element->Size() > 0)
          << seed.name;
      if (!folder || !*folder) continue;
      fs::create_directories(fs::path(folder) / target);
      std::ofstream(fs::path(folder) / target / seed.name, std::ios::binary) << seed.bytes;
    }
  }
}

// The calls of the fuzz targets, on every kept input and seed: a read either fails leaving nothing
// or gives a table of the kind asked for within the limits.
TEST_F(Corpus, KeptInputsAreHarmless) {
  size_t inputs = 0;
  for (const char* folder : {"regressions", "corpus"}) {
    for (const char* target : {"parse_lut_data", "xml_lut_element"}) {
      const fs::path directory = fs::path(CRANDLE_SOURCE_DIR) / "fuzz" / folder / target;
      for (const auto& file :
           fs::exists(directory) ? fs::directory_iterator(directory) : fs::directory_iterator()) {
        const std::string bytes = ReadFileBytes(file.path().string());
        ++inputs;
        const auto element = ReadElement(bytes);
        EXPECT_TRUE(!element || element->Size() > 0) << file.path();
        for (const auto kind :
             {ELUTKindFilter::Any, ELUTKindFilter::Only1D, ELUTKindFilter::Only3D}) {
          for (const bool upsample : {false, true}) {
            COv3DLUT lut;
            if (!Parse(lut, bytes, {.upsample = upsample, .kind = kind})) ExpectCleared(lut);
            if (lut.Size() == 0) continue;
            EXPECT_TRUE(kind == ELUTKindFilter::Any ||
                        lut.Is3D() == (kind == ELUTKindFilter::Only3D));
            EXPECT_LE(lut.Size(), lut.Is3D() ? Tincta::kMax3DSize : Tincta::kMax1DEntries)
                << file.path();
          }
        }
      }
    }
  }
  EXPECT_GT(inputs, 20u);
}

TEST_F(Corpus, SeedsReadOnEightThreadsAtOnceGiveTheSerialTables) {
  const auto seeds = ParseLUTDataSeeds();
  std::vector<Tincta::Md5Digest> serial;
  for (const SSeed& seed : seeds) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, seed.bytes, {.upsample = true})) << seed.name;
    serial.push_back(lut.ContentDigest());
  }
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (size_t i = 0; i < 10 * seeds.size(); ++i) {
        const size_t which = (i + t) % seeds.size();  // threads start apart
        COv3DLUT lut;
        wrong += !Parse(lut, seeds[which].bytes, {.upsample = true}) ||
                 lut.ContentDigest() != serial[which];
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace crandle_test
