// The benchmark executable's main: runs every registered benchmark with a
// reporter that remembers mean times, then prints the registered ratios.
#include "BenchMain.h"

#include <benchmark/benchmark.h>

#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qo/core/CQoInit.h"

namespace qo::bench {
namespace {

struct Ratio {
  std::string label, numerator, denominator;
};

std::vector<Ratio>& ratios() {
  static std::vector<Ratio> list;
  return list;
}

std::vector<std::pair<void (*)(), void (*)()>>& setUps() {
  static std::vector<std::pair<void (*)(), void (*)()>> list;
  return list;
}

/// Prints as usual and keeps each benchmark's mean real time per
/// iteration, keyed "name/threads".
class CRatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      Mean& mean = m_times[run.run_name.function_name + "/" + std::to_string(run.threads)];
      mean.sum += run.GetAdjustedRealTime();
      ++mean.count;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  /// Prints "ratio <label>: <a/b>" when both were run.
  void printRatio(char const* label, std::string const& a, std::string const& b) const {
    auto ia = m_times.find(a);
    auto ib = m_times.find(b);
    if (ia == m_times.end() || ib == m_times.end() || ib->second.mean() <= 0) return;
    double const ratio = ia->second.mean() / ib->second.mean();
    std::cout << "ratio " << label << ": " << std::fixed << std::setprecision(ratio < 0.1 ? 4 : 2) << ratio << "\n";
  }

private:
  struct Mean {
    double sum = 0;
    int count = 0;
    double mean() const { return count > 0 ? sum / count : 0; }
  };
  std::map<std::string, Mean> m_times;
};


}  // namespace

int registerRatio(char const* label, char const* numerator, char const* denominator) {
  ratios().push_back({label, numerator, denominator});
  return 0;
}

int registerSetUp(void (*setUp)(), void (*tearDown)()) {
  setUps().emplace_back(setUp, tearDown);
  return 0;
}

}  // namespace qo::bench

int main(int argc, char** argv) {
  using namespace qo::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  qo::CQoInit init;
  for (auto& s : setUps()) s.first();
  CRatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::cout << "\n";
  for (Ratio const& r : ratios()) reporter.printRatio(r.label.c_str(), r.numerator, r.denominator);
  for (auto& s : setUps()) s.second();
  benchmark::Shutdown();
  return 0;
}
