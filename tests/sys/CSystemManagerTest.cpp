// CSystemManager and CVistaFeatures against independent answers of the OS:
// /proc, uname, sysconf and gethostname on Linux; the plain Win32 calls on
// Windows.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "qo/core/CNotImplementedError.h"
#include "qo/sys/CSystemManager.h"
#include "qo/sys/CVistaFeatures.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/utsname.h>
#include <unistd.h>
#endif

namespace qo {
namespace {

TEST(CSystemManager, AnswersMatchTheSystemsOwn) {
  P<CSystemManager> const& sys = CSystemManager::get();
  ASSERT_TRUE(sys);
  EXPECT_EQ(sys.get(), CSystemManager::get().get());
  int major = -1, minor = -1, build = -1;
  sys->getOSVersionNumbers(major, minor, build);
  EXPECT_EQ(sys->getOSVersion(),
            String::fromUTF8(std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build)));
  EXPECT_TRUE(sys->isOS64Bit());  // the library is built 64-bit only
  EXPECT_GT(sys->getTotalMemory(), 0u);
  EXPECT_LE(sys->getAvailableMemory(), sys->getTotalMemory());
#ifdef _WIN32
  EXPECT_EQ(sys->getOSName(), u"Windows");
  EXPECT_TRUE(sys->getOSDescription().StartsWith(u"Microsoft Windows " + sys->getOSVersion()));
  SYSTEM_INFO info;
  GetNativeSystemInfo(&info);
  EXPECT_EQ(sys->getProcessorCount(), static_cast<int>(info.dwNumberOfProcessors));
  wchar_t name[256];
  DWORD size = 256;
  ASSERT_TRUE(GetComputerNameExW(ComputerNameDnsHostname, name, &size));
  EXPECT_EQ(sys->getMachineName(), String(name));
  MEMORYSTATUSEX memory = {};
  memory.dwLength = sizeof memory;
  ASSERT_TRUE(GlobalMemoryStatusEx(&memory));
  EXPECT_EQ(sys->getTotalMemory(), memory.ullTotalPhys);
  long long before = static_cast<long long>(GetTickCount64());
  long long uptime = sys->getUptime().getMillis();
  long long after = static_cast<long long>(GetTickCount64());
  EXPECT_GE(uptime, before);
  EXPECT_LE(uptime, after);
#else
  struct utsname names;
  ASSERT_EQ(uname(&names), 0);
  EXPECT_EQ(sys->getOSName(), String::fromUTF8(names.sysname));
  EXPECT_TRUE(String::fromUTF8(names.release).StartsWith(sys->getOSVersion().Left(3)));
  EXPECT_TRUE(sys->getOSDescription().Contains(String::fromUTF8(names.release)));
  EXPECT_EQ(sys->getProcessorCount(), static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  EXPECT_EQ(sys->getMachineName(), String::fromUTF8(host));
  // /proc/meminfo gives kB; the kernel's page count gives the same total.
  std::ifstream meminfo("/proc/meminfo");
  std::string label;
  unsigned long long kb = 0;
  meminfo >> label >> kb;
  ASSERT_EQ(label, "MemTotal:");
  EXPECT_EQ(sys->getTotalMemory(), kb * 1024);
  // /proc/uptime counts in hundredths from the same boot clock.
  auto procUptime = [] {
    std::ifstream file("/proc/uptime");
    double seconds = -1;
    file >> seconds;
    return static_cast<long long>(seconds * 1000);
  };
  long long before = procUptime();
  long long uptime = sys->getUptime().getMillis();
  long long after = procUptime();
  EXPECT_GE(uptime, before);
  EXPECT_LE(uptime, after + 10);
#endif
  // Boot time is now minus uptime: the two readings bracket it.
  CTime low = CTime::now() - sys->getUptime();
  CTime boot = sys->getBootTime();
  CTime high = CTime::now() - sys->getUptime();
  EXPECT_GE(boot.getMicros(), low.getMicros() - 1000);
  EXPECT_LE(boot.getMicros(), high.getMicros() + 1000);
  EXPECT_EQ(boot.getMicros() % 1000, 0);
}

TEST(CVistaFeatures, AnswersOrRefusesAsDocumented) {
  P<CVistaFeatures> const& features = CVistaFeatures::get();
  ASSERT_TRUE(features);
#ifdef _WIN32
  HANDLE token = nullptr;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  ASSERT_TRUE(GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size));
  CloseHandle(token);
  EXPECT_EQ(features->isProcessElevated(), elevation.TokenIsElevated != 0);
  features->isUacEnabled();
  features->areLongPathsEnabled();
#else
  EXPECT_EQ(features->isProcessElevated(), geteuid() == 0);
  EXPECT_FALSE(features->isUacEnabled());
  try {
    features->areLongPathsEnabled();
    ADD_FAILURE() << "no error";
  } catch (CNotImplementedError const& e) {
    EXPECT_EQ(e.getMessage(), u"The function 'CVistaFeatures::areLongPathsEnabled' is not implemented.");
  }
#endif
}

}  // namespace
}  // namespace qo
