// CEventLogMirror between a real session log and the system's event log:
// on Linux the exact syslog datagrams, caught by a socket the test binds in
// place of the system's; on Windows real events, counted.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TempFolder.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/log/CXMLLog.h"
#include "qo/sys/CEventLogMirror.h"

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#endif

namespace qo {
namespace {

// Writes one entry of each kind; returns the event texts that errors and,
// with warnings, warnings give ("<priority>text").
std::vector<std::string> writeEntries(CXMLLog& log, bool withWarnings) {
  CIOError cause(2, u"Error reading data.");
  CIOError error(3, u"Disk full \u00e9");
  error.setCause(cause);
  log.logInfo(u"started");
  log.logWarning(u"disk almost full");
  log.logError(u"copy failed");
  log.logError(error, u"Backup failed.", u"job 12");
  log.logError(error, u"", u"");
  log.logError(CXMLElement(u"note", CProps(), u"x"), u"summary only", u"");
  log.writeEntry(LogLevelFatalError, u"crash", nullptr);
  std::vector<std::string> events;
  if (withWarnings) events.push_back("<12>disk almost full");
  events.push_back("<11>copy failed");
  events.push_back("<11>Backup failed. [job 12]: Disk full \xc3\xa9; caused by: Error reading data.");
  events.push_back("<11>Disk full \xc3\xa9; caused by: Error reading data.");
  events.push_back("<11>summary only");
  events.push_back("<11>crash");
  return events;
}

TEST(CEventLogMirror, RefusesANullEventLog) { EXPECT_THROW(CEventLogMirror(nullptr), CInvalidArgError); }

#ifdef _WIN32
TEST(CEventLogMirror, WritesErrorsToTheEventLog) {
  test::TempFolder folder("qo-mirror");
  P<CXMLLog> log = newP<CXMLLog>(folder.path("log.xml"));
  P<CEventLogMirror> mirror = newP<CEventLogMirror>(newP<CEventLog>(u"qo-test"), true);
  log->addEntryListener(mirror.get());
  std::size_t const expected = writeEntries(*log, true).size();
  EXPECT_EQ(mirror->getMirroredCount(), static_cast<long long>(expected));
  EXPECT_EQ(mirror->getFailureCount(), 0);
  log->close();
}
#else
class SyslogCatcher {
public:
  explicit SyslogCatcher(std::string const& path) : m_path(path) {
    m_socket = socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    m_bound = bind(m_socket, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0;
  }
  ~SyslogCatcher() { close(m_socket); }
  bool ok() const { return m_socket >= 0 && m_bound; }
  // Every datagram waiting, as "<priority>message" (the stamp and the
  // "ident[pid]: " cut out).
  std::vector<std::string> take() {
    std::vector<std::string> out;
    char buffer[4096];
    for (ssize_t n; (n = recv(m_socket, buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
      std::string packet(buffer, static_cast<std::size_t>(n));
      std::size_t const tag = packet.find("]: ");
      out.push_back(packet.substr(0, 4) + (tag == std::string::npos ? packet : packet.substr(tag + 3)));
    }
    return out;
  }

private:
  std::string m_path;
  int m_socket = -1;
  bool m_bound = false;
};

TEST(CEventLogMirror, SendsErrorsAndOptionallyWarnings) {
  for (bool withWarnings : {false, true}) {
    SCOPED_TRACE(withWarnings ? "with warnings" : "errors only");
    test::TempFolder folder("qo-mirror");
    std::string const socketPath = folder.file("log").string();
    SyslogCatcher catcher(socketPath);
    ASSERT_TRUE(catcher.ok());
    P<CXMLLog> log = newP<CXMLLog>(folder.path("log.xml"));
    P<CEventLogMirror> mirror =
        newP<CEventLogMirror>(newP<CEventLog>(u"qo-test", String::fromUTF8(socketPath)), withWarnings);
    log->addEntryListener(mirror.get());
    log->addEntryListener(mirror.get());  // once is enough
    std::vector<std::string> const expected = writeEntries(*log, withWarnings);
    EXPECT_EQ(catcher.take(), expected);
    EXPECT_EQ(mirror->getMirroredCount(), static_cast<long long>(expected.size()));
    EXPECT_EQ(mirror->getFailureCount(), 0);
    // The log has every entry, the info one too; after removal nothing more
    // is mirrored.
    EXPECT_NE(log->getXMLData().toUTF8().find(">started</entry>"), std::string::npos);
    log->removeEntryListener(mirror.get());
    log->logError(u"not mirrored");
    EXPECT_TRUE(catcher.take().empty());
    log->close();
  }
}

TEST(CEventLogMirror, AFailingEventLogLeavesTheLogAlone) {
  test::TempFolder folder("qo-mirror");
  std::string const socketPath = folder.file("log").string();
  P<CEventLogMirror> mirror;
  {
    SyslogCatcher catcher(socketPath);
    ASSERT_TRUE(catcher.ok());
    mirror = newP<CEventLogMirror>(newP<CEventLog>(u"qo-test", String::fromUTF8(socketPath)));
  }  // the log service goes away
  P<CXMLLog> log = newP<CXMLLog>(folder.path("log.xml"));
  log->addEntryListener(mirror.get());
  EXPECT_NO_THROW(log->logError(u"written anyway"));
  EXPECT_EQ(mirror->getFailureCount(), 1);
  ASSERT_TRUE(mirror->getLastFailure());
  EXPECT_EQ(mirror->getLastFailure()->getParams().lookup(CSystemError::paramAPI()), u"send");
  EXPECT_NE(log->getXMLData().toUTF8().find(">written anyway</entry>"), std::string::npos);
  log->close();
}
#endif

}  // namespace
}  // namespace qo
