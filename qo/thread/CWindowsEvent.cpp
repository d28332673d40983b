#include "qo/thread/CWindowsEvent.h"

#include <string>

#include "qo/core/CSystemError.h"
#include "qo/platform/Event.h"

namespace qo {

namespace {
[[noreturn]] void throwEventError(char16_t const* message, String const& function, char16_t const* api,
                                  platform::SysError const& error) {
  throw CSystemError(message, function, api, error);
}
}  // namespace

CWindowsEvent::CWindowsEvent(bool manualReset, bool initialState)
    : CWindowsEvent(manualReset, initialState, u"CWindowsEvent") {}

CWindowsEvent::CWindowsEvent(bool manualReset, bool initialState, char16_t const* owner) : m_owner(owner) {
  if (platform::SysError error = platform::eventCreate(manualReset, initialState, m_native))
    throwEventError(u"Error creating event.", m_owner + u" constructor", u"CreateEvent", error);
}

CWindowsEvent::~CWindowsEvent() { platform::eventDestroy(m_native); }

void CWindowsEvent::set() {
  if (platform::SysError error = platform::eventSet(m_native))
    throwEventError(u"Error setting event.", m_owner + u"::set", u"SetEvent", error);
}

void CWindowsEvent::reset() {
  if (platform::SysError error = platform::eventReset(m_native))
    throwEventError(u"Error resetting event.", m_owner + u"::reset", u"ResetEvent", error);
}

bool CWindowsEvent::isSet() const { return wait(0); }

bool CWindowsEvent::wait(int timeoutMillis) const {
  bool signalled = false;
  if (platform::SysError error = platform::eventWait(m_native, timeoutMillis, signalled))
    throwEventError(u"Error waiting for event.", m_owner + u"::wait", u"WaitForSingleObject", error);
  return signalled;
}

void* CWindowsEvent::getHandle() const noexcept { return platform::eventNativeHandle(m_native); }

}  // namespace qo
