// CVisibleProcessMonitor: the record format byte for byte, a reader that
// refuses bad data, and change events for a real process that becomes
// visible (Windows: this one with a window; Linux: a command that
// util-linux `script` runs on a terminal of its own).
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CTime.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/fs/CURI.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/sys/CProcess.h"
#include "qo/sys/CVisibleProcessMonitor.h"
#include "qo/thread/CSignal.h"
#include "stream/DataStreamTestSupport.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace qo {
namespace {

using Entry = CVisibleProcessMonitor::CEntry;
using test::Bytes;
using test::hexBytes;

Entry entry(unsigned long long id, bool fullScreen, String const& name) {
  Entry e;
  e.id = id;
  e.fullScreen = fullScreen;
  e.name = name;
  return e;
}

Bytes written(std::vector<Entry> const& entries) {
  P<CBufferStream> buffer = newP<CBufferStream>();
  CDataOutStream out(buffer.get());
  CVisibleProcessMonitor::write(out, entries);
  P<CBufferStream::Buffer> data = buffer->getBuffer();
  return Bytes(reinterpret_cast<char const*>(data->getData()), static_cast<std::size_t>(data->getSize()));
}

std::vector<Entry> readBack(Bytes const& bytes) {
  P<CBufferStream::Buffer> data =
      newP<CBufferStream::Buffer>(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
  P<CBufferStream> buffer = newP<CBufferStream>(static_cast<CBufferStream::Buffer const*>(data.get()));
  buffer->setURI(CURI(u"file:///visible.bin"));
  CDataInStream in(buffer.get());
  return CVisibleProcessMonitor::read(in);
}

TEST(CVisibleProcessMonitor, WritesTheRecordFormatExactly) {
  std::vector<Entry> const entries{entry(1, false, u"a"), entry(0x0102030405060708ull, true, u"\u00e9")};
  Bytes const expected = hexBytes(
      "01 02000000"
      "0100000000000000 00 01000000 61"
      "0807060504030201 01 02000000 C3A9");
  EXPECT_EQ(expected, written(entries));
  EXPECT_EQ(entries, readBack(expected));
  EXPECT_EQ(hexBytes("01 00000000"), written({}));
  EXPECT_TRUE(readBack(hexBytes("01 00000000")).empty());
}

TEST(CVisibleProcessMonitor, RefusesBadData) {
  struct Case {
    char const* hex;
    long long kind;
  };
  Case const cases[] = {
      {"02 00000000", CIOError::kBadVersion},
      {"01 FFFFFFFF", CIOError::kCorruptData},
      {"01 02000000 0200000000000000 00 00000000 0100000000000000 00 00000000", CIOError::kCorruptData},
      {"01 02000000 0200000000000000 00 00000000 0200000000000000 00 00000000", CIOError::kCorruptData},
      {"01 01000000 02000000000000", CIOError::kUnexpectedEOF},
      {"01 01000000 0200000000000000 00 05000000 6162", CIOError::kUnexpectedEOF},
      {"01 01000000 0200000000000000 00 01800000", CIOError::kCorruptData},  // name of 32769 bytes
      {"01 01000000 0200000000000000 00 FFFFFF7F", CIOError::kCorruptData},
      {"", CIOError::kUnexpectedEOF},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.hex);
    try {
      (void)readBack(hexBytes(c.hex));
      ADD_FAILURE() << "no error";
    } catch (CIOError const& e) {
      EXPECT_EQ(c.kind, e.getErrorCode());
      if (c.kind != CIOError::kUnexpectedEOF)
        EXPECT_EQ(String(u"file:///visible.bin"), e.getParams().lookup(CIOError::paramURI()));
    }
  }
  EXPECT_THROW(written({entry(2, false, u""), entry(2, false, u"")}), CInvalidArgError);
  EXPECT_THROW(written({entry(3, false, u""), entry(2, false, u"")}), CInvalidArgError);
  EXPECT_THROW(written({entry(1, false, String(CVisibleProcessMonitor::kMaxNameBytes + 1, u'x'))}), CInvalidArgError);
  std::vector<Entry> const longest{entry(1, false, String(CVisibleProcessMonitor::kMaxNameBytes, u'x'))};
  EXPECT_EQ(longest, readBack(written(longest)));
}

TEST(CVisibleProcessMonitor, SnapshotIsOrderedWithoutRepeats) {
  std::vector<Entry> const now = CVisibleProcessMonitor::snapshot();
  for (std::size_t i = 1; i < now.size(); ++i) EXPECT_LT(now[i - 1].id, now[i].id);
  EXPECT_EQ(now, readBack(written(now)));
  if (!CVisibleProcessMonitor::canDetectFullScreen()) EXPECT_FALSE(CVisibleProcessMonitor::anyFullScreen(now));
}

// Collects the lists told, so that the test can wait for one it expects.
class CCollector : public CBase, public CVisibleProcessMonitor::IListener {
public:
  void onVisibleProcessesChanged(std::vector<Entry> const& now) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lists.push_back(now);
    m_changed.notify_all();
  }
  // Waits (by default generously) until a list told satisfies test; true
  // when one did.
  bool waitFor(std::function<bool(std::vector<Entry> const&)> const& test,
               std::chrono::milliseconds timeout = std::chrono::seconds(120)) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] {
      for (; m_seen < m_lists.size(); ++m_seen) {
        if (test(m_lists[m_seen])) return true;
      }
      return false;
    });
  }
  std::vector<Entry> last() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lists.empty() ? std::vector<Entry>() : m_lists.back();
  }

