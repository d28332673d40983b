#include "qo/platform/Power.h"

#include "qo/platform/Process.h"

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace qo::platform {

struct NativeKeepAwake {
  ProcessHandle process = nullptr;
  PipeHandle input = nullptr;
  PipeHandle output = nullptr;
};

namespace {

// The first line of a sysfs attribute; "" when it cannot be read.
std::string readAttribute(std::string const& folder, char const* name) {
  std::ifstream in(folder + "/" + name);
  std::string line;
  if (!in || !std::getline(in, line)) return std::string();
  while (!line.empty() && (line.back() == '\n' || line.back() == ' ' || line.back() == '\r')) line.pop_back();
  return line;
}

}  // namespace

SysError powerGetStatus(char const* supplyFolder, PowerStatus& status) {
  status = PowerStatus();
  std::string const root = supplyFolder ? supplyFolder : "/sys/class/power_supply";
  DIR* dir = opendir(root.c_str());
  if (!dir) {
    if (errno == ENOENT || errno == ENOTDIR) return SysError();  // no supplies known
    return lastSysError("opendir");
  }
  bool lineKnown = false, lineOnline = false, discharging = false;
  int percentSum = 0, percentCount = 0;
  while (struct dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    std::string const folder = root + "/" + name;
    std::string const type = readAttribute(folder, "type");
    if (type == "Battery") {
      // Batteries of devices (mice, headsets) do not power the system.
      if (readAttribute(folder, "scope") == "Device") continue;
      status.hasBattery = true;
      std::string const state = readAttribute(folder, "status");
      if (state == "Charging") status.charging = true;
      if (state == "Discharging") discharging = true;
      std::string const capacity = readAttribute(folder, "capacity");
      if (!capacity.empty()) {
        char* end = nullptr;
        long value = std::strtol(capacity.c_str(), &end, 10);
        if (end && *end == '\0' && value >= 0 && value <= 100) {
          percentSum += static_cast<int>(value);
          ++percentCount;
        }
      }
    } else if (!type.empty()) {
      // Mains, USB, USB_C, ...: line power when it has "online".
      std::string const online = readAttribute(folder, "online");
      if (online.empty()) continue;
      lineKnown = true;
      if (online != "0") lineOnline = true;
    }
  }
  closedir(dir);
  if (percentCount > 0) status.batteryPercent = (percentSum + percentCount / 2) / percentCount;
  if (lineOnline) status.source = PowerSource::AC;
  else if (lineKnown) status.source = PowerSource::Battery;
  else if (discharging) status.source = PowerSource::Battery;
  else if (status.charging) status.source = PowerSource::AC;
  return SysError();
}

SysError keepAwakeBegin(std::u16string const& who, std::u16string const& why, KeepAwakeHandle& handle,
                        bool& unavailable, std::string& detail) {
  handle = nullptr;
  unavailable = false;
  detail.clear();
  ProcessStartInfo info;
  info.argv = {u"systemd-inhibit", u"--what=sleep", u"--who=" + who, u"--why=" + why, u"--mode=block", u"cat"};
  info.redirectStdin = true;
  info.redirectStdout = true;
  info.stderrToStdout = true;
  ProcessHandle process = nullptr;
  PipeHandle input = nullptr, output = nullptr, errors = nullptr;
  if (SysError e = processStart(info, process, input, output, errors)) {
    if (e.code == ENOENT) {
      unavailable = true;
      detail = "systemd-inhibit was not found";
    }
    return e;
  }
  // cat echoes the probe only once the inhibitor is held; a refusal ends
  // systemd-inhibit with its message instead.
  static char const kProbe[] = "qo-keep-awake\n";
  bool broken = false;
  SysError e = pipeWrite(input, kProbe, sizeof kProbe - 1, broken);
  std::string got;
  while (!e && got.find(kProbe) == std::string::npos) {
    char buffer[512];
    std::size_t n = 0;
    e = pipeRead(output, buffer, sizeof buffer, n);
    if (e || n == 0) break;
    got.append(buffer, n);
  }
  if (!e && got.find(kProbe) != std::string::npos) {
    handle = new NativeKeepAwake{process, input, output};
    return SysError();
  }
  pipeClose(input);
  bool ended = false;
  processWait(process, -1, ended);
  int exitCode = 0, signal = 0;
  processExitStatus(process, exitCode, signal);
  processClose(process);
  pipeClose(output);
  if (e) return e;
  unavailable = true;
  while (!got.empty() && (got.back() == '\n' || got.back() == '\r')) got.pop_back();
  detail = got.empty() ? "systemd-inhibit ended with code " + std::to_string(exitCode) : got;
  return sysErrorOf(ENOSYS, "systemd-inhibit");
}

void keepAwakeEnd(KeepAwakeHandle handle) {
  if (!handle) return;
  // The end of its input ends cat, and with it systemd-inhibit and the
  // inhibitor.
  pipeClose(handle->input);
  bool ended = false;
  processWait(handle->process, -1, ended);
  processClose(handle->process);
  pipeClose(handle->output);
  delete handle;
}

}  // namespace qo::platform
