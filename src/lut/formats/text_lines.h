// Line handling shared by the text readers: the buffer is 8-bit text of exactly `length` bytes,
// split at '\r' and '\n' (a run of them is one break), each line trimmed of "\n\t \r" at both
// ends, empty lines skipped. Numbers are read with C scanf conversions on a NUL-terminated copy
// of the line, so a NUL byte inside a line ends what scanf sees, as it would in a C string.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lut/read_diagnostics.h"

namespace Tincta {

/// Trims the characters "\n\t \r" from both ends.
std::string_view TrimLine(std::string_view text);

/// Case-insensitive (ASCII) comparison of whole strings.
bool EqualsIgnoringCase(std::string_view a, std::string_view b);
/// Case-insensitive (ASCII) prefix test.
bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix);

/// Whether `line` begins, after scanf white space, with `keyword` (case as written). A line that
/// does not cannot match a scanf format that starts with " keyword", so the readers test this
/// before paying for the scan on every line of a long text.
bool MayMatchKeyword(std::string_view line, std::string_view keyword);

/// Iterates the non-empty trimmed lines of a text buffer.
class CTextLines {
 public:
  CTextLines(const void* bytes, uint32_t length)
      : cursor_(static_cast<const char*>(bytes)), end_(cursor_ + length) {}

  /// The next non-empty trimmed line; false at the end of the text.
  bool Next(std::string_view& line);
  /// The 1-based number of the line that `Next` gave last, counted as an editor counts lines
  /// ("\n", "\r\n" and a lone "\r" each end one), empty lines included.
  uint32_t LineNumber() const { return lineNumber_; }
  /// Bytes not yet consumed (for checks of declared sizes against the text actually present).
  uint64_t RemainingBytes() const { return uint64_t(end_ - cursor_); }

  /// Whether the text left can hold `count` more lines of three numbers, each taking at least
  /// six bytes with the break before it ("0 0 0", "1-2-3"). Checked before a reader allocates a
  /// table for the lines, so that a few bytes cannot ask for hundreds of megabytes. One byte of
  /// slack is allowed: a mesh text one byte short still reaches its first data line, and hands
  /// over to the colour-transformation fallback when that line is foreign.
  bool HasRoomForLines(uint64_t count) const { return RemainingBytes() + 1 >= count * 6; }

 private:
  const char* cursor_;
  const char* end_;
  uint32_t breaks_ = 0;
  uint32_t lineNumber_ = 0;
};

/// Warns of the lines (comments aside) that a read leaves unread after a full table of `entries`;
/// consumes the rest of `lines`.
void NoteSurplusLines(CTextLines& lines, uint64_t entries, SLUTReadDiagnostics& diagnostics);

/// `vsscanf` over a NUL-terminated copy of `line`; returns what sscanf returns (EOF included).
/// `%s` and `%[` conversions must be given buffers of at least `line.size() + 1` bytes.
int ScanLine(std::string_view line, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(scanf, 2, 3)))
#endif
    ;

/// What `ScanFields` returns for a line holding a number beyond its field's range.
inline constexpr int kScanOutOfRange = -2;

/// Reads a line as `sscanf` reads it with a format of literal characters, blanks (any run of
/// white space), and the conversions `%u` (`unsigned*`), `%d` (`int*`) and `%s` (`char*`, at
/// least `line.size() + 1` bytes), and returns what sscanf returns, with one difference: a
/// number that its field cannot hold (a negative `%u`, anything beyond 32 bits) is not wrapped
/// but refused, and the result is then `kScanOutOfRange`. It does not call sscanf, whose
/// behaviour for such numbers is undefined.
int ScanFields(std::string_view line, const char* format, ...);

}  // namespace Tincta
