#include "qo/util/CDataCache.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"

#include <functional>
#include <list>
#include <unordered_map>

namespace qo {

namespace {

struct Entry {
  CURI uri;
  long long offset;
  PC<CDataCache::Block> block;
};

// Points at a URI that outlives the key: the entry's own for stored keys,
// the caller's for a lookup.
struct Key {
  CURI const* uri;
  long long offset;
  bool operator==(Key const& other) const noexcept { return offset == other.offset && *uri == *other.uri; }
};

struct KeyHash {
  std::size_t operator()(Key const& key) const noexcept {
    // Path, host and offset tell blocks apart in practice; equality decides.
    std::size_t h = std::hash<String>()(key.uri->getPath());
    h ^= std::hash<String>()(key.uri->getHost()) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    h ^= std::hash<long long>()(key.offset) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    return h;
  }
};

void checkBudget(long long maxBytes, char16_t const* place) {
  if (maxBytes < 0) {
    throw CInvalidArgError(place, u"the budget is negative", CProps().addLong(u"maxBytes", maxBytes));
  }
}

}  // namespace

struct CDataCache::CState {
  mutable CMutex mutex;
  std::list<Entry> lru;  // most recently used first
  std::unordered_map<Key, std::list<Entry>::iterator, KeyHash> index;
  long long maxBytes = 0;
  long long usedBytes = 0;
  Stats stats;

  void erase(std::list<Entry>::iterator it) {
    usedBytes -= it->block->getSize();
    index.erase(Key{&it->uri, it->offset});
    lru.erase(it);
  }
  void evictTo(long long budget) {
    while (usedBytes > budget) {
      erase(std::prev(lru.end()));
      ++stats.evictions;
    }
  }
};

CDataCache::CDataCache(long long maxBytes) : m_state(new CState) {
  checkBudget(maxBytes, u"CDataCache constructor");
  m_state->maxBytes = maxBytes;
}

CDataCache::~CDataCache() = default;

P<CDataCache> const& CDataCache::get() {
  static CSafeGlobalSlot g_instanceSlot;
  return TSafeGlobal<CDataCache>::get(g_instanceSlot);
}

PC<CDataCache::Block> CDataCache::lookup(CURI const& uri, long long offset) {
  CMutexLock lock(m_state->mutex);
  auto const found = m_state->index.find(Key{&uri, offset});
  if (found == m_state->index.end()) {
    ++m_state->stats.misses;
    return PC<Block>();
  }
  ++m_state->stats.hits;
  if (found->second != m_state->lru.begin()) m_state->lru.splice(m_state->lru.begin(), m_state->lru, found->second);
  return found->second->block;
}

bool CDataCache::contains(CURI const& uri, long long offset) const {
  CMutexLock lock(m_state->mutex);
  return m_state->index.count(Key{&uri, offset}) > 0;
}

void CDataCache::insert(CURI const& uri, long long offset, PC<Block> const& block) {
  if (!block) throw CInvalidArgError(u"CDataCache::insert", u"the block is null");
  CMutexLock lock(m_state->mutex);
  auto const found = m_state->index.find(Key{&uri, offset});
  if (found != m_state->index.end()) m_state->erase(found->second);
  long long const size = block->getSize();
  if (size > m_state->maxBytes) return;
  m_state->evictTo(m_state->maxBytes - size);
  m_state->lru.push_front(Entry{uri, offset, block});
  m_state->index.emplace(Key{&m_state->lru.front().uri, offset}, m_state->lru.begin());
  m_state->usedBytes += size;
}

bool CDataCache::remove(CURI const& uri, long long offset) {
  CMutexLock lock(m_state->mutex);
  auto const found = m_state->index.find(Key{&uri, offset});
  if (found == m_state->index.end()) return false;
  m_state->erase(found->second);
  return true;
}

int CDataCache::removeURI(CURI const& uri) {
  CMutexLock lock(m_state->mutex);
  int removed = 0;
  for (auto it = m_state->lru.begin(); it != m_state->lru.end();) {
    auto const next = std::next(it);
    if (it->uri == uri) {
      m_state->erase(it);
      ++removed;
    }
    it = next;
  }
  return removed;
}

void CDataCache::clear() {
  CMutexLock lock(m_state->mutex);
  m_state->index.clear();
  m_state->lru.clear();
  m_state->usedBytes = 0;
}

void CDataCache::setMaxBytes(long long maxBytes) {
  checkBudget(maxBytes, u"CDataCache::setMaxBytes");
  CMutexLock lock(m_state->mutex);
  m_state->maxBytes = maxBytes;
  m_state->evictTo(maxBytes);
}

long long CDataCache::getMaxBytes() const {
  CMutexLock lock(m_state->mutex);
  return m_state->maxBytes;
}

long long CDataCache::getUsedBytes() const {
  CMutexLock lock(m_state->mutex);
  return m_state->usedBytes;
}

int CDataCache::getBlockCount() const {
  CMutexLock lock(m_state->mutex);
  return static_cast<int>(m_state->lru.size());
}

CDataCache::Stats CDataCache::getStats() const {
  CMutexLock lock(m_state->mutex);
  return m_state->stats;
}

void CDataCache::resetStats() {
  CMutexLock lock(m_state->mutex);
  m_state->stats = Stats();
}

}  // namespace qo
