// qo/util/CIniContent.h - the content of an INI file, read and written
// without losing anything the program did not change.
//
// Lines are kept as they came: comments (';' or '#' first), blank lines,
// their order, their line ends, and lines this class does not understand
// (text without '=' outside a header), which it keeps and ignores. Only the
// lines of entries that are set or removed change. The rules:
// - "[name]" starts a section; after the ']' only white space or a comment
//   may follow. Entries before the first header belong to the section "".
//   A section that appears twice is one section, read in file order.
// - "key=value": key and value are trimmed. A value that starts with '"'
//   is quoted: it ends at the next unescaped '"', after which only white
//   space or a comment may follow, and it may hold the escapes \\ \" \n \r
//   \t \0 and \xHH. Any other value is taken literally, backslashes and
//   all. setValue() quotes exactly the values that need it (leading or
//   trailing white space, a leading '"', control characters).
// - Section and key names compare without regard to case, as Windows does;
//   where a key occurs twice in a section, the first one counts.
// - Encodings: UTF-8 with or without a byte-order mark, UTF-16 LE with its
//   mark; save() writes the encoding that was loaded (setEncoding changes
//   it). Bad input throws CParseError with the 1-based "line" property.
//
//   P<CIniContent> ini = newP<CIniContent>();
//   ini->load(bytes.data(), bytes.size());
//   String dir = ini->getValue(u"Paths", u"Temp", u"C:\\Temp");
//   ini->setValue(u"Paths", u"Temp", u"D:\\Temp");
//   std::string out = ini->save();   // everything else byte for byte
//
// Not thread-safe.
#ifndef QO_UTIL_CINICONTENT_H
#define QO_UTIL_CINICONTENT_H

#include <cstddef>
#include <string>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// Editable INI text. Not thread-safe.
class QO_API CIniContent : public CBase {
public:
  enum Encoding {
    kUTF8 = 0,     ///< UTF-8 without a byte-order mark
    kUTF8BOM = 1,  ///< UTF-8 with EF BB BF
    kUTF16LE = 2   ///< UTF-16 little-endian with FF FE
  };

  /// Empty content, UTF-8 without a mark, new lines ended with "\r\n".
  CIniContent();
  ~CIniContent() override;
  CIniContent(CIniContent const&) = delete;
  CIniContent& operator=(CIniContent const&) = delete;

  /// Replaces the content with the file bytes (encoding as the file
  /// comment says). Throws CParseError ("line") for invalid encoded text or
  /// a malformed line; the content is then unchanged.
  void load(void const* data, std::size_t size);
  /// Replaces the content with text; the encoding stays. Throws as load.
  void loadText(String const& text);
  /// The bytes in getEncoding(), with the mark that it names. Throws
  /// CUnencodableStringError for a lone surrogate when writing UTF-8.
  std::string save() const;
  /// The text of all lines with their line ends.
  String toText() const;

  Encoding getEncoding() const noexcept { return m_encoding; }
  void setEncoding(Encoding encoding) noexcept { m_encoding = encoding; }

  /// The section names in order of first appearance, as first written; ""
  /// comes first when entries precede the first header.
  std::vector<String> getSections() const;
  /// The keys of a section in order, each once, as first written.
  std::vector<String> getKeys(String const& section) const;
  /// True when the section has a header or an entry.
  bool hasSection(String const& section) const;
  /// True and value set when the key exists; false and value untouched
  /// otherwise.
  bool lookup(String const& section, String const& key, String& value) const;
  /// The value, or defaultValue when the key does not exist.
  String getValue(String const& section, String const& key, String const& defaultValue = String()) const;
  /// Sets the first entry of the key, keeping its line's text up to the
  /// value; adds the entry after the section's last entry (or its header),
  /// or a new section at the end; a first entry of the section "" goes to
  /// the top of the file. Throws CInvalidArgError for a key that is empty, starts
  /// with '[', ';' or '#', or holds '=' or a line break, or a section name
  /// with ']' or a line break.
  void setValue(String const& section, String const& key, String const& value);
  /// Removes every entry of the key in the section; false when there was
  /// none.
  bool removeKey(String const& section, String const& key);
  /// Removes the section's headers and all lines under them (its comments
  /// included); false when there was no such section.
  bool removeSection(String const& section);

private:
  enum Kind { kBlank, kComment, kHeader, kEntry, kOther };
  struct Line {
    Kind kind = kBlank;
    String text;        // the line as written, without its end
    String end;         // "\r\n", "\n", "\r" or "" (last line)
    String section;     // the section the line belongs to
    String key;         // kEntry: the trimmed key; kHeader: the name
    String value;       // kEntry: the decoded value
    std::size_t valueStart = 0;  // kEntry: where the value text begins
  };
  static std::vector<Line> parse(String const& text);
  static void parseLine(Line& line, String const& section, long long lineNumber);
  static String encodeValue(String const& value);
  Line const* findEntry(String const& section, String const& key) const;
  std::vector<Line> m_lines;
  Encoding m_encoding = kUTF8;
  String m_newLine = u"\r\n";
};

}  // namespace qo

#endif  // QO_UTIL_CINICONTENT_H
