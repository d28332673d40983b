#include "qo/core/CCastError.h"

#include <gtest/gtest.h>

#include <string>

#include "qo/core/CBase.h"
#include "qo/core/P.h"

namespace qo_test {
class ICastProbe : public virtual qo::IBase {};
class IUnimplemented : public virtual qo::IBase {};

class CCastSource : public qo::CBase, public ICastProbe {};

// Implements ICastProbe but refuses to be seen as one.
class CCastVetoer : public qo::CBase, public ICastProbe {
public:
  bool checkCastAllowed(std::type_info const& type) const override { return type != typeid(ICastProbe); }
};
}  // namespace qo_test

using qo::CCastError;
using qo::IBase;
using qo::P;
using qo::String;
using qo_test::CCastSource;
using qo_test::CCastVetoer;
using qo_test::ICastProbe;
using qo_test::IUnimplemented;

namespace {
// "0x" and at least 8 hexadecimal digits.
bool isAddressText(std::string const& text) {
  if (text.size() < 10 || text.compare(0, 2, "0x") != 0) return false;
  return text.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
}

String addressOf(IBase const* object) { return qo::toString(static_cast<void const*>(object)); }
}  // namespace

TEST(CCastErrorTest, TextsWithUnknownParts) {
  CCastError e(nullptr, nullptr);
  EXPECT_EQ(e.getMessage(), String(u"Error casting an unspecified object to an unspecified type."));
  EXPECT_EQ(e.getDesc(), e.getMessage());
  EXPECT_EQ(e.getErrorCode(), -1);
  EXPECT_FALSE(e.hasErrorCode());
  EXPECT_EQ(CCastError::makeText(nullptr, &typeid(IUnimplemented)),
            String(u"Error casting an unspecified object to type qo_test::IUnimplemented."));
  // The object part names the dynamic type.
  P<CCastSource> source(new CCastSource);
  IBase const* object = static_cast<ICastProbe const*>(source.get());
  EXPECT_EQ(CCastError::makeText(object, nullptr),
            u"Error casting object " + addressOf(object) + u" of type qo_test::CCastSource to an unspecified type.");
}

TEST(CCastErrorTest, FailedCastThrowsWithAddressAndTypeNames) {
  P<CCastSource> source(new CCastSource);
  IBase const* object = static_cast<IBase const*>(source.get());
  try {
    (void)source.cast<IUnimplemented>();
    ADD_FAILURE() << "no exception";
  } catch (CCastError const& e) {
    std::string const text = e.getMessage().toUTF8();
    std::string const prefix = "Error casting object ";
    std::string const suffix = " of type qo_test::CCastSource to type qo_test::IUnimplemented.";
    ASSERT_GT(text.size(), prefix.size() + suffix.size());
    EXPECT_EQ(text.substr(0, prefix.size()), prefix);
    EXPECT_EQ(text.substr(text.size() - suffix.size()), suffix);
    EXPECT_TRUE(isAddressText(text.substr(prefix.size(), text.size() - prefix.size() - suffix.size()))) << text;
    EXPECT_EQ(e.getMessage(), CCastError::makeText(object, &typeid(IUnimplemented)));
  }
  EXPECT_EQ(source->getRefCountForDebugging(), 1);
  P<IBase> asBase = source;
  EXPECT_EQ(static_cast<IBase*>(asBase.cast<ICastProbe>().get()), asBase.get());
  EXPECT_TRUE(P<IBase>().cast<IUnimplemented>().isNull());
}

TEST(CCastErrorTest, VetoedCastThrowsThoughTheTypeIsImplemented) {
  P<CCastVetoer> vetoer(new CCastVetoer);
  P<IBase> asBase = vetoer;
  EXPECT_THROW((void)asBase.cast<ICastProbe>(), CCastError);
  EXPECT_EQ(asBase.cast<CCastVetoer>(), vetoer);
}
