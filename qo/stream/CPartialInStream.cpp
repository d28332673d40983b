#include "qo/stream/CPartialInStream.h"

#include "qo/core/CError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/StreamError.h"

#include <cassert>

namespace qo {

CPartialInStream::CPartialInStream(IInStream* inner, long long start, long long length)
    : m_position(start), m_start(start), m_length(length), m_inner(P<IInStream>::share(inner)) {
  assert(inner != nullptr);
  char16_t const* const place = u"CPartialInStream constructor";
  if (start < 0 || length < 0) {
    throw CInvalidArgError(place, u"start and length must not be negative",
                           CProps().addLong(u"startPos", start).addLong(u"length", length));
  }
  getAlignInfo(*inner, m_positionAlign, m_bufferAlign, m_bestPerformancePositionAlign);
  if (start % m_positionAlign != 0) {
    throw CInvalidArgError(place, u"startPosition must be a multiple of the position alignment (startPos: " +
                                      toString(start) + u", posAlign: " + toString(m_positionAlign) + u")");
  }
  if (length % m_positionAlign != 0) {
    throw CInvalidArgError(place, u"length must be a multiple of the position alignment (length: " +
                                      toString(length) + u", posAlign: " + toString(m_positionAlign) + u")");
  }
  if (inner->getPosition() != start) inner->seek(start);
}

CPartialInStream::~CPartialInStream() = default;

void CPartialInStream::refetchPositionIgnoreErrors() {
  try {
    m_position = m_inner->getPosition();
  } catch (CError const&) {
    // The caller only wants the best guess; the old position stays.
  }
}

long long CPartialInStream::getLength() const { return m_length; }
long long CPartialInStream::getPosition() const { return m_position - m_start; }
CURI CPartialInStream::getURI() { return m_inner->getURI(); }

void CPartialInStream::seek(long long position) {
  if (position < 0 || position > m_length) {
    throw makeStreamError(CIOError::kSeekFailed, "CPartialInStream::seek", String(),
                          CProps().addLong(u"pos", position).addLong(u"length", m_length), m_inner->getURI());
  }
  m_inner->seek(m_start + position);
  m_position = m_start + position;
}

P<IStreamLock> CPartialInStream::lockRange(long long start, long long length, LockType type) {
  if (start < 0 || length < 0 || start > m_length - length) {
    throw CInvalidArgError(u"CPartialInStream::lockRange", u"the range lies outside the partial stream",
                           CProps().addLong(u"start", start).addLong(u"length", length).addLong(u"streamLength",
                                                                                                 m_length));
  }
  return m_inner->lockRange(m_start + start, length, type);
}

void CPartialInStream::close() { m_inner->close(); }

int CPartialInStream::clampToView(int size, char const* place) const {
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
  long long const left = getEnd() - m_position;
  if (left <= 0) return 0;
  return left < size ? static_cast<int>(left) : size;
}

int CPartialInStream::readLax(void* buffer, int size) {
  int const toRead = clampToView(size, "CPartialInStream::readLax");
  if (toRead == 0) return 0;
  int const got = m_inner->readLax(buffer, toRead);
  m_position += got;
  if (got < toRead) {
    throw makeStreamError(CIOError::kReadFailed, "CPartialInStream::readLax",
                          u"inner stream of partial stream is too short",
                          CProps().addLong(u"endPos", m_position).addLong(u"minExpectedLength", getEnd()),
                          m_inner->getURI());
  }
  return got;
}

int CPartialInStream::readAvailable(void* buffer, int size) {
  int const toRead = clampToView(size, "CPartialInStream::readAvailable");
  if (toRead == 0) return 0;
  int const got = m_inner->readAvailable(buffer, toRead);
  m_position += got;
  return got;
}

void CPartialInStream::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CPartialInStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_inner->getURI());
  }
}

bool CPartialInStream::waitReadable(int timeoutMs) const {
  return m_position >= getEnd() || m_inner->waitReadable(timeoutMs);
}

bool CPartialInStream::isEndOfStream() const { return m_position >= getEnd() || m_inner->isEndOfStream(); }

int CPartialInStream::isEndOfStream_NonBlocking() const {
  return m_position >= getEnd() ? 1 : m_inner->isEndOfStream_NonBlocking();
}

int CPartialInStream::getPositionAlign() { return m_positionAlign; }
int CPartialInStream::getBufferAlign() { return m_bufferAlign; }
int CPartialInStream::getBestPerformancePositionAlign() { return m_bestPerformancePositionAlign; }

}  // namespace qo
