// File titles of UTF-8 paths, through the host's path-title operation.
#pragma once

#include <string>
#include <string_view>

namespace Tincta {

/// The last component of `path` without its extension, in UTF-8 ("/a/look.cube" gives "look").
std::string PathTitleUtf8(std::string_view path);

}  // namespace Tincta
