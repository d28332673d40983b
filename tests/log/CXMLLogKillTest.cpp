// The session log killed at every step of its write order and at random
// moments: after each kill the RAW pair (main file + suffix file, before
// anything reopens it) must be a well-formed document holding every entry
// whose logging call had returned.
//
// This executable runs itself again as the writer (the ChildProcess test,
// skipped in an ordinary run), which reports on its stdout:
//   "@@A <id>"  an entry whose logging call returned (acknowledged),
//   "@@P"       it stopped at the chosen step of a flush and waits to be killed,
//   "@@D"       the scenario finished before that step.
// Stepped scenarios stop at step 1, 2, ... of opening (with repair), long
// entries, a new session, close, the size-limit cut, and a cut that starts
// a new file, so every instant between two file changes is looked at.
// Random rounds run three threads logging entries from 1 byte to 20 KB
// (every fifth a complex entry, some with multi-byte characters) and kill
// the writer (SIGKILL / TerminateProcess) after a random number of
// acknowledged entries.
//
// Number of random kills: 12 by default; QO_LOG_KILLS=<n> asks for n (say
// 1000 in the slow tier). The seed is fixed, so a failure replays.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "XMLLogTestSupport.h"
#include "qo/core/CError.h"
#include "qo/log/CAppendableXMLWriter.h"
#include "qo/log/CQuickXMLChecker.h"
#include "qo/log/CXMLLog.h"
#include "qo/stream/IOutStream.h"
#include "qo/sys/CProcess.h"

using namespace qo;
using namespace qo::xmltest;

namespace {

char const kPlanVar[] = "QO_LOG_KILL_PLAN";  // "<scenario> <step> <seed> <path>"

// --- the writer's side ---------------------------------------------------------

std::mutex g_outMutex;
std::atomic<bool> g_armed{false};
std::atomic<int> g_steps{0};
int g_target = 0;

void report(std::string const& line) {
  std::lock_guard<std::mutex> lock(g_outMutex);
  std::fputs(("\n" + line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

void stopAtTarget(char const*) {
  if (g_armed.load() && ++g_steps == g_target) {
    report("@@P");
    std::promise<void>().get_future().wait();  // until the parent kills us
  }
}

// An entry's text: its id, then filler of about size bytes, with multi-byte
// characters now and then so that page boundaries meet them.
String entryText(std::string const& id, std::size_t size) {
  std::u16string text = u"[" + String::fromUTF8(id).str() + u"]";
  for (std::size_t i = 0; text.size() < size; ++i) text += i % 97 == 5 ? u'\u00e9' : i % 211 == 7 ? u'\u4e2d' : u'x';
  return String(text);
}

void logNumbered(CXMLLog& log, std::string const& id, std::size_t size, bool complex) {
  if (complex)
    log.logError(CError(entryText(id, size)), String::fromUTF8("[" + id + "]"), u"context");
  else
    log.logInfo(entryText(id, size));
}

void runScenario(std::string const& scenario, String const& path, unsigned seed) {
  long long const limit = scenario == "cut" || scenario == "restart" ? 10240 : -1;
  if (scenario == "open") g_armed = true;
  P<CXMLLog> log = newP<CXMLLog>(path, nullptr, false, limit);
  if (scenario == "random") {
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&log, t, seed] {
        std::mt19937 random(seed * 7 + static_cast<unsigned>(t));
        std::size_t const sizes[] = {1, 20, 124, 900, 4000, 4100, 9000, 20000};
        for (int i = 0;; ++i) {
          std::string const id = std::to_string(t) + "-" + std::to_string(i);
          logNumbered(*log, id, sizes[random() % 8], i % 5 == 4);
          report("@@A " + id);
        }
      });
    }
    for (std::thread& t : threads) t.join();
  }
  if (scenario == "cut") {
    // Up to just below the limit, then one entry that goes over it.
    for (int i = 0; std::filesystem::file_size(std::filesystem::u8path(path.toUTF8())) < 9500; ++i)
      logNumbered(*log, "c" + std::to_string(i), 600, i % 5 == 4);
  }
  if (scenario == "close") {
    logNumbered(*log, "before-close", 300, false);
    report("@@A before-close");
  }
  g_armed = true;
  if (scenario == "entry") {
    logNumbered(*log, "long", 20000, false);
    logNumbered(*log, "long-complex", 9000, true);
  } else if (scenario == "session") {
    log->beginNewSession();
  } else if (scenario == "close") {
    log->close();
  } else if (scenario == "cut") {
    logNumbered(*log, "over", 3000, false);
  } else if (scenario == "restart") {
    logNumbered(*log, "huge", 20000, false);  // the cut finds no entry to keep
  }
  g_armed = false;
  report("@@D");
}

// --- the parent's side ---------------------------------------------------------

// Collects the writer's reports as they arrive through its stdout pipe.
class CInbox : public CBase, public IOutStream {
public:
  void write(void const* data, int size, IWriteBarrier*) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_text.append(static_cast<char const*>(data), static_cast<std::size_t>(size));
    std::size_t end;
    while ((end = m_text.find('\n')) != std::string::npos) {
      std::string line = m_text.substr(0, end);
      m_text.erase(0, end + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();  // a Windows text stream
      if (line.compare(0, 4, "@@A ") == 0) m_acked.push_back(line.substr(4));
      if (line == "@@P") m_paused = true;
      if (line == "@@D") m_done = true;
    }
    m_changed.notify_all();
  }
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const&, IWriteBarrier*) override {}
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier*) override { return nil; }
  void flush() override {}
  void setLength(long long) override {}
  long long getLength() const override { return 0; }
  long long getPosition() const override { return 0; }
  CURI getURI() override { return CURI(); }
  void seek(long long) override {}
  P<IStreamLock> lockRange(long long, long long, LockType) override { return nil; }
  void close() override {}

  // Waits until the writer stopped, finished, or acknowledged `acks`
  // entries, or until it ended; false when it ended without a report (or
  // hung: a guard against a test that never ends, not a time limit).
  bool waitFor(CProcess& writer, std::size_t acks) {
    auto const hung = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!(m_paused || m_done || m_acked.size() >= acks)) {
      lock.unlock();
      if (writer.wait(0)) return false;
      if (std::chrono::steady_clock::now() > hung) {
        writer.terminate();
        return false;
      }
      lock.lock();
      m_changed.wait_for(lock, std::chrono::milliseconds(50));  // a poll of the process, not a delay
    }
    return true;
  }
  bool paused() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_paused;
  }
  bool done() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_done;
  }
  std::vector<std::string> acked() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_acked;
  }

