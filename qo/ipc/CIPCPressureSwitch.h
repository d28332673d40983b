// qo/ipc/CIPCPressureSwitch.h - a gate that bounds the requests a server has
// in flight.
//
// Each request enters before it is served and leaves afterwards. When the
// count in flight reaches the high-water mark the switch goes to "pressure":
// new requests wait until it reaches the low-water mark again (the switch
// goes back) or until their own time-out, after which the caller answers
// "busy". Listeners hear of each switch. CIPCServer uses one when given:
//   P<CIPCPressureSwitch> gate = newP<CIPCPressureSwitch>(32, 8);
//   server->setPressureSwitch(gate, 200);   // busy after 200 ms of pressure
// or by hand:
//   if (!gate->enter(200)) return answerBusy();
//   serve(); gate->leave();
//
// Thread-safe.
#ifndef QO_IPC_CIPCPRESSURESWITCH_H
#define QO_IPC_CIPCPRESSURESWITCH_H

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/ipc/IIPCPressureListener.h"

namespace qo {

/// Bounds requests in flight with a high/low-water hysteresis. Thread-safe.
class QO_API CIPCPressureSwitch : public CBase {
public:
  /// Throws CInvalidArgError ("CIPCPressureSwitch") unless
  /// 0 <= lowWater < highWater.
  CIPCPressureSwitch(int highWater, int lowWater);
  ~CIPCPressureSwitch() override;
  CIPCPressureSwitch(CIPCPressureSwitch const&) = delete;
  CIPCPressureSwitch& operator=(CIPCPressureSwitch const&) = delete;

  /// Lets one request in, waiting up to timeoutMs (-1: no limit, 0: only
  /// try) while the switch is under pressure. True when entered (leave()
  /// must follow), false for "busy". Thread-safe.
  [[nodiscard]] bool enter(int timeoutMs);
  /// Ends a request that entered. Thread-safe.
  void leave();
  /// Whether the switch is under pressure now. Thread-safe.
  [[nodiscard]] bool isUnderPressure() const;
  /// The requests in flight now. Thread-safe.
  [[nodiscard]] int getInFlight() const;
  /// Adds a listener (kept until removed). Thread-safe.
  void addListener(P<IIPCPressureListener> const& listener);
  /// Removes a listener; nothing when absent. Thread-safe.
  void removeListener(IIPCPressureListener* listener);

private:
  struct Switch {
    bool underPressure;
    int inFlight;
  };
  void tellListeners();

  int const m_highWater;
  int const m_lowWater;
  mutable std::mutex m_mutex;  // the state below
  std::condition_variable m_relieved;
  int m_inFlight = 0;
  bool m_underPressure = false;
  std::deque<Switch> m_pending;  // switches not told yet, in order
  std::vector<P<IIPCPressureListener>> m_listeners;
  std::mutex m_tellMutex;  // one teller at a time keeps the order
};

}  // namespace qo

#endif  // QO_IPC_CIPCPRESSURESWITCH_H
