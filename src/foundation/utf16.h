// Conversions between the host's UTF-16 strings and the library's UTF-8 strings.
#pragma once

#include <string>
#include <string_view>

namespace Tincta {

/// UTF-16 to UTF-8. Surrogate pairs are joined into one code point; an unpaired surrogate
/// becomes U+FFFD. Conversion stops at nothing: embedded NULs are converted like any unit.
std::string Utf16ToUtf8(std::u16string_view text);

/// UTF-8 to UTF-16. A malformed or overlong sequence, a surrogate code point or a value above
/// U+10FFFF becomes one U+FFFD per offending byte sequence.
std::u16string Utf8ToUtf16(std::string_view text);

}  // namespace Tincta
