// CNetworkAutoMounter: on POSIX a bind mount made by a configured helper
// stands in for a network share (as root), a failing helper is reported; on
// Windows the real WNetAddConnection2W is asked for a server that does not
// exist. Failures that are not about a share pass through untouched.
#include "qo/fs/CNetworkAutoMounter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/fs/CRetryingFileSystem.h"
#include "qo/fs/LocalFile.h"
#include "TempFolder.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace qo {
namespace {

class CLogins : public CBase, public virtual IFileSystemLoginManager {
public:
  bool getLogin(CURI const& uri, String& userName, String& secret) override {
    asked.push_back(uri.toString(true));
    userName = u"alice";
    secret = u"s3cret";
    return true;
  }
  void onLoginFailed(CURI const&, String const& userName) override { refused.push_back(userName); }
  std::vector<String> asked;
  std::vector<String> refused;
};

class CNetworkAutoMounterTest : public ::testing::Test {
protected:
  void SetUp() override { m_mounter->setLoginManager(m_logins.get()); }
  void TearDown() override {
    m_mounter->_deinit();
    m_mounter->setLoginManager(nullptr);
  }
  static bool isRoot() {
#ifdef _WIN32
    return false;
#else
    return geteuid() == 0;
#endif
  }

  test::TempFolder m_tmp{"qo-mount"};
  P<CLogins> m_logins = newP<CLogins>();
  P<CNetworkAutoMounter> m_mounter = CNetworkAutoMounter::get();
};

TEST_F(CNetworkAutoMounterTest, AFailureThatIsNotAboutAShareIsThrownAsItIs) {
  P<CLocalFileSystem> fs = newP<CLocalFileSystem>();
  CURI const missing = localFileURI(m_tmp.path("missing.txt"));
  try {
    (void)m_mounter->run(missing, [&] { return fs->createStream(missing, IIOStream::AccessReadOnly, {}); });
    ADD_FAILURE() << "no exception";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"uri"), missing.toString(true));
  }
  EXPECT_TRUE(m_logins->asked.empty());
  EXPECT_TRUE(m_mounter->getConnected().empty());
}

TEST_F(CNetworkAutoMounterTest, AnUnmountedShareIsMountedOnceAndUnmountedAtTheEnd) {
  if (localPathsAreWindowsPaths()) GTEST_SKIP() << "Windows connects UNC shares; mounts are a POSIX matter";
  if (!isRoot()) GTEST_SKIP() << "mounting needs root";
  std::filesystem::create_directories(m_tmp.file("share"));
  std::filesystem::create_directories(m_tmp.file("mnt"));
  std::ofstream(m_tmp.file("share/data.txt")) << "shared";
  String const remote = m_tmp.path("share");
  // The helper sees the credentials in its environment only.
  m_mounter->setMountCommands({u"sh", u"-c", u"printf %s \"$USER:$PASSWD\" > '{remote}/seen' && mount --bind '{remote}' '{mountPoint}'"},
                              {u"umount", u"{mountPoint}"});
  m_mounter->addShare(remote, localFileURI(m_tmp.path("mnt")));
  String const data = m_tmp.path("mnt/data.txt");
  CURI const uri = localFileURI(data);
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(m_mounter->run(uri, [&] { return readLocalFile(data); }), "shared");
    EXPECT_EQ(m_logins->asked, std::vector<String>{uri.toString(true)});
    EXPECT_EQ(m_mounter->getConnected(), std::vector<String>{remote});
  }
  EXPECT_EQ(readLocalFile(m_tmp.path("share/seen")), "alice:s3cret");
  m_mounter->_deinit();
  EXPECT_TRUE(m_mounter->getConnected().empty());
  EXPECT_FALSE(std::filesystem::exists(m_tmp.file("mnt/data.txt")));
  // A retrying file system with auto-mount on mounts it again by itself.
  P<CRetryingFileSystem> fs = newP<CRetryingFileSystem>(newP<CLocalFileSystem>(), 1, 0, 0);
  fs->setAutoMount(true);
  P<IIOStream> stream = fs->createStream(uri, IIOStream::AccessReadOnly, {});
  EXPECT_EQ(stream->getLength(), 6);
  stream->close();
  EXPECT_EQ(m_mounter->getConnected(), std::vector<String>{remote});
  EXPECT_EQ(m_logins->asked.size(), 2u);
}

TEST_F(CNetworkAutoMounterTest, AFailingHelperIsReportedWithItsOutputAndTheFailureAsCause) {
  if (localPathsAreWindowsPaths()) {
    EXPECT_THROW(m_mounter->addShare(u"//srv/data", localFileURI(m_tmp.path())), CNotImplementedError);
    EXPECT_THROW(m_mounter->setMountCommands({u"mount"}, {u"umount"}), CNotImplementedError);
    return;
  }
  m_mounter->setMountCommands({u"sh", u"-c", u"echo refused {user}; exit 3"}, {u"true"});
  m_mounter->addShare(u"//srv/data", localFileURI(m_tmp.path()));
  CIOError const failure(CIOError::kOpenFailed, String(), CProps());
  CURI const uri = localFileURI(m_tmp.path("x.txt"));
  try {
    m_mounter->connectFor(uri, failure);
    ADD_FAILURE() << "no exception";
  } catch (CError const& e) {
    EXPECT_EQ(e.getMessage(), u"The mount helper failed.");
    EXPECT_EQ(e.getParams().lookup(u"exitCode"), u"3");
    EXPECT_EQ(e.getParams().lookup(u"output"), u"refused alice\n");
    EXPECT_EQ(e.getParams().lookup(u"remote"), u"//srv/data");
    ASSERT_TRUE(e.getCause());
    EXPECT_EQ(e.getCause()->getErrorCode(), CIOError::kOpenFailed);
  }
  EXPECT_EQ(m_logins->refused, std::vector<String>{u"alice"});
  EXPECT_TRUE(m_mounter->getConnected().empty());
}

TEST_F(CNetworkAutoMounterTest, AnUnconnectedUncShareIsConnectedWithTheManagersCredentials) {
  CURI const uri(u"file://qo-no-such-server/data/x.txt");
  // Windows: ERROR_BAD_NETPATH, as a call on an unconnected share gives.
  CSystemError const code(u"x", u"f", u"CreateFileW", localPathsAreWindowsPaths() ? 53u : 2u);
  CIOError const failure(CIOError::kOpenFailed, String(), CProps(), &code);
  if (!localPathsAreWindowsPaths()) {
    EXPECT_FALSE(m_mounter->connectFor(uri, failure));  // POSIX: not a share it was told of
    EXPECT_TRUE(m_logins->asked.empty());
    return;
  }
  try {
    if (m_mounter->connectFor(uri, failure)) GTEST_SKIP() << "this system connected a server that does not exist";
    ADD_FAILURE() << "the failure was not taken for an unconnected share";
  } catch (CSystemError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"api"), u"WNetAddConnection2W");
    EXPECT_EQ(e.getParams().lookup(u"remote"), u"\\\\qo-no-such-server\\data");
    EXPECT_NE(e.getErrorCode(), 0);
    ASSERT_TRUE(e.getCause());
    EXPECT_EQ(e.getCause()->getErrorCode(), CIOError::kOpenFailed);
  }
  EXPECT_EQ(m_logins->asked, std::vector<String>{uri.toString(true)});
  EXPECT_TRUE(m_mounter->getConnected().empty());
}

}  // namespace
}  // namespace qo
