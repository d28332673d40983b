// CWmiQuery: a real query where the system has WMI, the refusal where not.
#include <gtest/gtest.h>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CSystemError.h"
#include "qo/sys/CWmiQuery.h"

namespace qo {
namespace {

TEST(CWmiQuery, AsksForTheOperatingSystem) {
  CWmiQuery wmi;
  EXPECT_EQ(String(u"ROOT\\CIMV2"), wmi.getNameSpace());
  if (!CWmiQuery::isAvailable()) {
    try {
      (void)wmi.exec(u"SELECT Caption FROM Win32_OperatingSystem");
      ADD_FAILURE() << "no error";
    } catch (CNotImplementedError const& e) {
      EXPECT_TRUE(e.getMessage().Contains(u"CWmiQuery::exec")) << e.getMessage().toUTF8();
      EXPECT_TRUE(e.getParams().lookup(u"reason").Contains(u"only on Windows"));
    }
    return;
  }
  std::vector<CWmiQuery::CRow> rows;
  try {
    rows = wmi.exec(u"SELECT Caption, Version, OSArchitecture FROM Win32_OperatingSystem");
  } catch (CSystemError const& e) {
    GTEST_SKIP() << "WMI does not answer here (Wine may lack the provider): " << e.getMessage().toUTF8();
  }
  ASSERT_EQ(1u, rows.size());
  EXPECT_FALSE(rows[0].getValue(u"Caption").isEmpty());
  EXPECT_TRUE(rows[0].hasValue(u"version"));  // names compare without regard to case
  EXPECT_FALSE(rows[0].hasValue(u"NoSuchProperty"));
  EXPECT_TRUE(rows[0].getValue(u"NoSuchProperty").isEmpty());
}

TEST(CWmiQuery, RefusesBadQueries) {
  EXPECT_THROW((void)CWmiQuery().exec(String()), CInvalidArgError);
  if (!CWmiQuery::isAvailable()) GTEST_SKIP() << "no WMI on this system";
  String const query = u"SELECT FROM WHERE";  // not WQL
  try {
    (void)CWmiQuery().exec(query);
  } catch (CSystemError const& e) {
    EXPECT_EQ(String(u"CWmiQuery::exec"), e.getParams().lookup(CSystemError::paramFunction()));
    EXPECT_FALSE(e.getParams().lookup(CSystemError::paramAPI()).isEmpty());
    EXPECT_EQ(query, e.getParams().lookup(u"query"));
    EXPECT_EQ(String(u"ROOT\\CIMV2"), e.getParams().lookup(u"namespace"));
    return;
  }
  GTEST_SKIP() << "this WMI (Wine's) answers a malformed query with no rows instead of an error";
}

}  // namespace
}  // namespace qo
