#include "foundation/path_title.h"

#include "foundation/utf16.h"
#include "host/strings.h"

namespace Tincta {

std::string PathTitleUtf8(std::string_view path) {
  return Utf16ToUtf8(host::PathTitle(Utf8ToUtf16(path)));
}

}  // namespace Tincta
