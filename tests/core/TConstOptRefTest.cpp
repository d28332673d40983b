#include "qo/core/TConstOptRef.h"

#include <gtest/gtest.h>

#include "qo/core/String.h"

using namespace qo;

namespace {

// A parameter that takes a String or nothing; answers the address it saw.
String const* seen(TConstOptRef<String> ref) { return ref.getPtr(); }

}  // namespace

TEST(TConstOptRefTest, EmptyFormsAndRefersWithoutCopying) {
  for (TConstOptRef<String> const& ref : {TConstOptRef<String>(), TConstOptRef<String>(nil),
                                          TConstOptRef<String>(std::nullopt), TConstOptRef<String>::fromPtr(nullptr)}) {
    EXPECT_FALSE(ref.hasValue());
    EXPECT_FALSE(static_cast<bool>(ref));
    EXPECT_EQ(ref.getPtr(), nullptr);
    EXPECT_EQ(ref.getOr(u"fallback"), String(u"fallback"));
  }
  String const name(u"host");
  TConstOptRef<String> const ref(name);
  EXPECT_TRUE(ref.hasValue());
  EXPECT_EQ(&ref.get(), &name);
  EXPECT_EQ(&*ref, &name);
  EXPECT_EQ(ref->length(), 4u);
  EXPECT_EQ(ref.getOr(u"fallback"), name);
  EXPECT_EQ(seen(name), &name);  // implicit from a T
  EXPECT_EQ(seen(nil), nullptr);
  EXPECT_EQ(TConstOptRef<String>::fromPtr(&name).getPtr(), &name);
}
