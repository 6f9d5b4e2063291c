// The settings service: boolean spellings, numbers, settings files, LUT path resolution.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "host/settings.h"
#include "support/temp_dir.h"

namespace {

using host::Settings;

class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override { Settings::Instance().Clear(); }
  void TearDown() override { Settings::Instance().Clear(); }
  Settings& settings_ = Settings::Instance();
};

TEST_F(SettingsTest, BooleanSpellings) {
  struct Case {
    const char* text;
    int meaning;  // 1 true, 0 false, -1 the default
  };
  const Case cases[] = {
      {"1", 1},      {"true", 1}, {"TRUE", 1},     {"True", 1},  {"yes", 1},   {"YeS", 1},
      {"on", 1},     {"ON", 1},   {"0", 0},        {"false", 0}, {"FALSE", 0}, {"no", 0},
      {"No", 0},     {"off", 0},  {"oFF", 0},      {"", -1},     {"2", -1},    {"truee", -1},
      {" true", -1}, {"y", -1},   {"enabled", -1}, {"01", -1},
  };
  for (const Case& c : cases) {
    settings_.SetString("Test.Flag", c.text);
    for (bool fallback : {false, true}) {
      const bool expected = c.meaning < 0 ? fallback : c.meaning == 1;
      EXPECT_EQ(settings_.GetBool("Test.Flag", fallback), expected) << '"' << c.text << '"';
    }
  }
  settings_.Remove("Test.Flag");
  EXPECT_TRUE(settings_.GetBool("Test.Flag", true));
  EXPECT_FALSE(settings_.GetBool("Test.Flag", false));
  settings_.SetBool("Test.Flag", true);
  EXPECT_TRUE(settings_.GetBool("Test.Flag", false));
  settings_.SetBool("Test.Flag", false);
  EXPECT_FALSE(settings_.GetBool("Test.Flag", true));
}

TEST_F(SettingsTest, UnsignedNumbers) {
  struct Case {
    const char* text;
    unsigned long long expected;
  };
  const Case cases[] = {
      {"42", 42},
      {"0", 0},
      {"18446744073709551615", 18446744073709551615ull},
      {"18446744073709551616", 7},
      {"-1", 7},
      {"42x", 7},
      {"", 7},
      {" 42", 7},
      {"0x10", 7},
  };
  for (const Case& c : cases) {
    settings_.SetString("Test.Number", c.text);
    EXPECT_EQ(settings_.GetUnsigned("Test.Number", 7), c.expected) << '"' << c.text << '"';
  }
  EXPECT_EQ(settings_.GetUnsigned("Test.Absent", 9), 9u);
}

TEST_F(SettingsTest, FileWithCommentsBlanksAndOddLines) {
  crandle_test::TempDir dir;
  const std::string path = dir.Write("settings.conf",
                                     "# comment line\n"
                                     "\n"
                                     "   # indented comment\n"
                                     "ColorTransforms.AlwaysUpsampleToPoT = yes\r\n"
                                     "  Spaced.Key   =   value with spaces  \n"
                                     "Equals.Twice = a=b\n"
                                     "this line has no equals sign\n"
                                     "Vendor.Unknown.Key=kept\n"
                                     "Repeated = first\n"
                                     "Repeated = second\n"
                                     "Empty.Value =\n"
                                     "Last.Line.Without.Newline = end");
  std::string error;
  EXPECT_FALSE(settings_.LoadFile(path, &error)) << "a line without '=' is reported";
  EXPECT_NE(error.find(":7:"), std::string::npos) << error;
  // Every well-formed line is loaded, the ones after the bad line included.
  EXPECT_TRUE(settings_.GetBool(host::kSettingAlwaysUpsampleToPoT, false));
  EXPECT_EQ(settings_.GetString("Spaced.Key"), "value with spaces");
  EXPECT_EQ(settings_.GetString("Equals.Twice"), "a=b");
  EXPECT_EQ(settings_.GetString("Vendor.Unknown.Key"), "kept");
  EXPECT_EQ(settings_.GetString("Repeated"), "second");
  EXPECT_EQ(settings_.GetString("Empty.Value"), "");
  EXPECT_EQ(settings_.GetString("Last.Line.Without.Newline"), "end");
  EXPECT_FALSE(settings_.GetString("# comment line").has_value());
  EXPECT_FALSE(settings_.GetString("this line has no equals sign").has_value());

  const std::string good = dir.Write("good.conf", "A = 1\n# only comments otherwise\n");
  error.clear();
  EXPECT_TRUE(settings_.LoadFile(good, &error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(settings_.GetString("Repeated"), "second") << "loading adds to what is there";

  EXPECT_FALSE(settings_.LoadFile((dir.Path() / "missing.conf").string(), &error));
  EXPECT_NE(error.find("missing.conf"), std::string::npos) << error;
  EXPECT_FALSE(settings_.LoadFile((dir.Path() / "missing.conf").string())) << "no error text asked";
  error.clear();
  EXPECT_FALSE(settings_.LoadFile(dir.Path().string(), &error)) << "a directory is no file";
  EXPECT_NE(error, "");
}

TEST_F(SettingsTest, ResolveLUTPath) {
  struct Case {
    const char* base;  // null: unset
    const char* path;
    const char* resolved;
  };
  const Case cases[] = {
      {nullptr, "looks/a.cube", "looks/a.cube"},
      {"", "looks/a.cube", "looks/a.cube"},
      {"/srv/luts", "looks/a.cube", "/srv/luts/looks/a.cube"},
      {"/srv/luts/", "looks/a.cube", "/srv/luts/looks/a.cube"},
      {"C:\\luts\\", "a.cube", "C:\\luts\\a.cube"},
      {"/srv/luts", "", "/srv/luts/"},
  };
  for (const Case& c : cases) {
    if (c.base)
      settings_.SetString(host::kSettingLUTBaseDirectory, c.base);
    else
      settings_.Remove(host::kSettingLUTBaseDirectory);
    EXPECT_EQ(settings_.ResolveLUTPath(c.path), c.resolved) << (c.base ? c.base : "(unset)");
  }
}

TEST_F(SettingsTest, ConcurrentWritersAndReaders) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([t, &wrong, this] {
      const std::string key = "Thread." + std::to_string(t);
      for (int i = 0; i < 2000; ++i) {
        settings_.SetString(key, std::to_string(i));
        if (settings_.GetUnsigned(key, 999999) != unsigned(i)) wrong.fetch_add(1);
        settings_.GetBool(host::kSettingEnableFloatLUTs, true);
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

// CRANDLE_SETTINGS is read when the instance is first used, so the check runs in a fresh
// process (the test binary started again for this test alone).
TEST(SettingsEnvironment, LoadedAtFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  crandle_test::TempDir dir;
  const std::string path = dir.Write("env.conf", "ColorTransforms.EnableFloatLUTs = off\nX = 5\n");
  EXPECT_EXIT(
      {
        ::setenv("CRANDLE_SETTINGS", path.c_str(), 1);
        Settings& settings = Settings::Instance();
        const bool loaded = !settings.GetBool(host::kSettingEnableFloatLUTs, true) &&
                            settings.GetUnsigned("X", 0) == 5;
        std::exit(loaded ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