private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::vector<Entry>> m_lists;
  std::size_t m_seen = 0;
};

// A child's stdin that stays open, with nothing in it, until released.
class CHeldOpenInStream : public CBase, public IInStream {
public:
  void release() { m_released.set(); }
  void read(void*, int size) override {
    if (size > 0) throw CIOError(CIOError::kUnexpectedEOF);
  }
  int readLax(void*, int) override {
    (void)m_released.wait(-1);
    return 0;
  }
  int readAvailable(void*, int) override { return 0; }
  bool waitReadable(int timeoutMs) const override { return m_released.wait(timeoutMs); }
  bool isEndOfStream() const override { return m_released.wait(-1); }
  int isEndOfStream_NonBlocking() const override { return m_released.isSet() ? 1 : 0; }
  long long getLength() const override { return -1; }
  long long getPosition() const override { return 0; }
  CURI getURI() override { return CURI(); }
  void seek(long long) override { throw CIOError(CIOError::kUnsupported); }
  P<IStreamLock> lockRange(long long, long long, LockType) override { throw CIOError(CIOError::kUnsupported); }
  void close() override {}

private:
  mutable CSignal m_released;
};

bool hasChildOf(std::vector<Entry> const& list, unsigned long long parent, unsigned long long& child) {
  std::vector<CProcess::CInfo> const running = CProcess::listRunning();
  for (Entry const& e : list) {
    for (CProcess::CInfo const& info : running) {
      if (info.id == e.id && info.parentId == parent) {
        child = e.id;
        return true;
      }
    }
  }
  return false;
}

bool lacks(std::vector<Entry> const& list, unsigned long long id) {
  for (Entry const& e : list) {
    if (e.id == id) return false;
  }
  return true;
}

#ifdef _WIN32
// Windows: this process counts while it shows a window; one covering the
// screen makes it full screen.
TEST(CVisibleProcessMonitor, TellsWhenAProcessAppearsAndGoes) {
  P<CCollector> collector = newP<CCollector>();
  P<CVisibleProcessMonitor> monitor = newP<CVisibleProcessMonitor>(collector.get(), 10);
  monitor->start();
  ASSERT_TRUE(collector->waitFor([](std::vector<Entry> const&) { return true; }));  // the first list

  unsigned long long const me = CProcess::getCurrentID();
  HWND window = CreateWindowExW(0, L"STATIC", L"qo visible-process test", WS_POPUP | WS_VISIBLE, 0, 0,
                                GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), nullptr, nullptr,
                                GetModuleHandleW(nullptr), nullptr);
  if (!window) {
    GTEST_SKIP() << "no desktop to show a window on (CreateWindowExW failed with " << GetLastError()
                 << "; Wine without a display)";
  }
  Entry const expected = entry(me, true, u"qo visible-process test");
  bool const appeared = collector->waitFor([&](std::vector<Entry> const& list) {
    for (Entry const& e : list) {
      if (e == expected) return true;
    }
    return false;
  });
  DestroyWindow(window);
  ASSERT_TRUE(appeared);
  EXPECT_TRUE(collector->waitFor([&](std::vector<Entry> const& list) { return lacks(list, me); }));
  monitor->stop();
  EXPECT_EQ(collector->last(), monitor->getCurrent());
}
#else
// Linux: a process counts while it has a controlling terminal.
TEST(CVisibleProcessMonitor, TellsWhenAProcessAppearsAndGoes) {
  P<CCollector> collector = newP<CCollector>();
  P<CVisibleProcessMonitor> monitor = newP<CVisibleProcessMonitor>(collector.get(), 10);
  monitor->start();
  ASSERT_TRUE(collector->waitFor([](std::vector<Entry> const&) { return true; }));  // the first list

  // `script` runs the shell's `read` on a new terminal: a process with a
  // controlling terminal, until its input ends.
  P<CProcess> script = newP<CProcess>(u"script", std::vector<String>{u"-qec", u"read line", u"/dev/null"});
  P<CHeldOpenInStream> input = newP<CHeldOpenInStream>();
  script->setStdin(input);
  P<CBufferStream> output = newP<CBufferStream>();
  script->setStdout(output);
  script->setStderr(output);
  try {
    script->start();
  } catch (CSystemError const& e) {
    GTEST_SKIP() << "util-linux script is not installed: " << e.getMessage().toUTF8();
  }
  unsigned long long shell = 0;
  bool appeared = false, ended = false;
  CTime const deadline = CTime::now() + CTimeSpan::fromMillis(120000);
  while (!appeared && !ended && CTime::now() < deadline) {
    appeared = collector->waitFor(
        [&](std::vector<Entry> const& list) { return hasChildOf(list, script->getID(), shell); },
        std::chrono::milliseconds(100));
    ended = !appeared && script->wait(0);
  }
  input->release();
  ASSERT_TRUE(script->wait(-1));
  if (!appeared && ended && script->getExitCode() != 0) {
    GTEST_SKIP() << "script could not give its command a terminal (no pseudo-terminals here?): "
                 << output->getDataAsString().toUTF8();
  }
  ASSERT_TRUE(appeared);
  EXPECT_TRUE(collector->waitFor([&](std::vector<Entry> const& list) { return lacks(list, shell); }));
  monitor->stop();
  EXPECT_EQ(collector->last(), monitor->getCurrent());
}
#endif

}  // namespace
}  // namespace qo
