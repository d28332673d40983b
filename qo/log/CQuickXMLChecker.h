// qo/log/CQuickXMLChecker.h - a fast well-formedness check of a whole XML
// document, without building a tree.
//
// The session log checks a log it is about to continue, so that a file that
// a crash or another program left broken is replaced instead of appended
// to. The check accepts what the library's writers produce and ordinary XML
// besides; it refuses:
// - unbalanced or crossed tags, a missing root, text or a second element
//   after the root, elements or text before the root;
// - malformed tags: a bad name, an attribute without '=' or quotes, a '<'
//   in an attribute value, a tag without its '>';
// - '<' and '&' in text that start no markup or entity reference (the
//   entities are the five predefined ones and character references);
// - unterminated comments, CDATA sections and processing instructions.
// It does not check names against a DTD, attribute uniqueness or the XML
// declaration's contents.
//
//   bool ok = CQuickXMLChecker(CAppendableXMLWriter::readFullData(path)).doCheck();
//
// Not thread-safe.
#ifndef QO_LOG_CQUICKXMLCHECKER_H
#define QO_LOG_CQUICKXMLCHECKER_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// A one-pass well-formedness check of an XML text. Not thread-safe.
class QO_API CQuickXMLChecker {
public:
  /// Checks text (copied).
  explicit CQuickXMLChecker(String const& text);

  /// True when the whole text is a well-formed document as described at the
  /// top. May be called again; each call starts from the beginning. Throws
  /// only std::bad_alloc.
  bool doCheck();

  // The scanning steps that doCheck is built of; the position they move is
  // getPosition().
  /// The code unit at pos; 0 outside the text.
  char16_t getChar(int pos) const noexcept;
  /// Moves to the next c at or after the position; false (position at the
  /// end) when there is none.
  bool goToNext(char16_t c) noexcept;
  /// Moves to the next occurrence of text at or after the position; false
  /// (position at the end) when there is none.
  bool goToNext(String const& text) noexcept;
  /// Moves past blanks, tabs, CRs and line feeds.
  void skipWhiteSpace() noexcept;
  /// True for the characters allowed in a name (letters, digits, '_', ':',
  /// '-', '.', and everything from U+0080 on).
  static bool isValidNameChar(char16_t c) noexcept;
  int getPosition() const noexcept { return m_pos; }

private:
  bool startsWith(char16_t const* text) const noexcept;
  bool readName(String* name) noexcept;
  bool readReference() noexcept;
  bool readStartTag(bool& selfClosing, String& name);

  String m_text;
  int m_pos = 0;
};

}  // namespace qo

#endif  // QO_LOG_CQUICKXMLCHECKER_H
