#include "qo/thread/CSemaphore.h"

namespace qo {

namespace {
constexpr unsigned int kMaxPermits = 0x7fffffffu;  // a LONG on Windows
}

CSemaphore::CSemaphore(unsigned int initialValue) : m_semaphore(String(), initialValue, kMaxPermits) {}

CSemaphore::~CSemaphore() = default;

bool CSemaphore::decValue(int timeoutMillis) { return m_semaphore.decValue(timeoutMillis); }

void CSemaphore::incValue() { m_semaphore.incValue(); }

}  // namespace qo
