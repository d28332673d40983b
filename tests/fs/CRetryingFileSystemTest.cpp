// CRetryingFileSystem over the real local file system: which failures are
// retried for which operations, the backoff, the warnings in the log, and
// real busy files (a running program's file on POSIX, a sharing violation
// on Windows) that become free between two tries.
#include "qo/fs/CRetryingFileSystem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/fs/LocalFile.h"
#include "qo/log/CXMLLog.h"
#include "qo/log/logFunctions.h"
#include "qo/sys/CProcess.h"
#include "TempFolder.h"

namespace qo {
namespace {

#ifdef _WIN32
constexpr std::uint32_t kBusyCode = 32;     // ERROR_SHARING_VIOLATION
constexpr std::uint32_t kNetworkCode = 64;  // ERROR_NETNAME_DELETED
#else
constexpr std::uint32_t kBusyCode = EBUSY;
constexpr std::uint32_t kNetworkCode = ENETDOWN;
#endif

// The local file system, failing the first `failures` calls with a copy of
// `error` before the real call is made.
class CFlaky : public CDelegatingFileSystemBase {
public:
  CFlaky(P<CError> error, int failures) : m_error(std::move(error)), m_failures(failures) {}
  std::atomic<int> calls{0};

protected:
  P<IFileSystem> getFileSystem(CURI const&) override {
    if (++calls <= m_failures) m_error->throwClone();
    return m_local;
  }
  P<IFileSystem> getFileSystemForTwo(CURI const& uri1, CURI const&, bool) override { return getFileSystem(uri1); }

private:
  P<CError> m_error;
  int m_failures;
  P<IFileSystem> m_local = newP<CLocalFileSystem>();
};

P<CError> systemFailure(std::uint32_t code) {
  CSystemError const cause(u"A file operation of the system failed.", u"test", u"test", code);
  return P<CError>(new CIOError(CIOError::kReadFailed, String(), CProps(), &cause));
}

std::unique_ptr<test::TempFolder> g_logFolder;
P<CXMLLog> createTestLog() { return newP<CXMLLog>(g_logFolder->path("retries.xml")); }

class CRetryingFileSystemTest : public ::testing::Test {
protected:
  void SetUp() override {
    CXMLLog::disposeGlobalInstance();
    CXMLLog::setGlobalCreateFunc(nullptr);
    g_logFolder = std::make_unique<test::TempFolder>("qo-retry-log");
    CXMLLog::setGlobalCreateFunc(&createTestLog);
  }
  void TearDown() override {
    CXMLLog::disposeGlobalInstance();
    CXMLLog::setGlobalCreateFunc(nullptr);
    g_logFolder.reset();
  }
  std::string logText() {
    CXMLLog::disposeGlobalInstance();
    return CXMLLog::readLogRaw(g_logFolder->path("retries.xml")).toUTF8();
  }
  CURI at(char const* name) const { return localFileURI(m_tmp.path(name)); }
  void put(char const* name, std::string const& bytes) const {
    std::ofstream out(m_tmp.file(name), std::ios::binary);
    out << bytes;
  }

