#include "qo/sys/CPowerState.h"

#include <string>

#include "qo/core/CSystemError.h"
#include "qo/platform/Power.h"

namespace qo {

CPowerState CPowerState::query(String const& supplyFolder) {
  std::string const folder = supplyFolder.toUTF8();
  platform::PowerStatus status;
  if (platform::SysError e = platform::powerGetStatus(folder.empty() ? nullptr : folder.c_str(), status))
    throw CSystemError(u"Error reading the power state.", u"CPowerState::query", u"GetSystemPowerStatus", e,
                       CProps().addCond(!supplyFolder.isEmpty(), u"path", supplyFolder));
  CPowerState state;
  state.m_source = status.source == platform::PowerSource::AC        ? AC
                   : status.source == platform::PowerSource::Battery ? Battery
                                                                     : Unknown;
  state.m_hasBattery = status.hasBattery;
  state.m_batteryPercent = status.batteryPercent;
  state.m_charging = status.charging;
  return state;
}

String CPowerState::getSourceName(Source source) {
  return source == AC ? String(u"AC") : source == Battery ? String(u"battery") : String(u"unknown");
}

String CPowerState::toString() const {
  std::string text = getSourceName(m_source).toUTF8();
  if (!m_hasBattery) return String::fromUTF8(text + ", no battery");
  text += ", battery";
  if (m_batteryPercent >= 0) text += " " + std::to_string(m_batteryPercent) + "%";
  if (m_charging) text += " charging";
  return String::fromUTF8(text);
}

}  // namespace qo
