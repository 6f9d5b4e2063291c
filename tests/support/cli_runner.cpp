#include "support/cli_runner.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <OpenImageIO/imageio.h>

#include <cstdlib>
#include <sstream>

#include "support/temp_dir.h"

namespace crandle_test {

SToolRun RunTool(const std::string& arguments, const std::string& input) {
  TempDir scratch;
  const std::string in = scratch.Write("stdin", input);
  const std::string out = (scratch.Path() / "stdout").string();
  const std::string err = (scratch.Path() / "stderr").string();
  const std::string command = Quote(CRANDLE_CLI_PATH) + " " + arguments + " <" + Quote(in) + " >" +
                              Quote(out) + " 2>" + Quote(err);
  SToolRun run;
  const int status = std::system(command.c_str());
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = ReadFileBytes(out);
  run.err = ReadFileBytes(err);
  return run;
}

testing::AssertionResult Ended(const SToolRun& run, int status, const std::string& part) {
  if (run.status == status && run.err.find(part) != std::string::npos)
    return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "status " << run.status << " (" << status << " expected), looking for \"" << part
         << "\" in standard error:\n"
         << run.err;
}

std::vector<double> Numbers(const std::string& text) {
  std::istringstream in(text);
  std::vector<double> numbers;
  for (double v; in >> v;)
    numbers.push_back(v);
  return numbers;
}

std::set<std::string> FileNames(const std::filesystem::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.insert(entry.path().filename().string());
  return names;
}

void WriteImageFile(const std::filesystem::path& path, OIIO::TypeDesc type, int width, int height,
                    int channels, const std::vector<float>& samples, bool unassociated) {
  OIIO::ImageSpec spec(width, height, channels, type);
  spec.attribute("ImageDescription", "made by the crandle tests");
  if (unassociated) spec.attribute("oiio:UnassociatedAlpha", 1);
  auto out = OIIO::ImageOutput::create(path.string());
  ASSERT_EQ(samples.size(), size_t(width) * height * channels);
  ASSERT_TRUE(out && out->open(path.string(), spec) &&
              out->write_image(OIIO::TypeDesc::FLOAT, samples.data()) && out->close())
      << path;
}

SImageFile ReadImageFile(const std::filesystem::path& path) {
  SImageFile image;
  OIIO::ImageSpec hints;
  hints.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path.string(), &hints);
  EXPECT_TRUE(in) << "cannot read " << path;
  if (!in) return image;
  const OIIO::ImageSpec& spec = in->spec();
  image = {spec.width,
           spec.height,
           spec.nchannels,
           spec.format,
           spec.get_int_attribute("oiio:UnassociatedAlpha", 0) != 0,
           spec.get_string_attribute("ImageDescription")};
  image.samples.resize(size_t(spec.width) * spec.height * spec.nchannels);
  EXPECT_TRUE(in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.samples.data()));
  return image;
}

}  // namespace crandle_test
