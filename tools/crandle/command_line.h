// The tool's exit statuses and the checks of its command line that are the whole tool's.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace crandle_tool {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

/// Reports a parse that ended early and returns the exit status: 0 for help and --version, a
/// command's own status for its failure (it has said why already), 2 for a command line that is
/// not understood. A word where a command belongs is named as an unknown command.
int ReportParseEnd(const CLI::App& app, const CLI::ParseError& error);

/// Warns (without failing) about settings that would otherwise be ignored without a word: keys
/// the module never reads given to --set, and a CRANDLE_SETTINGS file that cannot be loaded.
void WarnAboutUnknownSetting(const std::string& key);
void WarnAboutSettingsEnvironment();

}  // namespace crandle_tool
