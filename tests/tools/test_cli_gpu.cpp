// The tool's --device: evaluation on the OpenCL device (PoCL everywhere), the CPU device's refusal
// of tetrahedral interpolation, and devices that are not there.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/cli_runner.h"

namespace crandle_test {
namespace {

const std::string kLUT = std::string("'") + CRANDLE_SOURCE_DIR + "/samples/teal-orange.cube'";

std::vector<double> Numbers(const std::string& text) {
  std::istringstream in(text);
  std::vector<double> out;
  for (double v; in >> v;)
    out.push_back(v);
  return out;
}

TEST(ToolGPU, EvalOnOpenCLReachesTheLastEntryWhereTheCPUStopsShortOfIt) {
  const std::string probes = "0.5 0.5 0.5\n1 1 1\n";
  const SToolRun cpu = RunTool("eval " + kLUT + " --device cpu", probes);
  const SToolRun gpu = RunTool("eval " + kLUT + " --device opencl:0", probes);
  if (gpu.err.find("no device opencl") != std::string::npos) GTEST_SKIP() << gpu.err;
  ASSERT_EQ(cpu.status, 0) << cpu.err;
  ASSERT_EQ(gpu.status, 0) << gpu.err;
  const auto c = Numbers(cpu.out), g = Numbers(gpu.out);
  ASSERT_EQ(c.size(), 6u);
  ASSERT_EQ(g.size(), 6u);
  // Inside the cube both engines agree to the printed digits.
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(g[i], c[i], 2e-6);
  // At white the GPU reads the cube's last entry; the CPU clamps 1 % of a cell below it.
  EXPECT_GT(g[3], c[3]);
  EXPECT_NEAR(g[3], c[3], 0.01);
}

TEST(ToolGPU, DeviceChoicesAndRefusals) {
  struct SCase {
    std::string arguments;
    int status;
    std::string message;
  } const cases[] = {
      {"eval " + kLUT + " --interp tetrahedral", 1, "runs on GPU devices only"},
      {"eval " + kLUT + " --device cuda:7", 1, "no device cuda:7 here; GPU devices:"},
      {"eval " + kLUT + " --device metal", 1, "unknown device 'metal'"},
      {"eval " + kLUT + " --device opencl:", 1, "unknown device 'opencl:'"},
      {"apply " + kLUT + " in.png out.png --interp tetrahedral --device cpu", 1,
       "runs on GPU devices only"},
  };
  for (const SCase& c : cases) {
    const SToolRun run = RunTool(c.arguments, "0.5 0.5 0.5\n");
    EXPECT_EQ(run.status, c.status) << c.arguments;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << c.arguments << ": " << run.err;
  }
}

}  // namespace
}  // namespace crandle_test
