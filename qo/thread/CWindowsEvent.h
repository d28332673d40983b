// qo/thread/CWindowsEvent.h - an OS event of a chosen kind.
//
// Manual reset: stays set until reset() and releases every waiter. Auto
// reset: releases one waiter and resets itself; a successful wait(), also
// isSet(), consumes the state.
//   CWindowsEvent ready(false, false);   // auto reset, unset
//   ready.set();  ...  ready.wait(-1);
// CSignal is the manual-reset event the library uses for "something
// happened".
#ifndef QO_THREAD_CWINDOWSEVENT_H
#define QO_THREAD_CWINDOWSEVENT_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

namespace platform {
struct NativeEvent;
}

/// An OS event. Thread-safe; not copyable.
class QO_API CWindowsEvent : public CBase {
public:
  /// Throws CSystemError (function "CWindowsEvent constructor", api
  /// "CreateEvent").
  CWindowsEvent(bool manualReset, bool initialState);
  ~CWindowsEvent() override;  ///< No thread may be waiting.
  CWindowsEvent(CWindowsEvent const&) = delete;
  CWindowsEvent& operator=(CWindowsEvent const&) = delete;

  /// Sets the event. Throws CSystemError ("CWindowsEvent::set", "SetEvent").
  void set();
  /// Clears the event. Throws CSystemError ("CWindowsEvent::reset",
  /// "ResetEvent").
  void reset();
  /// wait(0).
  [[nodiscard]] bool isSet() const;
  /// True once the event is set, false when timeoutMillis (-1: no limit)
  /// passed first. Throws CSystemError ("CWindowsEvent::wait",
  /// "WaitForSingleObject").
  [[nodiscard]] bool wait(int timeoutMillis) const;
  /// The OS object: a HANDLE on Windows, the event's own state elsewhere.
  [[nodiscard]] void* getHandle() const noexcept;

private:
  friend class CSignal;
  // owner names the class in error texts ("CSignal constructor",
  // "CSignal::set").
  CWindowsEvent(bool manualReset, bool initialState, char16_t const* owner);

  platform::NativeEvent* m_native = nullptr;
  String m_owner;
};

}  // namespace qo

#endif  // QO_THREAD_CWINDOWSEVENT_H
