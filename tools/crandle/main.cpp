// crandle: inspect, convert and apply colour LUTs from the command line.
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "command_line.h"
#include "commands.h"
#include "host/initializer.h"
#include "host/settings.h"

int main(int argc, char** argv) {
  CLI::App app("crandle: inspect, convert and apply colour look-up tables", "crandle");
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Show the help of every command");
  app.set_version_flag("--version", "crandle " CRANDLE_VERSION);
  crandle_tool::WarnAboutSettingsEnvironment();

  std::vector<std::string> settings;
  std::string settingsFile;
  app.add_option("--set", settings, "Set a host setting, KEY=VALUE (repeatable)")
      ->type_name("KEY=VALUE")
      ->allow_extra_args(false);  // one pair per --set: the word after it is the command again
  app.add_option("--settings", settingsFile,
                 "Load host settings from a file of 'key = value' lines")
      ->check(CLI::ExistingFile);
  app.parse_complete_callback([&] {
    auto& host = host::Settings::Instance();
    std::string error;
    if (!settingsFile.empty() && !host.LoadFile(settingsFile, &error))
      throw CLI::ValidationError("--settings", error);
    for (const std::string& assignment : settings) {
      const size_t equals = assignment.find('=');
      if (equals == std::string::npos || equals == 0) {
        throw CLI::ValidationError("--set", "expected KEY=VALUE, got '" + assignment + "'");
      }
      crandle_tool::WarnAboutUnknownSetting(assignment.substr(0, equals));
      host.SetString(assignment.substr(0, equals), assignment.substr(equals + 1));
    }
    // The tool is the host here: it runs the module's initialisers once settings are known.
    host::InitializerRegistrar::RunInitializers();
  });

  crandle_tool::AddInfoCommand(app);
  crandle_tool::AddApplyCommand(app);
  crandle_tool::AddEvalCommand(app);
  crandle_tool::AddLookCommand(app);
  crandle_tool::AddConvertCommand(app);
  crandle_tool::AddCheckCommand(app);
  crandle_tool::AddPlotCommand(app);
  crandle_tool::AddFormatsCommand(app);
  // Every command runs inside the parse; memory that runs out anywhere in one ends it with a
  // message instead of an abort.
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return crandle_tool::ReportParseEnd(app, error);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "crandle: not enough memory\n");
    return crandle_tool::kExitFailure;
  }
  return crandle_tool::kExitSuccess;
}
