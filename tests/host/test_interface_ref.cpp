// References to host interfaces, the null-pointer exception, and path titles.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/interface_ref.h"
#include "host/null_pointer.h"
#include "host/strings.h"

namespace {

struct IAlpha {
  static constexpr const char* kInterfaceName = "IAlpha";
  virtual int Value() const = 0;
};
struct IBeta {
  static constexpr const char* kInterfaceName = "IBeta";
  virtual int Other() const = 0;
};

class CAlphaOnly final : public host::IObject, public IAlpha {
 public:
  void* QueryInterface(std::string_view name) noexcept override {
    return name == kInterfaceName ? static_cast<IAlpha*>(this) : nullptr;
  }
  int Value() const override { return 42; }
};

// Runs `call` and returns the text of the null-pointer exception it raised ("" for none).
template <class F>
std::string NullPointerText(F call) {
  try {
    call();
  } catch (const host::NullPointerException& e) {
    return e.what();
  }
  return "";
}

TEST(InterfaceRef, EmptyWhenEitherPointerIsNull) {
  auto object = std::make_shared<CAlphaOnly>();
  IAlpha* alpha = object.get();
  struct Case {
    const char* what;
    host::InterfaceRef<IAlpha> ref;
    bool empty;
  };
  const Case cases[] = {
      {"default", {}, true},
      {"object without interface", {object, nullptr}, true},
      {"interface without object", {nullptr, alpha}, true},
      {"both", {object, alpha}, false},
      {"from a null object", host::InterfaceRef<IAlpha>::FromObject(nullptr), true},
      {"from an object that has it", host::InterfaceRef<IAlpha>::FromObject(object), false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.ref.IsEmpty(), c.empty) << c.what;
    EXPECT_EQ(static_cast<bool>(c.ref), !c.empty) << c.what;
  }
  // An object lacking the interface gives an empty reference that still holds the object.
  const auto beta = host::InterfaceRef<IBeta>::FromObject(object);
  EXPECT_TRUE(beta.IsEmpty());
  EXPECT_EQ(beta.Object(), object);
}

TEST(InterfaceRef, CallingThroughAnEmptyReferenceNamesTheInterface) {
  auto object = std::make_shared<CAlphaOnly>();
  EXPECT_EQ(NullPointerText([] { host::InterfaceRef<IAlpha>()->Value(); }).find("IAlpha") !=
                std::string::npos,
            true);
  const auto beta = host::InterfaceRef<IBeta>::FromObject(object);
  EXPECT_NE(NullPointerText([&] { beta->Other(); }).find("IBeta"), std::string::npos);
  EXPECT_NE(NullPointerText([] { host::InterfaceRef<IAlpha>().Query<IBeta>(); }).find("IAlpha"),
            std::string::npos);
  EXPECT_EQ(NullPointerText([&] { host::InterfaceRef<IAlpha>::FromObject(object)->Value(); }), "");
  EXPECT_EQ(host::InterfaceRef<IAlpha>::FromObject(object)->Value(), 42);
  // The exception is a logic error to anyone who catches those.
  EXPECT_THROW(host::DoThrowNullPtrException("IWhatever"), std::logic_error);
}

TEST(InterfaceRef, QueryKeepsTheObjectAndResetEmpties) {
  auto object = std::make_shared<CAlphaOnly>();
  auto alpha = host::InterfaceRef<IAlpha>::FromObject(object);
  const auto again = alpha.Query<IAlpha>();
  EXPECT_FALSE(again.IsEmpty());
  EXPECT_EQ(again.Get(), alpha.Get());
  const auto beta = alpha.Query<IBeta>();
  EXPECT_TRUE(beta.IsEmpty());
  EXPECT_EQ(beta.Object(), object);
  std::weak_ptr<host::IObject> watch = object;
  object.reset();
  alpha.Reset();
  EXPECT_TRUE(alpha.IsEmpty());
  EXPECT_EQ(alpha.Object(), nullptr);
  EXPECT_FALSE(watch.expired()) << "`again` and `beta` still hold the object";
}

TEST(PathTitle, LastComponentWithoutExtension) {
  struct Case {
    std::u16string path, title;
  };
  const Case cases[] = {
      {u"/luts/look.cube", u"look"},
      {u"look.cube", u"look"},
      {u"look", u"look"},
      {u".cube", u""},
      {u"", u""},
      {u"/luts/", u""},
      {u"C:\\luts\\film.print.3dl", u"film.print"},
      {u"a\\b/c\\d.e", u"d"},
      {u"/dir.with.dots/name", u"name"},
      {u"/luts/look.", u"look"},
      {u"/luts/caf\u00e9 \u00fcber.cube", u"caf\u00e9 \u00fcber"},
      {u"/luts/\U0001F3A8.cube", u"\U0001F3A8"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(host::PathTitle(c.path), c.title);
}

}  // namespace
