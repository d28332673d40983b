// CIPCConnection: frames byte for byte, connect failures, closing from
// another thread, and a client of another user kept out.
#include <gtest/gtest.h>

#include <thread>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "IPCTestSupport.h"
#include "qo/core/CIOError.h"
#include "qo/core/CSocketError.h"
#include "qo/core/TBuffer.h"
#include "qo/ipc/CIPCServer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDummyWriteBarrier.h"

namespace qo {
namespace {

using ipctest::CPlusOneHandler;
using Bytes = std::vector<unsigned char>;

TEST(CIPCConnection, FramesAreACountAndTheBytes) {
  for (int size : {0, 1, 4096, 4097}) {
    SCOPED_TRACE(size);
    P<CBufferStream> out = newP<CBufferStream>();
    Bytes const payload = ipctest::pattern(size);
    CIPCConnection::writeFrameTo(*out, payload.data(), size);
    P<TBuffer<unsigned char>> buffer = out->getBuffer();
    ASSERT_EQ(buffer->getSize(), 4 + size);
    Bytes const bytes(buffer->getData(), buffer->getData() + buffer->getSize());
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 4),
              (Bytes{static_cast<unsigned char>(size & 0xff), static_cast<unsigned char>(size >> 8), 0, 0}));
    EXPECT_EQ(Bytes(bytes.begin() + 4, bytes.end()), payload);
    P<CBufferStream> in = newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(buffer.get()));
    Bytes back;
    CIPCConnection::readFrameFrom(*in, size, back);
    EXPECT_EQ(back, payload);
  }
}

TEST(CIPCConnection, BadFramesGiveClearErrors) {
  struct Case {
    char const* what;
    Bytes bytes;
    long long kind;
    long long frameSize;  // property expected for kind 5
  };
  Case const cases[] = {
      {"count above the maximum", {9, 0, 0, 0}, CIOError::kCorruptData, 9},
      {"negative count", {0xff, 0xff, 0xff, 0xff}, CIOError::kCorruptData, -1},
      {"count cut short", {3, 0}, CIOError::kUnexpectedEOF, 0},
      {"payload cut short", {5, 0, 0, 0, 1, 2}, CIOError::kUnexpectedEOF, 0},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    P<TBuffer<unsigned char>> buffer = newP<TBuffer<unsigned char>>(c.bytes.data(), static_cast<int>(c.bytes.size()));
    P<CBufferStream> in = newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(buffer.get()));
    Bytes frame;
    try {
      CIPCConnection::readFrameFrom(*in, 8, frame);
      FAIL() << "must throw";
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getErrorCode(), c.kind);
      if (c.kind == CIOError::kCorruptData) {
        EXPECT_EQ(e.getMessage(), u"Invalid IPC frame size.");
        EXPECT_EQ(e.getParams().lookupLong(u"frameSize", 0), c.frameSize);
        EXPECT_EQ(e.getParams().lookupLong(u"maxFrameSize", 0), 8);
      }
    }
  }
}

TEST(CIPCConnection, ConnectToANameNobodyServesFailsAfterTheTimeout) {
  for (int timeoutMs : {0, 30}) {
    SCOPED_TRACE(timeoutMs);
    String const name = String::fromUTF8(ipctest::uniqueName("nobody"));
    try {
      (void)CIPCConnection::connect(name, timeoutMs);
      FAIL() << "nobody serves the name";
    } catch (CSocketError const& e) {
      EXPECT_EQ(e.getMessage(), u"Error connecting to IPC endpoint.");
      EXPECT_EQ(e.getParams().lookup(u"name"), name);
      EXPECT_EQ(e.getParams().lookupLong(u"timeoutMs", -5), timeoutMs);
      EXPECT_FALSE(e.getParams().lookup(u"api").isEmpty());
      EXPECT_NE(e.getParams().lookupLong(u"code", 0), 0);
    }
  }
}

TEST(CIPCConnection, ConnectToAPortNobodyServesFailsAfterTheTimeout) {
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  int const port = server->listenTCP(u"127.0.0.1", 0);
  server->stop();  // the port is free now: connects are refused
  try {
    (void)CIPCConnection::connectTCP(u"127.0.0.1", port, 20);
    FAIL() << "nobody serves the port";
  } catch (CSocketError const& e) {
    EXPECT_EQ(e.getMessage(), u"Error connecting to IPC endpoint.");
    EXPECT_EQ(e.getParams().lookupLong(u"port", 0), port);
    EXPECT_EQ(e.getParams().lookup(u"api"), u"connect");
  }
}

