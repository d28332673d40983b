#include "qo/sys/CVisibleProcessMonitor.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSystemError.h"
#include "qo/core/ErrorLog.h"
#include "qo/fs/CURI.h"
#include "qo/platform/Desktop.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"

#include <algorithm>
#include <string>

namespace qo {

namespace {

[[noreturn]] void throwReadError(CDataInStream& in, long long code) {
  CProps props;
  String const uri = in.getURI().toString(true);
  if (!uri.isEmpty()) props.add(CIOError::paramURI(), uri);
  throw CIOError(code, String(), props);
}

// A name as the record format's String, refusing a count beyond any real
// name before allocating for it.
String readName(CDataInStream& in) {
  std::int32_t const count = in.readInt32();
  if (count < 0 || count > CVisibleProcessMonitor::kMaxNameBytes) throwReadError(in, CIOError::kCorruptData);
  std::string bytes(static_cast<std::size_t>(count), '\0');
  if (count > 0) in.read(&bytes[0], count);
  std::size_t const nul = bytes.find('\0');
  if (nul != std::string::npos) bytes.resize(nul);
  return String::fromUTF8(bytes);
}

bool ordered(std::vector<CVisibleProcessMonitor::CEntry> const& entries) {
  for (std::size_t i = 1; i < entries.size(); ++i) {
    if (entries[i - 1].id >= entries[i].id) return false;
  }
  return true;
}

}  // namespace

// The polling thread; the monitor stops and joins it before it goes.
class CVisibleProcessMonitor::CPoller : public CThread {
public:
  CPoller(CVisibleProcessMonitor* owner, int intervalMs) : m_owner(owner), m_intervalMs(intervalMs) {
    setThreadName(u"qo.visibleProcesses");
  }
  void signalStop() override {
    CThread::signalStop();
    m_wake.set();
  }

protected:
  void runImpl() override {
    while (checkContinue()) {
      m_owner->poll();
      (void)m_wake.wait(m_intervalMs);
    }
  }

private:
  CVisibleProcessMonitor* const m_owner;
  int const m_intervalMs;
  CSignal m_wake;
};

bool CVisibleProcessMonitor::CEntry::operator==(CEntry const& other) const {
  return id == other.id && fullScreen == other.fullScreen && name == other.name;
}

CVisibleProcessMonitor::IListener::~IListener() = default;

CVisibleProcessMonitor::CVisibleProcessMonitor(IListener* listener, int intervalMs)
    : m_intervalMs(std::max(1, intervalMs)) {
  if (!listener) throw CInvalidArgError(u"CVisibleProcessMonitor constructor", u"the listener is null");
  m_listener = listener;  // shares the caller's object
}

CVisibleProcessMonitor::~CVisibleProcessMonitor() {
  try {
    stop();
  } catch (std::exception const& e) {
    logError(e, u"Exception in destructor of qo::CVisibleProcessMonitor. Ignoring.");
  }
}

void CVisibleProcessMonitor::start() {
  CMutexLock lock(m_mutex);
  if (m_poller) return;
  P<CThread> poller(new CPoller(this, m_intervalMs));
  poller->start();
  m_poller = poller;
}

void CVisibleProcessMonitor::stop() {
  P<CThread> poller;
  {
    CMutexLock lock(m_mutex);
    poller = m_poller;
    m_poller = nil;
  }
  if (poller) poller->stop(false);
}

std::vector<CVisibleProcessMonitor::CEntry> CVisibleProcessMonitor::getCurrent() const {
  CMutexLock lock(m_mutex);
  return m_current;
}

void CVisibleProcessMonitor::poll() {
  std::vector<CEntry> now;
  try {
    now = snapshot();
  } catch (std::exception const& e) {
    // Try again next time; the listener keeps the last good list.
    logError(e, u"CVisibleProcessMonitor: the visible processes could not be listed.");
    return;
  }
  {
    CMutexLock lock(m_mutex);
    if (m_told && now == m_current) return;
    m_current = now;
    m_told = true;
  }
  try {
    m_listener->onVisibleProcessesChanged(now);
  } catch (std::exception const& e) {
    logError(e, u"CVisibleProcessMonitor: the listener threw. Ignoring.");
  }
}

std::vector<CVisibleProcessMonitor::CEntry> CVisibleProcessMonitor::snapshot() {
  std::vector<platform::VisibleProcessEntry> entries;
  if (platform::SysError e = platform::desktopVisibleProcesses(entries)) {
    throw CSystemError(u"Error listing the visible processes.", u"CVisibleProcessMonitor::snapshot", u"EnumWindows",
                       e);
  }
  std::vector<CEntry> out;
  out.reserve(entries.size());
  for (auto& entry : entries) {
    CEntry e;
    e.id = entry.id;
    e.fullScreen = entry.fullScreen;
    e.name = String(std::move(entry.name));
    out.push_back(std::move(e));
  }
  return out;
}

bool CVisibleProcessMonitor::canDetectFullScreen() { return platform::desktopKnowsFullScreen(); }

bool CVisibleProcessMonitor::anyFullScreen(std::vector<CEntry> const& entries) {
  return std::any_of(entries.begin(), entries.end(), [](CEntry const& e) { return e.fullScreen; });
}

void CVisibleProcessMonitor::write(CDataOutStream& out, std::vector<CEntry> const& entries) {
  if (!ordered(entries))
    throw CInvalidArgError(u"CVisibleProcessMonitor::write", u"the entries are not ordered by id without repeats");
  for (CEntry const& e : entries) {
    if (e.name.toUTF8().size() > static_cast<std::size_t>(kMaxNameBytes))
      throw CInvalidArgError(u"CVisibleProcessMonitor::write", u"a name is longer than kMaxNameBytes");
  }
  out.writeUInt8(kFormatVersion);
  out.writeInt32(static_cast<std::int32_t>(entries.size()));
  for (CEntry const& e : entries) {
    out.writeUInt64(e.id);
    out.writeBool(e.fullScreen);
    out.writeString(e.name);
  }
}

std::vector<CVisibleProcessMonitor::CEntry> CVisibleProcessMonitor::read(CDataInStream& in) {
  if (in.readUInt8() != kFormatVersion) throwReadError(in, CIOError::kBadVersion);
  std::int32_t const count = in.readInt32();
  if (count < 0) throwReadError(in, CIOError::kCorruptData);
  std::vector<CEntry> out;
  // No reserve: a corrupt count must not allocate before the data is there.
  for (std::int32_t i = 0; i < count; ++i) {
    CEntry e;
    e.id = in.readUInt64();
    e.fullScreen = in.readBool();
    e.name = readName(in);
    if (!out.empty() && out.back().id >= e.id) throwReadError(in, CIOError::kCorruptData);
    out.push_back(std::move(e));
  }
  return out;
}

}  // namespace qo
