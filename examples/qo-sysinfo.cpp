// qo-sysinfo: what the library's system services see on this machine: the
// operating system, the hardware, the current user, the known folders, the
// volumes and the disks, the power state and the decision for background work.
//
//   qo-sysinfo
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "qo/core/CQoInit.h"
#include "qo/sys/CDeviceManager.h"
#include "qo/sys/CKnownPaths.h"
#include "qo/sys/CNotificationSettings.h"
#include "qo/sys/CPowerState.h"
#include "qo/sys/CStealthController.h"
#include "qo/sys/CSystemAccountManager.h"
#include "qo/sys/CSystemManager.h"
#include "qo/sys/CUsageMonitor.h"
#include "qo/sys/CVisibleProcessMonitor.h"
#include "qo/sys/CVistaFeatures.h"
#include "qo/thread/CThread.h"

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

// The stealth controller's view of this machine: its decision for background
// work now and the usage it was made from (loads over one second).
void showUsage() {
  section("Background work", [] {
    qo::P<qo::CUsageMonitor> monitor = qo::newP<qo::CUsageMonitor>();
    qo::P<qo::CStealthController> controller = qo::newP<qo::CStealthController>(monitor);
    qo::CThread::sleep(1000);
    qo::CStealthController::EDecision const decision = controller->update();
    qo::String const reason = controller->getReason();
    line("decision",
         qo::CStealthController::toString(decision) + (reason.isEmpty() ? qo::String() : u" (" + reason + u")"));
    line("rate", std::to_string(static_cast<int>(controller->getRate() * 100)) + "%");
    line("inputs", controller->getLastSample().toString());
    line("notifications", qo::CNotificationSettings::toString(qo::CNotificationSettings::getState()));
    std::vector<qo::CVisibleProcessMonitor::CEntry> const visible = qo::CVisibleProcessMonitor::snapshot();
    line("visible processes", std::to_string(visible.size()) +
                                  (qo::CVisibleProcessMonitor::anyFullScreen(visible) ? " (one full screen)" : ""));
  });
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
  section("Volumes", [] {
    int hidden = 0;
    for (qo::CDeviceManager::CVolumeInfo const& v : qo::CDeviceManager::get()->getVolumes()) {
      // Memory and kernel file systems are noise here.
      if (!v.hasDevice() && !v.network) {
        ++hidden;
        continue;
      }
      std::string flags;
      if (v.removable) flags += " removable";
      if (v.network) flags += " network";
      if (v.readOnly) flags += " read-only";
      std::string size = v.sizeKnown ? megabytes(v.freeBytes) + " free of " + megabytes(v.totalBytes) : "size unknown";
      line(v.mountPoints.front().toUTF8().c_str(), (v.fileSystem + u" " + v.devicePath).toUTF8() + ", " + size + flags);
      if (!v.label.isEmpty() || !v.serial.isEmpty())
        line("", "label '" + v.label.toUTF8() + "', serial " + v.serial.toUTF8());
      for (std::size_t i = 1; i < v.mountPoints.size(); ++i) line("", "also at " + v.mountPoints[i].toUTF8());
    }
    if (hidden > 0) std::printf("  (%d memory and kernel file systems not shown)\n", hidden);
  });
  section("Disks", [] {
    for (qo::CDeviceManager::CDiskInfo const& d : qo::CDeviceManager::get()->getDisks()) {
      line(d.devicePath.toUTF8().c_str(), megabytes(static_cast<unsigned long long>(d.size)) + ", sectors " +
                                              std::to_string(d.logicalSectorSize) + "/" +
                                              std::to_string(d.physicalSectorSize) +
                                              (d.model.isEmpty() ? "" : ", " + d.model.toUTF8()) +
                                              (d.removable ? ", removable" : ""));
    }
  });
  printPower();
  showUsage();
  return 0;
}
