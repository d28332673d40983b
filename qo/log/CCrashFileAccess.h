// qo/log/CCrashFileAccess.h - a file and a minimal XML writer for the crash
// path.
//
// A crash report is written inside a process whose heap and locks may be
// broken, so this class owns nothing but a raw OS file handle and a fixed
// output buffer: it never allocates, never locks and never throws. Failures
// are remembered (hasFailed) and make later writes do nothing.
//
// The XML writer keeps a depth for indentation (two spaces per level) and
// escapes text with four entities only: &quot; &amp; &lt; &gt; (no
// apostrophe entity). Wide text is written as UTF-8; on Windows a lone
// surrogate becomes U+FFFD.
//
//   CCrashFileAccess f;
//   if (f.open(path, CCrashFileAccess::kCreate)) {
//     f.writeXMLHeader();
//     f.writeOpeningTag("crash", false, "type=\"unknown\"");
//     f.writeInt64Element("line", 12);          // "\n  <line>12</line>"
//     f.writeClosingTag("crash", true);         // "\n</crash>"
//     f.close();
//   }
#ifndef QO_LOG_CCRASHFILEACCESS_H
#define QO_LOG_CCRASHFILEACCESS_H

#include "qo/core/Export.h"
#include "qo/platform/Crash.h"

namespace qo {

/// A raw file with a small output buffer and an XML writer. Not
/// thread-safe; not copyable. Never allocates, never throws.
class QO_API CCrashFileAccess {
public:
  enum OpenType {
    kCreate,  ///< create or truncate, write
    kAppend,  ///< create when missing, write at the end
    kRead,    ///< read from the start
    kUpdate,  ///< an existing file, written in place (writeAt)
  };

  CCrashFileAccess() noexcept;
  ~CCrashFileAccess();  ///< Closes (and flushes) an open file.
  CCrashFileAccess(CCrashFileAccess const&) = delete;
  CCrashFileAccess& operator=(CCrashFileAccess const&) = delete;

  /// Opens path (closing a file still open first); false on failure. Resets
  /// the failure flag, the position and the depth. With kAppend the
  /// position starts at the file's size.
  bool open(wchar_t const* path, OpenType type) noexcept;
  bool isOpen() const noexcept;
  /// Reads up to size bytes: the count read, 0 at the end, -1 on failure.
  int read(void* buffer, int size) noexcept;
  /// Buffers size bytes for writing; false once any write has failed.
  bool write(void const* data, int size) noexcept;
  /// Writes out the buffer; false once any write has failed.
  bool flush() noexcept;
  /// Writes size bytes at offset at once, past the buffer (open with
  /// kUpdate: an appending file writes only at its end); false on failure.
  bool writeAt(long long offset, void const* data, int size) noexcept;
  /// Bytes written through this object plus, when appending, the size the
  /// file had (so 0 right after opening an empty file).
  long long getPosition() const noexcept;
  /// Flushes and closes; false when anything failed. Nothing when not open.
  bool close() noexcept;
  /// True once an open, write or flush has failed since the last open.
  bool hasFailed() const noexcept { return m_failed; }
  /// The OS handle (for writers that bypass the buffer; flush() first).
  platform::CrashFileHandle getHandle() const noexcept { return m_file; }

  // --- XML -------------------------------------------------------------------

  /// `<?xml version="1.0" encoding="utf-8" ?>` and a newline.
  void writeXMLHeader() noexcept;
  /// [newline and indent] `<name attributes>`, then one level deeper.
  /// attributes is raw text (already escaped), may be null.
  void writeOpeningTag(char const* name, bool newLine, char const* attributes = nullptr) noexcept;
  /// One level up, then [newline and indent] `</name>`.
  void writeClosingTag(char const* name, bool newLine) noexcept;
  /// [newline and indent] `<name />`.
  void writeEmptyTag(char const* name, bool newLine) noexcept;
  /// [newline and indent] `<name` - then writeAttribute calls and
  /// writeTagEnd.
  void writeTagStart(char const* name, bool newLine) noexcept;
  /// ` name="value"` with the value escaped.
  void writeAttribute(char const* name, char const* value) noexcept;
  void writeAttribute(char const* name, wchar_t const* value) noexcept;
  /// ` name="decimal"`.
  void writeInt64Attribute(char const* name, long long value) noexcept;
  /// ` name="0x<16 hex digits>"`.
  void writeAddressAttribute(char const* name, unsigned long long value) noexcept;
  /// `>` (one level deeper) or, when empty, ` />`.
  void writeTagEnd(bool empty) noexcept;
  /// Newline, indent, `<name>escaped text</name>`.
  void writeStringElement(char const* name, char const* text) noexcept;
  void writeStringElement(char const* name, wchar_t const* text) noexcept;
  /// Newline, indent, `<name>decimal</name>`.
  void writeInt64Element(char const* name, long long value) noexcept;
  /// Newline, indent, `<name>0x<16 lower-case hex digits></name>`.
  void writeAddressElement(char const* name, unsigned long long address) noexcept;
  /// A newline and the indent of the current depth.
  void writeNewLine() noexcept;

  void writeChar(char c) noexcept;
  /// Narrow text as it is.
  void writeStringRaw(char const* text) noexcept;
  /// Text with the four entities.
  void writeEscaped(char const* text) noexcept;
  void writeEscaped(wchar_t const* text) noexcept;
  /// Decimal, "-" before negative values.
  void writeInt64String(long long value) noexcept;
  /// "0x" and 16 lower-case hex digits.
  void writeAddressString(unsigned long long address) noexcept;
  /// Eight bytes, least significant first.
  void writeInt64Binary(long long value) noexcept;

  /// The indentation depth (levels of two spaces).
  int getDepth() const noexcept { return m_depth; }
  void setDepth(int depth) noexcept { m_depth = depth < 0 ? 0 : depth; }

private:
  void writeEscapedCodePoint(unsigned long c) noexcept;

  static constexpr int kBufferSize = 2048;
  platform::CrashFileHandle m_file = platform::kCrashNoFile;
  long long m_position = 0;
  int m_used = 0;
  int m_depth = 0;
  bool m_failed = false;
  char m_buffer[kBufferSize];
};

}  // namespace qo

#endif  // QO_LOG_CCRASHFILEACCESS_H
