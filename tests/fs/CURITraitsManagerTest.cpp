#include "qo/fs/CURITraitsManager.h"

#include <gtest/gtest.h>

#include "qo/fs/CURI.h"
#include "qo/fs/CURITraits_Empty.h"
#include "qo/fs/CURITraits_FTP.h"
#include "qo/fs/CURITraits_File.h"
#include "qo/fs/CURITraits_Generic.h"
#include "qo/fs/CURITraits_HTTP.h"

using namespace qo;

namespace {

class CTestTraits : public CURITraits_Generic {
public:
  long long getDefaultPort() const override { return 7; }
};

}  // namespace

TEST(CURITraitsManagerTest, RegistersBuiltInSchemes) {
  P<CURITraitsManager> manager = newP<CURITraitsManager>();
  EXPECT_NE(dynamic_cast<CURITraits_File*>(manager->getTraitsForScheme(u"file").get()), nullptr);
  EXPECT_NE(dynamic_cast<CURITraits_FTP*>(manager->getTraitsForScheme(u"ftp").get()), nullptr);
  EXPECT_NE(dynamic_cast<CURITraits_Empty*>(manager->getTraitsForScheme(u"").get()), nullptr);
  P<IURITraits> http = manager->getTraitsForScheme(u"http");
  P<IURITraits> https = manager->getTraitsForScheme(u"https");
  ASSERT_NE(dynamic_cast<CURITraits_HTTP*>(http.get()), nullptr);
  ASSERT_NE(dynamic_cast<CURITraits_HTTP*>(https.get()), nullptr);
  EXPECT_NE(http.get(), https.get());
  EXPECT_EQ(http->getDefaultPort(), 80);
  EXPECT_EQ(https->getDefaultPort(), 443);
  EXPECT_EQ(manager->getTraitsForScheme(u"ftp")->getDefaultPort(), 21);
  P<IURITraits> generic = manager->getTraitsForScheme(u"gopher");
  IURITraits const& genericRef = *generic;
  EXPECT_EQ(typeid(genericRef), typeid(CURITraits_Generic));
  EXPECT_EQ(generic->getDefaultPort(), -1);
  EXPECT_EQ(manager->getTraitsForScheme(u"other").get(), generic.get());
}

TEST(CURITraitsManagerTest, RegistersAndReplacesTraits) {
  P<CURITraitsManager> manager = newP<CURITraitsManager>();
  P<IURITraits> mine = newP<CTestTraits>();
  manager->registerTraits(u"SMB", mine);
  EXPECT_EQ(manager->getTraitsForScheme(u"smb").get(), mine.get());
  manager->registerTraits(u"http", mine);
  EXPECT_EQ(manager->getTraitsForScheme(u"http")->getDefaultPort(), 7);
}

TEST(CURITraitsManagerTest, GlobalInstanceServesURIs) {
  P<CURITraitsManager> const& global = CURITraitsManager::get();
  ASSERT_TRUE(global);
  EXPECT_EQ(CURITraitsManager::get().get(), global.get());
  EXPECT_EQ(CURI(u"https://h/").getTraits()->getDefaultPort(), 443);
  CURITraitsManager::disposeGlobalInstance();
  // A fresh instance after disposal, again with the built-in traits.
  EXPECT_EQ(CURI(u"ftp://h/").getTraits()->getDefaultPort(), 21);
}

TEST(CURITraitsManagerTest, FileTraitsKnowWindowsPaths) {
  CURITraits_File traits;
  struct Case { char16_t const* uri; bool caseSensitive; char16_t const* root; };
  Case const cases[] = {
      {u"file:///c:/a/b", false, u"/c:/"},        {u"file:///c:", false, u"/c:/"},
      {u"file:////srv/share/a", false, u"//srv/share/"}, {u"file:////srv", false, u"//srv/"},
      {u"file://srv/share/a", false, u"/share/"}, {u"file:///home/a", true, u"/"}, {u"file:a", true, u""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.uri).toUTF8());
    EXPECT_EQ(traits.isPathCaseSensitive(CURI(c.uri)), c.caseSensitive);
    EXPECT_EQ(traits.getRootPath(CURI(c.uri)), String(c.root));
  }
}
