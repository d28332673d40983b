#include "qo/ipc/CIPCPressureSwitch.h"

#include <algorithm>
#include <chrono>

#include "qo/core/CInvalidArgError.h"

namespace qo {

CIPCPressureSwitch::CIPCPressureSwitch(int highWater, int lowWater) : m_highWater(highWater), m_lowWater(lowWater) {
  if (lowWater < 0 || lowWater >= highWater) {
    throw CInvalidArgError(u"CIPCPressureSwitch", u"the marks need 0 <= lowWater < highWater",
                           CProps().addLong(u"highWater", highWater).addLong(u"lowWater", lowWater));
  }
}

CIPCPressureSwitch::~CIPCPressureSwitch() = default;

bool CIPCPressureSwitch::enter(int timeoutMs) {
  {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto const relieved = [this] { return !m_underPressure; };
    if (timeoutMs < 0) {
      m_relieved.wait(lock, relieved);
    } else if (!m_relieved.wait_for(lock, std::chrono::milliseconds(timeoutMs), relieved)) {
      return false;
    }
    ++m_inFlight;
    if (m_inFlight < m_highWater) return true;
    m_underPressure = true;
    m_pending.push_back(Switch{true, m_inFlight});
  }
  tellListeners();
  return true;
}

void CIPCPressureSwitch::leave() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_inFlight;
    if (!m_underPressure || m_inFlight > m_lowWater) return;
    m_underPressure = false;
    m_pending.push_back(Switch{false, m_inFlight});
  }
  m_relieved.notify_all();
  tellListeners();
}

void CIPCPressureSwitch::tellListeners() {
  std::lock_guard<std::mutex> teller(m_tellMutex);
  for (;;) {
    Switch next{};
    std::vector<P<IIPCPressureListener>> listeners;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_pending.empty()) return;
      next = m_pending.front();
      m_pending.pop_front();
      listeners = m_listeners;
    }
    for (P<IIPCPressureListener> const& l : listeners) l->onPressureChanged(next.underPressure, next.inFlight);
  }
}

bool CIPCPressureSwitch::isUnderPressure() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_underPressure;
}

int CIPCPressureSwitch::getInFlight() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_inFlight;
}

void CIPCPressureSwitch::addListener(P<IIPCPressureListener> const& listener) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_listeners.push_back(listener);
}

void CIPCPressureSwitch::removeListener(IIPCPressureListener* listener) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_listeners.erase(std::remove_if(m_listeners.begin(), m_listeners.end(),
                                   [listener](P<IIPCPressureListener> const& l) { return l.get() == listener; }),
                    m_listeners.end());
}

}  // namespace qo
