// crandle look: read look documents (or look references) and describe them, and pack LUT files
// into a look document, with the LUTs inline or in a payload file beside it.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "foundation/file.h"
#include "foundation/hex_codec.h"
#include "host/guid.h"
#include "look/embedded_lut_payload.h"
#include "look/grading_from_lut.h"
#include "look/look_document_reader.h"
#include "look/look_document_writer.h"
#include "lut/lut_identifier.h"

namespace crandle_tool {
namespace {

using Tincta::COvGradingDocument;

// Look documents with inline LUTs are hexadecimal text: far larger than the LUT files.
constexpr uint64_t kMaxDocumentBytes = uint64_t(4) << 30;

struct SShowOptions {
  std::string document;
  std::string payload;
  bool json = false;
};

struct SPackOptions {
  std::vector<std::string> luts;
  std::string output;
  std::string payload;
  std::string name;
  std::string guid;
};

// 32 hexadecimal digits, or the same in 8-4-4-4-12 groups with or without braces.
std::optional<host::Guid> ParseGuidArgument(std::string text) {
  if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
  if (text.size() == 36) {
    for (size_t dash : {23, 18, 13, 8}) {
      if (text[dash] != '-') return std::nullopt;
      text.erase(dash, 1);
    }
  }
  return host::Guid::FromString(text);
}

bool ReadFile(const std::string& path, uint64_t limit, std::vector<uint8_t>& bytes,
              const char* command) {
  Tincta::SFileContents contents;
  const Tincta::EFileReadResult result = Tincta::ReadWholeFile(path, limit, contents);
  if (result == Tincta::EFileReadResult::Ok) {
    bytes.assign(contents.bytes.get(), contents.bytes.get() + contents.size);
    return true;
  }
  const char* reason = result == Tincta::EFileReadResult::NotFound     ? "no such file"
                       : result == Tincta::EFileReadResult::NotRegular ? "not a regular file"
                       : result == Tincta::EFileReadResult::TooLarge   ? "the file is too large"
                                                                       : "the file cannot be read";
  std::fprintf(stderr, "crandle look %s: %s: %s\n", command, path.c_str(), reason);
  return false;
}

bool WriteFile(const std::string& path, const void* bytes, size_t count) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(static_cast<const char*>(bytes), std::streamsize(count));
  out.close();
  if (out) return true;
  std::fprintf(stderr, "crandle look pack: %s: cannot be written\n", path.c_str());
  return false;
}

std::string KindOf(const Tincta::COv3DLUT& lut) {
  return !lut.Is3D() ? "1D" : lut.InputShaper() ? "1D3D" : "3D";
}

std::string DigestText(const Tincta::COv3DLUT& lut) {
  const auto& digest = lut.ContentDigest();
  return Tincta::EncodeBytesAsText(digest.data(), digest.size(),
                                   Tincta::ETextCodecMode::Hexadecimal);
}

nlohmann::json DescribeAsJson(const COvGradingDocument& document) {
  nlohmann::json operations = nlohmann::json::array();
  const auto& tracks = document.Animation().Tracks();
  for (size_t track = 0; track < tracks.size(); ++track) {
    for (size_t layer = 0; layer < tracks[track].layers.size(); ++layer) {
      for (const auto& keyframe : tracks[track].layers[layer].keyframes) {
        for (const auto& operation : keyframe.operations) {
          nlohmann::json parameters = nlohmann::json::object();
          for (const auto& [key, value] : operation.Parameters())
            parameters[key] = value;
          operations.push_back({{"track", track},
                                {"layer", layer},
                                {"time", keyframe.time},
                                {"name", operation.Name()},
                                {"parameters", parameters}});
        }
      }
    }
  }
  nlohmann::json luts = nlohmann::json::array();
  for (const auto& entry : document.LUTs()) {
    const Tincta::COv3DLUT& lut = *entry.lut;
    luts.push_back({{"displayName", Tincta::LUTDisplayName(lut)},
                    {"kind", KindOf(lut)},
                    {"size", lut.Size()},
                    {"shaperSize", lut.InputShaper() ? lut.InputShaper()->Size() : 0},
                    {"identifier", Tincta::LUTIdentifier(lut).ToString()},
                    {"sourcePath", lut.SourcePath()},
                    {"contentDigest", DigestText(lut)},
                    {"embeddedAs", entry.embeddedIdentifier}});
  }
  nlohmann::json missing = nlohmann::json::array();
  for (const std::string& entry : document.MissingEmbeddedLUTs()) {
    missing.push_back({{"hash", entry.substr(0, 32)}, {"filename", entry.substr(32)}});
  }
  nlohmann::json properties = nlohmann::json::object();
  if (document.Properties()) {
    for (const auto& [key, value] : document.Properties()->Entries())
      properties[key] = value;
  }
  nlohmann::json description = {
      {"name", document.Name()},        {"guid", document.Guid().ToString()},
      {"version", document.Version()},  {"import", document.IsImport()},
      {"operations", operations},       {"luts", luts},
      {"missingEmbeddedLUTs", missing}, {"properties", properties},
  };
  if (const auto* mask = document.Animation().Mask()) {
    description["mask"] = {{"name", mask->Name()}, {"points", mask->Points().size()}};
  }
  return description;
}

void PrintText(const std::string& path, const COvGradingDocument& document) {
  std::printf("%s\n", path.c_str());
  std::printf("  name          %s\n", document.Name().c_str());
  std::printf("  guid          %s\n", document.Guid().ToString().c_str());
  std::printf("  version       %u\n", document.Version());
  const auto& tracks = document.Animation().Tracks();
  std::printf("  operations\n");
  for (size_t track = 0; track < tracks.size(); ++track) {
    for (size_t layer = 0; layer < tracks[track].layers.size(); ++layer) {
      for (const auto& keyframe : tracks[track].layers[layer].keyframes) {
        for (const auto& operation : keyframe.operations) {
          std::printf("    track %zu, layer %zu, frame %lld: %s", track, layer,
                      static_cast<long long>(keyframe.time), operation.Name().c_str());
          for (const auto& [key, value] : operation.Parameters()) {
            std::printf("  %s=\"%s\"", key.c_str(), value.c_str());
          }
          std::printf("\n");
        }
      }
    }
  }
  if (const auto* mask = document.Animation().Mask()) {
    std::printf("  mask          \"%s\", %zu points\n", mask->Name().c_str(),
                mask->Points().size());
  }
  std::printf("  luts\n");
  for (const auto& entry : document.LUTs()) {
    const Tincta::COv3DLUT& lut = *entry.lut;
    std::printf("    %s  %s  %u  %s\n", Tincta::LUTDisplayName(lut).c_str(), KindOf(lut).c_str(),
                lut.Size(), Tincta::LUTIdentifier(lut).ToString().c_str());
  }
  if (!document.MissingEmbeddedLUTs().empty()) {
    std::printf("  embedded LUTs without a payload record\n");
    for (const std::string& entry : document.MissingEmbeddedLUTs()) {
      std::printf("    %s  %s\n", entry.substr(0, 32).c_str(), entry.substr(32).c_str());
    }
  }
  if (document.Properties() && !document.Properties()->Empty()) {
    std::printf("  properties\n");
    for (const auto& [key, value] : document.Properties()->Entries()) {
      std::printf("    %s = %s\n", key.c_str(), value.c_str());
    }
  }
}

int RunShow(const SShowOptions& options) {
  std::vector<uint8_t> text;
  if (!ReadFile(options.document, kMaxDocumentBytes, text, "show")) return 1;
  std::unique_ptr<Tincta::COvEmbeddedLUTPayload> payload;
  if (!options.payload.empty()) {
    std::vector<uint8_t> bytes;
    if (!ReadFile(options.payload, kMaxDocumentBytes, bytes, "show")) return 1;
    // A wrong file here would only show as LUTs missing from the document; say so instead.
    const auto records = Tincta::CountEmbeddedLUTRecords(bytes);
    if (!records || *records == 0) {
      std::fprintf(stderr, "crandle look show: %s: not an embedded-LUT payload (%s)\n",
                   options.payload.c_str(),
                   records ? "the file is empty"
                           : "its records do not fill the file: a record is cut short or runs "
                             "past the end");
      return 1;
    }
    payload = std::make_unique<Tincta::COvEmbeddedLUTPayload>(std::move(bytes));
  }
  std::string error;
  const auto document = Tincta::ReadLookDocument(text.data(), text.size(), payload.get(), &error);
  if (!document) {
    std::fprintf(stderr, "crandle look show: %s: not a look document that can be read: %s\n",
                 options.document.c_str(), error.c_str());
    return 1;
  }
  if (options.json) {
    nlohmann::json description = DescribeAsJson(*document);
    description["path"] = options.document;
    std::cout << description.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  } else {
    PrintText(options.document, *document);
  }
  return 0;
}

int RunPack(const SPackOptions& options) {
  std::unique_ptr<COvGradingDocument> document;
  for (const std::string& path : options.luts) {
    std::vector<uint8_t> bytes;
    if (!ReadFile(path, Tincta::kMaxLUTFileBytes, bytes, "pack")) return 1;
    const std::string name = std::filesystem::path(path).filename().string();
    bool added = false;
    if (!document) {
      document = Tincta::CreateGradingFromLUTData(bytes.data(), uint32_t(bytes.size()), name);
      added = document != nullptr;
    } else {
      added = Tincta::bAppendLUTOperation(*document, bytes.data(), uint32_t(bytes.size()), name);
    }
    if (!added) {
      std::fprintf(stderr, "crandle look pack: %s: not a LUT in a format this tool reads\n",
                   path.c_str());
      return 1;
    }
  }
  if (!options.name.empty()) document->SetName(options.name);
  if (!options.guid.empty()) document->SetGuid(*ParseGuidArgument(options.guid));

  Tincta::COvEmbeddedLUTPayload payload;
  const bool embedded = !options.payload.empty();
  if (embedded) {
    for (const auto& entry : document->LUTs()) {
      if (entry.lut->InputShaper()) {
        std::fprintf(stderr,
                     "crandle look pack: warning: the payload carries the 3-D table of %s without "
                     "its input shaper\n",
                     entry.lut->SourcePath().c_str());
      }
    }
  }
  const std::string_view text = Tincta::WriteLookDocument(*document, embedded ? &payload : nullptr);
  if (text.empty()) {
    std::fprintf(stderr, "crandle look pack: the document could not be written (memory)\n");
    return 1;
  }
  if (!WriteFile(options.output, text.data(), text.size())) return 1;
  if (embedded && !WriteFile(options.payload, payload.Bytes().data(), payload.Bytes().size())) {
    return 1;
  }
  std::printf("%s: %zu operations, %zu LUTs %s\n", options.output.c_str(), options.luts.size(),
              document->LUTs().size(), embedded ? ("in " + options.payload).c_str() : "inline");
  return 0;
}

}  // namespace

