// qo/util/CDataCache.h - a memory cache of file blocks, keyed by URI and
// offset, within a byte budget.
//
// Blocks are shared, read-only byte buffers: insert() takes a reference, and
// lookup() hands one out, so a block stays valid for its holder even after
// the cache has dropped it. Rules:
// - The bytes of all blocks held never exceed getMaxBytes(): inserting
//   evicts the least recently used blocks first (lookup and insert count as
//   use); a block larger than the whole budget is not kept.
// - A key holds one block: inserting again replaces it.
// - A block must not be changed after insert().
// - The cache does not know when a file changes: whoever changes one calls
//   removeURI() for it.
//
//   P<CDataCache> cache = CDataCache::get();          // or a cache of one's own
//   PC<TBuffer<unsigned char>> block = cache->lookup(uri, 65536);
//   if (!block) cache->insert(uri, 65536, block = readBlock(uri, 65536));
//
// Thread-safe.
#ifndef QO_UTIL_CDATACACHE_H
#define QO_UTIL_CDATACACHE_H

#include <memory>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/fs/CURI.h"

namespace qo {

/// A least-recently-used cache of byte blocks. Thread-safe.
class QO_API CDataCache : public CBase {
public:
  using Block = TBuffer<unsigned char>;

  /// The budget of the process-wide cache: 64 MiB.
  static constexpr long long kDefaultMaxBytes = 64LL * 1024 * 1024;

  /// Counters since construction (or resetStats).
  struct Stats {
    long long hits = 0;
    long long misses = 0;
    long long evictions = 0;  ///< Blocks dropped to stay within the budget.
  };

  /// An empty cache of maxBytes. Throws CInvalidArgError
  /// ("CDataCache constructor") for a negative budget.
  explicit CDataCache(long long maxBytes = kDefaultMaxBytes);
  ~CDataCache() override;
  CDataCache(CDataCache const&) = delete;
  CDataCache& operator=(CDataCache const&) = delete;

  /// The process-wide cache (kDefaultMaxBytes), created on first use.
  /// Thread-safe.
  static P<CDataCache> const& get();

  /// The block at (uri, offset), now the most recently used; null when
  /// there is none. Thread-safe.
  [[nodiscard]] PC<Block> lookup(CURI const& uri, long long offset);
  /// Whether (uri, offset) holds a block; not a use, not counted.
  /// Thread-safe.
  [[nodiscard]] bool contains(CURI const& uri, long long offset) const;
  /// Keeps block (not null) at (uri, offset), replacing an earlier one, and
  /// evicts as described at the top. Throws CInvalidArgError
  /// ("CDataCache::insert") for a null block. Thread-safe.
  void insert(CURI const& uri, long long offset, PC<Block> const& block);
  /// Drops the block at (uri, offset); false when there was none.
  /// Thread-safe.
  bool remove(CURI const& uri, long long offset);
  /// Drops every block of uri; returns how many. Thread-safe.
  int removeURI(CURI const& uri);
  /// Drops every block. Thread-safe.
  void clear();

  /// Sets the budget, evicting down to it. Throws CInvalidArgError
  /// ("CDataCache::setMaxBytes") for a negative value. Thread-safe.
  void setMaxBytes(long long maxBytes);
  [[nodiscard]] long long getMaxBytes() const;
  /// The bytes of all blocks held (never above getMaxBytes()). Thread-safe.
  [[nodiscard]] long long getUsedBytes() const;
  [[nodiscard]] int getBlockCount() const;
  [[nodiscard]] Stats getStats() const;
  void resetStats();

private:
  struct CState;
  std::unique_ptr<CState> m_state;
};

}  // namespace qo

#endif  // QO_UTIL_CDATACACHE_H
