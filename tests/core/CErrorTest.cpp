#include "qo/core/CError.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "qo/core/CIOError.h"

using qo::CError;
using qo::CIOError;
using qo::CProps;
using qo::P;
using qo::PC;
using qo::String;

TEST(CErrorTest, DefaultsAndCodeChecks) {
  CError plain(u"message");
  EXPECT_EQ(plain.getMessage(), String(u"message"));
  EXPECT_EQ(plain.getErrorCodeDomain(), String());
  EXPECT_EQ(plain.getErrorCode(), -1);
  EXPECT_EQ(plain.getParams().getSize(), 0);
  EXPECT_TRUE(plain.getCause().isNull());
  EXPECT_FALSE(plain.hasErrorCode());
  // hasErrorCode looks only at the domain; isError needs domain and code.
  EXPECT_TRUE(CError(u"", u"SYS", -1).hasErrorCode());
  EXPECT_FALSE(CError(u"", u"", 5).hasErrorCode());
  CError e(u"m", u"IO", 4);
  EXPECT_TRUE(e.isError(u"IO", 4));
  EXPECT_FALSE(e.isError(u"IO", 3));
  EXPECT_FALSE(e.isError(u"io", 4));
  EXPECT_FALSE(e.isError(u"", 4));
}

TEST(CErrorTest, DescriptionComposition) {
  struct Case {
    char16_t const* message;
    char16_t const* domain;
    long long code;
    CProps props;
    char16_t const* internalDesc;
    char16_t const* desc;
  };
  Case const cases[] = {
      {u"Plain.", u"", -1, CProps(), u"", u"Plain."},
      {u"", u"", -1, CProps(), u"", u""},
      {u"", u"IO", 3, CProps().add(u"uri", u"file:///c:/a").add(u"action", u"write"),
       u"IO 3 (action='write', uri='file:///c:/a')", u"[IO 3 (action='write', uri='file:///c:/a')]"},
      {u"", u"", -1, CProps().add(u"key", u"value"), u"key='value'", u"[key='value']"},
      {u"Failed.", u"SYS", -2147483648LL, CProps(), u"SYS -2147483648", u"Failed. [SYS -2147483648]"},
      {u"M", u"", 7, CProps().add(u"b", u"").add(u"a", u"it's"), u"a='it's', b=''", u"M [a='it's', b='']"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.desc).toUTF8());
    CError e(c.message, c.domain, c.code, c.props);
    EXPECT_EQ(e.getInternalDesc(), String(c.internalDesc));
    EXPECT_EQ(e.getDesc(), String(c.desc));
    EXPECT_STREQ(e.what(), String(c.desc).toUTF8().c_str());
  }
}

TEST(CErrorTest, WhatIsUTF8OfTheDescriptionWithLoneSurrogatesReplaced) {
  CError e(u"Gr\u00fc\u00dfe \u65e5\U0001F600", u"", -1, CProps().add(u"\u00e9", u"\u20ac"));
  EXPECT_STREQ(e.what(), "Gr\xc3\xbc\xc3\x9f" "e \xe6\x97\xa5\xf0\x9f\x98\x80 [\xc3\xa9='\xe2\x82\xac']");
  // The text is kept: the same pointer each time.
  EXPECT_EQ(e.what(), e.what());
  EXPECT_STREQ(CError(String(u"a") + String(1, u'\xd800') + u"b").what(), "a\xef\xbf\xbd" "b");
}

TEST(CErrorTest, WhatOfConcurrentCallersAgrees) {
  CError e(u"shared", u"X", 1);
  std::vector<char const*> seen(4, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&e, &seen, i] { seen[i] = e.what(); });
  for (auto& t : threads) t.join();
  for (char const* text : seen) {
    EXPECT_EQ(text, seen[0]);
    EXPECT_STREQ(text, "shared [X 1]");
  }
}

TEST(CErrorTest, TraceEntriesAreAppendedInOrderAndRefreshWhat) {
  CError e(u"m");
  EXPECT_EQ(e.getTraceListString(), String());
  EXPECT_STREQ(e.what(), "m");
  e.addTrace(u"inner");
  EXPECT_EQ(e.getTraceListString(), String(u"inner"));
  EXPECT_STREQ(e.what(), "m [_trace='inner']");
  e.addTrace(u"outer");
  EXPECT_EQ(e.getTraceListString(), String(u"inner,outer"));
  EXPECT_EQ(e.getParams().lookup(u"_trace"), String(u"inner,outer"));
  EXPECT_EQ(e.getDesc(), String(u"m [_trace='inner,outer']"));
}

TEST(CErrorTest, CauseAndSetCauseStoreAnIndependentCloneOfItsClass) {
  PC<CError> cause;
  {
    CIOError original(2, u"read failed", CProps().add(u"uri", u"mem:"));
    CError e(u"outer", u"", -1, CProps(), &original);
    cause = e.getCause();
    ASSERT_FALSE(cause.isNull());
    EXPECT_NE(cause.get(), static_cast<CError const*>(&original));
    original.getParams().add(u"uri", u"changed");
  }
  // The original and the error are gone; the clone lives on unchanged.
  EXPECT_NE(dynamic_cast<CIOError const*>(cause.get()), nullptr);
  EXPECT_EQ(cause->getDesc(), String(u"read failed [IO 2 (uri='mem:')]"));
  CError e(u"outer");
  CIOError other(3);
  e.setCause(other);
  ASSERT_FALSE(e.getCause().isNull());
  EXPECT_NE(e.getCause().get(), static_cast<CError const*>(&other));
  EXPECT_TRUE(e.getCause()->isError(u"IO", 3));
  EXPECT_EQ(e.getCause()->getRefCountForDebugging(), 2);  // e's and the temporary's
}

TEST(CErrorTest, CopyAndAssignmentCopyEveryField) {
  CIOError cause(1);
  CError source(u"msg", u"D", 9, CProps().add(u"k", u"v"), &cause);
  source.addTrace(u"t");
  char const* sourceWhat = source.what();
  CError copy(source);
  CError assigned(u"other", u"Z", 1, CProps().add(u"x", u"y"));
  EXPECT_STREQ(assigned.what(), "other [Z 1 (x='y')]");
  assigned = source;
  for (CError const* e : {&copy, &assigned}) {
    EXPECT_EQ(e->getMessage(), String(u"msg"));
    EXPECT_EQ(e->getErrorCodeDomain(), String(u"D"));
    EXPECT_EQ(e->getErrorCode(), 9);
    EXPECT_EQ(e->getParams(), source.getParams());
    EXPECT_EQ(e->getCause(), source.getCause());
    EXPECT_STREQ(e->what(), sourceWhat);
    EXPECT_EQ(e->getRefCountForDebugging(), 1);
  }
  copy.getParams().add(u"k", u"changed");
  EXPECT_EQ(source.getParams().lookup(u"k"), String(u"v"));
}

TEST(CErrorTest, CloneAndThrowCloneKeepTheBaseClass) {
  CError e(u"m", u"D", 2, CProps().add(u"a", u"b"));
  P<CError> clone = e.clone();
  CError const& cloned = *clone;
  EXPECT_EQ(typeid(cloned), typeid(CError));
  EXPECT_EQ(clone->getDesc(), e.getDesc());
  EXPECT_EQ(clone->getRefCountForDebugging(), 1);
  try {
    clone->throwClone();
  } catch (CError const& thrown) {
    EXPECT_EQ(typeid(thrown), typeid(CError));
    EXPECT_NE(&thrown, clone.get());
    EXPECT_EQ(thrown.getDesc(), e.getDesc());
  }
}
