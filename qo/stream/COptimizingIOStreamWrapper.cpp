#include "qo/stream/COptimizingIOStreamWrapper.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/log/logFunctions.h"
#include "qo/stream/StreamError.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>

namespace qo {

namespace {
constexpr long long kMaxBlockSize = 1LL << 30;

long long alignDown(long long value, long long unit) { return value - value % unit; }
long long alignUp(long long value, long long unit) { return alignDown(value + unit - 1, unit); }

void checkSize(long long size, char const* place) {
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
}
}  // namespace

COptimizingIOStreamWrapper::COptimizingIOStreamWrapper(IIOStream* inner, int blockSize) : CDelegatingIOStream(inner) {
  char16_t const* const place = u"COptimizingIOStreamWrapper constructor";
  int best = 1;
  getAlignInfo(*inner, m_posAlign, m_bufAlign, best);
  m_unit = std::lcm(m_posAlign, m_bufAlign);
  long long const granule = std::lcm(static_cast<long long>(best), static_cast<long long>(m_bufAlign));
  long long const size = alignUp(blockSize <= 0 ? kDefaultBlockSize : blockSize, granule);
  if (size > kMaxBlockSize) {
    throw CInvalidArgError(place, u"the block would exceed 1 GiB", CProps().addLong(u"blockSize", size));
  }
  m_blockSize = static_cast<int>(size);
  m_length = inner->getLength();
  if (m_length < 0) throw CInvalidArgError(place, u"the inner stream does not know its length");
  m_innerLength = m_length;
  m_position = inner->getPosition();
  m_innerPosition = m_position;
  m_storage.reset(new unsigned char[static_cast<std::size_t>(m_blockSize + m_bufAlign)]);
  auto const address = reinterpret_cast<std::uintptr_t>(m_storage.get());
  auto const align = static_cast<std::uintptr_t>(m_bufAlign);
  m_block = m_storage.get() + (align - address % align) % align;
}

COptimizingIOStreamWrapper::~COptimizingIOStreamWrapper() {
  if (m_closed) return;
  try {
    flushWindow();
  } catch (std::exception const& e) {
    logError(e, u"COptimizingIOStreamWrapper lost buffered data while being destroyed.", String());
  }
}

void COptimizingIOStreamWrapper::checkOpen(char const* place) const {
  if (m_closed) {
    throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), getInnerStream()->getURI());
  }
}

bool COptimizingIOStreamWrapper::suitsInner(void const* buffer, long long position, long long size) const {
  return position % m_posAlign == 0 && size % m_posAlign == 0 &&
         reinterpret_cast<std::uintptr_t>(buffer) % static_cast<std::uintptr_t>(m_bufAlign) == 0;
}

void COptimizingIOStreamWrapper::innerSeek(long long position) {
  if (m_innerPosition == position) return;
  m_innerPosition = -1;
  getInnerStream()->seek(position);
  m_innerPosition = position;
}

void COptimizingIOStreamWrapper::innerWrite(unsigned char const* data, long long position, int size) {
  if (position > m_innerLength) {
    // Some inner streams cannot seek past their end; extending fills the
    // gap with zero bytes, as a write after a seek past the end would.
    getInnerStream()->setLength(position);
    m_innerLength = position;
  }
  innerSeek(position);
  m_innerPosition = -1;
  getInnerStream()->write(data, size, m_dirtyBarrier.get());
  m_innerPosition = position + size;
  m_innerLength = std::max(m_innerLength, m_innerPosition);
}

void COptimizingIOStreamWrapper::flushWindow() {
  if (m_dirtyHi <= m_dirtyLo) return;
  // Start on a unit that keeps both the position and the buffer address
  // aligned; bytes between the unit and the dirty range hold the inner
  // stream's own data (or zeros past its end), so rewriting them is
  // harmless. A gap up to the inner end is included rather than left to a
  // separate extension.
  long long lo = alignDown(m_dirtyLo, m_unit);
  if (m_winStart + lo > m_innerLength) lo = std::max(0LL, alignDown(m_innerLength - m_winStart, m_unit));
  long long const hi = alignUp(m_dirtyHi, m_posAlign);
  innerWrite(m_block + lo, m_winStart + lo, static_cast<int>(hi - lo));
  m_dirtyLo = m_dirtyHi = 0;
  m_dirtyBarrier = nil;
}

