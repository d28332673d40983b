#include "qo/stream/CRetryingIOStreamWrapper.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/thread/CThread.h"

#include <utility>

namespace qo {

CRetryingIOStreamWrapper::CRetryingIOStreamWrapper(IIOStream* inner, int maxAttempts, int firstDelayMs,
                                                   int maxDelayMs)
    : CDelegatingIOStream(inner), m_maxAttempts(maxAttempts), m_firstDelayMs(firstDelayMs), m_maxDelayMs(maxDelayMs) {
  char16_t const* const place = u"CRetryingIOStreamWrapper constructor";
  if (maxAttempts < 1) {
    throw CInvalidArgError(place, u"maxAttempts must be >= 1", CProps().addLong(u"maxAttempts", maxAttempts));
  }
  if (firstDelayMs < 0 || maxDelayMs < 0) {
    throw CInvalidArgError(place, u"the delays must not be negative",
                           CProps().addLong(u"firstDelayMs", firstDelayMs).addLong(u"maxDelayMs", maxDelayMs));
  }
}

CRetryingIOStreamWrapper::~CRetryingIOStreamWrapper() = default;

void CRetryingIOStreamWrapper::setTransientTest(TransientTest test) { m_test = std::move(test); }

bool CRetryingIOStreamWrapper::isTransientByDefault(CIOError const& error) {
  switch (error.getErrorCode()) {
    case CIOError::kUnknown:
    case CIOError::kReadFailed:
    case CIOError::kWriteFailed:
    case CIOError::kSeekFailed:
      break;
    default:
      return false;
  }
  switch (error.getParams().lookupLong(u"fileSysProblem", 0)) {
    case 1:  // not found
    case 2:  // already exists
    case 3:  // access denied
    case 4:  // a folder
    case 8:  // no space
      return false;
    default:
      return true;
  }
}

int CRetryingIOStreamWrapper::delayBefore(int attempt, int firstDelayMs, int maxDelayMs) {
  long long delay = firstDelayMs;
  for (int i = 1; i < attempt && delay < maxDelayMs; ++i) delay *= 2;
  return static_cast<int>(delay < maxDelayMs ? delay : maxDelayMs);
}

template <class F>
auto CRetryingIOStreamWrapper::attempt(bool positioned, F const& operation) -> decltype(operation()) {
  long long start = 0;
  if (positioned) {
    try {
      start = getInnerStream()->getPosition();
    } catch (...) {
      return operation();  // no known place to go back to: one try only
    }
  }
  for (int tries = 1;; ++tries) {
    try {
      return operation();
    } catch (CIOError& error) {
      bool const transient = m_test ? m_test(error) : isTransientByDefault(error);
      if (tries > 1) error.getParams().addLong(u"attempts", tries);
      if (!transient || tries >= m_maxAttempts) throw;
      bool restored = true;
      if (positioned) {
        try {
          getInnerStream()->seek(start);
        } catch (...) {
          restored = false;
        }
      }
      if (!restored) throw;  // the same bytes might land elsewhere
      ++m_retryCount;
      int const delay = delayBefore(tries, m_firstDelayMs, m_maxDelayMs);
      if (delay > 0) CThread::sleep(static_cast<unsigned>(delay));
    }
  }
}

void CRetryingIOStreamWrapper::seek(long long position) {
  attempt(false, [&] { CDelegatingIOStream::seek(position); });
}

void CRetryingIOStreamWrapper::read(void* buffer, int size) {
  attempt(true, [&] { CDelegatingIOStream::read(buffer, size); });
}

int CRetryingIOStreamWrapper::readLax(void* buffer, int size) {
  return attempt(true, [&] { return CDelegatingIOStream::readLax(buffer, size); });
}

int CRetryingIOStreamWrapper::readAvailable(void* buffer, int size) {
  return attempt(true, [&] { return CDelegatingIOStream::readAvailable(buffer, size); });
}

void CRetryingIOStreamWrapper::write(void const* data, int size, IWriteBarrier* barrier) {
  attempt(true, [&] { CDelegatingIOStream::write(data, size, barrier); });
}

void CRetryingIOStreamWrapper::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data,
                                               IWriteBarrier* barrier) {
  attempt(true, [&] { CDelegatingIOStream::writeKeepBuffer(data, barrier); });
}

void CRetryingIOStreamWrapper::flush() {
  attempt(false, [&] { CDelegatingIOStream::flush(); });
}

void CRetryingIOStreamWrapper::setLength(long long length) {
  attempt(false, [&] { CDelegatingIOStream::setLength(length); });
}

}  // namespace qo
