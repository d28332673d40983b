// bench/BenchMain.h - shared pieces of the benchmark executable.
//
// Each bench/*Bench.cpp registers Google Benchmark functions as usual and
// names the pairs to compare:
//   QO_BENCH_RATIO("P<T> copy / shared_ptr copy", "BM_PCopy/1", "BM_SharedPtrCopy/1");
// (the keys are "function name/threads"). After all runs, the main prints
// one "ratio <label>: <a/b>" line per pair whose two sides ran; below 1
// means the qo side is faster. QO_BENCH_SETUP registers set-up and tear-down
// functions that run once around all benchmarks, inside the CQoInit scope.
#ifndef QO_BENCH_BENCHMAIN_H
#define QO_BENCH_BENCHMAIN_H

namespace qo::bench {

int registerRatio(char const* label, char const* numerator, char const* denominator);
int registerSetUp(void (*setUp)(), void (*tearDown)());

}  // namespace qo::bench

#define QO_BENCH_CONCAT2(a, b) a##b
#define QO_BENCH_CONCAT(a, b) QO_BENCH_CONCAT2(a, b)
#define QO_BENCH_RATIO(label, numerator, denominator) \
  static int const QO_BENCH_CONCAT(qoBenchRatio, __LINE__) = ::qo::bench::registerRatio(label, numerator, denominator)
#define QO_BENCH_SETUP(setUp, tearDown) \
  static int const QO_BENCH_CONCAT(qoBenchSetUp, __LINE__) = ::qo::bench::registerSetUp(setUp, tearDown)

#endif  // QO_BENCH_BENCHMAIN_H
