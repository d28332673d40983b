// qo/sys/CVisibleProcessMonitor.h - the processes the user can see: those
// that show a window, and whether one of them fills the screen.
//
// Windows: every visible top-level window (EnumWindows, IsWindowVisible,
// GetWindowThreadProcessId) counts for its process; a window that covers
// its whole monitor makes the process full screen. Linux has no
// desktop-neutral way to list windows: the processes with a controlling
// terminal count, and none is known to be full screen
// (canDetectFullScreen() is false).
//
// A monitor polls the list on its own thread ("qo.visibleProcesses") and
// tells its listener the first list and then every change. The list
// travels between processes (over IPC) in the library's record format:
//   uint8 version (1), int32 count, then per entry, ordered by id without
//   repeats: uint64 id, bool fullScreen, String name (at most
//   kMaxNameBytes bytes of UTF-8).
//
//   class CListener : public CBase, public CVisibleProcessMonitor::IListener {
//     void onVisibleProcessesChanged(std::vector<CVisibleProcessMonitor::CEntry> const& now) override;
//   };
//   P<CVisibleProcessMonitor> m = newP<CVisibleProcessMonitor>(listener.get(), 1000);
//   m->start();  ...  m->stop();
//
// Thread-safe.
#ifndef QO_SYS_CVISIBLEPROCESSMONITOR_H
#define QO_SYS_CVISIBLEPROCESSMONITOR_H

#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"

namespace qo {

class CDataInStream;
class CDataOutStream;
class CThread;

/// Watches the set of visible processes. Thread-safe.
class QO_API CVisibleProcessMonitor : public CBase {
public:
  /// One visible process.
  struct QO_API CEntry {
    unsigned long long id = 0;
    /// One of its windows covers a whole monitor.
    bool fullScreen = false;
    /// Windows: the title of its first visible window; Linux: its command
    /// name.
    String name;
    bool operator==(CEntry const& other) const;
    bool operator!=(CEntry const& other) const { return !(*this == other); }
  };

  /// Told about the list. Called on the monitor's thread, one call at a
  /// time; must return quickly and not stop the monitor. An exception is
  /// logged and ignored.
  class QO_API IListener : public virtual IBase {
  public:
    ~IListener() override;
    /// now: the whole list, ordered by id.
    virtual void onVisibleProcessesChanged(std::vector<CEntry> const& now) = 0;
  };

  /// The format version that write() writes and read() accepts.
  enum : unsigned char { kFormatVersion = 1 };
  /// The longest name in the record format, in UTF-8 bytes.
  enum : int { kMaxNameBytes = 32768 };

  /// A monitor that will poll every intervalMs (at least 1) and tell
  /// listener (kept while the monitor lives). Does not start polling.
  /// Throws CInvalidArgError (function "CVisibleProcessMonitor constructor")
  /// for a null listener.
  CVisibleProcessMonitor(IListener* listener, int intervalMs);
  /// Stops polling.
  ~CVisibleProcessMonitor() override;
  CVisibleProcessMonitor(CVisibleProcessMonitor const&) = delete;
  CVisibleProcessMonitor& operator=(CVisibleProcessMonitor const&) = delete;

  /// Starts the polling thread; the listener gets the first list soon
  /// after. Does nothing when running. Throws CSystemError when the thread
  /// cannot start. Thread-safe.
  void start();
  /// Stops and joins the polling thread; no call to the listener follows.
  /// Not from within the listener. Thread-safe.
  void stop();
  /// The list last told to the listener (empty before the first). Thread-safe.
  std::vector<CEntry> getCurrent() const;

  /// The visible processes now, ordered by id. Throws CSystemError
  /// (function "CVisibleProcessMonitor::snapshot", api "EnumWindows").
  /// Thread-safe.
  static std::vector<CEntry> snapshot();
  /// Whether this system tells full-screen programs (Windows). Thread-safe.
  static bool canDetectFullScreen();
  /// Whether an entry is full screen. Thread-safe.
  static bool anyFullScreen(std::vector<CEntry> const& entries);

  /// Writes entries in the record format. Throws CInvalidArgError
  /// (function "CVisibleProcessMonitor::write") when they are not ordered
  /// by id without repeats or a name is longer than kMaxNameBytes, and what
  /// the stream throws. Not thread-safe
  /// (the stream).
  static void write(CDataOutStream& out, std::vector<CEntry> const& entries);
  /// Reads a list written by write(). Throws CIOError kind kBadVersion for
  /// another version, kCorruptData for a negative count, a name count
  /// beyond kMaxNameBytes or entries out of order (property "uri" when the
  /// stream has one), CParseError for a name that is not UTF-8, and the
  /// stream's errors (kUnexpectedEOF for a short list). Not thread-safe (the stream).
  static std::vector<CEntry> read(CDataInStream& in);

private:
  class CPoller;
  friend class CPoller;
  void poll();

  P<IListener> m_listener;
  int const m_intervalMs;
  mutable CMutex m_mutex;  // m_current, m_poller
  std::vector<CEntry> m_current;
  bool m_told = false;
  P<CThread> m_poller;
};

}  // namespace qo

#endif  // QO_SYS_CVISIBLEPROCESSMONITOR_H
