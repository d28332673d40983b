// qo/sys/CStealthController.h - decides how hard background work may push
// the machine: run, slow down or pause.
//
// The controller turns usage samples (IUsageSampler, normally
// CUsageMonitor) into a decision under the application's policy:
// - pause while a program runs full screen (pauseWhileFullScreen);
// - pause while the user is active and the machine runs on battery
//   (pauseWhenUserActiveOnBattery), or whenever the user is active
//   (pauseWhenUserActive);
// - slow down to slowRate while the processors or the busiest disk are
//   busy beyond their thresholds;
// - run otherwise.
// Every condition has hysteresis, so that a load near a threshold does not
// make the decision flap: a load starts to count at its "high" threshold
// and stops only below its "low" one; the user is active from an idle time
// below userActiveIdleMillis until one of userInactiveIdleMillis or more.
// Unknown inputs never pause nor slow down.
//
// The loads are the whole machine's, this program's own work included; a
// program that slows down lowers them itself, and the low thresholds decide
// when it may speed up again.
//
// As an IBackgroundOpPacer the controller paces a CBackgroundOpThread:
// paused, the worker waits and asks again every sampleIntervalMillis;
// slowed down, a job of duration d is followed by a rest of
// d * (1 - rate) / rate; the controller samples again when its last sample
// is older than sampleIntervalMillis.
//
//   P<CStealthController> c = newP<CStealthController>(newP<CUsageMonitor>());
//   worker->setPacer(c);
//   ...
//   c->update();
//   print(CStealthController::toString(c->getDecision()), c->getReason(), c->getRate());
//
// Thread-safe.
#ifndef QO_SYS_CSTEALTHCONTROLLER_H
#define QO_SYS_CSTEALTHCONTROLLER_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/sys/IUsageSampler.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/IBackgroundOpPacer.h"

namespace qo {

/// Run / slow down / pause decisions for background work. Thread-safe.
class QO_API CStealthController : public CBase, public IBackgroundOpPacer {
public:
  enum EDecision { DecisionRun, DecisionSlowDown, DecisionPause };

  /// The application's policy. Loads are fractions 0..1.
  struct QO_API CPolicy {
    bool pauseWhileFullScreen = true;
    bool pauseWhenUserActiveOnBattery = true;
    bool pauseWhenUserActive = false;
    long long userActiveIdleMillis = 60000;
    long long userInactiveIdleMillis = 180000;
    double cpuBusyHigh = 0.85;
    double cpuBusyLow = 0.6;
    double diskBusyHigh = 0.7;
    double diskBusyLow = 0.4;
    /// The share of the time background work gets while slowed down.
    double slowRate = 0.25;
    int sampleIntervalMillis = 2000;
  };

  /// A controller over sampler (kept) with the default policy that has
  /// decided nothing yet (DecisionRun). Throws CInvalidArgError (function
  /// "CStealthController constructor") for a null sampler.
  explicit CStealthController(P<IUsageSampler> const& sampler);
  /// The same with policy. Throws CInvalidArgError also for a policy that
  /// is not sane (see setPolicy).
  CStealthController(P<IUsageSampler> const& sampler, CPolicy const& policy);
  ~CStealthController() override;
  CStealthController(CStealthController const&) = delete;
  CStealthController& operator=(CStealthController const&) = delete;

  /// Replaces the policy; the next sample is judged by it. Throws
  /// CInvalidArgError (function "CStealthController::setPolicy") unless
  /// 0 <= low <= high <= 1 for both loads, userActiveIdleMillis <=
  /// userInactiveIdleMillis, 0 < slowRate <= 1 and sampleIntervalMillis > 0.
  /// Thread-safe.
  void setPolicy(CPolicy const& policy);
  /// The policy. Thread-safe.
  CPolicy getPolicy() const;

  /// Takes a sample and decides; returns the decision. Thread-safe.
  EDecision update();
  /// Decides from sample (instead of the sampler's); returns the decision.
  /// Thread-safe.
  EDecision update(IUsageSampler::CSample const& sample);

  /// The last decision (DecisionRun before the first). Thread-safe.
  EDecision getDecision() const;
  /// The share of the time background work may take: 1 running, the
  /// policy's slowRate slowed down, 0 paused. Thread-safe.
  double getRate() const;
  /// Why: "" running, else e.g. "cpu busy", "disk busy", "full screen",
  /// "user active on battery", "user active"; several joined by ", ".
  /// Thread-safe.
  String getReason() const;
  /// The sample the last decision was made from. Thread-safe.
  IUsageSampler::CSample getLastSample() const;

  /// The pacing described at the top of the file. Thread-safe.
  int getDelayBeforeNextJob(long long lastJobMicros) override;

  /// "run", "slow down", "pause". Never throws.
  static String toString(EDecision decision);

private:
  static void check(CPolicy const& policy, char16_t const* function);

  P<IUsageSampler> const m_sampler;
  mutable CMutex m_mutex;
  CPolicy m_policy;
  EDecision m_decision = DecisionRun;
  String m_reason;
  IUsageSampler::CSample m_last;
  bool m_sampled = false;
  long long m_sampledAtMillis = 0;  // monotonic
  // The hysteresis states.
  bool m_userActive = false;
  bool m_cpuBusy = false;
  bool m_diskBusy = false;
};

}  // namespace qo

#endif  // QO_SYS_CSTEALTHCONTROLLER_H
