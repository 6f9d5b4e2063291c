// The tool's --device: evaluation on the OpenCL device (PoCL everywhere), the CPU device's refusal
// of tetrahedral interpolation, and devices that are not there.
#include <gtest/gtest.h>

#include <string>

#include "support/cli_runner.h"

namespace crandle_test {
namespace {

const std::string kLUT = Quote(std::string(CRANDLE_SOURCE_DIR) + "/samples/teal-orange.cube");

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
  const std::pair<std::string, std::string> cases[] = {
      {"eval " + kLUT + " --interp tetrahedral", "runs on GPU devices only"},
      {"eval " + kLUT + " --device cuda:7", "no device cuda:7 here; GPU devices:"},
      {"eval " + kLUT + " --device metal", "unknown device 'metal'"},
      {"eval " + kLUT + " --device opencl:", "unknown device 'opencl:'"},
      {"apply " + kLUT + " in.png out.png --interp tetrahedral --device cpu",
       "choose --device opencl[:N] or --device cuda[:N]"},
  };
  for (const auto& [arguments, message] : cases) {
    EXPECT_TRUE(Ended(RunTool(arguments, "0.5 0.5 0.5\n"), 1, message)) << arguments;
  }
}

}  // namespace
}  // namespace crandle_test
