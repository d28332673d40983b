// The crash watchdog with real processes: a crashing child with four threads
// dumped from outside, a hung child reported and left running, and a missing
// watchdog program falling back to the dump from inside.
#include "qo/ipc/CWatchdog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ipc/IPCTestSupport.h"
#include "log/CrashTestSupport.h"
#include "qo/ipc/CIPCServer.h"
#include "qo/log/CCrashHandler.h"
#include "qo/log/CCrashManager.h"
#include "qo/log/CXMLLog.h"
#include "qo/sys/CProcess.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"
#include "qo/thread/IRunnable.h"
#include "qo/thread/threadYield.h"

namespace qo {
namespace {

using crashtest::crashByNullPointer;
using crashtest::TempFolder;

std::string g_logPath;
P<CXMLLog> makeLog() { return newP<CXMLLog>(String::fromUTF8(g_logPath)); }

// A library thread that waits until the process ends.
std::atomic<int> g_waiting{0};
class CWaiter : public CBase, public IRunnable {
public:
  void run() override {
    ++g_waiting;
    (void)m_never.wait(-1);
    // Work after the wait keeps an optimised build from making the wait a
    // tail call, which would take this frame off the stack the dump shows.
    --g_waiting;
  }
  CSignal m_never;
};

#ifdef _WIN32
// Ends the process once the report is written: Wine's debugger would
// otherwise read the program's debug information for many seconds.
class CReportAndEnd : public CBase, public ICrashHandler {
public:
  explicit CReportAndEnd(P<ICrashHandler> inner) : m_inner(std::move(inner)) {}
  void handleCrash(CCrashInfo& info, CCrashTools& tools) override {
    m_inner->handleCrash(info, tools);
    TerminateProcess(GetCurrentProcess(), 3);
  }

private:
  P<ICrashHandler> m_inner;
};
#endif

// Runs in the death-test child: the watchdog (program, or a missing one)
// serves the crash handler; three more threads wait; the main thread
// crashes.
void crashWithWatchdog(TempFolder const& folder, std::string const& program) {
  g_logPath = folder.file("log.xml").u8string();
  CXMLLog::setGlobalCreateFunc(&makeLog);
  P<CCrashHandler> handler = newP<CCrashHandler>(folder.qoPath(), String(u"Crasher"), folder.qoPath("log.xml"), true);
  P<CWatchdog> watchdog =
      CWatchdog::startForCrashHandler(handler.get(), folder.qoPath().toString(), -1, String::fromUTF8(program));
  P<ICrashHandler> top = handler;
#ifdef _WIN32
  top = newP<CReportAndEnd>(top);
#endif
  CCrashManager::get()->setGlobalHandler(top.get());
  CCrashManager::get()->initHook();
  std::vector<P<CThread>> threads;
  for (int i = 0; i < 3; ++i) {
    threads.push_back(newP<CThread>(newP<CWaiter>().get()));
    threads.back()->start();
  }
  while (g_waiting.load() < 3) threadYield(false);
  crashByNullPointer();
  std::fprintf(stderr, "no crash\n");
  std::exit(0);
}

// The number of threads in a minidump's thread list, -1 when it has none.
int dumpThreadCount(std::string const& dump) {
  auto u32 = [&](std::size_t at) -> std::uint32_t {
    if (at + 4 > dump.size()) return 0;
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(dump[at + static_cast<std::size_t>(i)]);
    return v;
  };
  if (dump.compare(0, 4, "MDMP") != 0) return -1;
  std::uint32_t const streams = u32(8), directory = u32(12);
  for (std::uint32_t i = 0; i < streams; ++i) {
    std::size_t const entry = directory + i * 12u;
    if (u32(entry) == 3) return static_cast<int>(u32(u32(entry + 8)));
  }
  return -1;
}

std::string onlyFile(TempFolder const& folder, std::regex const& name) {
  for (std::string const& file : folder.names()) {
    if (std::regex_match(file, name)) return file;
  }
  return std::string();
}

class CWatchdogDeathTest : public ::testing::Test {
protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  TempFolder m_folder{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(CWatchdogDeathTest, DumpsACrashingProcessWithEveryThread) {
  EXPECT_DEATH(crashWithWatchdog(m_folder, QO_WATCHDOG_EXE), "");
  std::string const name = onlyFile(m_folder, std::regex("crash-[0-9]{10}-minidump\\.mdmp"));
  ASSERT_FALSE(name.empty());
  std::string const dump = crashtest::readFile(m_folder.file(name));
  // The main thread, three waiters and the crash handler's own threads.
  EXPECT_GE(dumpThreadCount(dump), 4);
  std::string const log = crashtest::readFile(m_folder.file("log.xml"));
  EXPECT_EQ(std::string::npos, log.find("Error initializing watchdog")) << log;
  EXPECT_NE(std::string::npos, log.find("<crash type=\"access violation\"")) << log;
#ifndef _WIN32
  if (std::system("lldb --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "lldb is not installed";
  std::string const output = m_folder.file("lldb.txt").u8string();
  std::string const command =
      "lldb --batch -c '" + m_folder.file(name).u8string() + "' -o 'thread list' -o 'bt all' >'" + output + "' 2>&1";
  EXPECT_EQ(0, std::system(command.c_str()));
  std::string const text = crashtest::readFile(output);
  std::regex const thread(R"(\n[ *] thread #[0-9]+: tid = [0-9]+, 0x[0-9a-f]+)");
  auto const threads = std::distance(std::sregex_iterator(text.begin(), text.end(), thread), std::sregex_iterator());
  EXPECT_GE(threads, 4) << text;
  // The crashing thread stops at the fault, with the test's frames below.
  EXPECT_TRUE(std::regex_search(text, std::regex(R"(\* thread #1: tid = [0-9]+, .*stop reason = signal SIGSEGV)")))
      << text;
  EXPECT_NE(std::string::npos, text.find("crashByNullPointer")) << text;
  EXPECT_NE(std::string::npos, text.find("CWaiter::run")) << text;
#endif
}

TEST_F(CWatchdogDeathTest, MissingProgramLogsAndFallsBackToTheDumpFromInside) {
  std::string const missing = m_folder.file("no-such-watchdog").u8string();
  EXPECT_DEATH(crashWithWatchdog(m_folder, missing), "");
  std::string const log = crashtest::readFile(m_folder.file("log.xml"));
  EXPECT_NE(std::string::npos, log.find("Error initializing watchdog for crash handler.")) << log;
  EXPECT_NE(std::string::npos, log.find("<crash type=\"access violation\"")) << log;
  std::string const name = onlyFile(m_folder, std::regex("crash-[0-9]{10}-minidump\\.mdmp"));
  ASSERT_FALSE(name.empty());
  std::string const dump = crashtest::readFile(m_folder.file(name));
  EXPECT_EQ("MDMP", dump.substr(0, 4));
#ifndef _WIN32
  // From inside, only the crashing thread's registers can be had.
  EXPECT_EQ(1, dumpThreadCount(dump));
#endif
}

TEST(CWatchdog, FindsItsProgramBesideTheLibraryAndEndsWhenStopped) {
  String const program = CWatchdog::getDefaultProgramPath();
  EXPECT_TRUE(program.EndsWith(u"qo-watchdog") || program.EndsWith(u"qo-watchdog.exe")) << program.toUTF8();
  TempFolder folder("default-program");
  P<CWatchdog> watchdog = newP<CWatchdog>(String(), String::fromUTF8(folder.path().u8string()), -1);
  EXPECT_GT(watchdog->getProcessId(), 0u);
  EXPECT_NE(watchdog->getProcessId(), CProcess::getCurrentID());
  watchdog->heartbeat();
  watchdog->stop();
  // Ended and reaped.
#ifdef _WIN32
  HANDLE const process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(watchdog->getProcessId()));
  EXPECT_TRUE(process == nullptr || WaitForSingleObject(process, 0) == WAIT_OBJECT_0);
  if (process != nullptr) CloseHandle(process);
#else
  EXPECT_NE(0, ::kill(static_cast<pid_t>(watchdog->getProcessId()), 0));
#endif
}

// --- a hung process ------------------------------------------------------------

char const kFolderVar[] = "QO_TEST_WATCHDOG_FOLDER";
char const kNameVar[] = "QO_TEST_WATCHDOG_NAME";

// Serves the parent (so it can tell the child still runs) and ends on
// "quit".
class CQuitHandler : public ipctest::CPlusOneHandler {
public:
  CSignal quit;
  void handleRequest(CIPCConnection& c, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    if (std::string(request.begin(), request.end()) == "quit") quit.set();
    CPlusOneHandler::handleRequest(c, request, answer);
  }
};

TEST(CWatchdog, ChildThatHangsForTheParentProcess) {
  std::string const folder = ipctest::envValue(kFolderVar);
  if (folder.empty()) GTEST_SKIP() << "runs only as a child process of the CWatchdog tests";
  P<CQuitHandler> handler = newP<CQuitHandler>();
  P<CIPCServer> server = newP<CIPCServer>(handler);
  server->listen(String::fromUTF8(ipctest::envValue(kNameVar)));
  P<CWatchdog> watchdog = newP<CWatchdog>(String::fromUTF8(QO_WATCHDOG_EXE), String::fromUTF8(folder), 200);
  watchdog->heartbeat();
  // No more heartbeats: the main thread "hangs" here until told to quit.
  EXPECT_TRUE(handler->quit.wait(-1));
  server->stop();
  watchdog->stop();
}

TEST(CWatchdog, HungProcessGetsAHangReportAndKeepsRunning) {
  TempFolder folder("hang");
  std::filesystem::create_directories(folder.path());
  std::string const name = ipctest::uniqueName("hang");
  ipctest::ChildProcess child("CWatchdog.ChildThatHangsForTheParentProcess",
                              {std::string(kFolderVar) + "=" + folder.path().u8string(),
                               std::string(kNameVar) + "=" + name});
  ASSERT_TRUE(child.started());
  P<CIPCConnection> c = CIPCConnection::connect(String::fromUTF8(name), 20000);
  // The report comes about 200 ms after the heartbeat; the log entry is its
  // last step. Writing the dump of another process takes Wine 15 to 40 s on
  // a loaded machine: the deadline only keeps a lost report from hanging
  // the test.
  std::regex const dumpName("hang-[0-9]{10}-minidump\\.mdmp");
  std::string log;
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(240);
  while (log.find("</centry>") == std::string::npos && log.find("</entry>") == std::string::npos &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    log = crashtest::readFile(folder.file("watchdog-log.xml"));
  }
  EXPECT_TRUE(std::regex_search(log, std::regex("sent no heartbeat for [0-9]+ ms; hang report: .*hang-[0-9]{10}-"
                                                "minidump\\.mdmp")))
      << log;
  std::string const dumpFile = onlyFile(folder, dumpName);
  ASSERT_FALSE(dumpFile.empty());
  // The main thread, the IPC server's threads, the watchdog client's.
  EXPECT_GE(dumpThreadCount(crashtest::readFile(folder.file(dumpFile))), 3);
  // Still running and answering.
  EXPECT_EQ(ipctest::plusOne({1, 2, 3}), c->call({1, 2, 3}));
  // The child stops its server as soon as it reads this, maybe before the
  // answer leaves: no answer is awaited.
  unsigned char const quit[] = {'q', 'u', 'i', 't'};
  c->writeFrame(quit, sizeof quit);
  EXPECT_EQ(0, child.wait());
}

}  // namespace
}  // namespace qo
