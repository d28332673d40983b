// One usage sample against reading the same system files with the standard
// library (POSIX builds only).
//
// CUsageMonitor::sample() reads /proc/stat and /proc/diskstats (checking
// each disk in /sys/block), the terminals' access times and
// /sys/class/power_supply, and computes the loads; the peer only reads
// /proc/stat and /proc/diskstats whole with std::ifstream, so the ratio
// shows what the rest of a sample costs on top of the two files.
#include <benchmark/benchmark.h>

#ifndef _WIN32

#include <fstream>
#include <iterator>
#include <string>

#include "BenchMain.h"
#include "qo/sys/CUsageMonitor.h"

namespace {

void BM_CUsageMonitorSample(benchmark::State& state) {
  qo::P<qo::CUsageMonitor> monitor = qo::newP<qo::CUsageMonitor>();
  for (auto _ : state) benchmark::DoNotOptimize(monitor->sample().cpuBusy);
}
BENCHMARK(BM_CUsageMonitorSample);

void BM_IfstreamProcStatAndDiskstats(benchmark::State& state) {
  for (auto _ : state) {
    std::size_t total = 0;
    for (char const* path : {"/proc/stat", "/proc/diskstats"}) {
      std::ifstream file(path);
      std::string const text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      total += text.size();
    }
    benchmark::DoNotOptimize(total);
  }
}
BENCHMARK(BM_IfstreamProcStatAndDiskstats);

QO_BENCH_RATIO("CUsageMonitor sample / ifstream of /proc/stat + /proc/diskstats", "BM_CUsageMonitorSample/1",
               "BM_IfstreamProcStatAndDiskstats/1");

}  // namespace

#endif
