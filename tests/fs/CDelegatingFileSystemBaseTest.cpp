// CDelegatingFileSystemBase: a wrapper over one file system (the way
// retrying or logging wrappers are built) and the default two-object choice.
#include "qo/fs/CDelegatingFileSystemBase.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "fs/FakeFileSystem.h"

namespace qo {
namespace {

using test::CFakeFileSystem;

// Sends "a:" URIs to one file system and everything else to another, and
// changes deleteFile to ignore missing files always.
class CSplitter : public CDelegatingFileSystemBase {
public:
  CSplitter(IFileSystem* a, IFileSystem* other) {
    m_a = a;
    m_other = other;
  }
  void deleteFile(CURI const& uri, bool) override { CDelegatingFileSystemBase::deleteFile(uri, true); }

protected:
  P<IFileSystem> getFileSystem(CURI const& uri) override { return uri.getScheme() == u"a" ? m_a : m_other; }

private:
  P<IFileSystem> m_a;
  P<IFileSystem> m_other;
};

TEST(CDelegatingFileSystemBaseTest, ForwardsToTheChosenFileSystemOverridesApplyAndRefusesMixedPairs) {
  P<CFakeFileSystem> a = newP<CFakeFileSystem>();
  P<CFakeFileSystem> other = newP<CFakeFileSystem>();
  P<CSplitter> splitter = newP<CSplitter>(a.get(), other.get());
  splitter->deleteFile(CURI(u"a:///x"), false);
  EXPECT_EQ(CFakeFileSystem::kNumber, splitter->getFreeSpaceInFolder(CURI(u"b:///y")));
  splitter->copyFile(CURI(u"b:///1"), CURI(u"c:///2"), true);  // both served by "other"
  EXPECT_EQ(std::vector<std::string>{"deleteFile(a:///x,true)"}, a->calls());
  EXPECT_EQ((std::vector<std::string>{"getFreeSpaceInFolder(b:///y)", "copyFile(b:///1,c:///2,true)"}),
            other->calls());
  // Two objects on different file systems are refused before any call.
  try {
    splitter->copyFile(CURI(u"a:///1"), CURI(u"b:///2"), true);
    FAIL() << "nothing thrown";
  } catch (CFileSystemError const& e) {
    EXPECT_EQ(CFileSystemError::kUnservedURI, e.getProblem());
    ASSERT_TRUE(e.getCause());
    EXPECT_EQ("Objects are on different file systems.", e.getCause()->getMessage().toUTF8());
    EXPECT_EQ("a:///1", e.getCause()->getParams().lookup(u"uri1").toUTF8());
    EXPECT_EQ("b:///2", e.getCause()->getParams().lookup(u"uri2").toUTF8());
  }
  EXPECT_EQ(1u, a->calls().size());
  EXPECT_EQ(2u, other->calls().size());
}

}  // namespace
}  // namespace qo
