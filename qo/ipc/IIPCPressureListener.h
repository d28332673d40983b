// qo/ipc/IIPCPressureListener.h - told when a CIPCPressureSwitch switches.
//
//   class CLogPressure : public CBase, public IIPCPressureListener {
//     void onPressureChanged(bool underPressure, int inFlight) override { ... }
//   };
#ifndef QO_IPC_IIPCPRESSURELISTENER_H
#define QO_IPC_IIPCPRESSURELISTENER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// Receives the switches of a pressure switch. Implementations must be
/// thread-safe.
class QO_API IIPCPressureListener : public virtual IBase {
public:
  ~IIPCPressureListener() override;
  /// The switch went to "pressure" (true) or back to normal (false) with
  /// inFlight requests in flight. Called once per switch, one call at a
  /// time and in switch order, without the switch's state lock held. Must
  /// not throw nor call the switch. Thread-safe.
  virtual void onPressureChanged(bool underPressure, int inFlight) = 0;
};

}  // namespace qo

#endif  // QO_IPC_IIPCPRESSURELISTENER_H
