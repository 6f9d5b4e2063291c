// The tool's subcommands; each registers itself on the application.
#pragma once

#include <CLI/CLI.hpp>

namespace crandle_tool {

void AddInfoCommand(CLI::App& app);
void AddApplyCommand(CLI::App& app);
void AddEvalCommand(CLI::App& app);
void AddLookCommand(CLI::App& app);
void AddConvertCommand(CLI::App& app);
void AddFormatsCommand(CLI::App& app);
void AddCheckCommand(CLI::App& app);
void AddPlotCommand(CLI::App& app);

}  // namespace crandle_tool
