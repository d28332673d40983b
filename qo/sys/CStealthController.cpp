#include "qo/sys/CStealthController.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/platform/Usage.h"
#include "qo/thread/CMutexLock.h"

#include <climits>

namespace qo {

namespace {

// Hysteresis: a known value at or above high switches on, one below low
// switches off; unknown switches off.
bool track(bool on, double value, double low, double high) {
  if (value < 0) return false;
  return on ? value >= low : value >= high;
}

void join(String& reasons, char16_t const* reason) {
  if (!reasons.isEmpty()) reasons += u", ";
  reasons += reason;
}

}  // namespace

CStealthController::CStealthController(P<IUsageSampler> const& sampler) : CStealthController(sampler, CPolicy()) {}

CStealthController::CStealthController(P<IUsageSampler> const& sampler, CPolicy const& policy)
    : m_sampler(sampler), m_policy(policy) {
  if (!sampler) throw CInvalidArgError(u"CStealthController constructor", u"the sampler is null");
  check(policy, u"CStealthController constructor");
}

CStealthController::~CStealthController() = default;

void CStealthController::check(CPolicy const& p, char16_t const* function) {
  bool const loads = 0 <= p.cpuBusyLow && p.cpuBusyLow <= p.cpuBusyHigh && p.cpuBusyHigh <= 1 &&
                     0 <= p.diskBusyLow && p.diskBusyLow <= p.diskBusyHigh && p.diskBusyHigh <= 1;
  if (!loads) throw CInvalidArgError(function, u"the load thresholds must be 0 <= low <= high <= 1");
  if (p.userActiveIdleMillis > p.userInactiveIdleMillis)
    throw CInvalidArgError(function, u"userActiveIdleMillis must not exceed userInactiveIdleMillis");
  if (!(p.slowRate > 0 && p.slowRate <= 1)) throw CInvalidArgError(function, u"slowRate must be in (0, 1]");
  if (p.sampleIntervalMillis <= 0) throw CInvalidArgError(function, u"sampleIntervalMillis must be positive");
}

void CStealthController::setPolicy(CPolicy const& policy) {
  check(policy, u"CStealthController::setPolicy");
  CMutexLock lock(m_mutex);
  m_policy = policy;
}

CStealthController::CPolicy CStealthController::getPolicy() const {
  CMutexLock lock(m_mutex);
  return m_policy;
}

CStealthController::EDecision CStealthController::update() {
  // Sampled outside the lock: a sampler may take a while.
  return update(m_sampler->sample());
}

CStealthController::EDecision CStealthController::update(IUsageSampler::CSample const& s) {
  CMutexLock lock(m_mutex);
  CPolicy const& p = m_policy;
  if (s.idleMillis < 0) m_userActive = false;
  else m_userActive = m_userActive ? s.idleMillis < p.userInactiveIdleMillis : s.idleMillis < p.userActiveIdleMillis;
  m_cpuBusy = track(m_cpuBusy, s.cpuBusy, p.cpuBusyLow, p.cpuBusyHigh);
  m_diskBusy = track(m_diskBusy, s.diskBusy, p.diskBusyLow, p.diskBusyHigh);

  String pause;
  if (p.pauseWhileFullScreen && s.fullScreen == IUsageSampler::TriYes) join(pause, u"full screen");
  if (m_userActive && p.pauseWhenUserActive) join(pause, u"user active");
  else if (m_userActive && p.pauseWhenUserActiveOnBattery && s.onBattery == IUsageSampler::TriYes)
    join(pause, u"user active on battery");
  String slow;
  if (m_cpuBusy) join(slow, u"cpu busy");
  if (m_diskBusy) join(slow, u"disk busy");

  if (!pause.isEmpty()) {
    m_decision = DecisionPause;
    m_reason = pause;
  } else if (!slow.isEmpty()) {
    m_decision = DecisionSlowDown;
    m_reason = slow;
  } else {
    m_decision = DecisionRun;
    m_reason = String();
  }
  m_last = s;
  m_sampled = true;
  m_sampledAtMillis = platform::usageNowMillis();
  return m_decision;
}

CStealthController::EDecision CStealthController::getDecision() const {
  CMutexLock lock(m_mutex);
  return m_decision;
}

double CStealthController::getRate() const {
  CMutexLock lock(m_mutex);
  return m_decision == DecisionRun ? 1.0 : m_decision == DecisionSlowDown ? m_policy.slowRate : 0.0;
}

String CStealthController::getReason() const {
  CMutexLock lock(m_mutex);
  return m_reason;
}

IUsageSampler::CSample CStealthController::getLastSample() const {
  CMutexLock lock(m_mutex);
  return m_last;
}

int CStealthController::getDelayBeforeNextJob(long long lastJobMicros) {
  bool due;
  {
    CMutexLock lock(m_mutex);
    due = !m_sampled || platform::usageNowMillis() - m_sampledAtMillis >= m_policy.sampleIntervalMillis;
  }
  if (due) update();
  CMutexLock lock(m_mutex);
  switch (m_decision) {
    case DecisionPause: return m_policy.sampleIntervalMillis;
    case DecisionSlowDown: {
      double const rest = double(lastJobMicros) * (1 - m_policy.slowRate) / m_policy.slowRate / 1000;
      return rest >= INT_MAX ? INT_MAX : static_cast<int>(rest);
    }
    case DecisionRun: break;
  }
  return 0;
}

String CStealthController::toString(EDecision decision) {
  switch (decision) {
    case DecisionSlowDown: return u"slow down";
    case DecisionPause: return u"pause";
    case DecisionRun: break;
  }
  return u"run";
}

}  // namespace qo
