// The typical request end to end: a caller stores a stream in the background
// through a CFileSystemHub that routes "file" URIs to a CLocalFileSystem,
// waits, and asks for the outcome. Success copies every byte and tells the
// listener once; a failing store rethrows the CIOError of the opening, with
// the target as "uri", from throwErrorIfFailed and hands it to the listener.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
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
using localfiletest::problemOf;
using localfiletest::TempFolder;
using Buffer = TBuffer<unsigned char>;

constexpr int kLongWait = 60000;  // an upper bound only; passing runs are quick

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
  int calls() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
  }
  IBackgroundOp* op() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_op;
  }
  P<CError> error() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
  }

private:
  std::mutex m_mutex;
  int m_calls = 0;
  IBackgroundOp* m_op = nullptr;
  P<CError> m_error;
  CSignal m_told;
};

// Not a multiple of the store's copy chunk, so the last chunk is partial.
P<Buffer> patternBytes() {
  long long const size = 3 * 1024 * 1024 + 12345;
  P<Buffer> bytes = newP<Buffer>(size);
  unsigned x = 12345;
  for (long long i = 0; i < size; ++i) {
    x = x * 1103515245u + 12345u;
    (*bytes)[i] = static_cast<unsigned char>(x >> 24);
  }
  return bytes;
}

std::string readFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class TypicalRequestTest : public ::testing::Test {
protected:
  void SetUp() override { m_hub->registerFileSystem(u"file", m_local.get()); }

  CURI uriOf(std::string const& name) const {
    return CLocalFileSystem::toURI(m_dir.path(name), false);
  }
  // Stores a short source at target and returns the finished op; the
  // listener was told by then.
  P<IBackgroundOp> store(CURI const& target, P<CRecordingListener> const& listener) {
    P<Buffer> bytes = newP<Buffer>(reinterpret_cast<unsigned char const*>("data"), 4);
    P<CBufferStream> source = newP<CBufferStream>(static_cast<Buffer const*>(bytes.get()));
    P<IBackgroundOp> op = m_hub->backgroundStore(target, 4, source.get(), true, listener.get());
    EXPECT_TRUE(op->waitFinished(kLongWait));
    EXPECT_TRUE(listener->waitTold());
    return op;
  }
  // The op's error must be a CIOError kOpenFailed for target with problem;
  // the listener got the same.
  static void expectOpenFailure(IBackgroundOp& op, CRecordingListener& listener, CURI const& target,
                                long long problem) {
    try {
      op.throwErrorIfFailed();
      ADD_FAILURE() << "the store did not fail";
    } catch (CError const& e) {
      EXPECT_EQ(typeid(CIOError), typeid(e)) << e.what();
      EXPECT_EQ(CIOError::kOpenFailed, e.getErrorCode()) << e.what();
      EXPECT_EQ(problem, problemOf(e)) << e.what();
      EXPECT_EQ(target.toString(true), e.getParams().lookup(u"uri"));
    }
    EXPECT_EQ(1, listener.calls());
    EXPECT_EQ(&op, listener.op());
    P<CError> told = listener.error();
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
  P<Buffer> bytes = patternBytes();
  P<CBufferStream> source = newP<CBufferStream>(static_cast<Buffer const*>(bytes.get()));
  P<CRecordingListener> listener = newP<CRecordingListener>();
  CURI const target = uriOf("stored.bin");

  P<IBackgroundOp> op = m_hub->backgroundStore(target, bytes->getSize(), source.get(), false, listener.get());
  ASSERT_TRUE(op->waitFinished(kLongWait));
  op->throwErrorIfFailed();
  ASSERT_TRUE(listener->waitTold());

  std::string const stored = readFile(m_dir.file("stored.bin"));
  ASSERT_EQ(static_cast<std::size_t>(bytes->getSize()), stored.size());
  EXPECT_TRUE(std::equal(stored.begin(), stored.end(), bytes->getData(),
                         [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }));
  EXPECT_EQ(bytes->getSize(), source->getPosition());
  EXPECT_EQ(op.get(), listener->op());
  EXPECT_EQ(nil, listener->error());

  // Dropping the file systems stops and joins the worker: nothing can tell
  // the listener again after this.
  m_hub = nil;
  m_local = nil;
  EXPECT_EQ(1, listener->calls());
  EXPECT_TRUE(op->hasFinished());
}

TEST_F(TypicalRequestTest, StoreIntoAMissingFolderFailsWithNotFound) {
  P<CRecordingListener> listener = newP<CRecordingListener>();
  CURI const target = uriOf("missing/stored.bin");
  P<IBackgroundOp> op = store(target, listener);
  expectOpenFailure(*op, *listener, target, CFileSystemError::kNotFound);
  EXPECT_FALSE(std::filesystem::exists(m_dir.file("missing")));
}

TEST_F(TypicalRequestTest, StoreOverAFolderFailsWithWrongKind) {
  std::filesystem::create_directory(m_dir.file("folder"));
  P<CRecordingListener> listener = newP<CRecordingListener>();
  CURI const target = uriOf("folder");
  P<IBackgroundOp> op = store(target, listener);
  expectOpenFailure(*op, *listener, target, CFileSystemError::kWrongKind);
  EXPECT_TRUE(std::filesystem::is_directory(m_dir.file("folder")));
}

TEST_F(TypicalRequestTest, StoreOverAReadOnlyFileFailsWithAccessDenied) {
  if (bypassesPermissions()) GTEST_SKIP() << "this user writes read-only files all the same";
  std::filesystem::path const path = m_dir.file("read-only.bin");
  std::ofstream(path, std::ios::binary) << "keep";
  std::filesystem::permissions(path, std::filesystem::perms::owner_write | std::filesystem::perms::group_write |
                                         std::filesystem::perms::others_write,
                               std::filesystem::perm_options::remove);
  P<CRecordingListener> listener = newP<CRecordingListener>();
  CURI const target = uriOf("read-only.bin");
  P<IBackgroundOp> op = store(target, listener);
  expectOpenFailure(*op, *listener, target, CFileSystemError::kAccessDenied);
  std::filesystem::permissions(path, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
  EXPECT_EQ("keep", readFile(path));
}

}  // namespace
}  // namespace qo
