// qo-sysinfo: what the library's system services see on this machine: the
// operating system, the hardware, the current user, the known folders and
// the power state.
//
//   qo-sysinfo
#include <cstdio>
#include <exception>
#include <string>

#include "qo/core/CQoInit.h"
#include "qo/sys/CKnownPaths.h"
#include "qo/sys/CPowerState.h"
#include "qo/sys/CSystemAccountManager.h"
#include "qo/sys/CSystemManager.h"
#include "qo/sys/CVistaFeatures.h"

namespace {

void line(char const* label, std::string const& value) { std::printf("  %-22s %s\n", label, value.c_str()); }

void line(char const* label, qo::String const& value) { line(label, value.toUTF8()); }

void line(char const* label, bool value) { line(label, std::string(value ? "yes" : "no")); }

std::string megabytes(unsigned long long bytes) { return std::to_string(bytes / (1024 * 1024)) + " MB"; }

// Runs one section; a failing service is reported and the next one still runs.
template <class Body>
void section(char const* title, Body body) {
  std::printf("%s\n", title);
  try {
    body();
  } catch (std::exception const& e) {
    std::printf("  (failed: %s)\n", e.what());
  }
}

void printPower() {
  section("Power", [] {
    qo::CPowerState power = qo::CPowerState::query();
    line("source", qo::CPowerState::getSourceName(power.getSource()));
    line("battery", power.hasBattery() ? (power.getBatteryPercent() >= 0 ? std::to_string(power.getBatteryPercent()) + "%"
                                                                          : std::string("present"))
                                       : std::string("none"));
    if (power.hasBattery()) line("charging", power.isCharging());
  });
}

}  // namespace

int main() {
  qo::CQoInit init;
  section("System", [] {
    qo::P<qo::CSystemManager> const& sys = qo::CSystemManager::get();
    line("operating system", sys->getOSName() + u" " + sys->getOSVersion() + (sys->isOS64Bit() ? u" (64-bit)" : u""));
    line("description", sys->getOSDescription());
    line("machine name", sys->getMachineName());
    line("processors", std::to_string(sys->getProcessorCount()));
    line("memory", megabytes(sys->getAvailableMemory()) + " available of " + megabytes(sys->getTotalMemory()));
    line("uptime", sys->getUptime().toStringHMS());
    line("booted", sys->getBootTime().toString());
    line("elevated process", qo::CVistaFeatures::get()->isProcessElevated());
  });
  section("Current user", [] {
    qo::CSystemAccountManager::CUserInfo me = qo::CSystemAccountManager::get()->getCurrentUser();
    line("name", me.domain.isEmpty() ? me.name : me.domain + u"\\" + me.name);
    line("id", me.id);
    line("home", me.home);
    line("administrator", me.isAdmin);
  });
  section("Known folders", [] {
    for (auto which : {qo::CKnownPaths::Temp, qo::CKnownPaths::Home, qo::CKnownPaths::UserAppData,
                       qo::CKnownPaths::MachineAppData, qo::CKnownPaths::ProgramFiles}) {
      std::string name = qo::CKnownPaths::getFolderName(which).toUTF8();
      try {
        line(name.c_str(), qo::CKnownPaths::getFolder(which).toString(true));
      } catch (std::exception const& e) {
        line(name.c_str(), std::string("(failed: ") + e.what() + ")");
      }
    }
  });
  printPower();
  return 0;
}
