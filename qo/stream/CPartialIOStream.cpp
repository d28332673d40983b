#include "qo/stream/CPartialIOStream.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/StreamError.h"

namespace qo {

CPartialIOStream::CPartialIOStream(IIOStream* inner, long long start, long long length)
    : CPartialInStream(inner, start, length), m_ioInner(P<IIOStream>::share(inner)) {}

CPartialIOStream::~CPartialIOStream() = default;

void CPartialIOStream::checkWrite(long long size, char const* place) {
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
  if (size > getEnd() - m_position) {
    throw makeStreamError(
        CIOError::kWriteFailed, place, u"write beyond the end of the partial stream",
        CProps().addLong(u"pos", m_position - m_start).addLong(u"size", size).addLong(u"length", m_length),
        m_ioInner->getURI());
  }
}

void CPartialIOStream::write(void const* data, int size, IWriteBarrier* barrier) {
  checkWrite(size, "CPartialIOStream::write");
  m_ioInner->write(data, size, barrier);
  m_position += size;
}

void CPartialIOStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  checkWrite(data.getLength(), "CPartialIOStream::writeKeepBuffer");
  m_ioInner->writeKeepBuffer(data, barrier);
  m_position += data.getLength();
}

P<IWriteBarrier> CPartialIOStream::createWriteBarrier(IWriteBarrier* previous) {
  return m_ioInner->createWriteBarrier(previous);
}

void CPartialIOStream::flush() { m_ioInner->flush(); }

void CPartialIOStream::setLength(long long length) {
  char const* const place = "CPartialIOStream::setLength";
  if (length < 0) {
    throw CInvalidArgError(String(place), u"the length is negative", CProps().addLong(u"length", length));
  }
  if (length == m_length) return;
  if (m_ioInner->getLength() != getEnd()) {
    throw makeStreamError(CIOError::kResizeFailed, place,
                          u"the partial stream does not end at the end of its inner stream",
                          CProps().addLong(u"length", length), m_ioInner->getURI());
  }
  m_ioInner->setLength(m_start + length);
  m_length = length;
  if (m_position > getEnd()) {
    m_ioInner->seek(getEnd());
    m_position = getEnd();
  }
}

}  // namespace qo
