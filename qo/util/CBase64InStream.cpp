#include "qo/util/CBase64InStream.h"

#include <cassert>
#include <algorithm>
#include <cstring>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/stream/StreamError.h"

namespace qo {

namespace {
constexpr int kTextChunk = 4096;
}

CBase64InStream::CBase64InStream(P<IInStream> const& source, CBase64::Alphabet alphabet, bool pad)
    : m_source(source), m_decoder(alphabet, pad) {
  assert(m_source);
}

CBase64InStream::~CBase64InStream() = default;

void CBase64InStream::checkOpen(char const* place) const {
  if (m_closed) {
    throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_source->getURI());
  }
}

bool CBase64InStream::fill(bool blocking) const {
  if (m_fault) m_fault->throwClone();
  if (m_sourceEnded) return false;
  char text[kTextChunk];
  int got = blocking ? m_source->readLax(text, kTextChunk) : m_source->readAvailable(text, kTextChunk);
  if (m_pendingStart == m_pending.size()) {
    m_pending.clear();
    m_pendingStart = 0;
  }
  std::size_t before = m_pending.size();
  try {
    if (got > 0) {
      m_decoder.feed(text, static_cast<std::size_t>(got), m_pending);
    } else if (blocking || m_source->isEndOfStream_NonBlocking() == 1) {
      m_sourceEnded = true;
      m_decoder.finish(m_pending);
    }
  } catch (CParseError const& e) {
    // The bytes before the fault are delivered first; the next fill throws.
    m_sourceEnded = true;
    m_fault = CIOError(CIOError::kCorruptData, String(),
                       withStreamURI(e.getParams(), m_source->getURI()), &e)
                  .clone();
    if (m_pending.size() == before) m_fault->throwClone();
  }
  return m_pending.size() > before || got > 0;
}

int CBase64InStream::take(void* buffer, int size) const {
  std::size_t n = std::min(static_cast<std::size_t>(size), m_pending.size() - m_pendingStart);
  if (n > 0) std::memcpy(buffer, m_pending.data() + m_pendingStart, n);
  m_pendingStart += n;
  m_position += static_cast<long long>(n);
  return static_cast<int>(n);
}

long long CBase64InStream::getLength() const { return -1; }
long long CBase64InStream::getPosition() const { return m_position; }
CURI CBase64InStream::getURI() { return m_source->getURI(); }

void CBase64InStream::seek(long long position) {
  if (position != m_position) {
    throw makeStreamError(CIOError::kUnsupported, "CBase64InStream::seek", String(),
                          CProps().addLong(u"pos", position), getURI());
  }
}

P<IStreamLock> CBase64InStream::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CBase64InStream::lockRange", String(), CProps(), getURI());
}

void CBase64InStream::close() {
  if (m_closed) return;
  m_closed = true;
  m_source->close();
}

void CBase64InStream::read(void* buffer, int size) {
  int got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CBase64InStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), getURI());
  }
}

int CBase64InStream::readLax(void* buffer, int size) {
  checkOpen("CBase64InStream::readLax");
  if (size < 0) {
    throw CInvalidArgError(u"CBase64InStream::readLax", u"the size is negative", CProps().addLong(u"size", size));
  }
  auto* out = static_cast<char*>(buffer);
  int done = 0;
  while (done < size) {
    done += take(out + done, size - done);
    if (done == size) break;
    // Deliver what came before a fault; the next call throws it.
    if (m_fault && done > 0) break;
    if (!fill(true) && m_pendingStart == m_pending.size()) break;
  }
  return done;
}

int CBase64InStream::readAvailable(void* buffer, int size) {
  checkOpen("CBase64InStream::readAvailable");
  if (size < 0) {
    throw CInvalidArgError(u"CBase64InStream::readAvailable", u"the size is negative",
                           CProps().addLong(u"size", size));
  }
  if (m_pendingStart == m_pending.size()) fill(false);
  return take(buffer, size);
}

bool CBase64InStream::waitReadable(int timeoutMs) const {
  return m_pendingStart < m_pending.size() || m_sourceEnded || m_source->waitReadable(timeoutMs);
}

bool CBase64InStream::isEndOfStream() const {
  checkOpen("CBase64InStream::isEndOfStream");
  while (m_pendingStart == m_pending.size()) {
    if (!fill(true) && m_pendingStart == m_pending.size()) return true;
  }
  return false;
}

int CBase64InStream::isEndOfStream_NonBlocking() const {
  checkOpen("CBase64InStream::isEndOfStream_NonBlocking");
  if (m_pendingStart < m_pending.size()) return 0;
  if (m_fault) m_fault->throwClone();
  if (m_sourceEnded) return 1;
  // Text may decode to nothing (a padding character), so only a source at
  // its end gives a firm answer; reading it to the end then cannot block.
  if (m_source->isEndOfStream_NonBlocking() != 1) return -1;
  while (m_pendingStart == m_pending.size() && fill(true)) {
  }
  return m_pendingStart < m_pending.size() ? 0 : 1;
}

}  // namespace qo