void AddLookCommand(CLI::App& app) {
  CLI::App* look = app.add_subcommand("look", "Read and write look documents");
  look->require_subcommand(1);

  auto show = std::make_shared<SShowOptions>();
  CLI::App* showCommand =
      look->add_subcommand("show", "Describe a look document or a look reference");
  showCommand->add_option("DOC", show->document, "Look document text, or a look reference")
      ->required();
  showCommand->add_option("--payload", show->payload,
                          "The embedded-LUT payload that travels with the document");
  showCommand->add_flag("--json", show->json, "One JSON object on one line");
  showCommand->callback([show] {
    const int status = RunShow(*show);
    if (status != 0) throw CLI::RuntimeError(status);
  });

  auto pack = std::make_shared<SPackOptions>();
  CLI::App* packCommand =
      look->add_subcommand("pack", "Make a look document with one LUT operation per LUT file");
  packCommand->add_option("LUT", pack->luts, "LUT files of any supported format")->required();
  packCommand->add_option("-o,--output", pack->output, "The look document to write")->required();
  packCommand->add_option("--payload", pack->payload,
                          "Write the LUTs into this payload file and name them by embeddedlut "
                          "elements, instead of writing them inline");
  packCommand->add_option("--name", pack->name, "The document's name");
  packCommand
      ->add_option("--guid", pack->guid,
                   "The document's identifier: 32 hexadecimal digits, or 8-4-4-4-12 groups "
                   "(default: all zeros)")
      ->check(CLI::Validator(
          [](std::string& text) {
            return ParseGuidArgument(text) ? std::string()
                                           : "'" + text +
                                                 "' is not a GUID: give 32 hexadecimal digits, "
                                                 "or 8-4-4-4-12 groups";
          },
          "GUID"));
  packCommand->callback([pack] {
    const int status = RunPack(*pack);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
