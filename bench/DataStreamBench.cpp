// The record format: CDataOutStream / CDataInStream over a CBufferStream
// against a hand-written serializer that memcpy's the same bytes into and
// out of a std::vector (the lower bound: no virtual calls, no checks).
//
// - 4096 and 1M int32 values written, then read back, per iteration;
// - 1024 string records written, then read back, per iteration: a mix of
//   short ASCII names, a longer ASCII path and a non-ASCII text. The
//   hand-written writer gets the UTF-8 ready-made (std::string) and its
//   reader returns std::string, so the qo side also pays for the UTF-16
//   conversions that its String type needs.
// items_per_second counts values.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchMain.h"
#include "qo/core/String.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"

namespace {


constexpr int kStrings = 1024;

/// The hand-written counterpart: little-endian on the machines measured,
/// so a value is its own bytes.
class CMemcpyWriter {
public:
  explicit CMemcpyWriter(std::vector<unsigned char>& out) : m_out(out) {}
  void rewind() { m_position = 0; }
  void writeInt32(std::int32_t value) { put(&value, 4); }
  void writeUTF8(std::string const& text) {
    writeInt32(static_cast<std::int32_t>(text.size()));
    put(text.data(), text.size());
  }

private:
  void put(void const* data, std::size_t size) {
    if (m_position + size > m_out.size()) m_out.resize((m_position + size) * 2);
    std::memcpy(m_out.data() + m_position, data, size);
    m_position += size;
  }
  std::vector<unsigned char>& m_out;
  std::size_t m_position = 0;
};

class CMemcpyReader {
public:
  explicit CMemcpyReader(std::vector<unsigned char> const& in) : m_in(in) {}
  void rewind() { m_position = 0; }
  std::int32_t readInt32() {
    std::int32_t value;
    get(&value, 4);
    return value;
  }
  std::string readUTF8() {
    std::int32_t const count = readInt32();
    if (count < 0) throw std::runtime_error("negative count");
    std::string text(static_cast<std::size_t>(count), '\0');
    get(&text[0], text.size());
    return text;
  }

private:
  void get(void* data, std::size_t size) {
    if (m_position + size > m_in.size()) throw std::runtime_error("short read");
    std::memcpy(data, m_in.data() + m_position, size);
    m_position += size;
  }
  std::vector<unsigned char> const& m_in;
  std::size_t m_position = 0;
};

std::vector<std::string> const& texts() {
  static std::vector<std::string> const all = [] {
    char const* const samples[] = {"report.txt", "C:/Users/backup/Documents/2024/project/notes/meeting-minutes.docx",
                                   "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC 100", "a", ""};
    std::vector<std::string> v;
    for (int i = 0; i < kStrings; ++i) v.push_back(samples[i % (sizeof samples / sizeof samples[0])]);
    return v;
  }();
  return all;
}

std::vector<qo::String> const& strings() {
  static std::vector<qo::String> const all = [] {
    std::vector<qo::String> v;
    for (std::string const& t : texts()) v.push_back(qo::String::fromUTF8(t));
    return v;
  }();
  return all;
}

template <int kInts>
void BM_DataWriteInt32(benchmark::State& state) {
  qo::P<qo::CBufferStream> buffer = qo::newP<qo::CBufferStream>();
  qo::CDataOutStream out(buffer.get());
  for (auto _ : state) {
    out.seek(0);
    for (int i = 0; i < kInts; ++i) out.writeInt32(i);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}
BENCHMARK_TEMPLATE(BM_DataWriteInt32, 4096);
BENCHMARK_TEMPLATE(BM_DataWriteInt32, 1 << 20);

template <int kInts>
void BM_MemcpyWriteInt32(benchmark::State& state) {
  std::vector<unsigned char> bytes;
  CMemcpyWriter out(bytes);
  for (auto _ : state) {
    out.rewind();
    for (int i = 0; i < kInts; ++i) out.writeInt32(i);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}
BENCHMARK_TEMPLATE(BM_MemcpyWriteInt32, 4096);
BENCHMARK_TEMPLATE(BM_MemcpyWriteInt32, 1 << 20);

template <int kInts>
void BM_DataReadInt32(benchmark::State& state) {
  qo::P<qo::CBufferStream> buffer = qo::newP<qo::CBufferStream>();
  qo::CDataOutStream out(buffer.get());
  for (int i = 0; i < kInts; ++i) out.writeInt32(i);
  qo::CDataInStream in(buffer.get());
  for (auto _ : state) {
    in.seek(0);
    std::int32_t sum = 0;
    for (int i = 0; i < kInts; ++i) sum += in.readInt32();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}
BENCHMARK_TEMPLATE(BM_DataReadInt32, 4096);
BENCHMARK_TEMPLATE(BM_DataReadInt32, 1 << 20);

template <int kInts>
void BM_MemcpyReadInt32(benchmark::State& state) {
  std::vector<unsigned char> bytes;
  CMemcpyWriter out(bytes);
  for (int i = 0; i < kInts; ++i) out.writeInt32(i);
  CMemcpyReader in(bytes);
  for (auto _ : state) {
    in.rewind();
    std::int32_t sum = 0;
    for (int i = 0; i < kInts; ++i) sum += in.readInt32();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}
BENCHMARK_TEMPLATE(BM_MemcpyReadInt32, 4096);
BENCHMARK_TEMPLATE(BM_MemcpyReadInt32, 1 << 20);

void BM_DataWriteString(benchmark::State& state) {
  qo::P<qo::CBufferStream> buffer = qo::newP<qo::CBufferStream>();
  qo::CDataOutStream out(buffer.get());
  std::vector<qo::String> const& all = strings();
  for (auto _ : state) {
    out.seek(0);
    for (qo::String const& s : all) out.writeString(s);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_DataWriteString);

void BM_MemcpyWriteString(benchmark::State& state) {
  std::vector<unsigned char> bytes;
  CMemcpyWriter out(bytes);
  std::vector<std::string> const& all = texts();
  for (auto _ : state) {
    out.rewind();
    for (std::string const& s : all) out.writeUTF8(s);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_MemcpyWriteString);

void BM_DataReadString(benchmark::State& state) {
  qo::P<qo::CBufferStream> buffer = qo::newP<qo::CBufferStream>();
  qo::CDataOutStream out(buffer.get());
  for (qo::String const& s : strings()) out.writeString(s);
  qo::CDataInStream in(buffer.get());
  for (auto _ : state) {
    in.seek(0);
    for (int i = 0; i < kStrings; ++i) {
      qo::String s = in.readString();
      benchmark::DoNotOptimize(s.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_DataReadString);

void BM_MemcpyReadString(benchmark::State& state) {
  std::vector<unsigned char> bytes;
  CMemcpyWriter out(bytes);
  for (std::string const& s : texts()) out.writeUTF8(s);
  CMemcpyReader in(bytes);
  for (auto _ : state) {
    in.rewind();
    for (int i = 0; i < kStrings; ++i) {
      std::string s = in.readUTF8();
      benchmark::DoNotOptimize(s.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}
BENCHMARK(BM_MemcpyReadString);

QO_BENCH_RATIO("CDataOutStream writeInt32 / memcpy serializer (4096 values)", "BM_DataWriteInt32<4096>/1",
               "BM_MemcpyWriteInt32<4096>/1");
QO_BENCH_RATIO("CDataInStream readInt32 / memcpy deserializer (4096 values)", "BM_DataReadInt32<4096>/1",
               "BM_MemcpyReadInt32<4096>/1");
QO_BENCH_RATIO("CDataOutStream writeInt32 / memcpy serializer (1M values)", "BM_DataWriteInt32<1 << 20>/1",
               "BM_MemcpyWriteInt32<1 << 20>/1");
QO_BENCH_RATIO("CDataInStream readInt32 / memcpy deserializer (1M values)", "BM_DataReadInt32<1 << 20>/1",
               "BM_MemcpyReadInt32<1 << 20>/1");
QO_BENCH_RATIO("CDataOutStream writeString / memcpy serializer", "BM_DataWriteString/1", "BM_MemcpyWriteString/1");
QO_BENCH_RATIO("CDataInStream readString / memcpy deserializer", "BM_DataReadString/1", "BM_MemcpyReadString/1");

}  // namespace
