#include "qo/log/CCrashManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "log/CrashTestSupport.h"
#include "qo/log/CCrashHandler.h"
#include "qo/thread/CThread.h"
#include "qo/thread/IRunnable.h"
#include "qo/thread/threadYield.h"

#ifdef _WIN32
#  include <windows.h>
#else
#  include <csignal>
#  include <unistd.h>
#endif

namespace qo {
namespace {

using crashtest::crashByNullPointer;
using crashtest::TempFolder;

// --- ways to crash -------------------------------------------------------------

volatile int g_zero = 0;
volatile int g_seven = 7;
volatile int g_sink = 0;
volatile bool g_stopRecursion = false;

QO_CRASHER void crashByIntegerDivision() { g_sink = g_seven / g_zero; }
QO_CRASHER int recurse(int depth) {
  volatile char pad[1024];
  pad[0] = static_cast<char>(depth);
  if (g_stopRecursion) return 0;
  return recurse(depth + 1) + pad[0];
}

void crashByStackOverflow() { g_sink = recurse(0); }

struct PureBase {
  PureBase();
  virtual ~PureBase() = default;
  virtual void pure() = 0;
};
PureBase* volatile g_pPure = nullptr;
QO_CRASHER void callPure() { g_pPure->pure(); }
PureBase::PureBase() {
  // During construction the object is a PureBase: the call is pure.
  g_pPure = this;
  callPure();
}
struct PureDerived : PureBase {
  void pure() override {}
};

void crashByPureVirtualCall() { PureDerived derived; }
void crashByTerminate() { std::terminate(); }
[[maybe_unused]] void crashByAbort() { std::abort(); }
void crashByInvalidParameter() {
  CCrashManager::get()->handleCRTInvalidParam(L"p != nullptr", L"strlen", L"string.c", 77);
}

class CCrasher : public CBase, public IRunnable {
public:
  void run() override { crashByNullPointer(); }
};

// Ten library threads released at once onto the same fault.
std::atomic<int> g_ready{0};
std::atomic<bool> g_go{false};

class CCrowdCrasher : public CBase, public IRunnable {
public:
  void run() override {
    ++g_ready;
    while (!g_go.load()) threadYield(false);
    crashByNullPointer();
  }
};

void crashOnTenThreadsAtOnce() {
  std::vector<P<CThread>> threads;
  for (int i = 0; i < 10; ++i) {
    threads.push_back(newP<CThread>(newP<CCrowdCrasher>().get()));
    threads.back()->start();
  }
  while (g_ready.load() < 10) threadYield(false);
  g_go = true;
  for (P<CThread> const& thread : threads) thread->join(false);
}

void crashOnAnotherThread() {
  P<CThread> thread = newP<CThread>(newP<CCrasher>().get());
  thread->start();
  thread->join(false);
}

// --- the child and what it leaves --------------------------------------------

#ifdef _WIN32
bool underWine() { return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

// Once the hooks return, Wine starts its debugger, which reads this
// program's debug information for 10 to 50 seconds before the process ends;
// the child ends right after the report instead.
class CReportAndEnd : public CBase, public ICrashHandler {
public:
  explicit CReportAndEnd(P<ICrashHandler> inner) : m_inner(std::move(inner)) {}
  void handleCrash(CCrashInfo& info, CCrashTools& tools) override {
    ++m_active;
    m_inner->handleCrash(info, tools);
    // As the crash manager does before it lets the process end: reports of
    // crashes on other threads may finish first.
    if (--m_active == 0) TerminateProcess(GetCurrentProcess(), 3);
    for (int waited = 0; m_active.load() > 0 && waited < 30000; waited += 10) Sleep(10);
    TerminateProcess(GetCurrentProcess(), 3);
  }

private:
  P<ICrashHandler> m_inner;
  std::atomic<int> m_active{0};
};
#endif

// Runs in the death-test child: reports crashes into the folder, then
// crashes.
void crashInChild(TempFolder const& folder, void (*crash)(), bool minidump = false) {
  P<ICrashHandler> handler =
      newP<CCrashHandler>(folder.qoPath(), String(u"Crasher"), folder.qoPath("log.xml"), minidump);
#ifdef _WIN32
  handler = newP<CReportAndEnd>(handler);
#endif
  CCrashManager::get()->setGlobalHandler(handler.get());
  CCrashManager::get()->initHook();
#ifdef _WIN32
  // This test program links its own copy of the C++ runtime.
  CCrashManager::hookCallingModuleRuntime();
#endif
  crash();
  std::fprintf(stderr, "no crash\n");
  std::exit(0);
}

struct CrashFiles {
  std::string info;
  std::string dump;
  std::string dumpPath;
  std::string log;
};

// The one crash left in the folder: its files and the session log.
CrashFiles crashFiles(TempFolder const& folder, bool minidump = false) {
  CrashFiles files;
  std::vector<std::string> const names = folder.names();
  std::regex const info("crash-([0-9]{10})-info\\.xml");
  std::smatch match;
  std::string stamp;
  for (std::string const& name : names) {
    if (std::regex_match(name, match, info)) stamp = match[1];
  }
  EXPECT_FALSE(stamp.empty()) << "no crash file among " << names.size() << " files";
  if (stamp.empty()) return files;
  std::vector<std::string> expected{"crash-" + stamp + "-info.xml", "log-suffix.xml", "log.xml"};
  if (minidump) expected.insert(expected.begin() + 1, "crash-" + stamp + "-minidump.mdmp");
  EXPECT_EQ(expected, names);
  files.info = crashtest::readFile(folder.file("crash-" + stamp + "-info.xml"));
  files.log = crashtest::readFile(folder.file("log.xml")) + crashtest::readFile(folder.file("log-suffix.xml"));
  if (minidump) {
    files.dumpPath = folder.file("crash-" + stamp + "-minidump.mdmp").u8string();
    files.dump = crashtest::readFile(files.dumpPath);
    EXPECT_EQ("MDMP", files.dump.substr(0, 4));
  }
  return files;
}

std::string typeOf(std::string const& info) {
  std::smatch match;
  std::regex const type("<crash type=\"([^\"]*)\" timestamp=\"[0-9]+\">");
  return std::regex_search(info, match, type) ? std::string(match[1]) : std::string("(no crash element)");
}

class CCrashManagerDeathTest : public ::testing::Test {
protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  TempFolder m_folder{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(CCrashManagerDeathTest, NullDereferenceLeavesInfoMinidumpAndLogEntry) {
  EXPECT_DEATH(crashInChild(m_folder, &crashByNullPointer, true), "");
  CrashFiles const files = crashFiles(m_folder, true);
  EXPECT_EQ("access violation", typeOf(files.info));
  EXPECT_NE(std::string::npos, files.info.find("<memoryAddress>0x0000000000000000</memoryAddress>")) << files.info;
  EXPECT_NE(std::string::npos, files.info.find("qo_tests")) << files.info;
  // One format on every system: the signal appears as the access violation.
  EXPECT_NE(std::string::npos, files.info.find("<win32-code>0x00000000c0000005</win32-code>")) << files.info;
  EXPECT_TRUE(std::regex_search(files.log, std::regex("<centry level=\"ERROR\" time=\"[0-9]{4}-[0-9]{2}-[0-9]{2}T"
                                                      "[0-9]{2}:[0-9]{2}:[0-9]{2}\">\n      <summary>Crasher crashed."
                                                      "</summary>\n      <crash type=\"access violation\"")))
      << files.log;
  QO_EXPECT_WELL_FORMED(m_folder.path(), files.log);
}

TEST_F(CCrashManagerDeathTest, EachFaultKindIsNamed) {
  struct Case {
    char const* name;
    void (*crash)();
    char const* type;
  } const cases[] = {
      {"purecall", &crashByPureVirtualCall, "crt purecall"},
      {"terminate", &crashByTerminate, "crt terminate"},
      {"invalid-param", &crashByInvalidParameter, "crt invalid param"},
#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
      {"int-div", &crashByIntegerDivision, "integer divide by zero"},  // only x86 traps on it
#endif
#ifndef _WIN32
      {"abort", &crashByAbort, "crt terminate"},  // abort() on Windows passes no hook
#endif
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    TempFolder folder(std::string("kinds-") + c.name);
    EXPECT_DEATH(crashInChild(folder, c.crash), "");
    std::string const info = crashFiles(folder).info;
    EXPECT_EQ(c.type, typeOf(info));
    if (c.crash != &crashByInvalidParameter) continue;
    EXPECT_NE(std::string::npos, info.find("  <crt-expression>p != nullptr</crt-expression>\n"
                                           "  <crt-function>strlen</crt-function>\n"
                                           "  <crt-file>string.c</crt-file>\n"
                                           "  <crt-line>77</crt-line>\n"))
        << info;
  }
}

TEST_F(CCrashManagerDeathTest, CrashOnALibraryThread) {
  EXPECT_DEATH(crashInChild(m_folder, &crashOnAnotherThread, true), "");
  EXPECT_EQ("access violation", typeOf(crashFiles(m_folder, true).info));
}

TEST_F(CCrashManagerDeathTest, TenThreadsCrashingAtOnceLeaveACompleteReport) {
  // The child must end (a deadlock would hang the test until its time
  // limit) with at least one whole report; reports of the same second share
  // their names, so the files hold one of them.
  EXPECT_DEATH(crashInChild(m_folder, &crashOnTenThreadsAtOnce, true), "");
  std::vector<std::string> const names = m_folder.names();
  std::regex const info("crash-([0-9]{10})-info\\.xml");
  std::smatch match;
  int reports = 0;
  for (std::string const& name : names) {
    if (!std::regex_match(name, match, info)) continue;
    ++reports;
    std::string const text = crashtest::readFile(m_folder.file(name));
    EXPECT_EQ("access violation", typeOf(text)) << text;
    EXPECT_NE(std::string::npos, text.find("</crash>")) << text;
    QO_EXPECT_WELL_FORMED(m_folder.path(), text);
    std::string const dump = crashtest::readFile(m_folder.file("crash-" + std::string(match[1]) + "-minidump.mdmp"));
    EXPECT_EQ("MDMP", dump.substr(0, 4));
  }
  EXPECT_GE(reports, 1);
  std::string const log = crashtest::readFile(m_folder.file("log.xml")) + crashtest::readFile(m_folder.file("log-suffix.xml"));
  EXPECT_NE(std::string::npos, log.find("<crash type=\"access violation\"")) << log;
  QO_EXPECT_WELL_FORMED(m_folder.path(), log);
}

TEST_F(CCrashManagerDeathTest, StackOverflow) {
#ifdef _WIN32
  // Wine ends the process itself when it finds no room to raise the
  // exception on the exhausted stack; no filter runs.
  if (underWine()) GTEST_SKIP() << "Wine does not deliver a stack overflow to the unhandled-exception filter";
#endif
  EXPECT_DEATH(crashInChild(m_folder, &crashByStackOverflow, true), "");
  EXPECT_EQ("stack overflow", typeOf(crashFiles(m_folder, true).info));
}

#ifndef _WIN32
TEST_F(CCrashManagerDeathTest, LldbLoadsTheMinidump) {
  if (std::system("lldb --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "lldb is not installed";
  EXPECT_DEATH(crashInChild(m_folder, &crashByNullPointer, true), "");
  CrashFiles const files = crashFiles(m_folder, true);
  std::string const output = m_folder.file("lldb.txt").u8string();
  std::string const command = "lldb --batch -c '" + files.dumpPath + "' -o 'thread list' >'" + output + "' 2>&1";
  EXPECT_EQ(0, std::system(command.c_str()));
  std::string const text = crashtest::readFile(output);
  EXPECT_NE(std::string::npos, text.find("(x86_64) was loaded")) << text;
  std::regex const thread(R"(\* thread #1: tid = [0-9]+, 0x[0-9a-f]+ .*stop reason = signal SIGSEGV)");
  EXPECT_TRUE(std::regex_search(text, thread)) << text;
}
#endif

// --- without crashing -----------------------------------------------------------

class CCountingHandler : public CBase, public ICrashHandler {
public:
  void handleCrash(CCrashInfo&, CCrashTools&) override { ++m_calls; }
  int m_calls = 0;
};

TEST(CCrashManagerTest, ReportsAFaultToTheHandlerAndReturnsZero) {
  P<CCrashManager> manager = newP<CCrashManager>();
  P<CCountingHandler> handler = newP<CCountingHandler>();
  manager->setGlobalHandler(handler.get());
  EXPECT_EQ(0L, manager->handleCrash(platform::CrashContext()));
  EXPECT_EQ(0L, manager->handleCrash(platform::CrashContext()));
  EXPECT_EQ(2, handler->m_calls);
  manager->setGlobalHandler(nullptr);
  EXPECT_EQ(0L, manager->handleCrash(platform::CrashContext()));
  EXPECT_EQ(2, handler->m_calls);
}

TEST(CCrashManagerTest, GivesEachCrashItsOwnSlotUpToTen) {
  P<CCrashManager> manager = newP<CCrashManager>();
  int slot = 7;
  EXPECT_FALSE(manager->beginHandleCrash(slot));
  EXPECT_EQ(-1, slot);
  P<CCountingHandler> handler = newP<CCountingHandler>();
  manager->setGlobalHandler(handler.get());
  EXPECT_EQ(handler.get(), manager->getGlobalHandler().get());
  for (int expected = 0; expected < CCrashManager::kSlotCount; ++expected) {
    P<ICrashHandler> taken = manager->beginHandleCrash(slot);
    EXPECT_EQ(handler.get(), taken.get());
    EXPECT_EQ(expected, slot);
  }
  EXPECT_FALSE(manager->beginHandleCrash(slot));
  EXPECT_EQ(-1, slot);
  EXPECT_EQ(0L, manager->handleCrash(platform::CrashContext()));
  EXPECT_EQ(0, handler->m_calls);  // all slots taken: the report is dropped
}

#ifdef _WIN32
void* currentFilter() {
  LPTOP_LEVEL_EXCEPTION_FILTER const current = SetUnhandledExceptionFilter(nullptr);
  SetUnhandledExceptionFilter(current);
  return reinterpret_cast<void*>(current);
}
#else
void* currentFilter() {
  struct sigaction action {};
  sigaction(SIGSEGV, nullptr, &action);
  return (action.sa_flags & SA_SIGINFO) != 0 ? reinterpret_cast<void*>(action.sa_sigaction)
                                             : reinterpret_cast<void*>(action.sa_handler);
}
#endif

TEST(CCrashManagerTest, InitHookKeepsAndDeinitHookRestoresThePreviousHooks) {
  void* const filterBefore = currentFilter();
  P<CCrashManager> manager = newP<CCrashManager>();
  manager->initHook();
  manager->initHook();  // removes its own hooks first
  EXPECT_TRUE(manager->isHooked());
  EXPECT_NE(filterBefore, currentFilter());
#ifndef _WIN32
  // On Windows this program has its own copy of the C++ runtime.
  EXPECT_EQ(&CCrashManager::globalTerminateHook, std::get_terminate());
#endif
  manager->deinitHook();
  EXPECT_FALSE(manager->isHooked());
  EXPECT_EQ(filterBefore, currentFilter());
  EXPECT_NE(&CCrashManager::globalTerminateHook, std::get_terminate());
  manager->deinitHook();
  EXPECT_EQ(filterBefore, currentFilter());
}

}  // namespace
}  // namespace qo
