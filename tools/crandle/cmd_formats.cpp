// crandle formats: the LUT formats read and written, and the image formats of OpenImageIO.
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "image_commands.h"
#include "lut/formats/reader.h"
#include "lut/lut_writers.h"

namespace crandle_tool {
namespace {

struct SLUTFormatNote {
  const char* reader;      // the name in the detector's table
  const char* extensions;  // the ones the format's files usually carry
  const char* what;
};

// The detector goes by content alone; these are the names users look for on disk.
constexpr SLUTFormatNote kReadNotes[] = {
    {"float image", "otx3 otx2 ovtx", "binary float LUT images \"OVTX\", \"OTX2\", \"OTX3\""},
    {"packed 10-bit cube", "3lut", "packed 10-bit binary cubes \"3LUT\", \"TUL3\""},
    {"XML look", "look xml", "XML looks with a hexadecimal LUT"},
    {"cube", "cube", "cube text: 1-D and 3-D, TITLE, DOMAIN_MIN/DOMAIN_MAX"},
    {"Truelight", "cub", "Truelight cube text, with an input shaper"},
    {"mesh", "3dl", "integer mesh text (3DMESH, LUT_SIZE, entries =, shaper lines)"},
    {"colour transformation", "cc cdl ccc", "one ASC CDL correction, baked into a 1-D table"},
};

std::string Dotted(std::string_view extensions) {
  std::string text;
  for (size_t at = 0; at < extensions.size();) {
    size_t end = extensions.find(' ', at);
    if (end == std::string_view::npos) end = extensions.size();
    text += (text.empty() ? "." : " .") + std::string(extensions.substr(at, end - at));
    at = end + 1;
  }
  return text;
}

int RunFormats() {
  std::printf("LUT formats read (recognised by content, tried in this order):\n");
  for (const Tincta::SLUTFormatReader& reader : Tincta::LUTFormatReaders()) {
    const SLUTFormatNote* note = nullptr;
    for (const SLUTFormatNote& candidate : kReadNotes)
      if (std::string_view(candidate.reader) == reader.name) note = &candidate;
    std::printf("  %-22s %-18s %s\n", reader.name, note ? Dotted(note->extensions).c_str() : "",
                note ? note->what : "");
  }
  std::printf("LUT formats written by convert (chosen by the output's extension):\n");
  for (const Tincta::SLUTFileFormat& written : Tincta::WrittenLUTFormats()) {
    std::printf("  %-22s %-18s %s\n", std::string(written.name).c_str(),
                ("." + std::string(written.name)).c_str(),
                std::string(written.description).c_str());
  }
  std::printf("Look documents: read by look show, written by look pack (usually .look)\n");

  // The image half asks the image library, opened only now.
  const SImageCommands* image = ImageCommands("formats");
  return image ? image->listImageFormats() : 1;
}

}  // namespace

void AddFormatsCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "formats", "List the LUT formats read and written, and the image formats of OpenImageIO");
  command->callback([] {
    if (const int status = RunFormats(); status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
