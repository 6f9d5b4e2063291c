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

TEST(Concurrency, ParsingCopyingAndQueryingFromEightThreads) {
  crandle_test::TempDir dir;
  const auto cool = [](double r, double g, double b, double out[3]) {
    out[0] = r * 0.8, out[1] = g, out[2] = b * 0.7 + 0.3;
  };
  const std::u16string paths[2] = {
      Tincta::Utf8ToUtf16(dir.Write("one.cube", crandle_test::CubeText3D(9))),
      Tincta::Utf8ToUtf16(dir.Write("two.cube", crandle_test::CubeText3D(9, cool)))};
  host::Guid expected[2];
  std::shared_ptr<void> shared[2];  // never hashed before the threads: the lazy digest is raced
  for (int i = 0; i < 2; ++i) {
    std::shared_ptr<void> lut;
    ASSERT_EQ(CRANDLE::ParseLUT(paths[i], lut), CRANDLE::kResultOK);
    ASSERT_EQ(CRANDLE::ParseLUT(paths[i], shared[i]), CRANDLE::kResultOK);
    expected[i] = CRANDLE::GetLUTIdentifier(lut);
  }
  ASSERT_NE(expected[0], expected[1]);
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 40; ++round) {
        const size_t which = size_t(t + round) % 2;
        std::shared_ptr<void> lut;
        mismatches += CRANDLE::ParseLUT(paths[which], lut) != CRANDLE::kResultOK;
        std::shared_ptr<void> copy = lut;  // copies and drops on several threads at once
        mismatches += CRANDLE::GetLUTIdentifier(copy) != expected[which];
        mismatches += CRANDLE::GetLUTIdentifier(shared[which]) != expected[which];
        std::string name;
        CRANDLE::GetLUTDisplayName(copy, name);
        mismatches += name != (which == 0 ? "one" : "two");
        mismatches += CRANDLE::GetLUTBlob(copy).Size() != 40u + 12u * 729u;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
