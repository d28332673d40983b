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
// A process may also be killed at any instruction, in the middle of a
// flush too. The pair stays a complete document at every instant, because
// each flush is a sequence of steps that each leave it complete:
// - A write() inside one page (4096 bytes) of a file is never cut short by a
//   kill; the kernel only stops a longer write between pages. Output of up to
//   a page that starts a new line is preceded by white space when it would
//   straddle a page boundary, and goes out in one write: the usual entry
//   costs one system call.
// - Longer output is written hidden: its first four bytes of indent are
//   "<?q " and the suffix file starts with "?>", so a torn tail is inside a
//   processing instruction that the suffix closes. Then the four bytes are
//   set back to white space and the suffix loses its "?>".
// - When the open elements change, the "?>" in the suffix file stands after
//   the end tags that only one of the two states needs, and the main file
//   hides or reveals them: closing appends the end tags followed by "<?q "
//   (which swallows the suffix's now extra end tags), opening appends the
//   new start tags hidden, then the suffix gets their end tags before its
//   "?>" and the main file reveals them.
// - A new document and the data given to replaceMainData are written to
//   path + ".tmp" and renamed over the main file, with the suffix file
//   changed around the rename in the same way.
// Opening with append = true finishes what a killed flush left: a hidden
// tail is removed, a cut-off tag or text at the end is removed, and the
// suffix file is rebuilt from what the main file says is open.
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

namespace platform {
struct NativeFile;
}  // namespace platform

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
  /// the suffix file when its end tags changed, in the order described
  /// above. Output that both closes and opens elements has no such order:
  /// it is written main file first, suffix second (flush between the two).
  /// Throws CIOError; the output is kept for the next flush when the main
  /// file did not take it.
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
  // The write order (CAppendableXMLWriterCommit.cpp).
  void openMainFile();
  void closeFiles() noexcept;
  void appendMain(std::string const& bytes);
  void patchMain(long long offset, std::string const& bytes);
  void truncateMain(long long length);
  void writeSuffix(std::string const& bytes);
  void renameOverMain(std::string const& bytes);
  bool appendHidden(std::string const& bytes, long long& slot, bool& prefixed);
  void revealHidden(long long slot, bool prefixed, std::string const& bytes);
  void commitSameElements(std::string const& bytes, std::string const& suffix);
  void commitClose(std::string const& bytes, std::string const& suffix, std::size_t closed);
  void commitOpen(std::string const& bytes, std::string const& suffix, std::size_t opened);
  void commitNewDocument(std::string const& bytes, std::string const& suffix);
  void commitReplacement(std::string const& bytes);
  // Opening and repair (CAppendableXMLWriterRepair.cpp).
  void openExisting();
  std::string getPendingBytes() const;
  void clearPending();

  String m_path;
  String m_suffixPath;
  platform::NativeFile* m_mainFile = nullptr;    // appending
  P<TBuffer<unsigned char>> m_pendingBytes;
  P<CBufferStream> m_pending;
  P<CXMLWriter> m_writer;
  // The open elements and the suffix file's text as the last flush left
  // them.
  TList<String> m_flushedElements;
  std::string m_writtenSuffix;
  bool m_newDocument = false;  // not on disk before the first flush
  // The open elements of the document this new one replaces, as its suffix
  // file names them; false when there is none or it is unreadable.
  bool m_haveReplacedElements = false;
  TList<String> m_replacedElements;
  // The main file's length as this writer made it: only this writer appends
  // while the log is open (the crash handler only once the process is
  // going down), so it is not asked of the OS for every flush.
  long long m_mainLength = 0;
};

namespace detail {
/// Called with a short name after each step of a flush that changes a file
/// ("suffix", "append", "reveal", "truncate", "rename", "repair"), for tests
/// that stop a process between steps. Null (the default) for none.
/// Thread-safe.
using XMLWriteStepHook = void (*)(char const* step);
QO_API void setXMLWriteStepHook(XMLWriteStepHook hook) noexcept;
}  // namespace detail

}  // namespace qo

#endif  // QO_LOG_CAPPENDABLEXMLWRITER_H
