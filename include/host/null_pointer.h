// The host's null-interface exception.
#pragma once

#include <stdexcept>

#include "host/export.h"

namespace host {

/// Raised when code calls through an interface that a host object does not have, or through an
/// empty reference. `what()` names the interface's type.
class HOST_API NullPointerException : public std::logic_error {
 public:
  explicit NullPointerException(const char* interfaceTypeName);
};

/// Throws `NullPointerException` naming `interfaceTypeName`. Never returns.
[[noreturn]] HOST_API void DoThrowNullPtrException(const char* interfaceTypeName);

}  // namespace host