void COptimizingIOStreamWrapper::loadWindow(long long blockStart, bool needInnerData) {
  m_winStart = -1;  // no half-loaded window survives an exception
  long long got = 0;
  if (needInnerData && blockStart < m_innerLength) {
    innerSeek(blockStart);
    m_innerPosition = -1;
    got = getInnerStream()->readLax(m_block, m_blockSize);
    m_innerPosition = blockStart + got;
  }
  std::memset(m_block + got, 0, static_cast<std::size_t>(m_blockSize - got));
  m_winStart = blockStart;
}

int COptimizingIOStreamWrapper::directRead(unsigned char* buffer, long long size) {
  flushWindow();  // the inner stream must hold what the window changed
  innerSeek(m_position);
  m_innerPosition = -1;
  int const got = getInnerStream()->readLax(buffer, static_cast<int>(size));
  m_innerPosition = m_position + got;
  return got;
}

long long COptimizingIOStreamWrapper::getLength() const { return m_length; }
long long COptimizingIOStreamWrapper::getPosition() const { return m_position; }

void COptimizingIOStreamWrapper::seek(long long position) {
  checkOpen("COptimizingIOStreamWrapper::seek");
  if (position < 0) {
    throw makeStreamError(CIOError::kSeekFailed, "COptimizingIOStreamWrapper::seek", String(),
                          CProps().addLong(u"pos", position), getInnerStream()->getURI());
  }
  flushWindow();
  m_position = position;
}

void COptimizingIOStreamWrapper::close() {
  if (m_closed) return;
  m_closed = true;
  try {
    flushWindow();
  } catch (...) {
    try {
      getInnerStream()->close();
    } catch (...) {
      // The write error is the one the caller needs.
    }
    throw;
  }
  getInnerStream()->close();
}

void COptimizingIOStreamWrapper::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "COptimizingIOStreamWrapper::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), getInnerStream()->getURI());
  }
}

int COptimizingIOStreamWrapper::readLax(void* buffer, int size) {
  checkOpen("COptimizingIOStreamWrapper::readLax");
  checkSize(size, "COptimizingIOStreamWrapper::readLax");
  auto* to = static_cast<unsigned char*>(buffer);
  int total = 0;
  while (total < size && m_position < m_length) {
    long long const want = std::min<long long>(size - total, m_length - m_position);
    if (m_winStart < 0 || m_position < m_winStart || m_position >= m_winStart + m_blockSize) {
      long long const direct = alignDown(want, m_posAlign);
      if (direct >= m_blockSize && suitsInner(to + total, m_position, direct)) {
        int const got = directRead(to + total, direct);
        total += got;
        m_position += got;
        if (got < direct) break;  // the inner stream ended early
        continue;
      }
      flushWindow();
      loadWindow(alignDown(m_position, m_blockSize), true);
    }
    long long const offset = m_position - m_winStart;
    long long const count = std::min(want, m_blockSize - offset);
    std::memcpy(to + total, m_block + offset, static_cast<std::size_t>(count));
    total += static_cast<int>(count);
    m_position += count;
  }
  return total;
}

int COptimizingIOStreamWrapper::readAvailable(void* buffer, int size) { return readLax(buffer, size); }

bool COptimizingIOStreamWrapper::isEndOfStream() const {
  checkOpen("COptimizingIOStreamWrapper::isEndOfStream");
  return m_position >= m_length;
}

int COptimizingIOStreamWrapper::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

