// The host's initialiser registry.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "host/export.h"

namespace host {

/// Registers a named initialiser when constructed (usually as a static object of a module).
/// The host runs registered initialisers with `RunInitializers`, each after those it depends on.
class HOST_API InitializerRegistrar {
 public:
  /// Returns false when initialisation failed; a failed initialiser is not run again.
  using InitializeFunction = bool (*)();
  /// Undoes what the initialiser did; may be null.
  using TerminateFunction = void (*)();

  /// Registers `initialize` under `name` (copied), to run in the contexts of `contextFlags` after
  /// every initialiser named in `dependencies`. Registering while initialisers run is allowed; the
  /// new one waits for the next `RunInitializers`. Registration cannot fail.
  InitializerRegistrar(const char* name, uint32_t contextFlags,
                       std::initializer_list<const char*> dependencies,
                       InitializeFunction initialize, TerminateFunction terminate);

  /// Runs every registered initialiser that has not run yet whose context flags share a bit with
  /// `contextFlags`, dependencies first. An initialiser whose dependency is not registered, or
  /// lies on a cycle, is not run. True when every initialiser that should run ran and returned
  /// true.
  static bool RunInitializers(uint32_t contextFlags = 0xFFFFFFFFu);
  /// Runs the terminate functions of the initialisers that ran, in reverse order.
  static void RunTerminators();
  /// Names of the registered initialisers, in registration order.
  static std::vector<std::string> RegisteredNames();
  /// Names of the initialisers that have run, in the order they ran.
  static std::vector<std::string> InitializedNames();
};

}  // namespace host
