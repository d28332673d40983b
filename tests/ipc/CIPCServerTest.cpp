// CIPCServer with real clients: in this process, in child processes, and
// children killed in the middle of a frame.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "IPCTestSupport.h"
#include "qo/core/CIOError.h"
#include "qo/core/CSocketError.h"
#include "qo/ipc/CIPCServer.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"

namespace qo {
namespace {

using ipctest::ChildProcess;
using ipctest::CPlusOneHandler;
using ipctest::pattern;
using ipctest::plusOne;

char const kNameVar[] = "QO_TEST_IPC_NAME";

// The child server's handler: "quit" ends the child's run, "die" sends the
// head of an answer and a few of its bytes, then kills the process.
class CChildHandler : public CPlusOneHandler {
public:
  CSignal quit;
  void handleRequest(CIPCConnection& c, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    std::string const text(request.begin(), request.end());
    if (text == "die") {
      unsigned char const partial[] = {100, 0, 0, 0, 0, 1, 2, 3, 4, 5};
      c.write(partial, sizeof partial);
      ipctest::killSelf();
    }
    if (text == "quit") quit.set();
    CPlusOneHandler::handleRequest(c, request, answer);
  }
};

TEST(CIPCServer, ChildServerForTheParentProcess) {
  std::string const name = ipctest::envValue(kNameVar);
  if (name.empty()) GTEST_SKIP() << "runs only as a child process of the CIPCServer tests";
  P<CChildHandler> handler = newP<CChildHandler>();
  P<CIPCServer> server = newP<CIPCServer>(handler);
  server->listen(String::fromUTF8(name));
  EXPECT_TRUE(handler->quit.wait(-1));
  server->stop();
}

TEST(CIPCServer, ChildClientForTheParentProcess) {
  std::string const name = ipctest::envValue(kNameVar);
  if (name.empty()) GTEST_SKIP() << "runs only as a child process of the CIPCServer tests";
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 10000);
  unsigned char const partial[] = {0xe8, 3, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};  // 1000 bytes announced
  c->write(partial, sizeof partial);
  ipctest::killSelf();
}

std::vector<std::string> childEnv(std::string const& name) { return {std::string(kNameVar) + "=" + name}; }

TEST(CIPCServer, AnswersRequestsOfAnotherProcessUntilItIsKilledMidAnswer) {
  std::string const name = ipctest::uniqueName("srv");
  ChildProcess child("CIPCServer.ChildServerForTheParentProcess", childEnv(name));
  ASSERT_TRUE(child.started());
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 20000);
  EXPECT_GT(c->getPeerProcessId(), 0);
  for (int size : {0, 1, 4095, 4096, 4097, 1 << 20}) {
    SCOPED_TRACE(size);
    EXPECT_EQ(c->call(pattern(size)), plusOne(pattern(size)));
  }
  std::vector<unsigned char> const die{'d', 'i', 'e'};
  try {
    (void)c->call(die);
    FAIL() << "an answer cut short must throw";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getErrorCode(), CIOError::kUnexpectedEOF);
    EXPECT_EQ(e.getParams().lookup(CIOError::paramURI()), u"ipc:" + String::fromUTF8(name));
  }
  int const status = child.wait();
  EXPECT_TRUE(status == -1 || status == 9) << status;  // killed (POSIX signal / Windows exit code)
  // The dead server's endpoint is free again.
  P<CIPCServer> next = newP<CIPCServer>(newP<CPlusOneHandler>());
  next->listen(String::fromUTF8(name));
  EXPECT_EQ(CIPCConnection::connect(String::fromUTF8(name), 5000)->call(pattern(2)), plusOne(pattern(2)));
  next->stop();
}

TEST(CIPCServer, ServesWithClosedAndWidenedAccess) {
  for (bool widened : {false, true}) {
    SCOPED_TRACE(widened);
    std::string const name = ipctest::uniqueName("access");
    P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
    server->setAdmitAllUsers(widened);
    server->listen(String::fromUTF8(name));
    EXPECT_EQ(CIPCConnection::connect(String::fromUTF8(name), 5000)->call(pattern(4)), plusOne(pattern(4)));
    server->stop();
  }
}

TEST(CIPCServer, ANameServedAlreadyCannotBeTaken) {
  std::string const name = ipctest::uniqueName("taken");
  P<CIPCServer> first = newP<CIPCServer>(newP<CPlusOneHandler>());
  first->listen(String::fromUTF8(name));
  P<CIPCServer> second = newP<CIPCServer>(newP<CPlusOneHandler>());
  try {
    second->listen(String::fromUTF8(name));
    FAIL() << "the name is served";
  } catch (CSocketError const& e) {
    EXPECT_EQ(e.getMessage(), u"Error listening on IPC endpoint.");
    EXPECT_EQ(e.getParams().lookup(u"name"), String::fromUTF8(name));
    EXPECT_FALSE(e.getParams().lookup(u"api").isEmpty());
  }
  EXPECT_EQ(CIPCConnection::connect(String::fromUTF8(name), 5000)->call(pattern(9)), plusOne(pattern(9)));
  first->stop();
}