private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_text;
  std::vector<std::string> m_acked;
  bool m_paused = false;
  bool m_done = false;
};

struct Outcome {
  bool paused = false;
  bool done = false;
  std::vector<std::string> acked;
};

// Runs the writer with plan until it stops (or has `acks` acknowledged
// entries, for random rounds), then kills it.
Outcome runWriter(std::string const& plan, std::size_t acks) {
  P<CInbox> inbox = newP<CInbox>();
  P<CProcess> writer = newP<CProcess>(CProcess::getCurrentExecutablePath(),
                                      std::vector<String>{u"--gtest_filter=CXMLLogKillTest.ChildProcess"});
  writer->setEnvironmentVariable(String::fromUTF8(kPlanVar), String::fromUTF8(plan));
  writer->setStdout(inbox);
  writer->start();
  bool const reported = inbox->waitFor(*writer, acks);
  Outcome outcome;
  outcome.done = inbox->done();
  if (reported && !outcome.done) writer->terminate();
  writer->wait(-1);
  outcome.paused = inbox->paused();
  outcome.done = inbox->done();
  outcome.acked = inbox->acked();
  return outcome;
}

void expectWellFormedPair(TempFolder const& dir, String const& path, std::vector<std::string> const& acked,
                          std::string const& what) {
  SCOPED_TRACE(what);
  if (!std::filesystem::exists(std::filesystem::u8path(path.toUTF8()))) {
    // Killed before the log's first file came into being: no log yet.
    EXPECT_TRUE(acked.empty());
    return;
  }
  String const doc = CAppendableXMLWriter::readFullData(path);
  std::string const text = doc.toUTF8();
  ASSERT_TRUE(CQuickXMLChecker(doc).doCheck()) << text.substr(text.size() - std::min<std::size_t>(text.size(), 400));
  if (haveXmllint()) {
    writeBytes(dir.file("lint.xml"), text);
    ASSERT_EQ(xmllintErrors(dir.file("lint.xml")), "");
  }
  for (std::string const& id : acked) EXPECT_NE(text.find("[" + id + "]"), std::string::npos) << "lost " << id;
}

int randomKills() {
  char const* text = std::getenv("QO_LOG_KILLS");
  return text != nullptr && std::atoi(text) > 0 ? std::atoi(text) : 12;
}

}  // namespace

// The writer's side. Skipped in an ordinary run.
TEST(CXMLLogKillTest, ChildProcess) {
  char const* plan = std::getenv(kPlanVar);
  if (plan == nullptr) GTEST_SKIP() << "runs only as the writer of the other CXMLLogKillTest tests";
  std::istringstream in(plan);
  std::string scenario, path;
  unsigned seed = 0;
  in >> scenario >> g_target >> seed;
  std::getline(in >> std::ws, path);
  detail::setXMLWriteStepHook(&stopAtTarget);
  runScenario(scenario, String::fromUTF8(path), seed);
}

TEST(CXMLLogKillTest, EveryStepOfTheWriteOrderLeavesAWellFormedPair) {
  TempFolder dir;
  char const* const scenarios[] = {"open", "entry", "session", "close", "cut", "restart"};
  for (char const* scenario : scenarios) {
    std::string const file = std::string(scenario) + ".xml";
    String const path = String::fromUTF8(dir.file(file).u8string());
    int step = 1;
    for (;; ++step) {
      std::string const what = std::string(scenario) + " step " + std::to_string(step);
      Outcome const o = runWriter(std::string(scenario) + " " + std::to_string(step) + " 1 " + path.toUTF8(), ~0u);
      ASSERT_TRUE(o.paused || o.done) << what << ": the writer ended without a report";
      expectWellFormedPair(dir, path, o.acked, what);
      if (o.done) break;
    }
    EXPECT_GT(step, 2) << scenario << " stopped at no step";
  }
}

TEST(CXMLLogKillTest, RandomKillsOfThreadsLoggingLongAndShortEntries) {
  TempFolder dir;
  std::mt19937 random(20261125);
  int const kills = randomKills();
  String path;
  std::vector<std::string> acked;
  for (int round = 0; round < kills; ++round) {
    // A new log every ten kills keeps the files, and the rounds, small.
    path = String::fromUTF8(dir.file("random" + std::to_string(round / 10) + ".xml").u8string());
    std::size_t const acks = random() % 30;
    Outcome const o = runWriter("random 0 " + std::to_string(round) + " " + path.toUTF8(), acks);
    ASSERT_FALSE(o.done);
    ASSERT_GE(o.acked.size(), acks) << "round " << round << ": the writer ended on its own";
    expectWellFormedPair(dir, path, o.acked, "round " + std::to_string(round));
    if (HasFatalFailure()) return;
    acked = o.acked;
  }
  // The next open closes the last killed session and keeps what it held.
  P<CXMLLog> log = newP<CXMLLog>(path);
  log->close();
  expectWellFormedPair(dir, path, acked, "reopened");
}
