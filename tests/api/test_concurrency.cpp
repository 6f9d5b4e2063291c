// Eight threads parse, copy and drop handles to the same files while asking for identifiers,
// names and blobs: the LUT cache, the handle counts and the lazy digest must hold up (run it
// under the tsan preset).
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

void Cool(double r, double g, double b, double out[3]) {
  out[0] = r * 0.8;
  out[1] = g;
  out[2] = b * 0.7 + 0.3;
}

TEST(Concurrency, ParsingCopyingAndQueryingFromEightThreads) {
  crandle_test::TempDir dir;
  const std::vector<std::u16string> paths = {
      Tincta::Utf8ToUtf16(dir.Write("one.cube", crandle_test::CubeText3D(9))),
      Tincta::Utf8ToUtf16(dir.Write("two.cube", crandle_test::CubeText3D(9, Cool))),
  };
  std::vector<host::Guid> expected;
  for (const auto& path : paths) {
    std::shared_ptr<void> lut;
    ASSERT_EQ(CRANDLE::ParseLUT(path, lut), CRANDLE::kResultOK);
    expected.push_back(CRANDLE::GetLUTIdentifier(lut));
  }
  ASSERT_NE(expected[0], expected[1]);

  std::atomic<int> mismatches{0};
  std::vector<std::shared_ptr<void>> sharedHandles(paths.size());
  for (size_t i = 0; i < paths.size(); ++i) ASSERT_EQ(CRANDLE::ParseLUT(paths[i], sharedHandles[i]), 0);

  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 40; ++round) {
        const size_t which = size_t(t + round) % paths.size();
        std::shared_ptr<void> lut;
        if (CRANDLE::ParseLUT(paths[which], lut) != CRANDLE::kResultOK) ++mismatches;
        std::shared_ptr<void> copy = lut;  // copies and drops on several threads at once
        if (CRANDLE::GetLUTIdentifier(copy) != expected[which]) ++mismatches;
        // Never-hashed handles shared by all threads: the lazy digest is raced on purpose.
        if (CRANDLE::GetLUTIdentifier(sharedHandles[which]) != expected[which]) ++mismatches;
        std::string name;
        CRANDLE::GetLUTDisplayName(copy, name);
        if (name != (which == 0 ? "one" : "two")) ++mismatches;
        if (CRANDLE::GetLUTBlob(copy).Size() != 40u + 12u * 729u) ++mismatches;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
