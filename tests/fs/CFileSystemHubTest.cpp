// CFileSystemHub: routing by scheme, its two errors, replacement, that every
// operation reaches the file system with its arguments, and concurrent use.
#include "qo/fs/CFileSystemHub.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "fs/FakeFileSystem.h"

namespace qo {
namespace {

using test::CFakeFileSystem;

CURI uri(char16_t const* text) { return CURI(String(text)); }

// Runs f, which must throw CFileSystemError problem 6; returns its cause.
template <class F>
PC<CError> unservedCause(F&& f) {
  try {
    f();
  } catch (CFileSystemError const& e) {
    EXPECT_EQ(CFileSystemError::kUnservedURI, e.getProblem());
    EXPECT_TRUE(e.getCause());
    return e.getCause();
  } catch (std::exception const& e) {
    ADD_FAILURE() << "wrong exception: " << e.what();
    return nil;
  }
  ADD_FAILURE() << "nothing thrown";
  return nil;
}

class CFileSystemHubTest : public ::testing::Test {
protected:
  void SetUp() override {
    m_hub->registerFileSystem(u"file", m_file.get());
    m_hub->registerFileSystem(u"mem", m_mem.get());
  }
  P<CFileSystemHub> m_hub = newP<CFileSystemHub>();
  P<CFakeFileSystem> m_file = newP<CFakeFileSystem>();
  P<CFakeFileSystem> m_mem = newP<CFakeFileSystem>();
};

TEST_F(CFileSystemHubTest, UnregisteredSchemeFailsWithProblem6AndTheURI) {
  struct Case { char16_t const* uri; char const* text; };
  Case const cases[] = {
      {u"ftp://host/dir/f%C3%BCr", "ftp://host/dir/f\xC3\xBCr"},  // kept as an IRI: non-ASCII unescaped
      {u"FILEX:///x", "filex:///x"}, {u"relative/path", "relative/path"},  // no scheme at all
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    PC<CError> cause = unservedCause([&] { (void)m_hub->fileExists(uri(c.uri)); });
    ASSERT_TRUE(cause);
    EXPECT_EQ("The URI scheme is not supported.", cause->getMessage().toUTF8());
    EXPECT_EQ("", cause->getErrorCodeDomain().toUTF8());
    EXPECT_EQ(-1, cause->getErrorCode());
    EXPECT_EQ(c.text, cause->getParams().lookup(u"uri").toUTF8());
  }
  EXPECT_TRUE(m_file->calls().empty());
  EXPECT_TRUE(m_mem->calls().empty());
  P<CFileSystemHub> empty = newP<CFileSystemHub>();
  PC<CError> cause = unservedCause([&] { (void)empty->getFileSystem(uri(u"file:///a")); });
  ASSERT_TRUE(cause);
  EXPECT_EQ("file:///a", cause->getParams().lookup(u"uri").toUTF8());
}

TEST_F(CFileSystemHubTest, TwoObjectOperationsAcrossFileSystemsFailBeforeAnyCall) {
  CURI const a = uri(u"file:///src/a");
  CURI const b = uri(u"mem:///dst/b");
  std::vector<std::pair<char const*, std::function<void()>>> const ops = {
      {"moveFileOrFolder", [&] { m_hub->moveFileOrFolder(a, b, true); }},
      {"copyFile", [&] { m_hub->copyFile(a, b, false); }},
      {"backgroundMoveFileOrFolder", [&] { (void)m_hub->backgroundMoveFileOrFolder(a, b, true, nullptr); }},
      {"createFileHardLink", [&] { m_hub->createFileHardLink(a, b); }},
      {"createFolderHardLink", [&] { m_hub->createFolderHardLink(a, b); }},
      {"createFileSymLink", [&] { m_hub->createFileSymLink(a, b); }},
      {"createFolderSymLink", [&] { m_hub->createFolderSymLink(a, b); }},
  };
  for (auto const& op : ops) {
    SCOPED_TRACE(op.first);
    PC<CError> cause = unservedCause(op.second);
    ASSERT_TRUE(cause);
    EXPECT_EQ("Objects are on different file systems.", cause->getMessage().toUTF8());
    EXPECT_EQ("", cause->getErrorCodeDomain().toUTF8());
    EXPECT_EQ(-1, cause->getErrorCode());
    EXPECT_EQ("file:///src/a", cause->getParams().lookup(u"uri1").toUTF8());
    EXPECT_EQ("mem:///dst/b", cause->getParams().lookup(u"uri2").toUTF8());
  }
  EXPECT_TRUE(m_file->calls().empty());
  EXPECT_TRUE(m_mem->calls().empty());
}

TEST_F(CFileSystemHubTest, SymLinkTargetMayBeRelativeButHardLinkAndMoveTargetsMayNot) {
  CURI const link = uri(u"mem:///dir/link");
  CURI const relative = uri(u"../target");
  m_hub->createFileSymLink(link, relative);
  m_hub->createFolderSymLink(link, relative);
  EXPECT_EQ((std::vector<std::string>{"createFileSymLink(mem:///dir/link,../target)",
                                      "createFolderSymLink(mem:///dir/link,../target)"}),
            m_mem->calls());

  for (auto const& op : std::vector<std::function<void()>>{[&] { m_hub->createFileHardLink(link, relative); },
                                                           [&] { m_hub->moveFileOrFolder(link, relative, false); }}) {
    PC<CError> cause = unservedCause(op);
    ASSERT_TRUE(cause);
    EXPECT_EQ("The URI scheme is not supported.", cause->getMessage().toUTF8());
    EXPECT_EQ("../target", cause->getParams().lookup(u"uri").toUTF8());
  }
  EXPECT_EQ(2u, m_mem->calls().size());
}

TEST_F(CFileSystemHubTest, OneFileSystemUnderTwoSchemesServesBothObjects) {
  m_hub->registerFileSystem(u"smb", m_file.get());
  m_hub->moveFileOrFolder(uri(u"file:///a"), uri(u"smb://srv/share/b"), false);
  EXPECT_EQ(std::vector<std::string>{"moveFileOrFolder(file:///a,smb://srv/share/b,false)"}, m_file->calls());
}

TEST_F(CFileSystemHubTest, ReRegistrationReplacesNullRemovesAndSchemesCompareExactly) {
  P<CFakeFileSystem> second = newP<CFakeFileSystem>();
  auto const before = m_mem->getRefCountForDebugging();
  m_hub->registerFileSystem(u"mem", second.get());
  EXPECT_EQ(before - 1, m_mem->getRefCountForDebugging());  // the hub let go of the first
  EXPECT_EQ(second, m_hub->getFileSystem(uri(u"mem:///x")));
  m_hub->deleteFile(uri(u"mem:///x"), true);
  EXPECT_TRUE(m_mem->calls().empty());
  EXPECT_EQ(std::vector<std::string>{"deleteFile(mem:///x,true)"}, second->calls());

  m_hub->registerFileSystem(u"mem", nullptr);
  EXPECT_NE(nullptr, unservedCause([&] { m_hub->deleteFile(uri(u"mem:///x"), true); }).get());
  EXPECT_EQ(m_file, m_hub->getFileSystem(uri(u"file:///x")));
  m_hub->registerFileSystem(u"HTTP", m_mem.get());  // CURI schemes are lower case: never matches
  EXPECT_NE(nullptr, unservedCause([&] { (void)m_hub->getFileSystem(uri(u"http://h/x")); }).get());
}

TEST_F(CFileSystemHubTest, EveryOperationIsForwardedWithItsArguments) {
  CFakeFileSystem& f = *m_mem;
  CURI const u1 = uri(u"mem:///dir/one");
  CURI const u2 = uri(u"mem:///dir/two");
  P<CBufferStream> source = newP<CBufferStream>();
  TFlags<IIOStream::Flags> const flags{IIOStream::FlagCreate, IIOStream::FlagShareRead};
  IFileSystem& hub = *m_hub;
  // One row per operation, in slot order: the call, the line the file
  // system must log, and whether the hub returned the file system's result.
  struct Row {
    char const* expected;
    std::function<bool()> call;
  };
  std::vector<Row> const rows = {
      {"backgroundStore(mem:///dir/one,-1,ptr,true,null)",
       [&] { return hub.backgroundStore(u1, -1, source.get(), true, nullptr) == f.op; }},
      {"backgroundCreateFolder(mem:///dir/one,7,null)",
       [&] { return hub.backgroundCreateFolder(u1, 7, nullptr) == f.op; }},
      {"backgroundMoveFileOrFolder(mem:///dir/one,mem:///dir/two,false,null)",
       [&] { return hub.backgroundMoveFileOrFolder(u1, u2, false, nullptr) == f.op; }},
      {"backgroundDeleteFile(mem:///dir/one,null)", [&] { return hub.backgroundDeleteFile(u1, nullptr) == f.op; }},
      {"getFileInfo(mem:///dir/one,true)", [&] { return hub.getFileInfo(u1, true) == f.info; }},
      {"createMetaModifier(mem:///dir/one,false)", [&] { return hub.createMetaModifier(u1, false) == f.modifier; }},
      {"getFileSectorSize(mem:///dir/one)", [&] { return hub.getFileSectorSize(u1) == f.kNumber; }},
      {"getFolderContents(mem:///dir/one)", [&] { return hub.getFolderContents(u1) == f.iterator; }},
      {"createStream(mem:///dir/one,access3,flags9)",
       [&] { return hub.createStream(u1, IIOStream::AccessReadWrite, flags) != nil; }},
      {"createSubDataStream(mem:///dir/one,'s\xC3\xBC',access4,flags9)",
       [&] { return hub.createSubDataStream(u1, u"s\u00FC", IIOStream::AccessAppend, flags) == f.subStream; }},
      {"createFolder(mem:///dir/one,-5)", [&] { return hub.createFolder(u1, -5), true; }},
      {"ensureFolderExists(mem:///dir/one,2147483647)", [&] { return hub.ensureFolderExists(u1, 2147483647); }},
      {"ensureFileExists(mem:///dir/one)", [&] { return hub.ensureFileExists(u1), true; }},
      {"createFileHardLink(mem:///dir/one,mem:///dir/two)", [&] { return hub.createFileHardLink(u1, u2), true; }},
      {"createFolderHardLink(mem:///dir/one,mem:///dir/two)", [&] { return hub.createFolderHardLink(u1, u2), true; }},
      {"createFileSymLink(mem:///dir/one,mem:///dir/two)", [&] { return hub.createFileSymLink(u1, u2), true; }},
      {"createFolderSymLink(mem:///dir/one,mem:///dir/two)", [&] { return hub.createFolderSymLink(u1, u2), true; }},
      {"fileExists(mem:///dir/one)", [&] { return hub.fileExists(u1); }},
      {"folderExists(mem:///dir/one)", [&] { return hub.folderExists(u1); }},
      {"pathExists(mem:///dir/one)", [&] { return hub.pathExists(u1); }},
      {"quickCheckFolderAccessible(mem:///dir/one)", [&] { return hub.quickCheckFolderAccessible(u1); }},
      {"isFolderEmpty(mem:///dir/one)", [&] { return hub.isFolderEmpty(u1); }},
      {"deleteFile(mem:///dir/one,false)", [&] { return hub.deleteFile(u1, false), true; }},
      {"deleteSymLink(mem:///dir/one)", [&] { return hub.deleteSymLink(u1), true; }},
      {"deleteEmptyFolder(mem:///dir/one,true)", [&] { return hub.deleteEmptyFolder(u1, true), true; }},
      {"unlinkFolder(mem:///dir/one)", [&] { return hub.unlinkFolder(u1), true; }},
      {"getVolumeRootPath(mem:///dir/one)", [&] { return hub.getVolumeRootPath(u1) == f.resultURI(); }},
      {"createUniqueFilename(mem:///dir/one,'n.txt')",
       [&] { return hub.createUniqueFilename(u1, u"n.txt") == f.resultURI(); }},
      {"createUniqueFolderName(mem:///dir/one,'')",
       [&] { return hub.createUniqueFolderName(u1, String()) == f.resultURI(); }},
      {"moveFileOrFolder(mem:///dir/one,mem:///dir/two,true)",
       [&] { return hub.moveFileOrFolder(u1, u2, true), true; }},
      {"copyFile(mem:///dir/one,mem:///dir/two,false)", [&] { return hub.copyFile(u1, u2, false), true; }},
      {"getFreeSpaceInFolder(mem:///dir/one)", [&] { return hub.getFreeSpaceInFolder(u1) == f.kNumber; }},
      {"getAccountOrUserNameUsedForAccess(mem:///dir/one)",
       [&] { return hub.getAccountOrUserNameUsedForAccess(u1) == f.resultText(); }},
      {"getNativeMetaData(mem:///dir/one,true,'acl')",
       [&] { return hub.getNativeMetaData(u1, true, u"acl") == f.metaData; }},
  };
  ASSERT_EQ(34u, rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].expected);
    EXPECT_TRUE(rows[i].call());
    std::vector<std::string> const calls = f.calls();
    ASSERT_EQ(i + 1, calls.size());
    EXPECT_EQ(rows[i].expected, calls.back());
  }
  EXPECT_TRUE(m_file->calls().empty());
}

