#include "lut/formats/float_triple.h"

#include <atomic>
#include <charconv>
#include <system_error>

#include "lut/formats/text_chars.h"
#include "lut/formats/text_lines.h"

namespace Tincta {
namespace {

std::atomic<bool> gFastPathEnabled{true};

// Length of a plain decimal number at `cursor`; 0 when there is none or when its end is not
// certain ("1e" and "1e+" are left to sscanf, which reads them its own way).
size_t PlainNumberLength(const char* cursor, const char* end) {
  const char* p = cursor;
  if (p < end && (*p == '+' || *p == '-')) ++p;
  const char* digits = p;
  while (p < end && IsDigit(*p))
    ++p;
  size_t mantissaDigits = size_t(p - digits);
  if (p < end && *p == '.') {
    const char* fraction = ++p;
    while (p < end && IsDigit(*p))
      ++p;
    mantissaDigits += size_t(p - fraction);
  }
  if (mantissaDigits == 0) return 0;
  if (p < end && (*p == 'e' || *p == 'E')) {
    const char* exponent = p + 1;
    if (exponent < end && (*exponent == '+' || *exponent == '-')) ++exponent;
    const char* exponentDigits = exponent;
    while (exponent < end && IsDigit(*exponent))
      ++exponent;
    if (exponent == exponentDigits) return 0;
    p = exponent;
  }
  return size_t(p - cursor);
}

// One number and the white space that must end it. from_chars rounds correctly, as glibc's
// strtof does; it refuses a leading '+' and reports results out of range, which sscanf would
// store as infinity or an underflowed value, so those lines go to sscanf.
bool ScanPlainNumber(const char*& cursor, const char* end, bool last, float& value) {
  const size_t length = PlainNumberLength(cursor, end);
  if (length == 0) return false;
  const char* number = cursor;
  const char* numberEnd = cursor + length;
  if (numberEnd < end && !IsScanfSpace(*numberEnd)) return false;
  if (*number == '+') ++number;
  const auto [stop, error] = std::from_chars(number, numberEnd, value);
  if (error != std::errc() || stop != numberEnd) return false;
  cursor = numberEnd;
  if (last) return true;
  while (cursor < end && IsScanfSpace(*cursor))
    ++cursor;
  return true;
}

}  // namespace

bool ScanPlainFloatTriple(std::string_view line, float rgb[3]) {
  const char* cursor = line.data();
  const char* end = cursor + line.size();
  while (cursor < end && IsScanfSpace(*cursor))
    ++cursor;
  // Whatever follows the third number after white space cannot change what sscanf returns.
  return ScanPlainNumber(cursor, end, false, rgb[0]) &&
         ScanPlainNumber(cursor, end, false, rgb[1]) && ScanPlainNumber(cursor, end, true, rgb[2]);
}

int ScanFloatTriple(std::string_view line, float rgb[3]) {
  if (gFastPathEnabled.load(std::memory_order_relaxed) && ScanPlainFloatTriple(line, rgb)) return 3;
  return ScanLine(line, " %f %f %f ", &rgb[0], &rgb[1], &rgb[2]);
}

void SetFloatTripleFastPath(bool enabled) {
  gFastPathEnabled.store(enabled, std::memory_order_relaxed);
}

}  // namespace Tincta
