#include "qo/ipc/CIPCSemaphore.h"

#include "qo/core/CSystemError.h"
#include "qo/platform/IPCSemaphore.h"

namespace qo {

CIPCSemaphore::CIPCSemaphore(String const& name, int count) : m_name(name) {
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcSemaphoreOpen(name.toUTF8(), count, m_native, api)) {
    throw CSystemError(u"Error opening IPC semaphore.", u"CIPCSemaphore", String::fromUTF8(api ? api : ""), e.code,
                       String::fromUTF8(e.text), CProps().add(u"name", name).addLong(u"count", count));
  }
}

CIPCSemaphore::~CIPCSemaphore() { platform::ipcSemaphoreClose(m_native); }

bool CIPCSemaphore::decValue(int timeoutMillis) {
  bool taken = false;
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcSemaphoreTake(m_native, timeoutMillis, taken, api)) {
    throw CSystemError(u"Error waiting for IPC semaphore.", u"CIPCSemaphore::decValue",
                       String::fromUTF8(api ? api : ""), e.code, String::fromUTF8(e.text),
                       CProps().add(u"name", m_name));
  }
  return taken;
}

void CIPCSemaphore::incValue() {
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcSemaphoreGive(m_native, api)) {
    throw CSystemError(u"Error releasing IPC semaphore.", u"CIPCSemaphore::incValue",
                       String::fromUTF8(api ? api : ""), e.code, String::fromUTF8(e.text),
                       CProps().add(u"name", m_name));
  }
}

String CIPCSemaphore::getName() const { return m_name; }

}  // namespace qo
