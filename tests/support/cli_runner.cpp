#include "support/cli_runner.h"

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "support/temp_dir.h"

namespace crandle_test {

SToolRun RunTool(const std::string& arguments, const std::string& input) {
  TempDir scratch;
  const std::string in = scratch.Write("stdin", input);
  const std::string out = (scratch.Path() / "stdout").string();
  const std::string err = (scratch.Path() / "stderr").string();
  const std::string command = std::string("'") + CRANDLE_CLI_PATH + "' " + arguments + " <'" + in +
                              "' >'" + out + "' 2>'" + err + "'";
  SToolRun run;
  const int status = std::system(command.c_str());
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = ReadFileBytes(out);
  run.err = ReadFileBytes(err);
  return run;
}

}  // namespace crandle_test
