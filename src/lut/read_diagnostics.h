// What a LUT read found wrong, for people: which reader took the bytes, the first reason a read
// failed and what was accepted but looks damaged. The module never asks for it; the tool does, to
// say why a file cannot be used. Readers fill it only when given one, and what they fill never
// changes what they read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tincta {

struct SReadNote {
  /// The 1-based line of a text format the note is about; 0 when it is about no one line.
  uint32_t line = 0;
  std::string message;

  /// "line 7: message", or the message alone.
  std::string Text() const;
};

struct SLUTReadDiagnostics {
  /// The name of the reader that the bytes went to (the detector's table); empty when none did.
  std::string reader;
  /// The first reason the read failed; later ones follow from it and are dropped.
  std::optional<SReadNote> failure;
  /// Accepted as the format allows, but likely not what the file's author meant.
  std::vector<SReadNote> warnings;

  void Fail(uint32_t line, std::string message) {
    if (!failure) failure = SReadNote{line, std::move(message)};
  }
  void Warn(uint32_t line, std::string message) {
    warnings.push_back(SReadNote{line, std::move(message)});
  }
};

/// Records the failure when `diagnostics` is given; for readers, so that every failure path stays
/// one line.
inline void NoteFailure(SLUTReadDiagnostics* diagnostics, uint32_t line, std::string message) {
  if (diagnostics) diagnostics->Fail(line, std::move(message));
}

/// A number as a person writes it ("%g").
std::string FormatNumber(double value);

/// A line of the file quoted for a message: in single quotes, cut to a readable length, with
/// bytes that are not printable ASCII written as "?".
std::string QuoteLine(std::string_view line);

}  // namespace Tincta
