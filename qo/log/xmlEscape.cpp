#include "qo/log/xmlEscape.h"

namespace qo {

String xmlEscape(String const& text) {
  std::u16string const& in = text.str();
  std::u16string out;
  out.reserve(in.size() + in.size() / 8);
  // One pass, one character at a time: the same result as replacing the five
  // characters in turn with "&" first, without rescanning inserted entities.
  for (char16_t c : in) {
    switch (c) {
      case u'&': out += u"&amp;"; break;
      case u'<': out += u"&lt;"; break;
      case u'>': out += u"&gt;"; break;
      case u'"': out += u"&quot;"; break;
      case u'\'': out += u"&apos;"; break;
      default: out += c; break;
    }
  }
  return String(std::move(out));
}

}  // namespace qo
