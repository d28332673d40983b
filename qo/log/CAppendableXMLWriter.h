// qo/log/CAppendableXMLWriter.h - an XML document in a file that can be
// continued later, by this process or the next, and is complete whenever it
// is read.
//
// The document is split over two files:
// - the main file holds everything except the end tags of the elements that
//   are still open; it only ever grows at its end (until replaceMainData);
// - the suffix file (getSuffixFilePath: "log.xml" -> "log-suffix.xml") holds
//   exactly those end tags, as closeElement would write them.
// The main file followed by the suffix file (readFullData) is a complete
// document after every flush(). Output between two flushes is kept in
// memory and reaches the main file in one write at the next flush, so a
// process that dies in the middle of an element leaves the pair as it was
// at the last flush.
//
// A process may also die (be killed) in the middle of a flush:
// - Appending: output of up to a page (4096 bytes) that starts a new line
//   is written so that it does not straddle a page boundary of the file
//   (white space fills up to the boundary first), and such a write is never
//   cut short by a kill. Larger output can be cut at a page boundary.
// - The suffix file is rewritten in place (never emptied first).
// - A new document, and the main data given to replaceMainData, are written
//   to path + ".tmp" and renamed over the main file.
// What stays open is the moment between the main file and the suffix file
// when the open elements change (a flush after openElement or closeElement):
// the pair is then one end tag off until the suffix file is written.
// Opening with append = true repairs both: the main file decides which
// elements are open, a cut-off tag or text at its end is removed, and the
// suffix file is rewritten to fit.
//
// Opening with append = true reads the suffix file (readSuffix) to learn
// which elements are open and continues at the end of the main file; a
// missing main file is started anew. A new document is not on disk before
// its first flush.
//
//   CAppendableXMLWriter w(u"/var/log/app/log.xml", true);
//   if (w.getOpenElementCount() == 0) w.openElement(u"log");
//   w.writeElement(u"entry", u"started");
//   w.flush();   // main file grows; log-suffix.xml holds "\n</log>\n"
//
// Not thread-safe.
#ifndef QO_LOG_CAPPENDABLEXMLWRITER_H
#define QO_LOG_CAPPENDABLEXMLWRITER_H

#include <map>

#include "qo/core/CBase.h"
#include "qo/core/CProps.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TBuffer.h"
#include "qo/core/TList.h"
#include "qo/log/CXMLElement.h"
#include "qo/log/CXMLWriter.h"

namespace qo {

class CBufferStream;
class CLocalFileStream;

/// An XML writer on a main file and its suffix file. Not thread-safe.
class QO_API CAppendableXMLWriter : public CBase {
public:
  /// Opens the document at path (native). append = false, or no file at
  /// path: a new document starting with the XML declaration, which replaces
  /// the files at the first flush. append = true and a main file there:
  /// continues it with the open elements that the suffix file names (none
  /// when it is missing); when the main file disagrees (see the repair
  /// above) the main file's elements are taken and the files are repaired
  /// at once. Throws CIOError when a file cannot be opened, read or
  /// repaired, CFileCorruptedError (path of the suffix file) when the suffix
  /// file holds anything but end tags and white space.
  CAppendableXMLWriter(String const& path, bool append);
  /// Closes the main file without flushing: output since the last flush is
  /// dropped. Never throws.
  ~CAppendableXMLWriter() override;
  CAppendableXMLWriter(CAppendableXMLWriter const&) = delete;
  CAppendableXMLWriter& operator=(CAppendableXMLWriter const&) = delete;

  // The element operations of CXMLWriter (see there).
  void openElement(String const& name, CProps const& attributes = CProps());
  void openElement(String const& name, std::map<String, String> const* attributes);
  /// Throws CError "Internal error: CXMLWriter cannot close the element
  /// because no element is open." when none is open.
  void closeElement();
  void writeElement(String const& name, String const& text, CProps const& attributes = CProps());
  void writeElement(CXMLElement const& element);
  void writeText(String const& text);
  void writeRawString(String const& text);
  void writeRawElementBegin(String const& name, CProps const& attributes = CProps());
  void writeRawElementEnd(String const& name);
  void newLine(int depth);
  static String getIndentString(int depth) { return CXMLWriter::getIndentString(depth); }
  /// Output always goes to the end of the document; kept for the writer's
  /// interface.
  void seekToEnd();
  TList<String> const& getOpenElementStack() const noexcept;
  int getOpenElementCount() const noexcept;
  /// Throws CInvalidArgError when no element is open at depth.
  String const& getOpenElementName(int depth) const;

  /// Appends the output since the last flush to the main file and rewrites
  /// the suffix file when its end tags changed (or it went missing). Throws
  /// CIOError; the output is kept for the next flush then.
  void flush();
  /// The main document: the main file and the output not yet flushed, read
  /// as UTF-8 (invalid bytes as Latin-1). Throws CIOError.
  String getMainData() const;
  /// The size in bytes of getMainData(). Throws CIOError.
  long long getMainDataSize() const;
  /// Replaces the main file's content with data (UTF-8), in one step (see
  /// above); output not yet flushed is dropped, the open elements stay as
  /// they are. Throws CIOError.
  void replaceMainData(String const& data);
  /// getMainData() followed by the end tags of the open elements: the
  /// complete document. Throws CIOError.
  String getFullData() const;
  /// The path of the main file, as given.
  String const& getPath() const noexcept { return m_path; }

  /// The main file at path followed by its suffix file (if any), as text:
  /// what a reader of the document sees. Throws CIOError (kind 1 with
  /// "fileSysProblem" 1 when the main file does not exist).
  static String readFullData(String const& path);
  /// path with "-suffix" put before the extension of its last component
  /// ("C:\\a.b\\log.xml" -> "C:\\a.b\\log-suffix.xml", "log" -> "log-suffix").
  /// A name's leading dot does not start an extension.
  static String getSuffixFilePath(String const& path);
  /// Reads the end tags of a suffix text: the open elements, root first,
  /// into openElements, and into closedLast whether the innermost one was
  /// last closed (its end tag starts a new line). False (outputs unchanged)
  /// for a text with anything but end tags and white space.
  static bool readSuffix(String const& suffixText, TList<String>& openElements, bool& closedLast);

private:
  void openMainFile(bool truncate);
  void writeSuffixFile(String const& text);
  void commitMainFile(std::string const& bytes, bool newDocument);
  std::string getPendingBytes() const;

  String m_path;
  String m_suffixPath;
  P<CLocalFileStream> m_main;
  P<TBuffer<unsigned char>> m_pendingBytes;
  P<CBufferStream> m_pending;
  P<CXMLWriter> m_writer;
  String m_writtenSuffix;
  bool m_suffixWritten = false;
  bool m_newDocument = false;  // not on disk before the first flush
  // The main file's length as this writer made it: only this writer appends
  // while the log is open (the crash handler only once the process is
  // going down), so it is not asked of the OS for every flush.
  long long m_mainLength = 0;
};

}  // namespace qo

#endif  // QO_LOG_CAPPENDABLEXMLWRITER_H
