// The command line of `crandle apply`; the command runs in the image commands module.
#include <memory>

#include "apply_options.h"
#include "commands.h"
#include "image_commands.h"
#include "lut_source.h"

namespace crandle_tool {

void AddApplyCommand(CLI::App& app) {
  auto options = std::make_shared<SApplyOptions>();
  CLI::App* command = app.add_subcommand("apply", "Apply a LUT to an image or an image sequence");
  command
      ->add_option("LUT", options->lutPath,
                   "LUT file of any supported format, or a look document (whose LUT operations "
                   "are applied in order)")
      ->required();
  AddCorrectionIdOption(command, options->correctionId);
  command
      ->add_option("IN", options->input,
                   "Input image (EXR, DPX, TIFF, PNG, JPEG...), a sequence pattern such as "
                   "shot.%04d.exr or shot.####.exr, or a folder of images")
      ->required();
  command
      ->add_option("OUT", options->output,
                   "Output image, pattern or folder; each image written whole or not at all")
      ->required();
  command
      ->add_option("--threads", options->threads,
                   "Horizontal strips applied at once (default: the number of cores)")
      ->check(CLI::Range(1u, 256u));
  command->add_option("--preview", options->preview,
                      "Also write a PNG with the original and the result side by side");
  command
      ->add_option("--depth", options->depth,
                   "Output samples: 8, 16, half or float (default: as the input)")
      ->check(CLI::IsMember({"8", "16", "half", "float"}));
  command->add_option("--frames", options->frames,
                      "Frames of a sequence: A, A-B, or A-BxN for every Nth frame");
  command
      ->add_option(
          "--interp", options->interpolation,
          "trilinear or tetrahedral; tetrahedral needs a GPU device, the CPU path is trilinear")
      ->check(CLI::IsMember({"trilinear", "tetrahedral"}))
      ->capture_default_str();
  command
      ->add_option("--device", options->device,
                   "Where to apply: cpu, opencl[:N], cuda[:N], or auto (the first CUDA device "
                   "when there is one, else the CPU)")
      ->capture_default_str();
  command->add_option("--payload", options->payload,
                      "The embedded-LUT payload that travels with the look document");
  command->add_flag("--premultiplied", options->premultiplied,
                    "Apply to the colour as the file stores it; by default colour associated "
                    "with alpha (EXR, some TIFFs) is divided by alpha before the LUT and "
                    "multiplied back after");
  command->add_flag("--verbose", options->verbose,
                    "Print how long reading, applying and writing took for each image (on a GPU "
                    "device: uploading, applying and downloading), and at the end the whole run "
                    "in parts that add up to it, and its peak memory");
  command->callback([options] {
    const SImageCommands* image = ImageCommands("apply");
    if (!image) throw CLI::RuntimeError(1);
    if (const int status = image->apply(*options); status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
