// Malformed files kept in tests/data/lut/, each named for what is wrong with it: the reader of its
// format claims it and refuses it (a failure, so that no later reader tries it), and detection then
// fails and leaves the object cleared.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "support/lut_test.h"

namespace crandle_test {
namespace {

namespace fs = std::filesystem;

TEST(RegressionInputs, EachMalformedFileFailsInItsOwnReaderAndLeavesNothing) {
  const std::map<std::string, Reader> readers = {
      {".cube", "cube"},       {".cub", "Truelight"},           {".3dl", "mesh"},
      {".otx", "float image"}, {".3lut", "packed 10-bit cube"}, {".xml", "XML look"},
  };
  size_t files = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(CRANDLE_TEST_DATA_DIR) / "lut")) {
    SCOPED_TRACE(entry.path().filename().string());
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const auto reader = readers.find(entry.path().extension().string());
    ASSERT_NE(reader, readers.end()) << "no reader is named for this extension";
    Tincta::COv3DLUT lut;
    EXPECT_EQ(ReadAlone(reader->second, lut, bytes), EReadOutcome::Failed);
    ASSERT_TRUE(
        Parse(lut, "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n"));
    EXPECT_FALSE(Parse(lut, bytes));
    ExpectCleared(lut);
    ++files;
  }
  EXPECT_GE(files, 48u) << "a regression input went missing";
}

}  // namespace
}  // namespace crandle_test
