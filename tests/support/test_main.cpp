// Test entry point: silences the library's log and runs the host's initialisers, as a host would
// after loading the module.
#include <gtest/gtest.h>

#include "host/initializer.h"
#include "host/log.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  host::SetLogCallback(nullptr, nullptr);
  host::InitializerRegistrar::RunInitializers();
  return RUN_ALL_TESTS();
}
