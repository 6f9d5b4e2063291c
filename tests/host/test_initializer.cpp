// The initialiser registry; registrations are permanent, so each test has its own names and bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/initializer.h"

namespace {

using host::InitializerRegistrar;
using Names = std::vector<std::string>;

Names& Log() {
  static Names log;
  return log;
}

template <char kLetter, bool kSucceeds = true>
bool Init() {
  Log().push_back(std::string("init ") + kLetter);
  return kSucceeds;
}
template <char kLetter>
void Term() {
  Log().push_back(std::string("term ") + kLetter);
}

// Once per process, whichever test asks first.
template <char kLetter, bool kSucceeds = true>
void Register(uint32_t flags, std::initializer_list<const char*> dependencies) {
  static const InitializerRegistrar once((std::string("t.") + kLetter).c_str(), flags, dependencies,
                                         Init<kLetter, kSucceeds>, Term<kLetter>);
}

size_t At(const Names& names, const std::string& name) {
  return size_t(std::find(names.begin(), names.end(), name) - names.begin());
}

Names Sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

TEST(InitializerRegistrar, DependenciesFirstBrokenChainsNotRunOtherContextsLeft) {
  constexpr uint32_t kFlag = 1u << 20, kOther = 1u << 21;
  Log().clear();
  Register<'d'>(kFlag, {"t.c", "t.b"});  // registered before what it needs
  Register<'c'>(kFlag, {"t.a"});
  Register<'b'>(kFlag | kOther, {});
  Register<'a'>(kFlag, {});
  Register<'e'>(kOther, {});
  Register<'m'>(kFlag, {"t.nowhere"});
  Register<'x'>(kFlag, {"t.y"});
  Register<'y'>(kFlag, {"t.x"});
  Register<'z'>(kFlag, {"t.x"});  // on top of a cycle
  Register<'f', false>(kFlag, {});
  Register<'g'>(kFlag, {"t.f"});  // on top of a failure
  EXPECT_FALSE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_EQ(Sorted(Log()), (Names{"init a", "init b", "init c", "init d", "init f"}));
  EXPECT_LT(At(Log(), "init a"), At(Log(), "init c"));
  EXPECT_LT(At(Log(), "init c"), At(Log(), "init d"));
  EXPECT_LT(At(Log(), "init b"), At(Log(), "init d"));
  const Names ran = InitializerRegistrar::InitializedNames();
  EXPECT_LT(At(ran, "t.a"), At(ran, "t.d"));
  EXPECT_EQ(At(ran, "t.g"), ran.size());
  EXPECT_LT(At(InitializerRegistrar::RegisteredNames(), "t.d"),
            At(InitializerRegistrar::RegisteredNames(), "t.a"));
  // A second run runs nothing twice and does not retry the failure; the other context runs
  // only what it has left.
  EXPECT_FALSE(InitializerRegistrar::RunInitializers(kFlag));
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(kOther));
  EXPECT_EQ(Sorted(Log()), (Names{"init a", "init b", "init c", "init d", "init e", "init f"}));
}

bool RegistersAnother() {
  Log().push_back("init outer");
  Register<'n'>(1u << 22, {"t.outer"});
  return true;
}

TEST(InitializerRegistrar, AnInitialiserMayRegisterAnother) {
  Log().clear();
  static const InitializerRegistrar outer("t.outer", 1u << 22, {}, RegistersAnother, nullptr);
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(1u << 22));
  EXPECT_TRUE(InitializerRegistrar::RunInitializers(1u << 22));
  EXPECT_EQ(Log(), (Names{"init outer", "init n"}));
}

// Terminators run in reverse and reset what ran (other tests' initialisers included).
TEST(InitializerRegistrar, TerminatorsRunInReverseAndAllowAnotherRun) {
  constexpr uint32_t kFlag = 1u << 23;
  Register<'k'>(kFlag, {"t.j"});
  Register<'j'>(kFlag, {"t.i"});
  Register<'i'>(kFlag, {});
  ASSERT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  Log().clear();
  InitializerRegistrar::RunTerminators();
  ASSERT_TRUE(InitializerRegistrar::RunInitializers(kFlag));
  std::erase_if(Log(), [](const std::string& entry) { return entry[5] < 'i' || entry[5] > 'k'; });
  EXPECT_EQ(Log(), (Names{"term k", "term j", "term i", "init i", "init j", "init k"}));
}

}  // namespace