TEST(CIPCServer, ClientKilledMidFrameEndsOnlyItsConnection) {
  std::string const name = ipctest::uniqueName("kill");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> other = CIPCConnection::connect(String::fromUTF8(name), 5000);
  {
    ChildProcess child("CIPCServer.ChildClientForTheParentProcess", childEnv(name));
    ASSERT_TRUE(child.started());
    child.wait();
  }
  while (server->getFailedConnectionCount() == 0) CThread::yield(true);
  P<CError> error = server->getLastConnectionError();
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->isError(CIOError::getDomain(), CIOError::kUnexpectedEOF)) << error->getMessage().toUTF8();
  EXPECT_EQ(other->call(pattern(300)), plusOne(pattern(300)));
  server->stop();
}

// Raw bytes after a good hello: each case must end its connection with the
// given error while another client goes on being served.
TEST(CIPCServer, BadFramesCloseOnlyTheirConnection) {
  struct Case {
    char const* what;
    std::vector<unsigned char> bytes;
    long long kind;
  };
  Case const cases[] = {
      {"oversized", {0x01, 0x04, 0, 0}, CIOError::kCorruptData},              // 1025 > 1024
      {"negative", {0xfb, 0xff, 0xff, 0xff}, CIOError::kCorruptData},         // -5
      {"garbage", {'G', 'E', 'T', ' ', '/', ' ', 'H'}, CIOError::kCorruptData},
      {"truncated", {10, 0, 0, 0, 'a', 'b', 'c'}, CIOError::kUnexpectedEOF},  // then the client closes
  };
  std::string const name = ipctest::uniqueName("bad");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->setMaxFrameSize(1024);
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> good = CIPCConnection::connect(String::fromUTF8(name), 5000);
  int failed = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    P<CIPCConnection> bad = CIPCConnection::connect(String::fromUTF8(name), 5000);
    bad->write(c.bytes.data(), static_cast<int>(c.bytes.size()));
    bad.reset();  // closes: the truncated frame ends here
    ++failed;
    while (server->getFailedConnectionCount() < failed) CThread::yield(true);
    P<CError> error = server->getLastConnectionError();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->isError(CIOError::getDomain(), c.kind)) << error->getMessage().toUTF8();
    EXPECT_EQ(good->call(pattern(1024)), plusOne(pattern(1024)));
  }
  server->stop();
}

TEST(CIPCServer, RefusesVersionMismatchAndClientsOverTheLimit) {
  std::string const name = ipctest::uniqueName("ver");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->setProtocolVersion(2);
  server->setMaxConnections(1);
  server->listen(String::fromUTF8(name));
  for (int clientVersion : {1, 3}) {
    SCOPED_TRACE(clientVersion);
    try {
      (void)CIPCConnection::connect(String::fromUTF8(name), 5000, clientVersion);
      FAIL() << "another version must be refused";
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getErrorCode(), CIOError::kBadVersion);
      EXPECT_EQ(e.getParams().lookupLong(u"localVersion", 0), clientVersion);
      EXPECT_EQ(e.getParams().lookupLong(u"peerVersion", 0), 2);
    }
  }
  P<CIPCConnection> first = CIPCConnection::connect(String::fromUTF8(name), 5000, 2);
  EXPECT_EQ(first->call(pattern(3)), plusOne(pattern(3)));
  try {
    (void)CIPCConnection::connect(String::fromUTF8(name), 5000, 2);
    FAIL() << "a second connection is over the limit";
  } catch (CSocketError const& e) {
    EXPECT_EQ(e.getMessage(), u"The IPC server refused the connection.");
    EXPECT_EQ(e.getParams().lookup(u"reason"), u"too many connections");
  }
  server->stop();
}

class CFailingHandler : public CPlusOneHandler {
public:
  void handleRequest(CIPCConnection& c, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    if (request.size() == 1 && request[0] == 'c') throw CIOError(CIOError::kWriteFailed, u"Disk full.");
    if (request.size() == 1 && request[0] == 's') throw std::runtime_error("bad request");
    CPlusOneHandler::handleRequest(c, request, answer);
  }
};

