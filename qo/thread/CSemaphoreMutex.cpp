#include "qo/thread/CSemaphoreMutex.h"

namespace qo {

CSemaphoreMutex::CSemaphoreMutex() : m_semaphore(String(), 1, 1) {}

CSemaphoreMutex::~CSemaphoreMutex() = default;

void CSemaphoreMutex::lock() { (void)m_semaphore.decValue(-1); }

void CSemaphoreMutex::unlock() { m_semaphore.incValue(); }

}  // namespace qo
