#include "qo/stream/CLaggingEOFInStreamBase.h"

#include "qo/core/CIOError.h"

namespace qo {

CLaggingEOFInStreamBase::~CLaggingEOFInStreamBase() = default;

void CLaggingEOFInStreamBase::checkOpen() const {
  if (!isSourceOpen()) throwSourceError(CIOError::kStreamClosed);
}

bool CLaggingEOFInStreamBase::waitSourceReadable(int) const { return true; }

long long CLaggingEOFInStreamBase::getPosition() const {
  return getSourcePosition() - (m_hasLookAhead ? 1 : 0);
}

void CLaggingEOFInStreamBase::seek(long long position) {
  checkOpen();
  seekSource(position);
  m_hasLookAhead = false;
}

int CLaggingEOFInStreamBase::readWithLookAhead(void* buffer, int size, bool blocking) {
  checkOpen();
  if (size < 1) return 0;
  auto* out = static_cast<unsigned char*>(buffer);
  int held = 0;
  if (m_hasLookAhead) {
    out[0] = m_lookAhead;
    m_hasLookAhead = false;
    held = 1;
    if (size == 1) return 1;
  }
  int const got =
      blocking ? readSourceBlocking(out + held, size - held) : readSourceNonBlocking(out + held, size - held);
  return held + got;
}

int CLaggingEOFInStreamBase::readLax(void* buffer, int size) { return readWithLookAhead(buffer, size, true); }

int CLaggingEOFInStreamBase::readAvailable(void* buffer, int size) { return readWithLookAhead(buffer, size, false); }

void CLaggingEOFInStreamBase::read(void* buffer, int size) {
  if (readLax(buffer, size) < size) throwSourceError(CIOError::kUnexpectedEOF);
}

bool CLaggingEOFInStreamBase::waitReadable(int timeoutMs) const {
  return m_hasLookAhead || waitSourceReadable(timeoutMs);
}

bool CLaggingEOFInStreamBase::isEndOfStream() const {
  checkOpen();
  // A held byte comes first: the source may already know that it ended
  // right after the byte that was read ahead.
  if (m_hasLookAhead) return false;
  if (isSourceAtEnd()) return true;
  auto* self = const_cast<CLaggingEOFInStreamBase*>(this);
  m_hasLookAhead = self->readSourceBlocking(&m_lookAhead, 1) == 1;
  return !m_hasLookAhead;
}

int CLaggingEOFInStreamBase::isEndOfStream_NonBlocking() const {
  checkOpen();
  if (m_hasLookAhead) return 0;
  if (isSourceAtEnd()) return 1;
  auto* self = const_cast<CLaggingEOFInStreamBase*>(this);
  m_hasLookAhead = self->readSourceNonBlocking(&m_lookAhead, 1) == 1;
  if (m_hasLookAhead) return 0;
  return isSourceAtEnd() ? 1 : -1;
}

}  // namespace qo
