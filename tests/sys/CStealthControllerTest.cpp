// CStealthController driven by a synthetic sampler through every decision
// and both edges of each hysteresis band.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/sys/CStealthController.h"

namespace qo {
namespace {

using S = IUsageSampler;
using C = CStealthController;

// Hands out the sample the test set, counting the calls.
class CSyntheticSampler : public CBase, public IUsageSampler {
public:
  CSample sample() override {
    ++m_calls;
    return m_next;
  }
  CSample m_next;
  std::atomic<int> m_calls{0};
};

S::CSample make(long long idle, double cpu, double disk, S::ETri battery, S::ETri fullScreen) {
  S::CSample s;
  s.time = CTime::now();
  s.idleMillis = idle;
  s.cpuBusy = cpu;
  s.diskBusy = disk;
  s.onBattery = battery;
  s.fullScreen = fullScreen;
  return s;
}

TEST(CStealthController, WalksThroughEveryStateWithHysteresis) {
  // Default policy: user active below 60 s idle until 180 s; cpu 0.85/0.6;
  // disk 0.7/0.4; slow rate 0.25.
  struct Step {
    long long idle;
    double cpu, disk;
    S::ETri battery, fullScreen;
    C::EDecision decision;
    char const* reason;
  };
  auto const U = S::TriUnknown, N = S::TriNo, Y = S::TriYes;
  Step const steps[] = {
      {-1, -1, -1, U, U, C::DecisionRun, ""},
      {-1, 0.90, -1, U, U, C::DecisionSlowDown, "cpu busy"},
      {-1, 0.70, -1, U, U, C::DecisionSlowDown, "cpu busy"},  // above low: stays
      {-1, 0.59, -1, U, U, C::DecisionRun, ""},
      {-1, 0.80, -1, U, U, C::DecisionRun, ""},  // below high: stays off
      {-1, 0.10, 0.75, U, U, C::DecisionSlowDown, "disk busy"},
      {-1, 0.90, 0.50, U, U, C::DecisionSlowDown, "cpu busy, disk busy"},
      {-1, 0.10, 0.39, U, U, C::DecisionRun, ""},
      {1000, 0.10, 0.10, N, U, C::DecisionRun, ""},  // active, on mains
      {1000, 0.10, 0.10, Y, U, C::DecisionPause, "user active on battery"},
      {100000, 0.10, 0.10, Y, U, C::DecisionPause, "user active on battery"},  // below inactive: still active
      {180000, 0.10, 0.10, Y, U, C::DecisionRun, ""},
      {100000, 0.10, 0.10, Y, U, C::DecisionRun, ""},  // not below active: still inactive
      {-1, 0.90, 0.10, U, Y, C::DecisionPause, "full screen"},  // pause wins over slow down
      {-1, 0.90, 0.10, U, U, C::DecisionSlowDown, "cpu busy"},
      {-1, -1, -1, U, U, C::DecisionRun, ""},  // unknown loads switch off
  };
  P<CSyntheticSampler> sampler = newP<CSyntheticSampler>();
  P<C> controller = newP<C>(sampler);
  EXPECT_EQ(C::DecisionRun, controller->getDecision());
  int i = 0;
  for (Step const& step : steps) {
    SCOPED_TRACE("step " + std::to_string(i++));
    sampler->m_next = make(step.idle, step.cpu, step.disk, step.battery, step.fullScreen);
    EXPECT_EQ(step.decision, controller->update());
    EXPECT_EQ(step.decision, controller->getDecision());
    EXPECT_EQ(String::fromUTF8(step.reason), controller->getReason());
    EXPECT_EQ(step.decision == C::DecisionRun ? 1.0 : step.decision == C::DecisionSlowDown ? 0.25 : 0.0,
              controller->getRate());
    EXPECT_EQ(step.cpu, controller->getLastSample().cpuBusy);
  }
  EXPECT_EQ(i, sampler->m_calls.load());
}

TEST(CStealthController, PolicySwitches) {
  struct Case {
    bool fullScreen, activeOnBattery, active;
    S::CSample sample;
    C::EDecision decision;
  };
  auto const U = S::TriUnknown, Y = S::TriYes;
  Case const cases[] = {
      {false, true, false, make(-1, 0, 0, U, Y), C::DecisionRun},
      {false, false, false, make(10, 0, 0, Y, U), C::DecisionRun},
      {false, false, true, make(10, 0, 0, U, U), C::DecisionPause},
      {true, true, false, make(10, 0, 0, U, U), C::DecisionRun},
  };
  int i = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE("case " + std::to_string(i++));
    C::CPolicy policy;
    policy.pauseWhileFullScreen = c.fullScreen;
    policy.pauseWhenUserActiveOnBattery = c.activeOnBattery;
    policy.pauseWhenUserActive = c.active;
    P<C> controller = newP<C>(newP<CSyntheticSampler>(), policy);
    EXPECT_EQ(c.decision, controller->update(c.sample));
  }
}

TEST(CStealthController, RefusesBadPoliciesAndANullSampler) {
  auto const cpu = [](double low, double high) {
    C::CPolicy p;
    p.cpuBusyLow = low;
    p.cpuBusyHigh = high;
    return p;
  };
  C::CPolicy idle, rate0, rate2, interval, disk;
  idle.userActiveIdleMillis = idle.userInactiveIdleMillis + 1;
  rate0.slowRate = 0;
  rate2.slowRate = 1.5;
  interval.sampleIntervalMillis = 0;
  disk.diskBusyHigh = 1.1;
  C::CPolicy const bad[] = {cpu(0.7, 0.6), cpu(-0.1, 0.5), cpu(0.5, 1.01), idle, rate0, rate2, interval, disk};
  P<C> controller = newP<C>(newP<CSyntheticSampler>());
  int i = 0;
  for (C::CPolicy const& policy : bad) {
    SCOPED_TRACE("policy " + std::to_string(i++));
    EXPECT_THROW(controller->setPolicy(policy), CInvalidArgError);
    EXPECT_THROW((void)newP<C>(newP<CSyntheticSampler>(), policy), CInvalidArgError);
  }
  EXPECT_EQ(0.85, controller->getPolicy().cpuBusyHigh);  // unchanged
  try {
    (void)newP<C>(P<IUsageSampler>());
    ADD_FAILURE() << "no error";
  } catch (CInvalidArgError const& e) {
    EXPECT_TRUE(e.getMessage().Contains(u"CStealthController constructor")) << e.getMessage().toUTF8();
  }
}

TEST(CStealthController, PacesJobsByTheDecision) {
  P<CSyntheticSampler> sampler = newP<CSyntheticSampler>();
  C::CPolicy policy;
  policy.sampleIntervalMillis = 3600 * 1000;  // one sample, then the cached decision
  P<C> controller = newP<C>(sampler, policy);
  sampler->m_next = make(-1, 0.9, -1, S::TriUnknown, S::TriUnknown);
  // Slowed to a quarter: a 4 ms job rests 12 ms.
  EXPECT_EQ(12, controller->getDelayBeforeNextJob(4000));
  EXPECT_EQ(0, controller->getDelayBeforeNextJob(0));
  EXPECT_EQ(1, sampler->m_calls.load());
  controller->update(make(-1, 0.1, -1, S::TriUnknown, S::TriUnknown));
  EXPECT_EQ(0, controller->getDelayBeforeNextJob(4000));
  controller->update(make(-1, 0.1, -1, S::TriUnknown, S::TriYes));
  EXPECT_EQ(policy.sampleIntervalMillis, controller->getDelayBeforeNextJob(4000));
  EXPECT_EQ(1, sampler->m_calls.load());
}

}  // namespace
}  // namespace qo