void COptimizingIOStreamWrapper::write(void const* data, int size, IWriteBarrier* barrier) {
  // The common case first: a small write that lands inside the window.
  long long const offset = m_position - m_winStart;
  if (!m_closed && size > 0 && m_winStart >= 0 && offset >= 0 && offset + size <= m_blockSize &&
      barrier == m_dirtyBarrier.get()) {
    std::memcpy(m_block + offset, data, static_cast<std::size_t>(size));
    if (m_dirtyHi <= m_dirtyLo) {
      m_dirtyLo = offset;
      m_dirtyHi = offset + size;
    } else {
      m_dirtyLo = std::min(m_dirtyLo, offset);
      m_dirtyHi = std::max(m_dirtyHi, offset + size);
    }
    m_dirtyBarrier = barrier;
    m_position += size;
    if (m_position > m_length) m_length = m_position;
    return;
  }
  checkOpen("COptimizingIOStreamWrapper::write");
  checkSize(size, "COptimizingIOStreamWrapper::write");
  if (size == 0) return;
  if (barrier != m_dirtyBarrier.get()) flushWindow();  // bytes of one barrier only
  auto const* from = static_cast<unsigned char const*>(data);
  long long done = 0;
  while (done < size) {
    long long const left = size - done;
    if (m_winStart < 0 || m_position < m_winStart || m_position >= m_winStart + m_blockSize) {
      long long const direct = alignDown(left, m_posAlign);
      if (direct >= m_blockSize && suitsInner(from + done, m_position, direct)) {
        flushWindow();
        if (m_winStart >= 0 && m_winStart < m_position + direct && m_position < m_winStart + m_blockSize) {
          m_winStart = -1;  // about to be overwritten behind its back
        }
        m_dirtyBarrier = barrier;
        innerWrite(from + done, m_position, static_cast<int>(direct));
        m_dirtyBarrier = nil;
        done += direct;
        m_position += direct;
        m_length = std::max(m_length, m_position);
        continue;
      }
      flushWindow();
      long long const blockStart = alignDown(m_position, m_blockSize);
      loadWindow(blockStart, !(m_position == blockStart && left >= m_blockSize));
    }
    long long const offset = m_position - m_winStart;
    long long const count = std::min(left, m_blockSize - offset);
    std::memcpy(m_block + offset, from + done, static_cast<std::size_t>(count));
    if (m_dirtyHi <= m_dirtyLo) {
      m_dirtyLo = offset;
      m_dirtyHi = offset + count;
    } else {
      m_dirtyLo = std::min(m_dirtyLo, offset);
      m_dirtyHi = std::max(m_dirtyHi, offset + count);
    }
    m_dirtyBarrier = barrier;
    done += count;
    m_position += count;
    m_length = std::max(m_length, m_position);
  }
}

void COptimizingIOStreamWrapper::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data,
                                                 IWriteBarrier* barrier) {
  checkOpen("COptimizingIOStreamWrapper::writeKeepBuffer");
  long long const size = data.getLength();
  if (size > 0x7fffffff) {
    throw CInvalidArgError(u"COptimizingIOStreamWrapper::writeKeepBuffer", u"the slice is too long",
                           CProps().addLong(u"size", size));
  }
  write(data.getData(), static_cast<int>(size), barrier);
}

P<IWriteBarrier> COptimizingIOStreamWrapper::createWriteBarrier(IWriteBarrier* previous) {
  checkOpen("COptimizingIOStreamWrapper::createWriteBarrier");
  flushWindow();
  return getInnerStream()->createWriteBarrier(previous);
}

void COptimizingIOStreamWrapper::flush() {
  checkOpen("COptimizingIOStreamWrapper::flush");
  flushWindow();
  getInnerStream()->flush();
}

void COptimizingIOStreamWrapper::setLength(long long length) {
  checkOpen("COptimizingIOStreamWrapper::setLength");
  if (length < 0) {
    throw CInvalidArgError(u"COptimizingIOStreamWrapper::setLength", u"the length is negative",
                           CProps().addLong(u"length", length));
  }
  flushWindow();
  long long const innerLength = alignUp(length, m_posAlign);
  m_winStart = -1;
  getInnerStream()->setLength(innerLength);
  m_innerLength = innerLength;
  m_innerPosition = -1;  // streams differ in where a cut leaves the position
  m_length = length;
  if (innerLength != length) {
    // The inner stream keeps whole units: zero the bytes past the new end so
    // that a later extension shows zeros there, as on any other stream.
    loadWindow(alignDown(length, m_blockSize), true);
    long long const offset = length - m_winStart;
    std::memset(m_block + offset, 0, static_cast<std::size_t>(m_blockSize - offset));
    m_dirtyLo = offset;
    m_dirtyHi = innerLength - m_winStart;
    flushWindow();
  }
  if (m_position > length) m_position = length;
}

int COptimizingIOStreamWrapper::getPositionAlign() { return 1; }
int COptimizingIOStreamWrapper::getBufferAlign() { return 1; }
int COptimizingIOStreamWrapper::getBestPerformancePositionAlign() { return 1; }

}  // namespace qo
