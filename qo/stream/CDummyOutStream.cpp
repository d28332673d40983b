#include "qo/stream/CDummyOutStream.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/stream/StreamError.h"

namespace qo {

CDummyOutStream::CDummyOutStream() = default;
CDummyOutStream::~CDummyOutStream() = default;

long long CDummyOutStream::getLength() const { return m_length; }
long long CDummyOutStream::getPosition() const { return m_position; }
CURI CDummyOutStream::getURI() { return CURI(); }

void CDummyOutStream::seek(long long position) {
  if (position < 0) {
    throw makeStreamError(CIOError::kSeekFailed, "CDummyOutStream::seek", String(),
                          CProps().addLong(u"pos", position), CURI());
  }
  m_position = position;
}

P<IStreamLock> CDummyOutStream::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CDummyOutStream::lockRange", String(), CProps(), CURI());
}

void CDummyOutStream::close() { m_closed = true; }

void CDummyOutStream::advance(long long size, char const* place) {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), CURI());
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
  m_position += size;
  if (m_position > m_length) m_length = m_position;
}

void CDummyOutStream::write(void const*, int size, IWriteBarrier*) { advance(size, "CDummyOutStream::write"); }

void CDummyOutStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier*) {
  advance(data.getLength(), "CDummyOutStream::writeKeepBuffer");
}

P<IWriteBarrier> CDummyOutStream::createWriteBarrier(IWriteBarrier*) { return newP<CDummyWriteBarrier>(); }

void CDummyOutStream::flush() {}

void CDummyOutStream::setLength(long long length) {
  if (length < 0) {
    throw CInvalidArgError(u"CDummyOutStream::setLength", u"the length is negative",
                           CProps().addLong(u"length", length));
  }
  m_length = length;
}

}  // namespace qo
