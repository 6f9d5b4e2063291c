// libcrandle.so as a host loads it: exactly the nine functions are exported (calls through the
// installed library are the package test's).
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

TEST(ModuleLibrary, ExportsExactlyTheNineFunctions) {
  const std::string command = std::string("nm -D --defined-only -C '") + CRANDLE_MODULE_PATH + "'";
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::map<std::string, int> overloads;  // by the name before the arguments
  char line[4096];
  while (std::fgets(line, sizeof(line), pipe)) {
    std::string symbol(line);
    symbol = symbol.substr(symbol.find(' ', symbol.find(' ') + 1) + 1);
    overloads[symbol.substr(0, symbol.find('('))] += 1;
  }
  ASSERT_EQ(::pclose(pipe), 0);
  EXPECT_EQ(overloads, (std::map<std::string, int>{{"CRANDLE::ApplyLUT", 4},
                                                   {"CRANDLE::GetLUTBlob", 1},
                                                   {"CRANDLE::GetLUTDisplayName", 1},
                                                   {"CRANDLE::GetLUTIdentifier", 1},
                                                   {"CRANDLE::ParseLUT", 2}}));
}

}  // namespace
