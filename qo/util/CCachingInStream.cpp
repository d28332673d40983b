#include "qo/util/CCachingInStream.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/StreamError.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace qo {

CCachingInStream::CCachingInStream(IInStream* inner, CDataCache* cache, int blockSize)
    : m_inner(P<IInStream>::share(inner)), m_blockSize(blockSize) {
  assert(inner != nullptr);
  char16_t const* const place = u"CCachingInStream constructor";
  m_cache = cache ? P<CDataCache>::share(cache) : CDataCache::get();
  if (blockSize < 1) throw CInvalidArgError(place, u"blockSize must be >= 1", CProps().addLong(u"blockSize", blockSize));
  m_uri = inner->getURI();
  if (m_uri.isEmpty()) throw CInvalidArgError(place, u"the inner stream has no URI to key the cache with");
  m_length = inner->getLength();
  if (m_length < 0) throw CInvalidArgError(place, u"the inner stream does not know its length");
}

CCachingInStream::~CCachingInStream() = default;

void CCachingInStream::checkOpen(char const* place) const {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_uri);
}

PC<CDataCache::Block> CCachingInStream::fetch(long long blockStart) {
  if (blockStart == m_currentStart) return m_current;
  PC<CDataCache::Block> block = m_cache->lookup(m_uri, blockStart);
  if (!block) {
    long long const size = std::min<long long>(m_blockSize, m_length - blockStart);
    P<CDataCache::Block> fresh = newP<CDataCache::Block>(size);
    if (m_inner->getPosition() != blockStart) m_inner->seek(blockStart);
    int got = 0;
    while (got < size) {
      int const n = m_inner->readLax(fresh->getData() + got, static_cast<int>(size - got));
      if (n == 0) break;
      got += n;
    }
    fresh->setSize(got);
    m_cache->insert(m_uri, blockStart, fresh);
    block = fresh;
  }
  m_current = block;
  m_currentStart = blockStart;
  return block;
}

long long CCachingInStream::getLength() const { return m_length; }
long long CCachingInStream::getPosition() const { return m_position; }
CURI CCachingInStream::getURI() { return m_uri; }

void CCachingInStream::seek(long long position) {
  checkOpen("CCachingInStream::seek");
  if (position < 0 || position > m_length) {
    throw makeStreamError(CIOError::kSeekFailed, "CCachingInStream::seek", String(),
                          CProps().addLong(u"pos", position).addLong(u"length", m_length), m_uri);
  }
  m_position = position;
}

P<IStreamLock> CCachingInStream::lockRange(long long start, long long length, LockType type) {
  return m_inner->lockRange(start, length, type);
}

void CCachingInStream::close() {
  if (m_closed) return;
  m_closed = true;
  m_current = nil;
  m_inner->close();
}

void CCachingInStream::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CCachingInStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_uri);
  }
}

int CCachingInStream::readLax(void* buffer, int size) {
  checkOpen("CCachingInStream::readLax");
  if (size < 0) throw CInvalidArgError(u"CCachingInStream::readLax", u"the size is negative", CProps().addLong(u"size", size));
  auto* to = static_cast<unsigned char*>(buffer);
  int total = 0;
  while (total < size && m_position < m_length) {
    long long const blockStart = m_position - m_position % m_blockSize;
    PC<CDataCache::Block> const block = fetch(blockStart);
    long long const offset = m_position - blockStart;
    long long const count = std::min<long long>(size - total, block->getSize() - offset);
    if (count <= 0) break;  // the inner stream ended before its length
    std::memcpy(to + total, block->getData() + offset, static_cast<std::size_t>(count));
    total += static_cast<int>(count);
    m_position += count;
  }
  return total;
}

int CCachingInStream::readAvailable(void* buffer, int size) { return readLax(buffer, size); }
bool CCachingInStream::waitReadable(int) const { return true; }

bool CCachingInStream::isEndOfStream() const {
  checkOpen("CCachingInStream::isEndOfStream");
  return m_position >= m_length;
}

int CCachingInStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

}  // namespace qo
