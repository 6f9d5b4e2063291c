// The settings service: booleans and numbers read from text, settings files, LUT paths.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host/settings.h"
#include "support/temp_dir.h"

namespace {

using host::Settings;

class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override { settings_.Clear(); }
  void TearDown() override { settings_.Clear(); }
  Settings& settings_ = Settings::Instance();
};

TEST_F(SettingsTest, BooleansAndNumbersFromText) {
  const auto boolean = [&](const char* text, bool fallback) {
    settings_.SetString("Test.Value", text);
    return settings_.GetBool("Test.Value", fallback);
  };
  for (const char* text : {"1", "true", "TRUE", "YeS", "on"})
    EXPECT_TRUE(boolean(text, false)) << text;
  for (const char* text : {"0", "False", "no", "oFF"})
    EXPECT_FALSE(boolean(text, true)) << text;
  for (const char* text : {"", " true", "truee", "y", "01", "2"})
    EXPECT_TRUE(boolean(text, true) && !boolean(text, false)) << "'" << text << "'";
  const auto number = [&](const char* text) {
    settings_.SetString("Test.Value", text);
    return settings_.GetUnsigned("Test.Value", 7);
  };
  EXPECT_TRUE(number("01") == 1 && number("42") == 42 && number("18446744073709551615") == ~0ull);
  for (const char* text : {"18446744073709551616", "-1", "42x", " 42", "0x10", ""})
    EXPECT_EQ(number(text), 7u) << "'" << text << "'";
  settings_.SetBool("Test.Value", false);
  EXPECT_FALSE(settings_.GetBool("Test.Value", true));
  settings_.Remove("Test.Value");
  EXPECT_TRUE(settings_.GetBool("Test.Value", true));
}

TEST_F(SettingsTest, FileLinesCommentsAndErrors) {
  crandle_test::TempDir dir;
  const std::string path = dir.Write("a.conf",
                                     "# comment\n\n   # indented comment\n"
                                     "ColorTransforms.AlwaysUpsampleToPoT = yes\r\n"
                                     "  Spaced.Key   =   value with spaces  \n"
                                     "Equals = a=b\n"
                                     "line 7 has no equals sign\n"
                                     "Repeated = first\nRepeated = second\nEmpty =\n"
                                     "Last = end");
  std::string error;
  EXPECT_FALSE(settings_.LoadFile(path, &error));
  EXPECT_NE(error.find(":7:"), std::string::npos) << error;
  // Every well-formed line is kept, those after the bad one too; unknown keys as well.
  EXPECT_TRUE(settings_.GetBool(host::kSettingAlwaysUpsampleToPoT, false));
  for (const auto& [key, value] : {std::pair{"Spaced.Key", "value with spaces"},
                                   {"Equals", "a=b"},
                                   {"Repeated", "second"},
                                   {"Empty", ""},
                                   {"Last", "end"}})
    EXPECT_EQ(settings_.GetString(key), value) << key;
  EXPECT_FALSE(settings_.GetString("# comment").has_value());
  error.clear();
  EXPECT_TRUE(settings_.LoadFile(dir.Write("b.conf", "A = 1\n"), &error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(settings_.GetString("Repeated"), "second") << "a file adds to what is there";
  for (const std::string& unreadable :
       {(dir.Path() / "missing.conf").string(), dir.Path().string()}) {
    error.clear();
    EXPECT_FALSE(settings_.LoadFile(unreadable, &error)) << unreadable;
    EXPECT_NE(error.find(unreadable), std::string::npos) << error;
  }
}

TEST_F(SettingsTest, ResolveLUTPath) {
  EXPECT_EQ(settings_.ResolveLUTPath("looks/a.cube"), "looks/a.cube") << "no base directory";
  const std::pair<const char*, const char*> cases[] = {{"", "a.cube"},
                                                       {"/srv/luts", "/srv/luts/a.cube"},
                                                       {"/srv/luts/", "/srv/luts/a.cube"},
                                                       {"C:\\luts\\", "C:\\luts\\a.cube"}};
  for (const auto& [base, resolved] : cases) {
    settings_.SetString(host::kSettingLUTBaseDirectory, base);
    EXPECT_EQ(settings_.ResolveLUTPath("a.cube"), resolved) << base;
  }
  EXPECT_EQ(settings_.ResolveLUTPath(""), "C:\\luts\\");
}

// CRANDLE_SETTINGS is read when the instance is first used: checked in a fresh process.
TEST(SettingsEnvironment, LoadedAtFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  crandle_test::TempDir dir;
  const std::string path = dir.Write("env.conf", "ColorTransforms.EnableFloatLUTs = off\nX = 5\n");
  EXPECT_EXIT(
      {
        ::setenv("CRANDLE_SETTINGS", path.c_str(), 1);
        const Settings& settings = Settings::Instance();
        std::exit(settings.GetBool(host::kSettingEnableFloatLUTs, true) ||
                  settings.GetUnsigned("X", 0) != 5);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
