#include "qo/stream/CInStreamToIOStreamWrapper.h"

#include "qo/core/CIOError.h"
#include "qo/stream/StreamError.h"

#include <cassert>

namespace qo {

CInStreamToIOStreamWrapper::CInStreamToIOStreamWrapper(IInStream* inner) : m_inner(P<IInStream>::share(inner)) {
  assert(inner != nullptr);
}

CInStreamToIOStreamWrapper::~CInStreamToIOStreamWrapper() = default;

long long CInStreamToIOStreamWrapper::getLength() const { return m_inner->getLength(); }
long long CInStreamToIOStreamWrapper::getPosition() const { return m_inner->getPosition(); }
CURI CInStreamToIOStreamWrapper::getURI() { return m_inner->getURI(); }
void CInStreamToIOStreamWrapper::seek(long long position) { m_inner->seek(position); }
P<IStreamLock> CInStreamToIOStreamWrapper::lockRange(long long start, long long length, LockType type) {
  return m_inner->lockRange(start, length, type);
}
void CInStreamToIOStreamWrapper::close() { m_inner->close(); }
void CInStreamToIOStreamWrapper::read(void* buffer, int size) { m_inner->read(buffer, size); }
int CInStreamToIOStreamWrapper::readLax(void* buffer, int size) { return m_inner->readLax(buffer, size); }
int CInStreamToIOStreamWrapper::readAvailable(void* buffer, int size) {
  return m_inner->readAvailable(buffer, size);
}
bool CInStreamToIOStreamWrapper::waitReadable(int timeoutMs) const { return m_inner->waitReadable(timeoutMs); }
bool CInStreamToIOStreamWrapper::isEndOfStream() const { return m_inner->isEndOfStream(); }
int CInStreamToIOStreamWrapper::isEndOfStream_NonBlocking() const { return m_inner->isEndOfStream_NonBlocking(); }

int CInStreamToIOStreamWrapper::getPositionAlign() { return getPositionAlignOf(*m_inner); }
int CInStreamToIOStreamWrapper::getBufferAlign() { return getBufferAlignOf(*m_inner); }
int CInStreamToIOStreamWrapper::getBestPerformancePositionAlign() {
  return getBestPerformancePositionAlignOf(*m_inner);
}

void CInStreamToIOStreamWrapper::throwWriteDenied(char const* place, char16_t const* message) {
  throw makeStreamError(CIOError::kWriteFailed, place, message, CProps(), m_inner->getURI());
}

void CInStreamToIOStreamWrapper::write(void const*, int, IWriteBarrier*) {
  throwWriteDenied("CInStreamToIOStreamWrapper::write", u"write access denied (wrapped input stream)");
}

void CInStreamToIOStreamWrapper::writeKeepBuffer(TConstBufferSlice<unsigned char> const&, IWriteBarrier*) {
  throwWriteDenied("CInStreamToIOStreamWrapper::writeKeepBuffer", u"write access denied (wrapped input stream)");
}

P<IWriteBarrier> CInStreamToIOStreamWrapper::createWriteBarrier(IWriteBarrier*) {
  throwWriteDenied("CInStreamToIOStreamWrapper::createWriteBarrier",
                   u"write access denied for creating write barrier (wrapped input stream)");
}

void CInStreamToIOStreamWrapper::flush() {
  throwWriteDenied("CInStreamToIOStreamWrapper::flush", u"write access denied for flush (wrapped input stream)");
}

void CInStreamToIOStreamWrapper::setLength(long long) {
  throwWriteDenied("CInStreamToIOStreamWrapper::setLength",
                   u"write access denied for setLength (wrapped input stream)");
}

}  // namespace qo
