#include "qo/sys/CSystemManager.h"

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/SysInfo.h"

namespace qo {

namespace {

[[noreturn]] void throwSystemError(char16_t const* message, char16_t const* function, char16_t const* api,
                                   platform::SysError const& e) {
  throw CSystemError(message, function, api, e);
}

platform::OsInfo osInfo(char16_t const* function) {
  platform::OsInfo info;
  if (platform::SysError e = platform::getOsInfo(info))
    throwSystemError(u"Error reading the operating system's version.", function, u"RtlGetVersion", e);
  return info;
}

platform::MemoryInfo memoryInfo(char16_t const* function) {
  platform::MemoryInfo info;
  if (platform::SysError e = platform::getMemoryInfo(info))
    throwSystemError(u"Error reading the memory size.", function, u"GlobalMemoryStatusEx", e);
  return info;
}

}  // namespace

P<CSystemManager> const& CSystemManager::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CSystemManager>::get(g_pInstanceSlot);
}

CSystemManager::CSystemManager() = default;
CSystemManager::~CSystemManager() = default;

String CSystemManager::getOSName() const { return String(osInfo(u"CSystemManager::getOSName").type); }

String CSystemManager::getOSVersion() const {
  int major = 0, minor = 0, build = 0;
  getOSVersionNumbers(major, minor, build);
  return String::fromUTF8(std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build));
}

void CSystemManager::getOSVersionNumbers(int& major, int& minor, int& build) const {
  platform::OsInfo info = osInfo(u"CSystemManager::getOSVersionNumbers");
  major = info.versionMajor;
  minor = info.versionMinor;
  build = info.versionUpdate;
}

String CSystemManager::getOSDescription() const {
  return String(osInfo(u"CSystemManager::getOSDescription").description);
}

bool CSystemManager::isOS64Bit() const { return osInfo(u"CSystemManager::isOS64Bit").is64Bit; }

String CSystemManager::getMachineName() const {
  std::u16string name;
  if (platform::SysError e = platform::getMachineName(name))
    throwSystemError(u"Error reading the machine name.", u"CSystemManager::getMachineName", u"GetComputerNameExW", e);
  return String(std::move(name));
}

int CSystemManager::getProcessorCount() const { return platform::getCoreCount(); }

unsigned long long CSystemManager::getTotalMemory() const {
  return memoryInfo(u"CSystemManager::getTotalMemory").totalPhysical;
}

unsigned long long CSystemManager::getAvailableMemory() const {
  return memoryInfo(u"CSystemManager::getAvailableMemory").freePhysical;
}

CTimeSpan CSystemManager::getUptime() const {
  long long millis = 0;
  if (platform::SysError e = platform::getUptimeMillis(millis))
    throwSystemError(u"Error reading the system's uptime.", u"CSystemManager::getUptime", u"GetTickCount64", e);
  return CTimeSpan::fromMillis(millis);
}

CTime CSystemManager::getBootTime() const {
  CTime now = CTime::now();
  CTime boot = now - getUptime();
  // Whole milliseconds: the uptime has no finer grain.
  return CTime::fromMicros(boot.getMicros() - boot.getMicros() % 1000);
}

}  // namespace qo
