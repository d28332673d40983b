// CIPCSemaphore: units shared between threads and processes, and the unit
// of a holder killed by SIGKILL coming back.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "IPCTestSupport.h"
#include "qo/core/CSystemError.h"
#include "qo/ipc/CIPCSemaphore.h"
#include "qo/ipc/CIPCServer.h"
#include "qo/thread/CSemaphoreLock.h"
#include "qo/thread/CSignal.h"

namespace qo {
namespace {

char const kSemVar[] = "QO_TEST_IPC_SEMAPHORE";
char const kNameVar[] = "QO_TEST_IPC_SEM_SERVER";

TEST(CIPCSemaphore, BoundsHoldersAcrossThreads) {
  for (int units : {1, 3}) {
    SCOPED_TRACE(units);
    CIPCSemaphore sem(String::fromUTF8(ipctest::uniqueName("sem")), units);
    std::atomic<int> inside{0}, most{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 20; ++i) {
          CSemaphoreLock unit(&sem);
          int const now = ++inside;
          for (int m = most.load(); now > m && !most.compare_exchange_weak(m, now);) {
          }
          --inside;
        }
      });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_LE(most.load(), units);
    EXPECT_GE(most.load(), 1);
    for (int i = 0; i < units; ++i) EXPECT_TRUE(sem.decValue(0));
    EXPECT_FALSE(sem.decValue(0));
    for (int i = 0; i < units; ++i) sem.incValue();
  }
}

TEST(CIPCSemaphore, ReturningAUnitNotHeldThrows) {
  CIPCSemaphore sem(String::fromUTF8(ipctest::uniqueName("sem")), 2);
  try {
    sem.incValue();
    FAIL() << "no unit is held";
  } catch (CSystemError const& e) {
    EXPECT_EQ(e.getParams().lookup(CSystemError::paramFunction()), u"CIPCSemaphore::incValue");
    bool const posix = CSystemError::getPlatformDomain() == String(u"POSIX");
    EXPECT_EQ(e.getParams().lookup(CSystemError::paramAPI()), String(posix ? u"flock" : u"ReleaseSemaphore"));
    EXPECT_EQ(e.getParams().lookup(u"name"), sem.getName());
  }
}

// The child takes the only unit, tells the parent over IPC, and waits to be
// killed.
TEST(CIPCSemaphore, ChildHolderForTheParentProcess) {
  std::string const semName = ipctest::envValue(kSemVar);
  if (semName.empty()) GTEST_SKIP() << "runs only as a child process of CIPCSemaphore.UnitOfAKilledHolderComesBack";
  CIPCSemaphore sem(String::fromUTF8(semName), 1);
  ASSERT_TRUE(sem.decValue(10000));
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(ipctest::envValue(kNameVar)), 10000);
  (void)c->call({1});
  unsigned char byte = 0;
  (void)c->readLax(&byte, 1);  // blocks until killed
}

class CTellHandler : public CBase, public IIPCRequestHandler {
public:
  CSignal told;
  void handleRequest(CIPCConnection&, std::vector<unsigned char> const&, std::vector<unsigned char>&) override {
    told.set();
  }
};

TEST(CIPCSemaphore, UnitOfAKilledHolderComesBack) {
#ifdef _WIN32
  GTEST_SKIP() << "a Windows semaphore keeps the unit of a dead holder";
#endif
  std::string const semName = ipctest::uniqueName("killsem");
  std::string const serverName = ipctest::uniqueName("killsrv");
  P<CTellHandler> handler = newP<CTellHandler>();
  P<CIPCServer> server = newP<CIPCServer>(handler);
  server->listen(String::fromUTF8(serverName));
  CIPCSemaphore sem(String::fromUTF8(semName), 1);
  ipctest::ChildProcess child("CIPCSemaphore.ChildHolderForTheParentProcess",
                              {std::string(kSemVar) + "=" + semName, std::string(kNameVar) + "=" + serverName});
  ASSERT_TRUE(child.started());
  ASSERT_TRUE(handler->told.wait(-1));
  EXPECT_FALSE(sem.decValue(0));
  child.kill();
  EXPECT_EQ(child.wait(), -1);
  EXPECT_TRUE(sem.decValue(-1));
  sem.incValue();
  server->stop();
}

}  // namespace
}  // namespace qo
