// Memory stream and range-lock bookkeeping.
//
// - CBufferStream bulk write and read against memcpy of the same bytes in
//   the same chunks (64 B, where the per-call cost shows, and 4 KiB, where
//   the copy should dominate); 1 MiB per iteration.
// - Writing 1 MiB in 4 KiB chunks into an empty CBufferStream (geometric
//   growth) against appending to an empty std::vector.
// - CStreamLockManager lock/unlock pairs over a standing set of overlapping
//   shared locks, against a plain lock table (a std::multimap of the held
//   requests by start, checked by scanning) that keeps no split ranges and
//   reports nothing to lock at a device. items_per_second is the pairs/s.
//   BM_LockManagerPairSpread uses every byte offset as a start instead: the
//   stored ranges end up one byte long (the worst case of splitting).
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <stdexcept>
#include <vector>

#include "BenchMain.h"
#include "qo/core/TBuffer.h"
#include "qo/core/TList.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CStreamLockManager.h"

namespace {

using Bytes = qo::TBuffer<unsigned char>;

constexpr int kTotal = 1 << 20;

std::vector<unsigned char> const& source() {
  static std::vector<unsigned char> const bytes = [] {
    std::vector<unsigned char> v(kTotal);
    for (int i = 0; i < kTotal; ++i) v[static_cast<std::size_t>(i)] = static_cast<unsigned char>(i * 31);
    return v;
  }();
  return bytes;
}

template <int kChunk>
void BM_BufferStreamWrite(benchmark::State& state) {
  qo::P<Bytes> bytes = qo::newP<Bytes>();
  qo::P<qo::CBufferStream> stream = qo::newP<qo::CBufferStream>(bytes.get());
  unsigned char const* const from = source().data();
  for (auto _ : state) {
    stream->seek(0);
    for (int done = 0; done < kTotal; done += kChunk) stream->write(from + done, kChunk);
    benchmark::DoNotOptimize(bytes->getData());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kTotal);
}

template <int kChunk>
void BM_MemcpyWrite(benchmark::State& state) {
  std::vector<unsigned char> target(kTotal);
  unsigned char const* const from = source().data();
  for (auto _ : state) {
    unsigned char* to = target.data();
    std::size_t chunk = kChunk;  // a run-time size, as the stream sees it
    benchmark::DoNotOptimize(to);
    benchmark::DoNotOptimize(chunk);
    for (int done = 0; done < kTotal; done += kChunk) std::memcpy(to + done, from + done, chunk);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kTotal);
}

template <int kChunk>
void BM_BufferStreamRead(benchmark::State& state) {
  qo::P<Bytes> bytes = qo::newP<Bytes>(source().data(), kTotal);
  qo::P<qo::CBufferStream> stream = qo::newP<qo::CBufferStream>(static_cast<Bytes const*>(bytes.get()));
  std::vector<unsigned char> target(kTotal);
  for (auto _ : state) {
    stream->seek(0);
    for (int done = 0; done < kTotal; done += kChunk) stream->read(target.data() + done, kChunk);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kTotal);
}

template <int kChunk>
void BM_MemcpyRead(benchmark::State& state) {
  std::vector<unsigned char> const from(source());
  std::vector<unsigned char> target(kTotal);
  for (auto _ : state) {
    unsigned char const* in = from.data();
    std::size_t chunk = kChunk;  // a run-time size, as the stream sees it
    benchmark::DoNotOptimize(in);
    benchmark::DoNotOptimize(chunk);
    for (int done = 0; done < kTotal; done += kChunk) std::memcpy(target.data() + done, in + done, chunk);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kTotal);
}

// Growth from empty to kGrown bytes in 4 KiB writes (the 1 MiB source
// repeated), into a new stream or vector each time.
template <long long kGrown>
void BM_BufferStreamGrow(benchmark::State& state) {
  unsigned char const* const from = source().data();
  for (auto _ : state) {
    qo::P<qo::CBufferStream> stream = qo::newP<qo::CBufferStream>();
    for (long long done = 0; done < kGrown; done += 4096) stream->write(from + done % kTotal, 4096);
    benchmark::DoNotOptimize(stream.get());
  }
  state.SetBytesProcessed(state.iterations() * kGrown);
}

template <long long kGrown>
void BM_VectorGrow(benchmark::State& state) {
  unsigned char const* const from = source().data();
  for (auto _ : state) {
    std::vector<unsigned char> target;
    for (long long done = 0; done < kGrown; done += 4096) {
      unsigned char const* const chunk = from + done % kTotal;
      target.insert(target.end(), chunk, chunk + 4096);
    }
    benchmark::DoNotOptimize(target.data());
  }
  state.SetBytesProcessed(state.iterations() * kGrown);
}

BENCHMARK_TEMPLATE(BM_BufferStreamWrite, 64);
BENCHMARK_TEMPLATE(BM_MemcpyWrite, 64);
BENCHMARK_TEMPLATE(BM_BufferStreamWrite, 4096);
BENCHMARK_TEMPLATE(BM_MemcpyWrite, 4096);
BENCHMARK_TEMPLATE(BM_BufferStreamRead, 64);
BENCHMARK_TEMPLATE(BM_MemcpyRead, 64);
BENCHMARK_TEMPLATE(BM_BufferStreamRead, 4096);
BENCHMARK_TEMPLATE(BM_MemcpyRead, 4096);
BENCHMARK_TEMPLATE(BM_BufferStreamGrow, 1 << 20);
BENCHMARK_TEMPLATE(BM_VectorGrow, 1 << 20);
BENCHMARK_TEMPLATE(BM_BufferStreamGrow, 64 << 20);
BENCHMARK_TEMPLATE(BM_VectorGrow, 64 << 20);

// The standing locks: 64 shared ranges of 96 bytes every 64 bytes, so each
// overlaps its neighbours; the requests are shared ranges of 200 bytes at 64
// different 64-byte-aligned starts (block locks), so they split the standing
// ranges, and stored ranges are never merged again, at a bounded number of
// places.
constexpr int kStanding = 64;
constexpr long long kRequestLength = 200;

long long blockStart(long long i) { return (i * 37) % kStanding * 64; }
long long anyStart(long long i) { return (i * 37) % (kStanding * 64); }

void runLockPairs(benchmark::State& state, long long (*startOf)(long long)) {
  qo::CStreamLockManager locks;
  qo::TList<qo::CRangeKey> list;
  for (int i = 0; i < kStanding; ++i) locks.lockRange(i * 64LL, 96, qo::IStreamBase::LockShared, list);
  long long i = 0;
  for (auto _ : state) {
    long long const start = startOf(i++);
    list.clear();
    locks.lockRange(start, kRequestLength, qo::IStreamBase::LockShared, list);
    list.clear();
    locks.unlockRange(start, kRequestLength, qo::IStreamBase::LockShared, list);
    benchmark::DoNotOptimize(list.size());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_LockManagerPair(benchmark::State& state) { runLockPairs(state, &blockStart); }
void BM_LockManagerPairSpread(benchmark::State& state) { runLockPairs(state, &anyStart); }

/// The naive table: every held request by start; a request scans all that
/// start before its end for a conflict.
class CPlainLockTable {
public:
  void lock(long long start, long long length, bool exclusive) {
    long long const end = start + length;
    for (auto it = m_held.begin(); it != m_held.end() && it->first < end; ++it) {
      if (it->second.end > start && (exclusive || it->second.exclusive)) throw std::runtime_error("conflict");
    }
    m_held.emplace(start, Held{end, exclusive});
  }
  void unlock(long long start, long long length, bool exclusive) {
    auto const range = m_held.equal_range(start);
    for (auto it = range.first; it != range.second; ++it) {
      if (it->second.end == start + length && it->second.exclusive == exclusive) {
        m_held.erase(it);
        return;
      }
    }
    throw std::runtime_error("not locked");
  }

private:
  struct Held {
    long long end;
    bool exclusive;
  };
  std::multimap<long long, Held> m_held;
};

void BM_PlainLockTablePair(benchmark::State& state) {
  CPlainLockTable table;
  for (int i = 0; i < kStanding; ++i) table.lock(i * 64LL, 96, false);
  long long i = 0;
  for (auto _ : state) {
    long long const start = blockStart(i++);
    table.lock(start, kRequestLength, false);
    table.unlock(start, kRequestLength, false);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_LockManagerPair);
BENCHMARK(BM_LockManagerPairSpread);
BENCHMARK(BM_PlainLockTablePair);

QO_BENCH_RATIO("CBufferStream write / memcpy (64 B chunks)", "BM_BufferStreamWrite<64>/1", "BM_MemcpyWrite<64>/1");
QO_BENCH_RATIO("CBufferStream write / memcpy (4 KiB chunks)", "BM_BufferStreamWrite<4096>/1",
               "BM_MemcpyWrite<4096>/1");
QO_BENCH_RATIO("CBufferStream read / memcpy (64 B chunks)", "BM_BufferStreamRead<64>/1", "BM_MemcpyRead<64>/1");
QO_BENCH_RATIO("CBufferStream read / memcpy (4 KiB chunks)", "BM_BufferStreamRead<4096>/1",
               "BM_MemcpyRead<4096>/1");
QO_BENCH_RATIO("CBufferStream growing write / vector append (4 KiB chunks to 1 MiB)",
               "BM_BufferStreamGrow<1 << 20>/1", "BM_VectorGrow<1 << 20>/1");
QO_BENCH_RATIO("CBufferStream growing write / vector append (4 KiB chunks to 64 MiB)",
               "BM_BufferStreamGrow<64 << 20>/1", "BM_VectorGrow<64 << 20>/1");
QO_BENCH_RATIO("CStreamLockManager lock+unlock / plain multimap table", "BM_LockManagerPair/1",
               "BM_PlainLockTablePair/1");

}  // namespace
