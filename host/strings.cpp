#include "host/strings.h"

namespace host {

std::u16string PathTitle(std::u16string_view path) {
  const size_t separator = path.find_last_of(u"/\\");
  std::u16string_view name = separator == std::u16string_view::npos ? path : path.substr(separator + 1);
  const size_t dot = name.rfind(u'.');
  if (dot != std::u16string_view::npos) name = name.substr(0, dot);
  return std::u16string(name);
}

}  // namespace host
