// CEventLog: on Linux the exact syslog datagrams, caught by a socket the
// test binds in place of the system's; on Windows real events.
#include <gtest/gtest.h>

#include <string>

#include "TempFolder.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/sys/CEventLog.h"

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#endif

namespace qo {
namespace {

TEST(CEventLog, BadSourcesAreRefused) {
  EXPECT_THROW(CEventLog(u""), CInvalidArgError);
#ifndef _WIN32
  test::TempFolder folder("qo-eventlog");
  try {
    CEventLog log(u"qo-test", folder.path("no-socket"));
    ADD_FAILURE() << "no error";
  } catch (CSystemError const& e) {
    EXPECT_EQ(e.getParams().lookup(CSystemError::paramAPI()), u"connect");
    EXPECT_EQ(e.getParams().lookup(u"source"), u"qo-test");
    EXPECT_EQ(e.getErrorCode(), ENOENT);
  }
#endif
}

#ifdef _WIN32
TEST(CEventLog, WritesEventsOfEveryType) {
  P<CEventLog> log = newP<CEventLog>(u"qo-test");
  for (auto type : {CEventLog::Information, CEventLog::Warning, CEventLog::Error})
    EXPECT_NO_THROW(log->write(type, u"qo event log test \u00e9"));
}
#else
TEST(CEventLog, SendsSyslogDatagrams) {
  test::TempFolder folder("qo-eventlog");
  std::string path = folder.file("log").string();
  int server = socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_GE(server, 0);
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  ASSERT_EQ(bind(server, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  {
    P<CEventLog> log = newP<CEventLog>(u"qo-test", String::fromUTF8(path));
    struct Case {
      CEventLog::Type type;
      char const* priority;  // facility user (8) + severity
      String message;
      char const* text;
    } const cases[] = {
        {CEventLog::Information, "<14>", u"started", "started"},
        {CEventLog::Warning, "<12>", u"disk \u00e9 full", "disk \xc3\xa9 full"},
        {CEventLog::Error, "<11>", u"", ""},
    };
    std::string tail = "qo-test[" + std::to_string(getpid()) + "]: ";
    for (Case const& c : cases) {
      SCOPED_TRACE(c.priority);
      log->write(c.type, c.message);
      char buffer[2048];
      ssize_t n = recv(server, buffer, sizeof buffer, 0);
      ASSERT_GT(n, 0);
      std::string packet(buffer, static_cast<std::size_t>(n));
      // "<PRI>Mmm dd hh:mm:ss ident[pid]: message": the stamp is 15 characters.
      EXPECT_EQ(packet.substr(0, 4), c.priority);
      ASSERT_EQ(packet.size(), 4 + 16 + tail.size() + std::strlen(c.text)) << packet;
      EXPECT_EQ(packet[4 + 15], ' ');
      EXPECT_EQ(packet.substr(4 + 16), tail + c.text);
    }
  }
  close(server);
}
#endif

}  // namespace
}  // namespace qo
