// Codecs and utilities against their nearest standard peers.
//
// - CMTRand::next on both variants against std::mt19937 / std::mt19937_64:
//   the same algorithm, so the ratio shows the cost of the class (a virtual
//   base, the global-instance mutex test, the variant switch).
// - CMTRand::uniform(1, 6) against std::uniform_int_distribution on
//   std::mt19937_64 (both reject rather than take a modulo).
// - CBase64::encode / decode of 64 KiB; there is no standard Base64, so the
//   peer is a plain std::string copy of the same bytes (memory bandwidth);
//   the bytes counter gives throughput.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>

#include "BenchMain.h"
#include "qo/util/CBase64.h"
#include "qo/util/CMTRand.h"

namespace {

void BM_MTRand32(benchmark::State& state) {
  qo::CMTRand rng(qo::CMTRand::k32, 5489);
  for (auto _ : state) benchmark::DoNotOptimize(rng.next());
}
BENCHMARK(BM_MTRand32);

void BM_StdMT19937(benchmark::State& state) {
  std::mt19937 rng(5489);
  for (auto _ : state) benchmark::DoNotOptimize(rng());
}
BENCHMARK(BM_StdMT19937);

void BM_MTRand64(benchmark::State& state) {
  qo::CMTRand rng(qo::CMTRand::k64, 5489);
  for (auto _ : state) benchmark::DoNotOptimize(rng.next());
}
BENCHMARK(BM_MTRand64);

void BM_StdMT19937_64(benchmark::State& state) {
  std::mt19937_64 rng(5489);
  for (auto _ : state) benchmark::DoNotOptimize(rng());
}
BENCHMARK(BM_StdMT19937_64);

void BM_MTRandDie(benchmark::State& state) {
  qo::CMTRand rng(qo::CMTRand::k64, 5489);
  for (auto _ : state) benchmark::DoNotOptimize(rng.uniform(1, 6));
}
BENCHMARK(BM_MTRandDie);

void BM_StdDie(benchmark::State& state) {
  std::mt19937_64 rng(5489);
  std::uniform_int_distribution<int> die(1, 6);
  for (auto _ : state) benchmark::DoNotOptimize(die(rng));
}
BENCHMARK(BM_StdDie);

std::string const& sample() {
  static std::string const data = [] {
    std::mt19937 rng(1);
    std::string s(65536, '\0');
    for (auto& c : s) c = static_cast<char>(rng());
    return s;
  }();
  return data;
}

void BM_Base64Encode(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(qo::CBase64::encode(sample()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 65536);
}
BENCHMARK(BM_Base64Encode);

void BM_Base64Decode(benchmark::State& state) {
  std::string const text = qo::CBase64::encode(sample());
  for (auto _ : state) benchmark::DoNotOptimize(qo::CBase64::decode(text));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 65536);
}
BENCHMARK(BM_Base64Decode);

void BM_StringCopy64K(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(std::string(sample()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 65536);
}
BENCHMARK(BM_StringCopy64K);

}  // namespace

QO_BENCH_RATIO("CMTRand k32 next / std::mt19937", "BM_MTRand32/1", "BM_StdMT19937/1");
QO_BENCH_RATIO("CMTRand k64 next / std::mt19937_64", "BM_MTRand64/1", "BM_StdMT19937_64/1");
QO_BENCH_RATIO("CMTRand uniform(1,6) / std::uniform_int_distribution", "BM_MTRandDie/1", "BM_StdDie/1");
QO_BENCH_RATIO("CBase64 encode 64 KiB / std::string copy", "BM_Base64Encode/1", "BM_StringCopy64K/1");
QO_BENCH_RATIO("CBase64 decode 64 KiB / std::string copy", "BM_Base64Decode/1", "BM_StringCopy64K/1");
