// CSystemSignalReceiver with real signals: on Linux the process raises
// SIGINT, SIGTERM and SIGHUP at itself; on Windows (Wine) the hidden
// window gets the system's messages sent to it (a console Ctrl+C is not
// sent: on Windows it would reach every process of the console, the test
// driver too).
// Child processes of this executable check that without a listener a
// signal still ends the process and that _deinit() restores the previous
// dispositions.
#include <gtest/gtest.h>

#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/stream/CBufferStream.h"
#include "qo/sys/CProcess.h"
#include "qo/sys/CSystemSignalReceiver.h"
#include "qo/sys/CWindowsThreadedGlobalMessageReceiver.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"

#ifdef _WIN32
#include <windows.h>
#include <dbt.h>
#include <wtsapi32.h>
#else
#include <signal.h>
#endif

namespace qo {
namespace {

using Signal = CSystemSignalReceiver::Signal;

// Records what it is told and on which thread; reached() waits for a count.
class CRecorder : public CBase, public CSystemSignalReceiver::IListener {
public:
  void onSystemSignal(Signal signal) override {
    CMutexLock lock(m_mutex);
    m_signals.push_back(signal);
    m_threads.push_back(CThread::getCurrentID());
    m_changed.set();
  }
  bool reached(std::size_t count) {
    for (;;) {
      {
        CMutexLock lock(m_mutex);
        if (m_signals.size() >= count) return true;
        m_changed.reset();
      }
      if (!m_changed.wait(10000)) return false;
    }
  }
  std::vector<Signal> signals() {
    CMutexLock lock(m_mutex);
    return m_signals;
  }
  std::vector<unsigned long long> threads() {
    CMutexLock lock(m_mutex);
    return m_threads;
  }

private:
  CMutex m_mutex;
  CSignal m_changed;
  std::vector<Signal> m_signals;
  std::vector<unsigned long long> m_threads;
};

class CThrower : public CBase, public CSystemSignalReceiver::IListener {
public:
  void onSystemSignal(Signal) override { throw CInvalidArgError(u"CThrower", u"listener failure"); }
};

// Adds the listeners for the scope of a test.
struct ScopedListeners {
  std::vector<CSystemSignalReceiver::IListener*> listeners;
  explicit ScopedListeners(std::vector<CSystemSignalReceiver::IListener*> l) : listeners(std::move(l)) {
    for (auto* x : listeners) CSystemSignalReceiver::get()->addListener(x);
  }
  ~ScopedListeners() {
    for (auto* x : listeners) CSystemSignalReceiver::get()->removeListener(x);
  }
};

struct Case {
  char const* name;
  Signal expected;
#ifdef _WIN32
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
#else
  int sig;
#endif
};

Case const kCases[] = {
#ifdef _WIN32
    {"suspend", CSystemSignalReceiver::Suspend, WM_POWERBROADCAST, PBT_APMSUSPEND, 0},
    {"resume", CSystemSignalReceiver::Resume, WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC, 0},
    {"power change", CSystemSignalReceiver::PowerChange, WM_POWERBROADCAST, PBT_APMPOWERSTATUSCHANGE, 0},
    {"lock", CSystemSignalReceiver::SessionLock, WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 1},
    {"unlock", CSystemSignalReceiver::SessionUnlock, WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, 1},
    {"device arrival", CSystemSignalReceiver::DeviceArrival, WM_DEVICECHANGE, DBT_DEVICEARRIVAL, 0},
    {"device removal", CSystemSignalReceiver::DeviceRemoval, WM_DEVICECHANGE, DBT_DEVICEREMOVECOMPLETE, 0},
    {"logoff", CSystemSignalReceiver::Logoff, WM_QUERYENDSESSION, 0, ENDSESSION_LOGOFF},
    // The end of the session already queried: told once.
    {"logoff ends", CSystemSignalReceiver::Logoff, WM_ENDSESSION, TRUE, ENDSESSION_LOGOFF},
    {"shutdown", CSystemSignalReceiver::Shutdown, WM_ENDSESSION, TRUE, 0},
#else
    {"interrupt", CSystemSignalReceiver::Interrupt, SIGINT},
    {"terminate", CSystemSignalReceiver::Terminate, SIGTERM},
    {"hang-up", CSystemSignalReceiver::HangUp, SIGHUP},
#endif
};

void sendEachSignal(CRecorder& first, CRecorder& second);

TEST(CSystemSignalReceiver, TellsEveryListenerOfEachSignalOnItsThread) {
  P<CSystemSignalReceiver> receiver = CSystemSignalReceiver::get();
  P<CRecorder> first = newP<CRecorder>(), second = newP<CRecorder>();
  P<CThrower> thrower = newP<CThrower>();
  {
    ScopedListeners scope({first.get(), thrower.get(), second.get(), first.get()});
    ASSERT_TRUE(receiver->isActive()) << "installing failed";
    EXPECT_EQ(receiver->getListenerCount(), 3);  // the second add of first counts once
    sendEachSignal(*first, *second);
  }
  // Without listeners the thread is gone again.
  EXPECT_FALSE(receiver->isActive());
  EXPECT_EQ(receiver->getListenerCount(), 0);
}

void sendEachSignal(CRecorder& first, CRecorder& second) {
#ifdef _WIN32
  if (!CWindowsThreadedGlobalMessageReceiver::get()->hasMessageWindow())
    GTEST_SKIP() << "no hidden window: this system cannot create windows (Wine without a display)";
  HWND window = FindWindowW(L"qo.globalMessages", nullptr);
  ASSERT_NE(window, nullptr);
#endif
  std::vector<Signal> expected;
  for (Case const& c : kCases) {
    SCOPED_TRACE(c.name);
#ifdef _WIN32
    // "logoff ends" repeats the queried end: nothing new.
    if (std::string(c.name) != "logoff ends") expected.push_back(c.expected);
    SendMessageW(window, c.message, c.wParam, c.lParam);
#else
    expected.push_back(c.expected);
    ASSERT_EQ(raise(c.sig), 0);
#endif
    ASSERT_TRUE(first.reached(expected.size()));
    ASSERT_TRUE(second.reached(expected.size()));
  }
  EXPECT_EQ(first.signals(), expected);
  EXPECT_EQ(second.signals(), expected);
  std::vector<unsigned long long> threads = first.threads();
  for (unsigned long long id : threads) {
    EXPECT_EQ(id, threads.front());
    EXPECT_NE(id, CThread::getCurrentID());
  }
}

// Each first listener starts the thread anew and each last one stops it; no
// stop request outlives its run.
TEST(CSystemSignalReceiver, ListenersComingAndGoingRestartTheThread) {
  P<CRecorder> recorder = newP<CRecorder>();
  for (std::size_t cycle = 1; cycle <= 3; ++cycle) {
    SCOPED_TRACE(cycle);
    {
      ScopedListeners scope({recorder.get()});
      EXPECT_TRUE(CSystemSignalReceiver::get()->isActive());
#ifndef _WIN32
      ASSERT_EQ(raise(SIGHUP), 0);
      ASSERT_TRUE(recorder->reached(cycle));
#endif
    }
    EXPECT_FALSE(CSystemSignalReceiver::get()->isActive());
  }
#ifndef _WIN32
  EXPECT_EQ(recorder->signals(), std::vector<Signal>(3, CSystemSignalReceiver::HangUp));
#endif
}


TEST(CSystemSignalReceiver, NamesAndBadArguments) {
  struct {
    Signal signal;
    char16_t const* name;
  } const names[] = {{CSystemSignalReceiver::Interrupt, u"interrupt"},
                     {CSystemSignalReceiver::HangUp, u"hangUp"},
                     {CSystemSignalReceiver::SessionUnlock, u"sessionUnlock"},
                     {CSystemSignalReceiver::DeviceRemoval, u"deviceRemoval"},
                     {static_cast<Signal>(99), u"99"}};
  for (auto const& n : names) EXPECT_EQ(CSystemSignalReceiver::getSignalName(n.signal), String(n.name));
  EXPECT_THROW(CSystemSignalReceiver::get()->addListener(nullptr), CInvalidArgError);
  int const before = CSystemSignalReceiver::get()->getListenerCount();
  P<CRecorder> unknown = newP<CRecorder>();
  CSystemSignalReceiver::get()->removeListener(unknown.get());
  EXPECT_EQ(CSystemSignalReceiver::get()->getListenerCount(), before);
}

#ifndef _WIN32
char const kChildFilter[] = "--gtest_filter=CSystemSignalReceiver.ChildForTheParentProcess";

// Without a listener a signal does what it did before the library came: the
// process ends by it. After _deinit() the old dispositions are back.
TEST(CSystemSignalReceiver, ChildForTheParentProcess) {
  std::vector<String> const args = CProcess::getCurrentArguments();
  if (args.size() < 3 || !args[2].StartsWith(u"qo-signal-child:"))
    GTEST_SKIP() << "runs only as the child process of the other CSystemSignalReceiver tests";
  if (args[2] == u"qo-signal-child:raise-without-listener") {
    raise(SIGTERM);
  } else if (args[2] == u"qo-signal-child:deinit") {
    CSystemSignalReceiver::get()->_deinit();
    if (CSystemSignalReceiver::get()->isActive()) return;  // exit code 0: failure seen by the parent
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction now{};
      sigaction(sig, nullptr, &now);
      if (now.sa_handler != SIG_DFL) return;
    }
    raise(SIGHUP);
  }
  FAIL() << "still alive";
}

TEST(CSystemSignalReceiver, WithoutListenerOrAfterDeinitTheSignalEndsTheProcess) {
  struct {
    char16_t const* mode;
    int signal;
  } const cases[] = {{u"qo-signal-child:raise-without-listener", SIGTERM}, {u"qo-signal-child:deinit", SIGHUP}};
  for (auto const& c : cases) {
    SCOPED_TRACE(String(c.mode).toUTF8());
    P<CProcess> child = newP<CProcess>(CProcess::getCurrentExecutablePath(),
                                       std::vector<String>{String::fromUTF8(kChildFilter), String(c.mode)});
    P<CBufferStream> output = newP<CBufferStream>();
    child->setStdout(output);
    child->setStderr(output);
    child->start();
    ASSERT_TRUE(child->wait(30000));
    EXPECT_EQ(child->getTerminatingSignal(), c.signal);
  }
}
#endif

}  // namespace
}  // namespace qo
