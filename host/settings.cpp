#include "host/settings.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>

namespace host {
namespace {

std::string_view Trim(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && isBlank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back()))
    text.remove_suffix(1);
  return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

// The one process-wide set of values behind Settings::Instance().
struct SState {
  std::mutex mutex;
  std::map<std::string, std::string, std::less<>> values;
};

SState& State() {
  static SState state;
  return state;
}

}  // namespace

Settings::Settings() {
  if (const char* file = std::getenv("CRANDLE_SETTINGS"); file && *file) LoadFile(file);
}

Settings& Settings::Instance() {
  static Settings settings;
  return settings;
}

bool Settings::GetBool(std::string_view key, bool defaultValue) const {
  const auto text = GetString(key);
  if (!text) return defaultValue;
  for (const char* word : {"1", "true", "yes", "on"})
    if (EqualsIgnoringCase(*text, word)) return true;
  for (const char* word : {"0", "false", "no", "off"})
    if (EqualsIgnoringCase(*text, word)) return false;
  return defaultValue;
}

void Settings::SetBool(std::string_view key, bool value) {
  SetString(key, value ? "true" : "false");
}

std::optional<std::string> Settings::GetString(std::string_view key) const {
  SState& state = State();
  std::lock_guard lock(state.mutex);
  const auto found = state.values.find(key);
  if (found == state.values.end()) return std::nullopt;
  return found->second;
}

void Settings::SetString(std::string_view key, std::string_view value) {
  SState& state = State();
  std::lock_guard lock(state.mutex);
  state.values.insert_or_assign(std::string(key), std::string(value));
}

unsigned long long Settings::GetUnsigned(std::string_view key,
                                         unsigned long long defaultValue) const {
  const auto text = GetString(key);
  if (!text) return defaultValue;
  unsigned long long value = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  return error == std::errc() && end == text->data() + text->size() ? value : defaultValue;
}

void Settings::Remove(std::string_view key) {
  SState& state = State();
  std::lock_guard lock(state.mutex);
  if (const auto found = state.values.find(key); found != state.values.end())
    state.values.erase(found);
}

void Settings::Clear() {
  SState& state = State();
  std::lock_guard lock(state.mutex);
  state.values.clear();
}

bool Settings::LoadFile(const std::string& path, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    if (error) *error = "cannot read settings file " + path;
    return false;
  }
  std::string line;
  int number = 0;
  bool ok = true;
  while (std::getline(in, line)) {
    ++number;
    const std::string_view text = Trim(line);
    if (text.empty() || text.front() == '#') continue;
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
      if (error && ok) *error = path + ":" + std::to_string(number) + ": expected 'key = value'";
      ok = false;
      continue;
    }
    SetString(Trim(text.substr(0, equals)), Trim(text.substr(equals + 1)));
  }
  // A directory opens as a stream and fails only at the first read.
  if (in.bad()) {
    if (error) *error = "cannot read settings file " + path;
    return false;
  }
  return ok;
}

std::string Settings::ResolveLUTPath(std::string_view relativePath) const {
  const auto base = GetString(kSettingLUTBaseDirectory);
  if (!base || base->empty()) return std::string(relativePath);
  std::string resolved = *base;
  if (resolved.back() != '/' && resolved.back() != '\\') resolved.push_back('/');
  resolved.append(relativePath);
  return resolved;
}

}  // namespace host
