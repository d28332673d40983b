// CUsageMonitor against real load: busy threads on every processor and a
// child process that writes and syncs a file.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "qo/core/CTime.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/stream/CBufferStream.h"
#include "qo/sys/CProcess.h"
#include "qo/sys/CStealthController.h"
#include "qo/sys/CSystemManager.h"
#include "qo/sys/CUsageMonitor.h"
#include "qo/thread/CSignal.h"

namespace qo {
namespace {

char const kFileVar[] = "QO_TEST_DISK_LOAD_FILE";
char const kProbeFilter[] = "--gtest_filter=CUsageMonitor.DiskLoadProbeForTheParentProcess";
constexpr int kSyncedWrites = 64;

// Samples until done(sample) or a generous deadline; the wait between two
// samples only lets the counters move.
template <class Done>
bool sampleUntil(P<CUsageMonitor> const& monitor, Done done) {
  CSignal never;
  CTime const deadline = CTime::now() + CTimeSpan::fromMillis(20000);
  while (CTime::now() < deadline) {
    (void)never.wait(50);
    if (done(monitor->sample())) return true;
  }
  return false;
}

void expectSane(IUsageSampler::CSample const& s) {
  for (double load : {s.cpuBusy, s.diskBusy}) EXPECT_TRUE(load == -1 || (load >= 0 && load <= 1)) << load;
  EXPECT_GE(s.idleMillis, -1);
  EXPECT_GE(s.diskOperations, -1);
  EXPECT_TRUE(s.time.isValid());
}

TEST(CUsageMonitor, BusyThreadsOnEveryProcessorMakeTheControllerSlowDown) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> spinners;
  for (int i = 0; i < CSystemManager::get()->getProcessorCount(); ++i) {
    spinners.emplace_back([&stop] {
      volatile unsigned long long n = 0;
      while (!stop.load(std::memory_order_relaxed)) n = n + 1;
    });
  }
  P<CUsageMonitor> monitor = newP<CUsageMonitor>();
  // Every processor runs a spinner, so only their own switches leave one
  // idle: far below the half that the threshold allows.
  CStealthController::CPolicy policy;
  policy.cpuBusyHigh = 0.5;
  policy.cpuBusyLow = 0.3;
  P<CStealthController> controller = newP<CStealthController>(monitor, policy);
  IUsageSampler::CSample last;
  bool const slowed = sampleUntil(monitor, [&](IUsageSampler::CSample const& s) {
    last = s;
    return controller->update(s) == CStealthController::DecisionSlowDown;
  });
  stop = true;
  for (auto& t : spinners) t.join();
  expectSane(last);
  if (last.cpuBusy < 0) GTEST_SKIP() << "this system does not report processor times";
  EXPECT_TRUE(slowed) << last.toString().toUTF8();
  EXPECT_TRUE(controller->getReason().Contains(u"cpu busy")) << controller->getReason().toUTF8();
  EXPECT_EQ(0.25, controller->getRate());
}

TEST(CUsageMonitor, AChildWritingAndSyncingRaisesTheDiskOperations) {
  // Beside the executable, on a disk: a temporary folder may be in memory.
  std::filesystem::path const file =
      std::filesystem::u8path(CProcess::getCurrentExecutablePath().toUTF8()).parent_path() /
      ("usage-disk-load-" + std::to_string(CProcess::getCurrentID()) + ".bin");
  P<CUsageMonitor> monitor = newP<CUsageMonitor>();
  IUsageSampler::CSample const before = monitor->sample();
  if (before.diskOperations < 0) GTEST_SKIP() << "this system does not report disk counters";

  P<CProcess> child = newP<CProcess>(CProcess::getCurrentExecutablePath(), std::vector<String>{kProbeFilter});
  child->setEnvironmentVariable(String::fromUTF8(kFileVar), String::fromUTF8(file.u8string()));
  P<CBufferStream> output = newP<CBufferStream>();
  child->setStdout(output);
  child->start();
  ASSERT_TRUE(child->wait(-1));
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
  ASSERT_EQ(0, child->getExitCode());

  // Each sync of new data completes at least one write request on the disk.
  IUsageSampler::CSample const after = monitor->sample();
  expectSane(after);
  EXPECT_GE(after.diskOperations, kSyncedWrites) << after.toString().toUTF8();
}

// The child's side. Skipped in an ordinary run.
TEST(CUsageMonitor, DiskLoadProbeForTheParentProcess) {
  char const* path = std::getenv(kFileVar);
  if (!path || !*path) GTEST_SKIP() << "runs only as the child of AChildWritingAndSyncingRaisesTheDiskOperations";
  P<CLocalFileStream> stream = newP<CLocalFileStream>(
      String::fromUTF8(path), IIOStream::AccessWriteOnly,
      TFlags<IIOStream::Flags>{IIOStream::FlagCreate, IIOStream::FlagTruncate});
  std::vector<unsigned char> block(4096, 0x5A);
  for (int i = 0; i < kSyncedWrites; ++i) {
    stream->write(block.data(), static_cast<int>(block.size()), nullptr);
    stream->flush();
  }
  stream->close();
}

}  // namespace
}  // namespace qo