TEST(CIPCServer, AFailingRequestIsAnsweredAndTheConnectionGoesOn) {
  std::string const name = ipctest::uniqueName("fail");
  P<CIPCServer> server = newP<CIPCServer>(newP<CFailingHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
  struct Case {
    unsigned char request;
    char16_t const* remote;
  };
  for (Case const& k : {Case{'c', u"Disk full."}, Case{'s', u"bad request"}}) {
    SCOPED_TRACE(k.request);
    try {
      (void)c->call({k.request});
      FAIL() << "the handler failed";
    } catch (CIOError const& e) {
      EXPECT_EQ(e.getErrorCode(), CIOError::kReadFailed);
      EXPECT_EQ(e.getMessage(), u"The IPC server failed the request.");
      EXPECT_EQ(e.getParams().lookup(u"remoteError"), String(k.remote));
    }
    EXPECT_EQ(c->call(pattern(8)), plusOne(pattern(8)));
  }
  EXPECT_EQ(server->getFailedConnectionCount(), 0);
  server->stop();
}

TEST(CIPCServer, StopEndsBlockedReadsOfItsConnections) {
  std::string const name = ipctest::uniqueName("stop");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
  EXPECT_EQ(c->call(pattern(5)), plusOne(pattern(5)));
  server->stop();  // its connection thread waits in a read: stop must end it
  EXPECT_EQ(server->getConnectionCount(), 0);
  unsigned char byte = 0;
  EXPECT_EQ(c->readLax(&byte, 1), 0);
}

TEST(CIPCServer, DataStreamsWorkOnTheConnectionDirectly) {
  std::string const name = ipctest::uniqueName("data");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
  CDataOutStream out(c.get());
  out.writeInt32(3).writeUInt8(10).writeUInt8(20).writeUInt8(255);  // one frame by hand
  CDataInStream in(c.get());
  EXPECT_EQ(in.readInt32(), 4);
  EXPECT_EQ(in.readUInt8(), CIPCConnection::AnswerOK);
  EXPECT_EQ(in.readUInt8(), 11);
  EXPECT_EQ(in.readUInt8(), 21);
  EXPECT_EQ(in.readUInt8(), 0);
  server->stop();
}

// Answers with what the server knows of the client: its process id and
// user id (int64 each) and whether it is admitted (bool).
class CPeerHandler : public CBase, public IIPCRequestHandler {
public:
  void handleRequest(CIPCConnection& c, std::vector<unsigned char> const&, std::vector<unsigned char>& answer) override {
    long long const values[2] = {c.getPeerProcessId(), c.getPeerUserId()};
    for (long long v : values) {
      for (int i = 0; i < 8; ++i) answer.push_back(static_cast<unsigned char>(static_cast<unsigned long long>(v) >> (8 * i)));
    }
    answer.push_back(c.isPeerUserAdmitted() ? 1 : 0);
  }
};

// This process's user id as the connections report it.
long long ownUserId() {
#ifdef _WIN32
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return -2;
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<unsigned char> buffer(size);
  long long id = -2;
  if (size > 0 && GetTokenInformation(token, TokenUser, buffer.data(), size, &size)) {
    PSID const sid = reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid;
    id = *GetSidSubAuthority(sid, *GetSidSubAuthorityCount(sid) - 1u);
  }
  CloseHandle(token);
  return id;
#else
  return static_cast<long long>(geteuid());
#endif
}

TEST(CIPCServer, KnowsTheLocalClientsProcessAndUserBothWays) {
  std::string const name = ipctest::uniqueName("peer");
  P<CIPCServer> server = newP<CIPCServer>(newP<CPeerHandler>());
  server->listen(String::fromUTF8(name));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 5000);
  std::vector<unsigned char> const answer = c->call({});
  ASSERT_EQ(answer.size(), 17u);
  auto const value = [&](int at) {
    unsigned long long v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | answer[static_cast<size_t>(at + i)];
    return static_cast<long long>(v);
  };
#ifdef _WIN32
  unsigned long long const self = GetCurrentProcessId();
#else
  unsigned long long const self = static_cast<unsigned long long>(getpid());
#endif
  EXPECT_EQ(static_cast<long long>(self), value(0));
  EXPECT_EQ(static_cast<long long>(self), c->getPeerProcessId());
  if (value(8) == -1) GTEST_SKIP() << "the OS did not give the client's token (OpenProcessToken)";
  EXPECT_EQ(ownUserId(), value(8));
  EXPECT_EQ(ownUserId(), c->getPeerUserId());
  EXPECT_EQ(1, answer[16]);
  server->stop();
}

TEST(CIPCServer, ServesOverTCPOnIPv4AndIPv6) {
  for (char const* host : {"127.0.0.1", "::1"}) {
    SCOPED_TRACE(host);
    P<CIPCServer> server = newP<CIPCServer>(newP<CPlusOneHandler>());
    int port = 0;
    try {
      port = server->listenTCP(String::fromUTF8(host), 0);
    } catch (CSocketError const& e) {
      if (std::strcmp(host, "::1") == 0) GTEST_SKIP() << "no IPv6 loopback here: " << e.getMessage().toUTF8();
      throw;
    }
    ASSERT_GT(port, 0);
    P<CIPCConnection> c = CIPCConnection::connectTCP(String::fromUTF8(host), port, 5000);
    EXPECT_EQ(c->call(pattern(70000)), plusOne(pattern(70000)));
    EXPECT_EQ(c->getPeerUserId(), -1);
    server->stop();
  }
}

}  // namespace
}  // namespace qo
