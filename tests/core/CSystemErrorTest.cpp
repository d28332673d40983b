// CSystemError: the platform domain, the code and the place properties.
#include "qo/core/CSystemError.h"

#include <gtest/gtest.h>

namespace qo {
namespace {

TEST(CSystemErrorTest, CarriesDomainCodeFunctionAndApi) {
  CSystemError error(u"Error creating thread.", u"CThread::start", u"_beginthreadex", 8);
  String domain = CSystemError::getPlatformDomain();
  EXPECT_TRUE(domain == String(u"WIN32") || domain == String(u"POSIX"));
  EXPECT_TRUE(error.isError(domain, 8));
  EXPECT_EQ(error.getDesc(),
            String(u"Error creating thread. [") + domain + u" 8 (api='_beginthreadex', function='CThread::start')]");
}

TEST(CSystemErrorTest, AddsTheOsTextAndExtraPropertiesAndClonesKeepTheClass) {
  CSystemError error(u"m", u"f", u"a", 2, u"No such file", CProps().add(u"name", u"x"));
  EXPECT_EQ(error.getParams().lookup(CSystemError::paramSysErrorText()), String(u"No such file"));
  EXPECT_EQ(error.getParams().lookup(u"name"), String(u"x"));
  EXPECT_EQ(error.getParams().getSize(), 4);
  P<CError> clone = error.clone();
  ASSERT_NE(dynamic_cast<CSystemError*>(clone.get()), nullptr);
  EXPECT_EQ(clone->getDesc(), error.getDesc());
  EXPECT_THROW(clone->throwClone(), CSystemError);
}

}  // namespace
}  // namespace qo
