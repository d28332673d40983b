// qo/sys/CPowerState.h - where the machine's power comes from and how full
// its battery is.
//
// A snapshot taken by query(): Windows GetSystemPowerStatus; Linux the
// power supplies under /sys/class/power_supply (line power by its "online"
// flag; system batteries, not those of a mouse, by "capacity" and
// "status"; several batteries give their mean). What the system does not
// tell stays unknown: a Linux machine that lists no power supply at all has
// source Unknown and no battery.
//
//   CPowerState power = CPowerState::query();
//   if (power.isOnBattery() && power.getBatteryPercent() < 20) postponeBackup();
//
// Thread-safe (a value; query() may run on any thread).
#ifndef QO_SYS_CPOWERSTATE_H
#define QO_SYS_CPOWERSTATE_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// A snapshot of the power state. Thread-safe.
class QO_API CPowerState {
public:
  enum Source { Unknown, AC, Battery };

  /// Unknown source, no battery.
  CPowerState() = default;

  /// The state now. supplyFolder: Linux the folder of power supplies (""
  /// = "/sys/class/power_supply"; a missing folder means none); Windows
  /// ignores it. Throws CSystemError (function "CPowerState::query", api
  /// "GetSystemPowerStatus"; POSIX "opendir") when the system cannot tell.
  static CPowerState query(String const& supplyFolder = String());

  Source getSource() const noexcept { return m_source; }
  /// True when the machine runs on its battery now.
  bool isOnBattery() const noexcept { return m_source == Battery; }
  /// True when a battery powers the machine (present, whatever the source).
  bool hasBattery() const noexcept { return m_hasBattery; }
  /// 0..100; -1 when unknown or without battery.
  int getBatteryPercent() const noexcept { return m_batteryPercent; }
  /// True while the battery charges.
  bool isCharging() const noexcept { return m_charging; }
  /// "AC", "battery" or "unknown".
  static String getSourceName(Source source);
  /// For people: "AC, battery 80% charging", "battery, battery 35%",
  /// "unknown, no battery".
  String toString() const;

private:
  Source m_source = Unknown;
  bool m_hasBattery = false;
  int m_batteryPercent = -1;
  bool m_charging = false;
};

}  // namespace qo

#endif  // QO_SYS_CPOWERSTATE_H
