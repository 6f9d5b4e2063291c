#include "host/settings.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <fstream>

namespace host {
namespace {

std::string_view Trim(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
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

void Settings::SetBool(std::string_view key, bool value) { SetString(key, value ? "true" : "false"); }

std::optional<std::string> Settings::GetString(std::string_view key) const {
  std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

void Settings::SetString(std::string_view key, std::string_view value) {
  std::lock_guard lock(mutex_);
  values_.insert_or_assign(std::string(key), std::string(value));
}

unsigned long long Settings::GetUnsigned(std::string_view key, unsigned long long defaultValue) const {
  const auto text = GetString(key);
  if (!text) return defaultValue;
  unsigned long long value = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  return error == std::errc() && end == text->data() + text->size() ? value : defaultValue;
}

void Settings::Remove(std::string_view key) {
  std::lock_guard lock(mutex_);
  if (const auto found = values_.find(key); found != values_.end()) values_.erase(found);
}

void Settings::Clear() {
  std::lock_guard lock(mutex_);
  values_.clear();
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