TEST_F(CFileSystemHubTest, ErrorsOfTheFileSystemPassThroughUnchanged) {
  m_mem->setHook([](std::string const&) {
    throw CIOError(CIOError::kUnexpectedEOF, String(), CProps().add(u"uri", u"mem:///x"));
  });
  try {
    (void)m_hub->getFileInfo(uri(u"mem:///x"), false);
    FAIL() << "nothing thrown";
  } catch (CIOError const& e) {
    EXPECT_EQ(CIOError::kUnexpectedEOF, e.getErrorCode());
    EXPECT_EQ("mem:///x", e.getParams().lookup(u"uri").toUTF8());
  }
}

TEST_F(CFileSystemHubTest, LoginManagerIsKeptAndReplaced) {
  class CLogins : public CBase, public IFileSystemLoginManager {
  public:
    bool getLogin(CURI const&, String&, String&) override { return false; }
    void onLoginFailed(CURI const&, String const&) override {}
  };
  EXPECT_EQ(nil, m_hub->getLoginManager());
  P<CLogins> first = newP<CLogins>();
  P<CLogins> second = newP<CLogins>();
  m_hub->setLoginManager(first.get());
  EXPECT_EQ(2, first->getRefCountForDebugging());
  m_hub->setLoginManager(second.get());
  EXPECT_EQ(1, first->getRefCountForDebugging());
  EXPECT_EQ(second, m_hub->getLoginManager());
  m_hub->setLoginManager(nullptr);
  EXPECT_EQ(nil, m_hub->getLoginManager());
}

