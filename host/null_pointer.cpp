#include "host/null_pointer.h"

#include <string>

namespace host {

NullPointerException::NullPointerException(const char* interfaceTypeName)
    : std::logic_error(std::string("null interface pointer: ") +
                       (interfaceTypeName ? interfaceTypeName : "(unknown)")) {}

void DoThrowNullPtrException(const char* interfaceTypeName) {
  throw NullPointerException(interfaceTypeName);
}

}  // namespace host
