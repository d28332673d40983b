// CXMLLog: cutting the log from the front (shrinking, and reading a newest
// part of it) and reading it back.
#include "qo/log/CXMLLog.h"

#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/fs/LocalFile.h"
#include "qo/log/CAppendableXMLWriter.h"
#include "qo/log/CQuickXMLChecker.h"

namespace qo {

namespace {

String entryStart() { return u"\n" + CXMLWriter::getIndentString(2) + u"<entry "; }
String complexEntryStart() { return u"\n" + CXMLWriter::getIndentString(2) + u"<centry "; }
String sessionStart() { return u"\n" + CXMLWriter::getIndentString(1) + u"<session "; }

// Where "\n<log" and its line end; false when the data has no such line.
bool findLogLineEnd(String const& data, std::size_t& lineEnd) {
  std::size_t const logPos = data.Find(String(u"\n<log"));
  if (logPos == String::npos) return false;
  lineEnd = data.Find(u'\n', logPos + 1);
  return lineEnd != String::npos;
}

String snipLine() { return CXMLWriter::getIndentString(1) + u"<snip />"; }

}  // namespace

String CXMLLog::cutMainData(String const& data, std::size_t from) {
  std::size_t const entry = data.Find(entryStart(), from);
  std::size_t const complexEntry = data.Find(complexEntryStart(), from);
  std::size_t const firstEntry = entry < complexEntry ? entry : complexEntry;
  std::size_t const session = data.Find(sessionStart(), from);
  if (firstEntry != String::npos && (session == String::npos || firstEntry < session))
    return cutMainDataAtEntry(data, firstEntry);
  if (session != String::npos) return cutMainDataAtSession(data, session);
  return String();
}

String CXMLLog::cutMainDataAtSession(String const& data, std::size_t pos) {
  std::size_t lineEnd = 0;
  if (!findLogLineEnd(data, lineEnd) || lineEnd > pos) return String();
  return data.Left(lineEnd + 1) + snipLine() + data.Mid(pos);
}

String CXMLLog::cutMainDataAtEntry(String const& data, std::size_t pos) {
  std::size_t lineEnd = 0;
  if (!findLogLineEnd(data, lineEnd) || lineEnd > pos) return String();
  std::size_t const session = data.str().rfind(sessionStart().str(), pos);
  if (session == std::u16string::npos || session < lineEnd) return String();
  std::size_t const sessionLineEnd = data.Find(u'\n', session + 1);
  if (sessionLineEnd == String::npos || sessionLineEnd > pos) return String();
  return data.Left(lineEnd + 1) + snipLine() + data.Mid(session, sessionLineEnd - session) + data.Mid(pos);
}

// --- reading -------------------------------------------------------------------

String CXMLLog::readLogRaw(String const& path) { return CAppendableXMLWriter::readFullData(path); }

bool CXMLLog::readValidLog(String& out, String const& path, int maxBytes, int maxSessions) {
  if (maxBytes < 1 && maxBytes != -1)
    throw CInvalidArgError(u"CXMLLog::readValidLog", u"maxBytes must be -1 or positive",
                           CProps().addLong(u"maxBytes", maxBytes));
  if (maxSessions < 1 && maxSessions != -1)
    throw CInvalidArgError(u"CXMLLog::readValidLog", u"maxSessions must be -1 or positive",
                           CProps().addLong(u"maxSessions", maxSessions));
  out.clear();
  if (!localFileExists(path)) return false;
  String data = readLogRaw(path);
  if (!CQuickXMLChecker(data).doCheck()) return false;
  if (maxSessions != -1) {
    std::vector<std::size_t> starts;
    String const pattern = sessionStart();
    for (std::size_t pos = data.Find(pattern); pos != String::npos; pos = data.Find(pattern, pos + 1))
      starts.push_back(pos);
    if (starts.size() > static_cast<std::size_t>(maxSessions)) {
      String const cut = cutMainDataAtSession(data, starts[starts.size() - static_cast<std::size_t>(maxSessions)]);
      if (!cut.isEmpty()) data = cut;
    }
  }
  if (maxBytes != -1 && data.length() > static_cast<std::size_t>(maxBytes)) {
    String const cut = cutMainData(data, data.length() - static_cast<std::size_t>(maxBytes));
    if (!cut.isEmpty()) data = cut;
  }
  out = data;
  return true;
}
}  // namespace qo