TEST_F(CFileSystemHubTest, ConcurrentRegistrationAndLookup) {
  // Writers flip each scheme between two file systems; readers must always
  // get one of the two, never a torn or missing entry.
  constexpr int kSchemes = 4;
  constexpr int kIterations = 2000;
  std::vector<P<CFakeFileSystem>> systems;
  for (int i = 0; i < 2 * kSchemes; ++i) systems.push_back(newP<CFakeFileSystem>());
  auto scheme = [](int i) { return String(("s" + std::to_string(i)).c_str()); };
  for (int s = 0; s < kSchemes; ++s) m_hub->registerFileSystem(scheme(s), systems[2 * s].get());
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kIterations; ++i) {
        int const s = (i + t) % kSchemes;
        m_hub->registerFileSystem(scheme(s), systems[2 * s + (i & 1)].get());
      }
    });
  }
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kIterations; ++i) {
        int const s = (i * 7 + t) % kSchemes;
        CURI const u(scheme(s) + u":///x");
        P<IFileSystem> fs = m_hub->getFileSystem(u);
        if (fs != systems[2 * s] && fs != systems[2 * s + 1]) ++wrong;
        (void)m_hub->pathExists(u);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(0, wrong.load());
  std::size_t total = 0;
  for (auto const& fs : systems) total += fs->calls().size();
  EXPECT_EQ(3u * kIterations, total);
}

}  // namespace
}  // namespace qo
