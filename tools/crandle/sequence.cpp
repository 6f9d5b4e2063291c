#include "sequence.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace crandle_tool {
namespace {

struct SField {
  size_t start = 0;
  size_t length = 0;
  bool printf = false;  // %d forms; otherwise a run of '#' or '@', one digit each
};

// Finds the frame field; false when there is none or more than one, or when a printf-style
// pattern holds a '%' that is not part of "%%" or of its field ('%' means nothing to # and @).
bool FindField(const std::string& path, SField& field) {
  int fields = 0;
  bool strayPercent = false;
  for (size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '#' || path[i] == '@') {
      size_t j = i;
      while (j < path.size() && path[j] == path[i])
        ++j;
      field = {i, j - i, false};
      ++fields;
      i = j - 1;
      continue;
    }
    if (path[i] != '%') continue;
    if (i + 1 < path.size() && path[i + 1] == '%') {
      ++i;
      continue;
    }
    size_t j = i + 1;
    if (j < path.size() && path[j] == '0') ++j;
    while (j < path.size() && std::isdigit(static_cast<unsigned char>(path[j])))
      ++j;
    if (j >= path.size() || path[j] != 'd') {
      strayPercent = true;
      continue;
    }
    field = {i, j + 1 - i, true};
    ++fields;
    i = j;
  }
  return fields == 1 && !(field.printf && strayPercent);
}

bool ParseFrameNumber(const std::string& part, long& value) {
  // Nine digits keep every frame, and every step past the last, inside a long.
  if (part.empty() || part.size() > 9) return false;
  for (char c : part)
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  value = std::strtol(part.c_str(), nullptr, 10);
  return true;
}

}  // namespace

bool IsSequencePattern(const std::string& path) {
  SField field;
  return FindField(path, field);
}

std::string FramePath(const std::string& pattern, long frame) {
  SField field;
  if (!FindField(pattern, field)) return pattern;
  const std::string format = field.printf ? pattern.substr(field.start, field.length - 1) + "ld"
                                          : "%0" + std::to_string(field.length) + "ld";
  char number[64];
  std::snprintf(number, sizeof(number), format.c_str(), frame);
  std::string path;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (i == field.start) {
      path += number;
      i += field.length - 1;
    } else if (field.printf && pattern[i] == '%' && i + 1 < pattern.size() &&
               pattern[i + 1] == '%') {
      // "%%" is a literal "%" only in a printf-style pattern.
      path += '%';
      ++i;
    } else {
      path += pattern[i];
    }
  }
  return path;
}

std::optional<SFrameRange> ParseFrameRange(const std::string& text, std::string* why) {
  const auto fail = [&](const std::string& reason) -> std::optional<SFrameRange> {
    if (why) *why = "--frames " + text + ": " + reason;
    return std::nullopt;
  };
  const char* kForms = "give A, A-B or A-BxN (frames from 0 to 999999999, step N)";
  SFrameRange range;
  std::string span = text;
  if (const size_t x = text.find('x'); x != std::string::npos) {
    span = text.substr(0, x);
    if (!ParseFrameNumber(text.substr(x + 1), range.step)) return fail(kForms);
    if (range.step == 0) return fail("the step after 'x' must be at least 1");
    if (span.find('-') == std::string::npos) return fail("a step needs a range, A-BxN");
  }
  const size_t dash = span.find('-');
  if (dash == std::string::npos) {
    if (!ParseFrameNumber(span, range.first)) return fail(kForms);
    range.last = range.first;
    return range;
  }
  if (!ParseFrameNumber(span.substr(0, dash), range.first) ||
      !ParseFrameNumber(span.substr(dash + 1), range.last)) {
    return fail(kForms);
  }
  if (range.first > range.last) {
    return fail("the range runs backwards; frames are applied from the first up, so write " +
                span.substr(dash + 1) + "-" + span.substr(0, dash));
  }
  return range;
}

std::vector<long> FramesOf(const SFrameRange& range) {
  std::vector<long> frames;
  for (long frame = range.first; frame <= range.last; frame += range.step)
    frames.push_back(frame);
  return frames;
}

std::vector<std::string> FilesInFolder(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    std::error_code typeError;
    if (name.empty() || name[0] == '.' || !entry.is_regular_file(typeError)) continue;
    names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace crandle_tool
