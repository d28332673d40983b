#include "qo/stream/CEnforcingIOStreamWrapper.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/StreamError.h"

#include <cstdint>

namespace qo {

namespace {
int checkedSettings(int positionAlign, int bufferAlign, int bestPerformancePositionAlign) {
  char16_t const* const place = u"CEnforcingIOStreamWrapper::construct";
  // The buffer check repeats the position text; callers match on it.
  if (positionAlign < 1) throw CInvalidArgError(place, u"positionAlign must be >=1");
  if (bufferAlign < 1) throw CInvalidArgError(place, u"positionAlign must be >=1");
  if (bestPerformancePositionAlign < positionAlign) {
    throw CInvalidArgError(place, u"bestPerformancePositionAlign must be >= positionAlign");
  }
  if (bestPerformancePositionAlign % positionAlign != 0) {
    throw CInvalidArgError(place, u"bestPerformancePositionAlign must be a multiple of positionAlign");
  }
  return positionAlign;
}
}  // namespace

CEnforcingIOStreamWrapper::CEnforcingIOStreamWrapper(IIOStream* inner, int positionAlign, int bufferAlign,
                                                     int bestPerformancePositionAlign)
    : CDelegatingIOStream(inner),
      m_positionAlign(checkedSettings(positionAlign, bufferAlign, bestPerformancePositionAlign)),
      m_bufferAlign(bufferAlign),
      m_bestPerformancePositionAlign(bestPerformancePositionAlign) {}

CEnforcingIOStreamWrapper::~CEnforcingIOStreamWrapper() = default;

void CEnforcingIOStreamWrapper::checkPositionOrSize(long long value, char const* place) {
  if (value % m_positionAlign == 0) return;
  throw makeStreamError(CIOError::kPositionNotAligned, place,
                        u"The specified stream position or size " + toString(value) +
                            u" does not conform to the alignment requirement of " + toString(m_positionAlign),
                        CProps(), getInnerStream()->getURI());
}

void CEnforcingIOStreamWrapper::checkBuffer(void const* buffer, char const* place) {
  if (reinterpret_cast<std::uintptr_t>(buffer) % static_cast<std::uintptr_t>(m_bufferAlign) == 0) return;
  throw makeStreamError(CIOError::kBufferNotAligned, place,
                        u"The specified buffer for a stream operation does not conform to the buffer alignment "
                        u"requirement of " +
                            toString(m_bufferAlign),
                        CProps(), getInnerStream()->getURI());
}

void CEnforcingIOStreamWrapper::checkTransfer(void const* buffer, long long size, char const* place) {
  checkPositionOrSize(getInnerStream()->getPosition(), place);
  checkPositionOrSize(size, place);
  checkBuffer(buffer, place);
}

void CEnforcingIOStreamWrapper::seek(long long position) {
  checkPositionOrSize(position, "CEnforcingIOStreamWrapper::seek");
  CDelegatingIOStream::seek(position);
}

void CEnforcingIOStreamWrapper::read(void* buffer, int size) {
  checkTransfer(buffer, size, "CEnforcingIOStreamWrapper::read");
  CDelegatingIOStream::read(buffer, size);
}

int CEnforcingIOStreamWrapper::readLax(void* buffer, int size) {
  checkTransfer(buffer, size, "CEnforcingIOStreamWrapper::readLax");
  return CDelegatingIOStream::readLax(buffer, size);
}

int CEnforcingIOStreamWrapper::readAvailable(void* buffer, int size) {
  checkTransfer(buffer, size, "CEnforcingIOStreamWrapper::readAvailable");
  return CDelegatingIOStream::readAvailable(buffer, size);
}

void CEnforcingIOStreamWrapper::write(void const* data, int size, IWriteBarrier* barrier) {
  checkTransfer(data, size, "CEnforcingIOStreamWrapper::write");
  CDelegatingIOStream::write(data, size, barrier);
}

void CEnforcingIOStreamWrapper::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data,
                                                IWriteBarrier* barrier) {
  checkTransfer(data.getData(), data.getLength(), "CEnforcingIOStreamWrapper::writeKeepBuffer");
  CDelegatingIOStream::writeKeepBuffer(data, barrier);
}

void CEnforcingIOStreamWrapper::setLength(long long length) {
  checkPositionOrSize(length, "CEnforcingIOStreamWrapper::setLength");
  CDelegatingIOStream::setLength(length);
}

int CEnforcingIOStreamWrapper::getPositionAlign() { return m_positionAlign; }
int CEnforcingIOStreamWrapper::getBufferAlign() { return m_bufferAlign; }
int CEnforcingIOStreamWrapper::getBestPerformancePositionAlign() { return m_bestPerformancePositionAlign; }

}  // namespace qo
