#include "qo/util/CBase64OutStream.h"

#include <cassert>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/StreamError.h"

namespace qo {

CBase64OutStream::CBase64OutStream(P<IOutStream> const& target, CBase64::Alphabet alphabet, bool pad)
    : m_target(target), m_encoder(alphabet, pad) {
  assert(m_target);
}

CBase64OutStream::~CBase64OutStream() = default;

void CBase64OutStream::checkOpen(char const* place) {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), getURI());
}

void CBase64OutStream::finish() {
  checkOpen("CBase64OutStream::finish");
  m_text.clear();
  m_encoder.finish(m_text);
  if (!m_text.empty()) m_target->write(m_text.data(), static_cast<int>(m_text.size()));
}

long long CBase64OutStream::getLength() const { return m_position; }
long long CBase64OutStream::getPosition() const { return m_position; }
CURI CBase64OutStream::getURI() { return m_target->getURI(); }

void CBase64OutStream::seek(long long position) {
  if (position != m_position) {
    throw makeStreamError(CIOError::kUnsupported, "CBase64OutStream::seek", String(),
                          CProps().addLong(u"pos", position), getURI());
  }
}

P<IStreamLock> CBase64OutStream::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CBase64OutStream::lockRange", String(), CProps(), getURI());
}

void CBase64OutStream::close() {
  if (m_closed) return;
  finish();
  m_closed = true;
  m_target->close();
}

void CBase64OutStream::write(void const* data, int size, IWriteBarrier* barrier) {
  checkOpen("CBase64OutStream::write");
  if (size < 0) {
    throw CInvalidArgError(u"CBase64OutStream::write", u"the size is negative", CProps().addLong(u"size", size));
  }
  m_text.clear();
  m_encoder.feed(data, static_cast<std::size_t>(size), m_text);
  m_position += size;
  if (!m_text.empty()) m_target->write(m_text.data(), static_cast<int>(m_text.size()), barrier);
}

void CBase64OutStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  write(data.getData(), static_cast<int>(data.getLength()), barrier);
}

P<IWriteBarrier> CBase64OutStream::createWriteBarrier(IWriteBarrier* previous) {
  return m_target->createWriteBarrier(previous);
}

void CBase64OutStream::flush() {
  checkOpen("CBase64OutStream::flush");
  m_target->flush();
}

void CBase64OutStream::setLength(long long length) {
  throw makeStreamError(CIOError::kUnsupported, "CBase64OutStream::setLength", String(),
                        CProps().addLong(u"length", length), getURI());
}

}  // namespace qo
