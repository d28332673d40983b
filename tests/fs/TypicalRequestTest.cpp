// The typical request end to end: a background store through a
// CFileSystemHub routing "file" URIs to a CLocalFileSystem, then its outcome.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <typeinfo>

#include "LocalFileTestSupport.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/fs/CFileSystemHub.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/stream/CBufferStream.h"
#include "qo/thread/CSignal.h"

namespace qo {
namespace {

using localfiletest::bypassesPermissions;
using localfiletest::kLongWait;
using localfiletest::problemOf;
using localfiletest::readFile;
using localfiletest::sourceOf;
using localfiletest::TempFolder;

// Counts its calls and keeps the op and a clone of the error of the last.
class CRecordingListener : public CBase, public IDoneListener {
public:
  void onBackgroundOpDone(IBackgroundOp* op, CError const* error) override {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      ++m_calls;
      m_op = op;
      m_error = error ? error->clone() : P<CError>();
    }
    m_told.set();
  }
  // The listener runs after the op reports finished, so waitFinished alone
  // does not mean it was told yet.
  bool waitTold() { return m_told.wait(kLongWait); }
  template <class T>
  T get(T const& field) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return field;
  }
  int calls() { return get(m_calls); }
  IBackgroundOp* op() { return get(m_op); }
  P<CError> error() { return get(m_error); }

private:
  std::mutex m_mutex;
  int m_calls = 0;
  IBackgroundOp* m_op = nullptr;
  P<CError> m_error;
  CSignal m_told;
};

class TypicalRequestTest : public ::testing::Test {
protected:
  void SetUp() override { m_hub->registerFileSystem(u"file", m_local.get()); }

  CURI uriOf(std::string const& name) const {
    return CLocalFileSystem::toURI(m_dir.path(name), false);
  }
  // Stores a short source at name, which must fail to open with problem, in
  // the op's error and in what the listener was told.
  void expectStoreFails(std::string const& name, long long problem) {
    CURI const target = uriOf(name);
    P<CRecordingListener> listener = newP<CRecordingListener>();
    P<IBackgroundOp> op = m_hub->backgroundStore(target, 4, sourceOf("data").get(), true, listener.get());
    ASSERT_TRUE(op->waitFinished(kLongWait));
    ASSERT_TRUE(listener->waitTold());
    try {
      op->throwErrorIfFailed();
      ADD_FAILURE() << "the store did not fail";
    } catch (CError const& e) {
      EXPECT_EQ(typeid(CIOError), typeid(e)) << e.what();
      EXPECT_EQ(CIOError::kOpenFailed, e.getErrorCode()) << e.what();
      EXPECT_EQ(problem, problemOf(e)) << e.what();
      EXPECT_EQ(target.toString(true), e.getParams().lookup(u"uri"));
    }
    EXPECT_EQ(1, listener->calls());
    EXPECT_EQ(op.get(), listener->op());
    P<CError> told = listener->error();
    ASSERT_TRUE(told);
    CError const& toldRef = *told;
    EXPECT_EQ(typeid(CIOError), typeid(toldRef));
    EXPECT_EQ(target.toString(true), told->getParams().lookup(u"uri"));
  }

  TempFolder m_dir{"qo-request"};
  P<CLocalFileSystem> m_local = newP<CLocalFileSystem>();
  P<CFileSystemHub> m_hub = newP<CFileSystemHub>();
};

TEST_F(TypicalRequestTest, BackgroundStoreThroughTheHubCopiesEveryByteAndTellsOnce) {
  // Not a multiple of the store's copy chunk, so the last chunk is partial.
  std::string const bytes = localfiletest::pattern(3 * 1024 * 1024 + 12345, 3);
  long long const size = static_cast<long long>(bytes.size());
  P<CBufferStream> source = sourceOf(bytes);
  P<CRecordingListener> listener = newP<CRecordingListener>();
  P<IBackgroundOp> op = m_hub->backgroundStore(uriOf("stored.bin"), size, source.get(), false, listener.get());
  ASSERT_TRUE(op->waitFinished(kLongWait));
  op->throwErrorIfFailed();
  ASSERT_TRUE(listener->waitTold());
  std::string const stored = readFile(m_dir.file("stored.bin"));
  ASSERT_EQ(bytes.size(), stored.size());
  EXPECT_TRUE(stored == bytes);
  EXPECT_EQ(size, source->getPosition());
  EXPECT_EQ(op.get(), listener->op());
  EXPECT_EQ(nil, listener->error());
  // Dropping the file systems stops and joins the worker: nothing can tell
  // the listener again after this.
  m_hub = nil;
  m_local = nil;
  EXPECT_EQ(1, listener->calls());
  EXPECT_TRUE(op->hasFinished());
}

TEST_F(TypicalRequestTest, StoreIntoAMissingFolderOrOverAFolderFails) {
  expectStoreFails("missing/stored.bin", CFileSystemError::kNotFound);
  EXPECT_FALSE(std::filesystem::exists(m_dir.file("missing")));
  std::filesystem::create_directory(m_dir.file("folder"));
  expectStoreFails("folder", CFileSystemError::kWrongKind);
  EXPECT_TRUE(std::filesystem::is_directory(m_dir.file("folder")));
}

TEST_F(TypicalRequestTest, StoreOverAReadOnlyFileFailsWithAccessDenied) {
  if (bypassesPermissions()) GTEST_SKIP() << "this user writes read-only files all the same";
  std::filesystem::path const path = m_dir.file("read-only.bin");
  std::ofstream(path, std::ios::binary) << "keep";
  std::filesystem::permissions(path, std::filesystem::perms::owner_write | std::filesystem::perms::group_write |
                                         std::filesystem::perms::others_write,
                               std::filesystem::perm_options::remove);
  expectStoreFails("read-only.bin", CFileSystemError::kAccessDenied);
  std::filesystem::permissions(path, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
  EXPECT_EQ("keep", readFile(path));
}

}  // namespace
}  // namespace qo
