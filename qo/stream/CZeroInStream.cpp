#include "qo/stream/CZeroInStream.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/StreamError.h"

#include <cstring>

namespace qo {

CZeroInStream::CZeroInStream(long long length) : CZeroInStream(length, CURI(String(u"zerostream"))) {}

CZeroInStream::CZeroInStream(long long length, CURI const& uri) : m_length(length), m_uri(uri) {
  if (length < 0) {
    throw CInvalidArgError(u"CZeroInStream constructor", u"the length is negative",
                           CProps().addLong(u"length", length));
  }
}

CZeroInStream::~CZeroInStream() = default;

void CZeroInStream::checkOpen(char const* place) const {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_uri);
}

long long CZeroInStream::getLength() const { return m_length; }
long long CZeroInStream::getPosition() const { return m_position; }
CURI CZeroInStream::getURI() { return m_uri; }

void CZeroInStream::seek(long long position) {
  checkOpen("CZeroInStream::seek");
  if (position < 0 || position > m_length) {
    throw makeStreamError(CIOError::kSeekFailed, "CZeroInStream::seek", String(),
                          CProps().addLong(u"pos", position).addLong(u"length", m_length), m_uri);
  }
  m_position = position;
}

P<IStreamLock> CZeroInStream::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CZeroInStream::lockRange", String(), CProps(), m_uri);
}

void CZeroInStream::close() { m_closed = true; }

int CZeroInStream::readLax(void* buffer, int size) {
  checkOpen("CZeroInStream::readLax");
  if (size < 0) {
    throw CInvalidArgError(u"CZeroInStream::readLax", u"the size is negative", CProps().addLong(u"size", size));
  }
  long long const left = m_length - m_position;
  int const count = left < size ? static_cast<int>(left) : size;
  std::memset(buffer, 0, static_cast<std::size_t>(count));
  m_position += count;
  return count;
}

int CZeroInStream::readAvailable(void* buffer, int size) { return readLax(buffer, size); }

void CZeroInStream::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CZeroInStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_uri);
  }
}

bool CZeroInStream::waitReadable(int) const { return true; }

bool CZeroInStream::isEndOfStream() const {
  checkOpen("CZeroInStream::isEndOfStream");
  return m_position >= m_length;
}

int CZeroInStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

}  // namespace qo
