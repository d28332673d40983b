// Micro-benchmarks of the core object model, each next to the standard
// alternative it competes with, so one run shows the relative cost:
//   - sharing an object: copy and drop a P<T> (addRef + release) versus a
//     std::shared_ptr, on one thread and on two threads sharing the object;
//   - reaching a singleton through its CSafeGlobalSlot accessor versus a
//     plain load of a global pointer (and the library's own test singleton,
//     whose accessor returns a P copy from inside the DLL);
//   - growing a TBuffer, which skips zero-filling, versus std::vector.
// After the runs the ratios of the pairs are printed; Google Benchmark's
// flags (--benchmark_filter, --benchmark_repetitions, ...) work as usual.
#include <benchmark/benchmark.h>

#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "BenchMain.h"
#include "qo/core/CBase.h"
#include "qo/core/CQoInit.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CTestSafeGlobalHelper.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/fs/CURITraitsManager.h"

namespace {

class CBenchObject : public qo::CBase {
public:
  int m_value = 42;

  /// The singleton convention of the library.
  static qo::P<CBenchObject> const& get() {
    static qo::CSafeGlobalSlot g_pInstanceSlot;
    return qo::TSafeGlobal<CBenchObject>::get(g_pInstanceSlot);
  }
};

struct SharedObject {
  int value = 42;
};

// Shared by all benchmark threads; set up in main before any run.
qo::P<CBenchObject> g_pShared;
std::shared_ptr<SharedObject> g_stdShared;
CBenchObject* g_pPlain = nullptr;

void BM_PCopy(benchmark::State& state) {
  for (auto _ : state) {
    qo::P<CBenchObject> copy(g_pShared);
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(BM_PCopy)->Threads(1)->Threads(2)->UseRealTime();

void BM_SharedPtrCopy(benchmark::State& state) {
  for (auto _ : state) {
    std::shared_ptr<SharedObject> copy(g_stdShared);
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(BM_SharedPtrCopy)->Threads(1)->Threads(2)->UseRealTime();

void BM_SlotSingletonGet(benchmark::State& state) {
  for (auto _ : state) {
    CBenchObject* p = CBenchObject::get().get();
    benchmark::DoNotOptimize(p);
  }
}
BENCHMARK(BM_SlotSingletonGet)->UseRealTime();

void BM_GlobalPointerLoad(benchmark::State& state) {
  for (auto _ : state) {
    // DoNotOptimize clobbers memory, so the global is read again each time.
    CBenchObject* p = g_pPlain;
    benchmark::DoNotOptimize(p);
  }
}
BENCHMARK(BM_GlobalPointerLoad)->UseRealTime();

// A library singleton reached from outside the library (its get() reads the
// published instance inline) against the plain C++ idiom: a function-local
// static behind a call the compiler may not inline.
void BM_LibrarySingletonGet(benchmark::State& state) {
  for (auto _ : state) {
    qo::CURITraitsManager* p = qo::CURITraitsManager::get().get();
    benchmark::DoNotOptimize(p);
  }
}
BENCHMARK(BM_LibrarySingletonGet);

struct LocalStaticObject {
  LocalStaticObject() : value(42) {}  // not constant: the static needs its guard
  int value;
};

__attribute__((noinline)) LocalStaticObject* functionLocalStatic() {
  static LocalStaticObject object;
  return &object;
}

void BM_FunctionLocalStaticGet(benchmark::State& state) {
  for (auto _ : state) {
    LocalStaticObject* p = functionLocalStatic();
    benchmark::DoNotOptimize(p);
  }
}
BENCHMARK(BM_FunctionLocalStaticGet);

void BM_TestHelperGetNotHeader(benchmark::State& state) {
  for (auto _ : state) {
    qo::P<qo::CTestSafeGlobalHelper> p = qo::CTestSafeGlobalHelper::getNotHeader();
    benchmark::DoNotOptimize(p.get());
  }
}
BENCHMARK(BM_TestHelperGetNotHeader)->UseRealTime();

constexpr long long kGrowSize = 1 << 20;

void BM_TBufferSetSize(benchmark::State& state) {
  for (auto _ : state) {
    qo::TBuffer<unsigned char> buffer;
    buffer.setSize(kGrowSize);
    benchmark::DoNotOptimize(buffer.getData());
  }
}
BENCHMARK(BM_TBufferSetSize)->UseRealTime();

void BM_VectorResize(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<unsigned char> buffer;
    buffer.resize(static_cast<std::size_t>(kGrowSize));
    benchmark::DoNotOptimize(buffer.data());
  }
}
BENCHMARK(BM_VectorResize)->UseRealTime();

}  // namespace

QO_BENCH_RATIO("P<T> copy / shared_ptr copy (1 thread)", "BM_PCopy/1", "BM_SharedPtrCopy/1");
QO_BENCH_RATIO("P<T> copy / shared_ptr copy (2 threads)", "BM_PCopy/2", "BM_SharedPtrCopy/2");
QO_BENCH_RATIO("slot singleton get() / global pointer load", "BM_SlotSingletonGet/1", "BM_GlobalPointerLoad/1");
QO_BENCH_RATIO("library singleton get() / non-inlined function-local static", "BM_LibrarySingletonGet/1",
               "BM_FunctionLocalStaticGet/1");
QO_BENCH_RATIO("CTestSafeGlobalHelper::getNotHeader() / P<T> copy", "BM_TestHelperGetNotHeader/1", "BM_PCopy/1");
QO_BENCH_RATIO("TBuffer setSize / vector resize (1 MiB)", "BM_TBufferSetSize/1", "BM_VectorResize/1");

void setUpCoreBench() {
  g_pShared = qo::newP<CBenchObject>();
  g_stdShared = std::make_shared<SharedObject>();
  g_pPlain = CBenchObject::get().get();
  (void)qo::CURITraitsManager::get();
}
void tearDownCoreBench() {
  g_pShared = qo::nil;
  g_stdShared.reset();
}
QO_BENCH_SETUP(setUpCoreBench, tearDownCoreBench);
