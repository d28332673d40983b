// qo/sys/IUsageSampler.h - one look at how the machine is used: whether the
// user is at it, how busy its processors and disks are, whether it runs on
// battery and whether a program fills the screen.
//
// CUsageMonitor takes these samples from the system; tests and simulations
// hand CStealthController a sampler of their own. Loads are fractions
// (0 = idle, 1 = fully busy) measured over the time since the sampler's
// previous sample; a value that the system does not tell is marked unknown
// (a load of -1, an idle time of -1, TriUnknown).
//
//   IUsageSampler::CSample s = sampler->sample();
//   if (s.cpuBusy >= 0.9) ...
#ifndef QO_SYS_IUSAGESAMPLER_H
#define QO_SYS_IUSAGESAMPLER_H

#include "qo/core/CTime.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/String.h"

namespace qo {

/// A source of usage samples. Implementations are thread-safe.
class QO_API IUsageSampler : public virtual IBase {
public:
  /// A yes/no fact that may be unknown.
  enum ETri { TriUnknown = -1, TriNo = 0, TriYes = 1 };

  /// One sample.
  struct QO_API CSample {
    /// When it was taken.
    CTime time;
    /// Milliseconds since the user's last keyboard or mouse input; -1
    /// unknown.
    long long idleMillis = -1;
    /// Share of all processors' time spent busy (by any process); -1
    /// unknown.
    double cpuBusy = -1;
    /// Share of the time the busiest disk had requests in flight; -1
    /// unknown.
    double diskBusy = -1;
    /// Disk requests completed, all disks together; -1 unknown.
    long long diskOperations = -1;
    /// Running on battery.
    ETri onBattery = TriUnknown;
    /// Some program runs full screen.
    ETri fullScreen = TriUnknown;

    /// A one-line description: "idle 12 s, cpu 35%, disk 4% (120 ops),
    /// battery no, full screen unknown". Never throws.
    String toString() const;
  };

  ~IUsageSampler() override;

  /// Takes a sample now. Thread-safe; never throws for an unknown value.
  virtual CSample sample() = 0;
};

}  // namespace qo

#endif  // QO_SYS_IUSAGESAMPLER_H
