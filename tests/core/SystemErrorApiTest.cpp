// Real failures of several services: the system error behind each names the
// call that failed on this system ("api"): the POSIX call on Linux, never a
// Windows function; the Windows function on Windows.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "TempFolder.h"
#include "ipc/IPCTestSupport.h"
#include "qo/core/CSystemError.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/ipc/CIPCSemaphore.h"
#include "qo/log/CAppendableXMLWriter.h"
#include "qo/sys/CSystemSettings.h"

namespace qo {
namespace {

// The "api" of the error or of the first error in its cause chain that has
// one.
String apiOf(CError const& error) {
  for (CError const* e = &error; e != nullptr; e = e->getCause().get()) {
    String const api = e->getParams().lookup(CSystemError::paramAPI());
    if (!api.isEmpty()) return api;
  }
  return String();
}

bool isWindowsName(String const& api) {
  std::string const text = api.toUTF8();
  for (char const* prefix : {"Create", "Read", "Write", "Release", "Get", "Lookup", "Reg", "Wait", "Set"}) {
    if (text.rfind(prefix, 0) == 0) return true;
  }
  return !text.empty() && (text.back() == 'W' || text.back() == 'A');
}

TEST(SystemErrorApi, EachFailureNamesTheCallOfThisSystem) {
  test::TempFolder temp("qo-apinames");
  { std::ofstream(temp.file("plain")) << "a file, not a folder"; }
  bool const posix = CSystemError::getPlatformDomain() == String(u"POSIX");
  struct Case {
    char const* what;
    std::function<void()> provoke;
    char16_t const* posixApi;
    char16_t const* windowsApi;
  };
  Case const cases[] = {
      {"log file in a missing folder",
       [&] {
         CAppendableXMLWriter writer(temp.path("missing/log.xml"), false);
         writer.writeElement(u"entry", u"text");
         writer.flush();
       },
       u"open", u"CreateFileW"},
      {"IPC connect to a name nobody serves",
       [] { (void)CIPCConnection::connect(String::fromUTF8(ipctest::uniqueName("apinames")), 0); }, u"connect",
       u"CreateFileW"},
      {"IPC semaphore given back without a unit held",
       [] { CIPCSemaphore(String::fromUTF8(ipctest::uniqueName("apinames")), 1).incValue(); }, u"flock",
       u"ReleaseSemaphore"},
      {"settings file below a plain file",
       [&] {
         P<CSystemSettings> settings = newP<CSystemSettings>();
         settings->setRootFolder(temp.path("plain"));
         settings->setString(CSystemSettings::User, u"k", u"n", u"v");
       },
       u"open", u"CreateFileW"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    try {
      c.provoke();
      ADD_FAILURE() << "no error";
    } catch (CError const& e) {
      String const api = apiOf(e);
      EXPECT_EQ(api, String(posix ? c.posixApi : c.windowsApi)) << e.what();
      if (posix) EXPECT_FALSE(isWindowsName(api)) << api.toUTF8();
    }
  }
}

}  // namespace
}  // namespace qo
