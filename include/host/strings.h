// Host wide strings and paths.
#pragma once

#include <string>
#include <string_view>

#include "host/export.h"

namespace host {

/// The host's wide string: UTF-16 code units.
using WideString = std::u16string;

/// The title of a path: its last component (after the last '/' or '\\') without the extension
/// (from the last '.' of that component on). "/luts/look.cube" gives "look"; ".cube" gives "".
HOST_API std::u16string PathTitle(std::u16string_view path);

}  // namespace host
