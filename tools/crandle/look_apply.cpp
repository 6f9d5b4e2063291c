#include "look_apply.h"

#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string_view>

#include "crandle/crandle.h"
#include "foundation/file.h"
#include "host/settings.h"
#include "look/embedded_lut_payload.h"
#include "look/look_document_reader.h"
#include "look/look_reference.h"
#include "lut_source.h"

namespace crandle_tool {
namespace {

// Look documents with inline LUTs are hexadecimal text: far larger than the LUT files.
constexpr uint64_t kMaxDocumentBytes = uint64_t(4) << 30;

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
  }
  return true;
}

// Passes over what may come before an XML root element: a byte order mark, blanks, the
// declaration, processing instructions, comments and a document type.
std::string_view SkipProlog(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  for (;;) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
      text.remove_prefix(1);
    std::string_view end;
    if (text.substr(0, 2) == "<?") {
      end = "?>";
    } else if (text.substr(0, 4) == "<!--") {
      end = "-->";
    } else if (text.substr(0, 2) == "<!") {
      end = ">";
    } else {
      return text;
    }
    const size_t at = text.find(end, 2);
    if (at == std::string_view::npos) return {};
    text.remove_prefix(at + end.size());
  }
}

bool ReadBytes(const std::string& path, uint64_t limit, std::vector<uint8_t>& bytes,
               std::string& error) {
  Tincta::SFileContents contents;
  const Tincta::EFileReadResult result = Tincta::ReadWholeFile(path, limit, contents);
  if (result == Tincta::EFileReadResult::Ok) {
    bytes.assign(contents.bytes.get(), contents.bytes.get() + contents.size);
    return true;
  }
  error = path + ": " +
          (result == Tincta::EFileReadResult::NotFound     ? "no such file"
           : result == Tincta::EFileReadResult::NotRegular ? "not a regular file"
           : result == Tincta::EFileReadResult::TooLarge   ? "the file is too large"
                                                           : "the file cannot be read");
  return false;
}

std::string OperationPlace(size_t track, size_t layer) {
  return "track " + std::to_string(track) + ", layer " + std::to_string(layer);
}

}  // namespace

bool IsLookDocumentFile(const std::string& path) {
  // Only a regular file is looked into: reading a pipe here would take bytes from its reader.
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) return false;
  std::ifstream file(path, std::ios::binary);
  std::string head(64 * 1024, '\0');
  file.read(head.data(), std::streamsize(head.size()));
  head.resize(size_t(file.gcount()));
  if (Tincta::IsLookReference(head.data(), head.size())) return true;
  const std::string_view root = SkipProlog(head);
  if (!StartsWithNoCase(root, "<tincta") || root.size() < 8) return false;
  const char after = root[7];
  return after == '>' || after == '/' || std::isspace(static_cast<unsigned char>(after));
}

bool LoadLookDocumentLUTs(const std::string& path, const std::string& payloadPath,
                          std::vector<std::shared_ptr<void>>& luts, std::string& error) {
  luts.clear();
  std::vector<uint8_t> text;
  if (!ReadBytes(path, kMaxDocumentBytes, text, error)) return false;
  std::unique_ptr<Tincta::COvEmbeddedLUTPayload> payload;
  if (!payloadPath.empty()) {
    std::vector<uint8_t> bytes;
    if (!ReadBytes(payloadPath, kMaxDocumentBytes, bytes, error)) return false;
    payload = std::make_unique<Tincta::COvEmbeddedLUTPayload>(std::move(bytes));
  }
  std::string reason;
  auto document = Tincta::ReadLookDocument(text.data(), text.size(), payload.get(), &reason);
  if (!document) {
    error = path + ": not a look document that can be read: " + reason;
    return false;
  }

  // The document's own LUTs by the name their operations use. Two LUT files of one name (packed
  // from two folders) are told apart by order: the n-th operation naming it takes the n-th LUT.
  struct SNamed {
    std::vector<std::shared_ptr<void>> luts;
    bool differ = false;  // the LUTs of this name differ in content
    size_t used = 0;
  };
  std::map<std::string, SNamed, std::less<>> byName;
  for (auto& entry : document->MutableLUTs()) {
    SNamed& named = byName[entry.lut->SourcePath()];
    if (!named.luts.empty()) {
      const auto* first = static_cast<const Tincta::COv3DLUT*>(named.luts.front().get());
      named.differ = named.differ || first->ContentDigest() != entry.lut->ContentDigest();
    }
    named.luts.push_back(std::shared_ptr<Tincta::COv3DLUT>(std::move(entry.lut)));
  }
  std::set<std::string, std::less<>> missing;  // file names of LUTs left in a payload
  for (const std::string& entry : document->MissingEmbeddedLUTs()) {
    if (entry.size() > 32) missing.insert(entry.substr(32));
  }

  const auto& tracks = document->Animation().Tracks();
  for (size_t track = 0; track < tracks.size(); ++track) {
    for (size_t layer = 0; layer < tracks[track].layers.size(); ++layer) {
      const auto& stack = tracks[track].layers[layer];
      const std::string place = OperationPlace(track, layer);
      if (stack.keyframes.size() > 1) {
        error = path + ": " + place + " is animated over " +
                std::to_string(stack.keyframes.size()) +
                " keyframes; only looks that hold still can be applied";
        return false;
      }
      if (stack.mask) {
        error = path + ": " + place + " acts through a mask, which this tool cannot apply";
        return false;
      }
      if (stack.keyframes.empty()) continue;
      for (const auto& operation : stack.keyframes.front().operations) {
        const std::string* name = operation.Parameter("LUT");
        if (operation.Name() != "LUT" || !name) {
          error = path + ": " + place + " holds the operation \"" + operation.Name() +
                  "\"; only LUT operations can be applied";
          return false;
        }
        if (const auto found = byName.find(*name); found != byName.end()) {
          SNamed& named = found->second;
          if (!named.differ) {
            luts.push_back(named.luts.front());
          } else if (named.used < named.luts.size()) {
            luts.push_back(named.luts[named.used++]);
          } else {
            error = path + ": " + std::to_string(named.luts.size()) +
                    " different LUTs are named \"" + *name +
                    "\", and more operations name it; which one each means is not known";
            return false;
          }
          continue;
        }
        if (missing.count(*name)) {
          error = path + ": the LUT \"" + *name + "\" travels in an embedded-LUT payload" +
                  (payloadPath.empty() ? "; give it with --payload FILE"
                                       : ", and " + payloadPath + " does not hold it");
          return false;
        }
        // A shipped LUT is named, not carried: a file name in the shipped folder, never a path.
        const auto directory =
            host::Settings::Instance().GetString(host::kSettingShippedLUTDirectory);
        const bool fileName =
            !name->empty() && name->find('/') == std::string::npos && *name != "." && *name != "..";
        std::shared_ptr<void> handle;
        if (!directory || !fileName ||
            ParseLUTFile((std::filesystem::path(*directory) / *name).string(), {}, handle) !=
                CRANDLE::kResultOK) {
          error = path + ": the LUT \"" + *name + "\" is neither in the document nor " +
                  (directory ? "a LUT file in " + *directory
                             : std::string("a shipped LUT (set ") +
                                   host::kSettingShippedLUTDirectory + " to their folder)");
          return false;
        }
        byName[*name].luts.push_back(handle);
        luts.push_back(std::move(handle));
      }
    }
  }
  if (luts.empty()) {
    error = path + ": the look document holds no LUT operation";
    return false;
  }
  return true;
}

}  // namespace crandle_tool
