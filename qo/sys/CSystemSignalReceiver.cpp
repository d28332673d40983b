#include "qo/sys/CSystemSignalReceiver.h"

#include <algorithm>
#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/ErrorLog.h"
#include "qo/sys/CWindowsThreadedGlobalMessageReceiver.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

CSystemSignalReceiver::IListener::~IListener() = default;

// The one listener of the message thread; forwards to the receiver. The
// receiver detaches it before it dies.
class CSystemSignalReceiver::CFanOut : public CBase, public CSystemSignalReceiver::IListener {
public:
  explicit CFanOut(CSystemSignalReceiver* owner) : m_owner(owner) {}
  void onSystemSignal(Signal signal) override { m_owner->dispatch(signal); }

private:
  CSystemSignalReceiver* const m_owner;
};

CSystemSignalReceiver::CSystemSignalReceiver()
    : m_fanOut(newP<CFanOut>(this)), m_messages(CWindowsThreadedGlobalMessageReceiver::get()) {
  m_messages->setListener(m_fanOut.get());
}

CSystemSignalReceiver::~CSystemSignalReceiver() { _deinit(); }

P<CSystemSignalReceiver> const& CSystemSignalReceiver::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CSystemSignalReceiver>::get(g_pInstanceSlot);
}

void CSystemSignalReceiver::addListener(IListener* listener) {
  if (!listener) throw CInvalidArgError(u"CSystemSignalReceiver::addListener", u"the listener is null");
  CMutexLock lock(m_mutex);
  if (std::find(m_listeners.begin(), m_listeners.end(), listener) == m_listeners.end()) {
    P<IListener> shared;
    shared = listener;
    m_listeners.push_back(shared);
  }
  m_messages->setTakeOver(true);
}

void CSystemSignalReceiver::removeListener(IListener* listener) {
  CMutexLock lock(m_mutex);
  auto it = std::find(m_listeners.begin(), m_listeners.end(), listener);
  if (it == m_listeners.end()) return;
  P<IListener> keep = *it;  // released after the lock, outside the list
  m_listeners.erase(it);
  if (m_listeners.empty()) m_messages->setTakeOver(false);
}

int CSystemSignalReceiver::getListenerCount() const {
  CMutexLock lock(m_mutex);
  return static_cast<int>(m_listeners.size());
}

bool CSystemSignalReceiver::isActive() const { return m_messages->isActive(); }

void CSystemSignalReceiver::_deinit() noexcept {
  // No lock of ours is held here: a listener running now may call in.
  m_messages->setTakeOver(false);
  m_messages->setListener(nullptr);
  std::vector<P<IListener>> dropped;
  {
    CMutexLock lock(m_mutex);
    dropped.swap(m_listeners);
  }
  m_messages->_deinit();
}

String CSystemSignalReceiver::getSignalName(Signal signal) {
  static char16_t const* const kNames[] = {u"interrupt",     u"terminate", u"hangUp", u"logoff",
                                           u"shutdown",      u"sessionLock", u"sessionUnlock", u"suspend",
                                           u"resume",        u"powerChange", u"deviceArrival", u"deviceRemoval"};
  int const i = static_cast<int>(signal);
  if (i >= 0 && i < static_cast<int>(sizeof kNames / sizeof kNames[0])) return String(kNames[i]);
  return String::fromUTF8(std::to_string(i));
}

void CSystemSignalReceiver::dispatch(Signal signal) {
  CMutexLock lock(m_mutex);
  // A copy: listeners may add or remove listeners.
  std::vector<P<IListener>> listeners = m_listeners;
  for (P<IListener> const& listener : listeners) {
    try {
      listener->onSystemSignal(signal);
    } catch (std::exception const& e) {
      logError(e, u"A system signal listener threw an exception.");
    }
  }
}

}  // namespace qo