TEST(CIPCConnection, NamesThatCouldLeaveTheFolderAreRefused) {
  for (char16_t const* name : {u"", u"..", u"a/b", u"a\\b", u"caf\u00e9", u"a b"}) {
    SCOPED_TRACE(String(name).toUTF8());
    EXPECT_THROW((void)CIPCConnection::connect(name, 0), CSocketError);
    P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
    EXPECT_THROW(server->listen(name), CSocketError);
  }
}

TEST(CIPCConnection, CloseFromAnotherThreadEndsABlockedRead) {
  std::string const name = ipctest::uniqueName("close");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
  EXPECT_TRUE(dynamic_cast<CDummyWriteBarrier*>(c->createWriteBarrier(nullptr).get()));
  EXPECT_EQ(c->isEndOfStream_NonBlocking(), -1);
  EXPECT_FALSE(c->waitReadable(0));
  std::thread closer([&c] { c->close(); });
  unsigned char byte = 0;
  try {
    c->read(&byte, 1);  // the server sends nothing unasked
    FAIL() << "close must end the read";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kStreamClosed);
  }
  closer.join();
  server->stop();
}

TEST(CIPCConnection, ReadTimeoutGivesAReadError) {
  std::string const name = ipctest::uniqueName("timeout");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
  c->setReadTimeout(0);
  unsigned char byte = 0;
  try {
    c->read(&byte, 1);
    FAIL() << "nothing arrives";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kReadFailed);
    EXPECT_EQ(e.getMessage(), u"Timed out waiting for data.");
    EXPECT_EQ(e.getParams().lookupLong(u"timeoutMs", -5), 0);
  }
  EXPECT_EQ(c->readAvailable(&byte, 1), 0);
  server->stop();
}

#ifndef _WIN32
char const kPathVar[] = "QO_TEST_IPC_SOCKET_PATH";
constexpr int kConnected = 40;
constexpr int kRefused = 41;      // by the system (access to folder or socket)
constexpr int kNotAdmitted = 43;  // by the server, which names the reason

TEST(CIPCConnection, ChildOfAnotherUserForTheParentProcess) {
  std::string const path = ipctest::envValue(kPathVar);
  if (path.empty()) GTEST_SKIP() << "runs only as a child process of CIPCConnection.AnotherUserIsNotAdmitted";
  try {
    P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(path), 0);
    std::_Exit(c->call({1}) == Bytes{2} ? kConnected : kRefused + 1);
  } catch (CSocketError const& e) {
    bool const byServer = e.getMessage() == u"The IPC server refused the connection.";
    if (!byServer) std::_Exit(kRefused);
    std::_Exit(e.getParams().lookup(u"reason") == u"user not admitted" ? kNotAdmitted : kRefused + 1);
  }
}

// The client runs as uid 65534 against a server of root: refused by the
// user's closed endpoint folder, admitted by a widened server whose socket
// lies in a folder everybody may enter.
TEST(CIPCConnection, AnotherUserIsAdmittedOnlyWhenTheServerWidensAccess) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run the client as another user (uid 65534)";
  std::string const name = ipctest::uniqueName("user");
  std::string const openFolder = "/tmp/" + name + "-open";
  ASSERT_EQ(mkdir(openFolder.c_str(), 0755), 0);
  struct Case {
    char const* what;
    std::string listenName;
    std::string path;
    bool widened;
    int verdict;
    bool socketOpenedByHand = false;  // so only the server's user check refuses
  };
  Case const cases[] = {
      {"own folder", name, "/tmp/qo-ipc-0/" + name, false, kRefused},
      {"open folder, socket not widened", openFolder + "/s1", openFolder + "/s1", false, kRefused},
      {"open folder, widened", openFolder + "/s2", openFolder + "/s2", true, kConnected},
      {"open folder and socket, server not widened", openFolder + "/s3", openFolder + "/s3", false, kNotAdmitted, true},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
    server->setAdmitAllUsers(c.widened);
    server->listen(String::fromUTF8(c.listenName));
    if (c.socketOpenedByHand) ASSERT_EQ(chmod(c.path.c_str(), 0666), 0);
    ipctest::ChildProcess child("CIPCConnection.ChildOfAnotherUserForTheParentProcess",
                                {std::string(kPathVar) + "=" + c.path}, 65534);
    ASSERT_TRUE(child.started());
    EXPECT_EQ(child.wait(), c.verdict);
    if (c.socketOpenedByHand) EXPECT_EQ(server->getFailedConnectionCount(), 0);  // a refusal, not a failure
    P<CIPCConnection> self = CIPCConnection::connect(String::fromUTF8(c.path), 5000);
    EXPECT_EQ(self->getPeerUserId(), 0);
    EXPECT_EQ(self->call({1}), Bytes{2});
    server->stop();
  }
  rmdir(openFolder.c_str());
}
#endif

}  // namespace
}  // namespace qo
