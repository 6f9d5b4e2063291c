// libcrandle.so as a host loads it: exactly the nine functions are exported, and they work when
// called through the shared library.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "crandle/crandle.h"
#include "support/lut_samples.h"

namespace {

TEST(ModuleLibrary, ExportsExactlyTheNineFunctions) {
  const std::string command = std::string("nm -D --defined-only -C '") + CRANDLE_MODULE_PATH + "'";
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> exported;
  char line[4096];
  while (std::fgets(line, sizeof(line), pipe)) {
    std::string symbol(line);
    symbol = symbol.substr(symbol.find(' ', symbol.find(' ') + 1) + 1);
    symbol.pop_back();
    exported.insert(symbol);
  }
  ASSERT_EQ(::pclose(pipe), 0);
  int crandleFunctions = 0;
  for (const auto& symbol : exported) {
    EXPECT_EQ(symbol.rfind("CRANDLE::", 0), 0u) << "unexpected export: " << symbol;
    crandleFunctions += symbol.rfind("CRANDLE::", 0) == 0;
  }
  EXPECT_EQ(crandleFunctions, 9);
  for (const char* name : {"CRANDLE::ApplyLUT(", "CRANDLE::GetLUTBlob(", "CRANDLE::GetLUTDisplayName(",
                           "CRANDLE::GetLUTIdentifier(", "CRANDLE::ParseLUT("}) {
    bool found = false;
    for (const auto& symbol : exported) found |= symbol.rfind(name, 0) == 0;
    EXPECT_TRUE(found) << name;
  }
}

TEST(ModuleLibrary, ParsesAndDescribesThroughTheSharedLibrary) {
  const std::string text = crandle_test::CubeText3D(3, crandle_test::Identity, "Shared");
  std::shared_ptr<void> lut;
  ASSERT_EQ(CRANDLE::ParseLUT(text.data(), text.size(), lut), CRANDLE::kResultOK);
  std::string name;
  EXPECT_EQ(CRANDLE::GetLUTDisplayName(lut, name), CRANDLE::kResultOK);
  EXPECT_EQ(name, "Shared");
  EXPECT_EQ(CRANDLE::GetLUTBlob(lut).Size(), 40u + 12u * 27u);
  EXPECT_FALSE(CRANDLE::GetLUTIdentifier(lut).IsZero());
}

}  // namespace
