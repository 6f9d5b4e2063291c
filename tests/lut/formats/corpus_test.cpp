// The fuzz targets' seeds are valid files of every format, and the inputs that once broke a
// reader stay harmless. With CRANDLE_WRITE_FUZZ_SEEDS set to a folder, the seeds are written
// there (fuzz/corpus/<target>/ is made this way).
#include <pugixml.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "format_test.h"
#include "lut/formats/xml_lut_element.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;

void WriteSeedsIfAsked(const char* target, const std::vector<SSeed>& seeds) {
  const char* folder = std::getenv("CRANDLE_WRITE_FUZZ_SEEDS");
  if (!folder || !*folder) return;
  const auto directory = std::filesystem::path(folder) / target;
  std::filesystem::create_directories(directory);
  for (const SSeed& seed : seeds) {
    std::ofstream out(directory / seed.name, std::ios::binary | std::ios::trunc);
    out.write(seed.bytes.data(), std::streamsize(seed.bytes.size()));
    ASSERT_TRUE(out.good()) << seed.name;
  }
}

std::vector<std::filesystem::path> FilesIn(const std::filesystem::path& directory) {
  std::vector<std::filesystem::path> files;
  if (!std::filesystem::is_directory(directory)) return files;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

using CorpusTest = FormatTest;

TEST_F(CorpusTest, EverySeedOfParseLUTDataLoads) {
  const auto seeds = ParseLUTDataSeeds();
  for (const SSeed& seed : seeds) {
    COv3DLUT lut;
    EXPECT_TRUE(Parse(lut, seed.bytes)) << seed.name;
    EXPECT_GT(lut.Size(), 0u) << seed.name;
  }
  WriteSeedsIfAsked("parse_lut_data", seeds);
}

TEST_F(CorpusTest, EverySeedOfTheXMLLUTElementLoads) {
  const auto seeds = XMLLUTElementSeeds();
  for (const SSeed& seed : seeds) {
    pugi::xml_document document;
    ASSERT_TRUE(document.load_buffer(seed.bytes.data(), seed.bytes.size())) << seed.name;
    const auto lut = Tincta::ReadXMLLUTElement(document.document_element());
    ASSERT_NE(lut, nullptr) << seed.name;
    EXPECT_GT(lut->Size(), 0u) << seed.name;
  }
  WriteSeedsIfAsked("xml_lut_element", seeds);
}

// The same calls as the fuzz targets make, on every kept input.
TEST_F(CorpusTest, KeptRegressionInputsAreHarmless) {
  const std::filesystem::path root = std::filesystem::path(CRANDLE_SOURCE_DIR) / "fuzz";
  size_t inputs = 0;
  for (const char* folder : {"regressions/parse_lut_data", "corpus/parse_lut_data"}) {
    for (const auto& file : FilesIn(root / folder)) {
      const std::string bytes = ReadFileBytes(file.string());
      for (const ELUTKindFilter kind :
           {ELUTKindFilter::Any, ELUTKindFilter::Only1D, ELUTKindFilter::Only3D}) {
        for (const bool upsample : {false, true}) {
          COv3DLUT lut;
          if (!Parse(lut, bytes, {.upsample = upsample, .kind = kind})) {
            ExpectCleared(lut);
            continue;
          }
          EXPECT_GT(lut.Size(), 0u) << file;
          if (kind == ELUTKindFilter::Only1D) {
            EXPECT_FALSE(lut.Is3D()) << file;
          }
          if (kind == ELUTKindFilter::Only3D) {
            EXPECT_TRUE(lut.Is3D()) << file;
          }
          EXPECT_LE(lut.Size(), lut.Is3D() ? Tincta::kMax3DSize : Tincta::kMax1DEntries) << file;
        }
      }
      ++inputs;
    }
  }
  for (const char* folder : {"regressions/xml_lut_element", "corpus/xml_lut_element"}) {
    for (const auto& file : FilesIn(root / folder)) {
      const std::string bytes = ReadFileBytes(file.string());
      pugi::xml_document document;
      if (document.load_buffer(bytes.data(), bytes.size())) {
        const auto lut = Tincta::ReadXMLLUTElement(document.document_element());
        if (lut) {
          EXPECT_GT(lut->Size(), 0u) << file;
        }
      }
      ++inputs;
    }
  }
  EXPECT_GT(inputs, 0u) << "no kept inputs under " << root;
}

}  // namespace
}  // namespace crandle_test
