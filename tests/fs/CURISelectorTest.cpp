#include "qo/fs/CURISelector.h"

#include <gtest/gtest.h>

#include "qo/core/CIOError.h"
#include "qo/core/TBuffer.h"
#include "qo/fs/CURI.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"

using namespace qo;

namespace {

using Bytes = TBuffer<unsigned char>;

P<Bytes> storeToBytes(CURISelector const& selector) {
  P<Bytes> bytes = newP<Bytes>();
  P<CBufferStream> stream = newP<CBufferStream>(bytes.get());
  CDataOutStream out(stream.get());
  selector.store(out);
  return bytes;
}

CURISelector loadFromBytes(P<Bytes> const& bytes) {
  P<CBufferStream> stream = newP<CBufferStream>(static_cast<Bytes const*>(bytes.get()));
  CDataInStream in(stream.get());
  return CURISelector::load(in);
}

}  // namespace

TEST(CURISelectorTest, MatchesEachComponent) {
  CURISelector selector =
      CURISelector().scheme(u"HTTP").scheme(u"https").host(u"Example.com").host(u"[FE80::1]").port(80).port(8080);
  struct Case { char16_t const* uri; bool expected; };
  Case const cases[] = {
      {u"http://example.com/x", true},  // default port 80
      {u"https://example.com/x", false},  // default port 443
      {u"https://example.com:8080/x", true}, {u"http://[fe80::1]:80/", true}, {u"http://other.com/x", false},
      {u"ftp://example.com:80/x", false}, {u"http:/x", false},  // no host
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.uri).toUTF8());
    EXPECT_EQ(selector.matches(CURI(c.uri)), c.expected);
  }
  CURISelector users = CURISelector().user(u"backup");
  EXPECT_TRUE(users.matches(CURI(u"smb://backup@nas/s")));
  EXPECT_FALSE(users.matches(CURI(u"smb://Backup@nas/s")));
  EXPECT_FALSE(users.matches(CURI(u"smb://nas/s")));
  for (char16_t const* text : {u"", u"x:y", u"http://u@h:1/p?q#f", u"file:///c:/x"})
    EXPECT_TRUE(CURISelector().matches(CURI(text))) << String(text).toUTF8();  // the empty selector
  EXPECT_TRUE(CURISelector().port(21).matches(CURI(u"ftp://h/")));
  EXPECT_FALSE(CURISelector().port(21).matches(CURI(u"unknown://h/")));
}

TEST(CURISelectorTest, MatchesPathsAndWhatLiesBelow) {
  CURISelector selector = CURISelector().path(u"/c:/backups/").path(u"/home/me/./data");
  EXPECT_EQ(selector.getPaths(), (std::set<String>{u"/c:/backups", u"/home/me/data"}));
  struct Case { char16_t const* uri; bool expected; };
  Case const cases[] = {
      {u"file:///c:/backups", true}, {u"file:///C:/Backups/set/disk.img", true},  // Windows paths ignore case
      {u"file:///c:/backupsX", false}, {u"file:///c:/backups/../secret", false},
      {u"file:///c:/other/../backups/x", true}, {u"file:///home/me/data/x", true},
      {u"file:///home/me/Data/x", false},  // POSIX paths do not
      {u"file:///home/me", false},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.uri).toUTF8());
    EXPECT_EQ(selector.matches(CURI(c.uri)), c.expected);
  }
  EXPECT_TRUE(CURISelector().path(u"/").pathMatches(u"/anything", true));
  EXPECT_FALSE(CURISelector().path(u"/").pathMatches(u"relative", true));
}

TEST(CURISelectorTest, TestsComponentsBySetMembership) {
  std::set<String> const none;
  std::set<String> const some{u"a", u""};
  EXPECT_TRUE(CURISelector::componentMatches(none, nil));
  EXPECT_TRUE(CURISelector::componentMatches(some, String(u"")));
  EXPECT_FALSE(CURISelector::componentMatches(some, nil));
  EXPECT_FALSE(CURISelector::componentMatches(some, String(u"b")));
  EXPECT_TRUE(CURISelector::componentMatches(std::set<long long>{}, -1));
  EXPECT_FALSE(CURISelector::componentMatches(std::set<long long>{0}, -1));
}

TEST(CURISelectorTest, BuildsFromURI) {
  CURI uri(u"http://me@h:81/a/b");
  CURISelector withPath = CURISelector::fromURI(uri, true);
  EXPECT_EQ(withPath, CURISelector().scheme(u"http").host(u"h").port(81).user(u"me").path(u"/a/b"));
  EXPECT_TRUE(withPath.matches(CURI(u"http://me@h:81/a/b/c")));
  EXPECT_FALSE(withPath.matches(CURI(u"http://me@h:81/a")));
  CURISelector withoutPath = CURISelector::fromURI(uri, false);
  EXPECT_TRUE(withoutPath.getPaths().empty());
  EXPECT_TRUE(withoutPath.matches(CURI(u"http://me@h:81/elsewhere")));
  EXPECT_FALSE(withoutPath.matches(CURI(u"http://h:81/elsewhere")));
}

TEST(CURISelectorTest, StoresAndLoads) {
  CURISelector const selectors[] = {
      CURISelector(),
      CURISelector().scheme(u"file").path(u"/c:/d\u00E9j\u00E0 vu").path(String(1, u'\xD800')),
      CURISelector().scheme(u"smb").host(u"nas").port(445).port(-7).user(u"").user(u"a:b@c").path(u"/"),
  };
  for (CURISelector const& selector : selectors) {
    EXPECT_EQ(loadFromBytes(storeToBytes(selector)), selector);
  }
  // The exact record of a small selector.
  P<Bytes> bytes = storeToBytes(CURISelector().scheme(u"x").port(2));
  std::vector<unsigned char> record(bytes->getData(), bytes->getData() + bytes->getSize());
  std::vector<unsigned char> const expected{1, 0, 0, 0,  1, 0, 0, 0, 1, 0, 0, 0, 'x', 0, 0, 0, 0, 1, 0, 0,
                                            0, 2, 0, 0,  0, 0, 0, 0, 0, 0, 0, 0, 0,   0, 0, 0, 0};
  EXPECT_EQ(record, expected);
}

TEST(CURISelectorTest, RefusesUnknownVersionAndBadCounts) {
  P<Bytes> bytes = storeToBytes(CURISelector());
  bytes->getData()[0] = 7;
  try {
    loadFromBytes(bytes);
    ADD_FAILURE();
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kBadVersion);
    EXPECT_EQ(e.getMessage(), String(u"Invalid version number encountered in CURISelector::load: 7"));
  }
  bytes = storeToBytes(CURISelector());
  bytes->getData()[7] = 0x80;  // scheme count negative
  try {
    loadFromBytes(bytes);
    ADD_FAILURE();
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kCorruptData);
  }
  bytes = storeToBytes(CURISelector().scheme(u"x"));
  bytes->setSize(bytes->getSize() - 5);
  EXPECT_THROW(loadFromBytes(bytes), CIOError);
}
