#include "command_line.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "host/settings.h"

namespace crandle_tool {
namespace {

// The keys that something in the module or its host reads; any other is kept but changes nothing.
constexpr const char* kKnownSettings[] = {
    host::kSettingAlwaysUpsampleToPoT, host::kSettingEnableFloatLUTs,
    host::kSettingLUTBaseDirectory,    host::kSettingShippedLUTDirectory,
    host::kSettingLUTCacheBudgetMiB,
};

// "crandle" or "crandle look": the command whose own command word is missing or unknown.
std::string CommandPath(const CLI::App& app) {
  std::string path = app.get_name();
  if (const CLI::App* parent = app.get_parent()) path = CommandPath(*parent) + " " + path;
  return path;
}

}  // namespace

int ReportParseEnd(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == kExitSuccess) return app.exit(error);
  // A command's own failure: it printed its reason before it threw.
  if (error.get_name() == "RuntimeError") return error.get_exit_code();

  // A command that needs a further command word (crandle, crandle look) and got none: a word left
  // over is one it does not know.
  const CLI::App* deepest = &app;
  while (!deepest->get_subcommands().empty())
    deepest = deepest->get_subcommands().front();
  if (deepest->get_require_subcommand_min() > 0) {
    const std::string path = CommandPath(*deepest);
    for (const std::string& word : app.remaining(true)) {
      if (word.empty() || word[0] == '-') continue;
      std::fprintf(stderr, "%s: unknown command '%s'\nRun '%s --help' for the commands.\n",
                   path.c_str(), word.c_str(), path.c_str());
      return kExitUsage;
    }
    if (error.get_name() == "RequiredError") {
      std::string names;
      for (const CLI::App* command : deepest->get_subcommands(nullptr))
        names += (names.empty() ? "" : ", ") + command->get_name();
      std::fprintf(stderr, "%s: a command is needed: %s\nRun '%s --help' for what each does.\n",
                   path.c_str(), names.c_str(), path.c_str());
      return kExitUsage;
    }
  }
  app.exit(error);
  return kExitUsage;
}

void WarnAboutUnknownSetting(const std::string& key) {
  for (const char* known : kKnownSettings)
    if (key == known) return;
  std::string list;
  for (const char* known : kKnownSettings)
    list += std::string(list.empty() ? "" : ", ") + known;
  std::fprintf(stderr,
               "crandle: warning: --set %s: no part of crandle reads this key (known keys: %s)\n",
               key.c_str(), list.c_str());
}

void WarnAboutSettingsEnvironment() {
  const char* file = std::getenv("CRANDLE_SETTINGS");
  if (!file || !*file) return;
  std::error_code error;
  if (!std::filesystem::exists(file, error)) {
    std::fprintf(stderr,
                 "crandle: warning: CRANDLE_SETTINGS names %s, which does not exist; no settings "
                 "were read from it\n",
                 file);
    return;
  }
  // The host loads the file silently; loading it again (same values) recovers its reason.
  std::string reason;
  if (!host::Settings::Instance().LoadFile(file, &reason)) {
    std::fprintf(stderr, "crandle: warning: CRANDLE_SETTINGS: %s: %s\n", file, reason.c_str());
  }
}

}  // namespace crandle_tool
