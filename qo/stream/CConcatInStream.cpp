#include "qo/stream/CConcatInStream.h"

#include "qo/core/CError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/CRangeKey.h"
#include "qo/stream/StreamError.h"
#include "qo/core/ErrorLog.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace qo {

CConcatInStream::CStreamLock::CStreamLock(TList<P<IStreamLock>> partLocks) : m_partLocks(std::move(partLocks)) {}

CConcatInStream::CStreamLock::~CStreamLock() = default;

CConcatInStream::CConcatInStream(TArray<P<IInStream>> const& parts, CURI const& uri) : m_uri(uri) {
  m_streams.reserve(parts.size());
  long long start = 0;
  for (std::size_t index = 0; index < parts.size(); ++index) {
    IInStream& part = *parts[index];
    int positionAlign, bufferAlign, bestAlign;
    IAlignedStreamBase::getAlignInfo(part, positionAlign, bufferAlign, bestAlign);
    String const prefix = u"Cannot concatenate input streams. Stream " + toString(static_cast<long long>(index)) +
                          u" ('" + part.getURI().toString(true) + u"') ";
    if (start % positionAlign != 0) {
      throw CError(prefix + u"has the position alignment requirement " + toString(positionAlign) +
                   u" but its start position of " + toString(start) + u" violates that.");
    }
    m_positionAlign = calcLCM(m_positionAlign, positionAlign);
    m_bufferAlign = calcLCM(m_bufferAlign, bufferAlign);
    m_bestPerformancePositionAlign = calcLCM(m_bestPerformancePositionAlign, bestAlign);
    long long const length = part.getLength();
    if (length < 0) throw CError(prefix + u"does not know its length");
    m_streams.push_back(StreamInfo{start, start + length, parts[index]});
    start += length;
  }
  m_length = start;
}

CConcatInStream::~CConcatInStream() = default;

int CConcatInStream::calcLCM(int a, int b) { return a / std::gcd(a, b) * b; }

CConcatInStream::StreamInfo const* CConcatInStream::getCurrStreamInfo() const {
  if (m_pCurrent != nullptr && m_pCurrent->startPos <= m_position && m_position < m_pCurrent->endPos) {
    return m_pCurrent;
  }
  m_pCurrent = nullptr;
  if (m_position >= m_length) return nullptr;
  // The first part that ends after the position; empty parts are passed over.
  auto const found = std::upper_bound(m_streams.begin(), m_streams.end(), m_position,
                                      [](long long pos, StreamInfo const& info) { return pos < info.endPos; });
  if (found == m_streams.end()) return nullptr;
  found->stream->seek(m_position - found->startPos);
  m_pCurrent = &*found;
  return m_pCurrent;
}

void CConcatInStream::checkOpen(char const* place) const {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_uri);
}

long long CConcatInStream::getLength() const { return m_length; }
long long CConcatInStream::getPosition() const { return m_position; }
CURI CConcatInStream::getURI() { return m_uri; }

void CConcatInStream::seek(long long position) {
  if (position == m_position) return;
  checkOpen("CConcatInStream::seek");
  if (position < 0 || position > m_length) {
    throw makeStreamError(CIOError::kSeekFailed, "CConcatInStream::seek", String(),
                          CProps().addLong(u"pos", position).addLong(u"length", m_length), m_uri);
  }
  m_position = position;
  m_pCurrent = nullptr;
}

P<IStreamLock> CConcatInStream::lockRange(long long start, long long length, LockType type) {
  checkOpen("CConcatInStream::lockRange");
  TList<P<IStreamLock>> locks;
  CRangeKey const request(start, length);
  for (StreamInfo const& info : m_streams) {
    CRangeKey const part = CRangeKey(info.startPos, info.endPos - info.startPos).getOverlap(request);
    if (part.getLength() > 0) {
      locks.push_back(info.stream->lockRange(part.getStart() - info.startPos, part.getLength(), type));
    }
  }
  return newP<CStreamLock>(std::move(locks));
}

void CConcatInStream::close() {
  m_closed = true;
  m_pCurrent = nullptr;
  // Every part gets its close; the first failure is raised afterwards.
  P<CError> firstError;
  for (StreamInfo const& info : m_streams) {
    try {
      info.stream->close();
    } catch (CError const& e) {
      if (!firstError) firstError = e.clone();
    }
  }
  if (firstError) firstError->throwClone();
}

int CConcatInStream::readParts(void* buffer, int size, bool onlyAvailable) {
  char const* const place = onlyAvailable ? "CConcatInStream::readAvailable" : "CConcatInStream::readLax";
  checkOpen(place);
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
  auto* out = static_cast<unsigned char*>(buffer);
  int total = 0;
  while (total < size) {
    StreamInfo const* const info = getCurrStreamInfo();
    if (info == nullptr) break;
    long long const leftInPart = info->endPos - m_position;
    int const toRead = leftInPart < size - total ? static_cast<int>(leftInPart) : size - total;
    long long const readPosition = m_position;
    int const got = onlyAvailable ? info->stream->readAvailable(out + total, toRead)
                                  : info->stream->readLax(out + total, toRead);
    m_position += got;
    total += got;
    if (got >= toRead) continue;
    if (onlyAvailable) break;  // nothing more now; not a fault
    CURI const partURI = info->stream->getURI();
    CIOError const error = makeStreamError(CIOError::kReadFailed, "CConcatInStream::readLax", String(),
                                           CProps()
                                               .addLong(u"bytesRead", got)
                                               .addLong(u"toRead", toRead)
                                               .addLong(u"readPosition", readPosition)
                                               .addLong(u"streamEndPos", info->endPos),
                                           partURI);
    logError(error, u"Error reading in CConcatInStream. Stream '" + partURI.toString(true) +
                              u"' has apparently changed its length since construction (bytesRead: " +
                              toString(got) + u", toRead: " + toString(toRead) + u", readPosition: " +
                              toString(readPosition) + u", streamEndPos: " + toString(info->endPos) + u")");
    throw error;
  }
  return total;
}

void CConcatInStream::read(void* buffer, int size) {
  int const got = readParts(buffer, size, false);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CConcatInStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_uri);
  }
}

int CConcatInStream::readLax(void* buffer, int size) { return readParts(buffer, size, false); }

int CConcatInStream::readAvailable(void* buffer, int size) { return readParts(buffer, size, true); }

bool CConcatInStream::waitReadable(int timeoutMs) const {
  checkOpen("CConcatInStream::waitReadable");
  StreamInfo const* const info = getCurrStreamInfo();
  return info == nullptr || info->stream->waitReadable(timeoutMs);
}

bool CConcatInStream::isEndOfStream() const {
  checkOpen("CConcatInStream::isEndOfStream");
  return m_position >= m_length;
}

int CConcatInStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

int CConcatInStream::getPositionAlign() { return m_positionAlign; }
int CConcatInStream::getBufferAlign() { return m_bufferAlign; }
int CConcatInStream::getBestPerformancePositionAlign() { return m_bestPerformancePositionAlign; }

}  // namespace qo
