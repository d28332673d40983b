#include "qo/stream/CDelegatingIOStream.h"

#include <cassert>

namespace qo {

CDelegatingIOStream::CDelegatingIOStream(IIOStream* inner) : m_inner(P<IIOStream>::share(inner)) {
  assert(inner != nullptr);
}

CDelegatingIOStream::~CDelegatingIOStream() = default;

long long CDelegatingIOStream::getLength() const { return m_inner->getLength(); }
long long CDelegatingIOStream::getPosition() const { return m_inner->getPosition(); }
CURI CDelegatingIOStream::getURI() { return m_inner->getURI(); }
void CDelegatingIOStream::seek(long long position) { m_inner->seek(position); }
P<IStreamLock> CDelegatingIOStream::lockRange(long long start, long long length, LockType type) {
  return m_inner->lockRange(start, length, type);
}
void CDelegatingIOStream::close() { m_inner->close(); }
void CDelegatingIOStream::read(void* buffer, int size) { m_inner->read(buffer, size); }
int CDelegatingIOStream::readLax(void* buffer, int size) { return m_inner->readLax(buffer, size); }
int CDelegatingIOStream::readAvailable(void* buffer, int size) { return m_inner->readAvailable(buffer, size); }
bool CDelegatingIOStream::waitReadable(int timeoutMs) const { return m_inner->waitReadable(timeoutMs); }
bool CDelegatingIOStream::isEndOfStream() const { return m_inner->isEndOfStream(); }
int CDelegatingIOStream::isEndOfStream_NonBlocking() const { return m_inner->isEndOfStream_NonBlocking(); }
void CDelegatingIOStream::write(void const* data, int size, IWriteBarrier* barrier) {
  m_inner->write(data, size, barrier);
}
void CDelegatingIOStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  m_inner->writeKeepBuffer(data, barrier);
}
P<IWriteBarrier> CDelegatingIOStream::createWriteBarrier(IWriteBarrier* previous) {
  return m_inner->createWriteBarrier(previous);
}
void CDelegatingIOStream::flush() { m_inner->flush(); }
void CDelegatingIOStream::setLength(long long length) { m_inner->setLength(length); }

int CDelegatingIOStream::getPositionAlign() { return getPositionAlignOf(*m_inner); }
int CDelegatingIOStream::getBufferAlign() { return getBufferAlignOf(*m_inner); }
int CDelegatingIOStream::getBestPerformancePositionAlign() { return getBestPerformancePositionAlignOf(*m_inner); }

}  // namespace qo
