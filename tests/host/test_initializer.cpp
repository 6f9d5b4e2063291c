// The initialiser registry. Registrations are process-wide and cannot be removed, so every test
// registers its own names under a context bit of its own and records into its own log.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/initializer.h"

namespace {

using host::InitializerRegistrar;

std::vector<std::string>& Log() {
  static std::vector<std::string> log;
  return log;
}

// Function pointers cannot capture, so each named initialiser is a template instance.
template <char Letter, bool Succeeds = true>
bool Init() {
  Log().push_back(std::string("init ") + Letter);
  return Succeeds;
}
template <char Letter>
void Term() {
  Log().push_back(std::string("term ") + Letter);
}

// Registers once per process, so that a repeated test does not register a name twice.
template <char Letter, bool Succeeds = true>
void Register(const std::string& prefix, uint32_t flags, std::initializer_list<const char*> deps) {
  static bool registered = false;
  if (registered) return;
  registered = true;
  InitializerRegistrar((prefix + Letter).c_str(), flags, deps, Init<Letter, Succeeds>,
                       Term<Letter>);
}

size_t Position(const std::vector<std::string>& log, const std::string& entry) {
  return static_cast<size_t>(std::find(log.begin(), log.end(), entry) - log.begin());
}

TEST(InitializerRegistrar, DependenciesRunFirstWhateverTheRegistrationOrder) {
  constexpr uint32_t kFlag = 1u << 20;
  Log().clear();
  // d depends on c and b, c on a; registered in reverse.
  Register<'d'>("order.", kFlag, {"order.c", "order.b"});
  Register<'c'>("order.", kFlag, {"order.a"});
  Register<'b'>("order.", kFlag, {});
  Register<'a'>("order.", kFlag, {});
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  const auto log = Log();
  ASSERT_EQ(log.size(), 4u);
  EXPECT_LT(Position(log, "init a"), Position(log, "init c"));
  EXPECT_LT(Position(log, "init c"), Position(log, "init d"));
  EXPECT_LT(Position(log, "init b"), Position(log, "init d"));
  // Running again runs nothing twice.
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Log().size(), 4u);
  const auto names = InitializerRegistrar::InitializedNames();
  EXPECT_LT(Position(names, "order.a"), Position(names, "order.d"));
  const auto registered = InitializerRegistrar::RegisteredNames();
  EXPECT_LT(Position(registered, "order.d"), Position(registered, "order.a"));
  EXPECT_LT(Position(registered, "order.a"), registered.size());
}

TEST(InitializerRegistrar, MissingDependencyAndCycleAreNotRun) {
  constexpr uint32_t kFlag = 1u << 21;
  Log().clear();
  Register<'m'>("broken.", kFlag, {"broken.nowhere"});
  Register<'x'>("broken.", kFlag, {"broken.y"});
  Register<'y'>("broken.", kFlag, {"broken.x"});
  Register<'z'>("broken.", kFlag, {"broken.x"});  // depends on the cycle
  Register<'s'>("broken.", kFlag, {});            // unaffected
  EXPECT_FALSE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Log(), std::vector<std::string>{"init s"});
  const auto names = InitializerRegistrar::InitializedNames();
  for (const char* name : {"broken.m", "broken.x", "broken.y", "broken.z"})
    EXPECT_EQ(Position(names, name), names.size()) << name;
}

TEST(InitializerRegistrar, FailureStopsDependants) {
  constexpr uint32_t kFlag = 1u << 22;
  Log().clear();
  Register<'f', false>("failing.", kFlag, {});
  Register<'g'>("failing.", kFlag, {"failing.f"});
  EXPECT_FALSE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Log(), std::vector<std::string>{"init f"});
  // A later run neither retries the failed one nor lets its dependant through.
  EXPECT_FALSE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Log(), std::vector<std::string>{"init f"});
}

bool RegistersAnother() {
  Log().push_back("init outer");
  Register<'n'>("nested.", 1u << 24, {});
  return true;
}

TEST(InitializerRegistrar, AnInitialiserMayRegisterAnother) {
  constexpr uint32_t kFlag = 1u << 24;
  Log().clear();
  static const InitializerRegistrar outer("nested.outer", kFlag, {}, RegistersAnother, nullptr);
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Log(), (std::vector<std::string>{"init outer", "init n"}));
}

TEST(InitializerRegistrar, ContextFlagsChooseWhatRuns) {
  constexpr uint32_t kFirst = 1u << 23;
  constexpr uint32_t kSecond = 1u << 24;
  Log().clear();
  Register<'p'>("context.", kFirst, {});
  Register<'q'>("context.", kSecond, {});
  Register<'r'>("context.", kFirst | kSecond, {});
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kSecond));
  auto log = Log();
  std::sort(log.begin(), log.end());
  EXPECT_EQ(log, (std::vector<std::string>{"init q", "init r"}));
  Log().clear();
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kFirst));
  EXPECT_EQ(Log(), std::vector<std::string>{"init p"});
}

// Terminators reset every initialiser that ran, other tests' ones included; those run again at
// their test's next RunInitializers, and each test clears its own log first.
TEST(InitializerRegistrar, TerminatorsRunInReverseOrder) {
  constexpr uint32_t kFlag = 1u << 25;
  Register<'k'>("terminate.", kFlag, {"terminate.j"});
  Register<'j'>("terminate.", kFlag, {"terminate.i"});
  Register<'i'>("terminate.", kFlag, {});
  Log().clear();
  ASSERT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  ASSERT_EQ(Log(), (std::vector<std::string>{"init i", "init j", "init k"}));
  Log().clear();
  InitializerRegistrar::RunTerminators();
  // Terminators of other tests' initialisers may run too; ours come in reverse order.
  auto log = Log();
  log.erase(std::remove_if(log.begin(), log.end(),
                           [](const std::string& e) {
                             return e != "term i" && e != "term j" && e != "term k";
                           }),
            log.end());
  EXPECT_EQ(log, (std::vector<std::string>{"term k", "term j", "term i"}));
  EXPECT_TRUE(InitializerRegistrar::InitializedNames().empty());
  // After termination the initialisers run again.
  Log().clear();
  ASSERT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Log(), (std::vector<std::string>{"init i", "init j", "init k"}));
  InitializerRegistrar::RunTerminators();
}

}  // namespace