  test::TempFolder m_tmp{"qo-retry"};
};

int countOf(std::string const& text, std::string const& needle) {
  int count = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++count;
  return count;
}

TEST_F(CRetryingFileSystemTest, RetriesWhatMayPassAndNeverRepeatsAnUncertainChange) {
  put("a.txt", "alpha");
  P<CError> const lock(new CFileSystemError(CFileSystemError::kLockConflict, String(), CProps()));
  P<CError> const busy = systemFailure(kBusyCode);
  P<CError> const network = systemFailure(kNetworkCode);
  P<CError> const missing(new CFileSystemError(CFileSystemError::kNotFound, String(), CProps()));
  struct Case {
    char const* name;
    P<CError> error;
    int failures;
    std::function<void(IFileSystem&)> call;
    int calls;      // calls that reach the flaky file system
    bool throws;    // the error comes out (with its class)
  };
  std::vector<Case> const cases = {
      {"lock, copy without overwrite", lock, 2, [&](IFileSystem& fs) { fs.copyFile(at("a.txt"), at("b.txt"), false); }, 3, false},
      {"busy, createFolder", busy, 1, [&](IFileSystem& fs) { fs.createFolder(at("f"), 0); }, 2, false},
      {"network, fileExists", network, 3, [&](IFileSystem& fs) { EXPECT_TRUE(fs.fileExists(at("a.txt"))); }, 4, false},
      {"network, delete ignoring missing", network, 1, [&](IFileSystem& fs) { fs.deleteFile(at("b.txt"), true); }, 2, false},
      {"network, move", network, 1, [&](IFileSystem& fs) { fs.moveFileOrFolder(at("a.txt"), at("c.txt"), false); }, 1, true},
      {"network, exclusive create", network, 1,
       [&](IFileSystem& fs) {
         (void)fs.createStream(at("d.txt"), IIOStream::AccessWriteOnly,
                               TFlags<IIOStream::Flags>{IIOStream::FlagCreate, IIOStream::FlagFailIfExists});
       },
       1, true},
      {"not found, getFileInfo", missing, 1, [&](IFileSystem& fs) { (void)fs.getFileInfo(at("a.txt"), false); }, 1, true},
      {"lock, forever", lock, 100, [&](IFileSystem& fs) { (void)fs.folderExists(at("f")); }, 4, true},
  };
  int retries = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    P<CFlaky> flaky = newP<CFlaky>(c.error, c.failures);
    P<CRetryingFileSystem> fs = newP<CRetryingFileSystem>(flaky, 4, 10, 25);
    std::vector<int> delays;
    fs->setSleeper([&](int ms) { delays.push_back(ms); });
    try {
      c.call(*fs);
      EXPECT_FALSE(c.throws);
    } catch (CError const& e) {
      EXPECT_TRUE(c.throws) << e.what();
      CError const& expected = *c.error;
      EXPECT_EQ(typeid(e), typeid(expected));
    }
    EXPECT_EQ(flaky->calls, c.calls);
    std::vector<int> const backoff = {10, 20, 25};
    EXPECT_EQ(delays, std::vector<int>(backoff.begin(), backoff.begin() + (c.calls - 1)));
    retries += c.calls - 1;
  }
  // The work was done once: copied, folder made, b deleted, a not moved.
  EXPECT_TRUE(std::filesystem::is_directory(m_tmp.file("f")));
  EXPECT_FALSE(std::filesystem::exists(m_tmp.file("b.txt")));
  EXPECT_TRUE(std::filesystem::exists(m_tmp.file("a.txt")));
  EXPECT_FALSE(std::filesystem::exists(m_tmp.file("d.txt")));
  std::string const log = logText();
  EXPECT_EQ(countOf(log, "level=\"WARNING\""), retries) << log;
  EXPECT_NE(log.find("CRetryingFileSystem::copyFile on file:///"), std::string::npos) << log;
}

TEST_F(CRetryingFileSystemTest, ALockPropertyIsARefusalAndBadArgumentsAreRefused) {
  // The form a stream's lock error takes, without a system code.
  CIOError const lockProperty(CIOError::kOpenFailed, String(), CProps().addBool(u"lockConflict", true));
  EXPECT_EQ(CRetryingFileSystem::classify(lockProperty), CRetryingFileSystem::kRefused);
  P<IFileSystem> const local = newP<CLocalFileSystem>();
  EXPECT_THROW(CRetryingFileSystem(nil, 1, 0, 0), CInvalidArgError);
  EXPECT_THROW(CRetryingFileSystem(local, 0, 0, 0), CInvalidArgError);
  EXPECT_THROW(CRetryingFileSystem(local, 2, 10, 5), CInvalidArgError);
}

TEST_F(CRetryingFileSystemTest, ABusyFileThatBecomesFreeIsOpenedOnTheNextTry) {
  P<CRetryingFileSystem> fs = newP<CRetryingFileSystem>(newP<CLocalFileSystem>(), 3, 0, 0);
  std::function<void()> release;
  CURI target;
  P<IIOStream> holder;
  P<CProcess> program;
  if (localFileSharingIsEnforced()) {
    // Windows: an open without sharing refuses every other open.
    put("held.txt", "held");
    target = at("held.txt");
    holder = fs->getInner()->createStream(target, IIOStream::AccessReadWrite, {});
    release = [&] { holder->close(); };
  } else {
    // POSIX: the file of a running program cannot be opened for writing.
    std::error_code error;
    std::filesystem::copy_file("/bin/sleep", m_tmp.file("busy"), error);
    if (error) GTEST_SKIP() << "no /bin/sleep to run: " << error.message();
    std::filesystem::permissions(m_tmp.file("busy"), std::filesystem::perms::owner_all);
    target = at("busy");
    program = newP<CProcess>(m_tmp.path("busy"), std::vector<String>{u"60"});
    program->start();
    release = [&] {
      program->terminate();
      program->wait(-1);
    };
  }
  int waits = 0;
  fs->setSleeper([&](int) {
    if (waits++ == 0) release();
  });
  P<IIOStream> stream = fs->createStream(target, IIOStream::AccessWriteOnly, {});
  stream->write("new!", 4);
  stream->close();
  EXPECT_EQ(waits, 1);
  EXPECT_EQ(readLocalFile(m_tmp.path(localFileSharingIsEnforced() ? "held.txt" : "busy")).substr(0, 4), "new!");
  EXPECT_EQ(countOf(logText(), "level=\"WARNING\""), 1);
}

}  // namespace
}  // namespace qo
