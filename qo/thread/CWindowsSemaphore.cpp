#include "qo/thread/CWindowsSemaphore.h"

#include <string>

#include "qo/core/CSystemError.h"
#include "qo/platform/Semaphore.h"

namespace qo {

namespace {
[[noreturn]] void throwSemaphoreError(char16_t const* message, char16_t const* function, char16_t const* api,
                                      platform::SysError const& error, String const& name) {
  throw CSystemError(message, function, api, error,
                     CProps().addCond(!name.isEmpty(), u"name", name));
}
}  // namespace

CWindowsSemaphore::CWindowsSemaphore(String const& name, unsigned int initialValue, unsigned int maxValue)
    : m_name(name) {
  constructCreateOrOpen(initialValue, maxValue);
}

CWindowsSemaphore::CWindowsSemaphore(String const& name) : m_name(name) { constructOpen(); }

CWindowsSemaphore::~CWindowsSemaphore() { platform::semaphoreClose(m_native); }

void CWindowsSemaphore::constructCreateOrOpen(unsigned int initialValue, unsigned int maxValue) {
  std::string name = m_name.toUTF8();
  if (platform::SysError error =
          platform::semaphoreCreate(name.c_str(), initialValue, maxValue, m_native, m_created))
    throwSemaphoreError(u"Error creating semaphore.", u"CWindowsSemaphore::constructCreateOrOpen",
                        u"CreateSemaphore", error, m_name);
}

void CWindowsSemaphore::constructOpen() {
  std::string name = m_name.toUTF8();
  if (platform::SysError error = platform::semaphoreOpen(name.c_str(), m_native))
    throwSemaphoreError(u"Error opening semaphore.", u"CWindowsSemaphore::constructOpen", u"OpenSemaphore", error,
                        m_name);
}

bool CWindowsSemaphore::decValue(int timeoutMillis) {
  bool acquired = false;
  if (platform::SysError error = platform::semaphoreWait(m_native, timeoutMillis, acquired))
    throwSemaphoreError(u"Error waiting for semaphore.", u"CWindowsSemaphore::decValue", u"WaitForSingleObject",
                        error, m_name);
  return acquired;
}

void CWindowsSemaphore::incValue() {
  if (platform::SysError error = platform::semaphoreRelease(m_native))
    throwSemaphoreError(u"Error releasing semaphore.", u"CWindowsSemaphore::incValue", u"ReleaseSemaphore", error,
                        m_name);
}

void CWindowsSemaphore::removeName(String const& name) noexcept {
  try {
    platform::semaphoreUnlink(name.toUTF8().c_str());
  } catch (...) {
    // A name that cannot be encoded was never created either.
  }
}

}  // namespace qo
