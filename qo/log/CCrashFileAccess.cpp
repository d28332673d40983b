#include "qo/log/CCrashFileAccess.h"

#include <cstring>

#include "qo/log/CCrashTools.h"

namespace qo {

CCrashFileAccess::CCrashFileAccess() noexcept = default;

CCrashFileAccess::~CCrashFileAccess() { close(); }

bool CCrashFileAccess::open(wchar_t const* path, OpenType type) noexcept {
  close();
  m_failed = false;
  m_position = 0;
  m_used = 0;
  m_depth = 0;
  platform::CrashOpenType const osType = type == kCreate   ? platform::CrashOpenType::kCreate
                                         : type == kAppend ? platform::CrashOpenType::kAppend
                                         : type == kUpdate ? platform::CrashOpenType::kUpdate
                                                           : platform::CrashOpenType::kRead;
  m_file = platform::crashFileOpen(path, osType);
  if (m_file == platform::kCrashNoFile) {
    m_failed = true;
    return false;
  }
  if (type == kAppend) {
    long long const end = platform::crashFileSeekEnd(m_file);
    m_position = end > 0 ? end : 0;
  }
  return true;
}

bool CCrashFileAccess::writeAt(long long offset, void const* data, int size) noexcept {
  if (m_failed || !platform::crashFileWriteAt(m_file, offset, data, size)) m_failed = true;
  return !m_failed;
}

bool CCrashFileAccess::isOpen() const noexcept { return m_file != platform::kCrashNoFile; }

int CCrashFileAccess::read(void* buffer, int size) noexcept { return platform::crashFileRead(m_file, buffer, size); }

bool CCrashFileAccess::write(void const* data, int size) noexcept {
  if (m_failed || m_file == platform::kCrashNoFile || size < 0) {
    m_failed = true;
    return false;
  }
  m_position += size;
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    if (m_used == kBufferSize && !flush()) return false;
    int const n = size < kBufferSize - m_used ? size : kBufferSize - m_used;
    std::memcpy(m_buffer + m_used, p, static_cast<std::size_t>(n));
    m_used += n;
    p += n;
    size -= n;
  }
  return true;
}

bool CCrashFileAccess::flush() noexcept {
  if (m_used > 0 && !m_failed) {
    if (!platform::crashFileWrite(m_file, m_buffer, m_used)) m_failed = true;
  }
  m_used = 0;
  return !m_failed;
}

long long CCrashFileAccess::getPosition() const noexcept { return m_position; }

bool CCrashFileAccess::close() noexcept {
  if (m_file == platform::kCrashNoFile) return !m_failed;
  flush();
  platform::crashFileClose(m_file);
  m_file = platform::kCrashNoFile;
  return !m_failed;
}

// --- XML ---------------------------------------------------------------------

void CCrashFileAccess::writeXMLHeader() noexcept { writeStringRaw("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"); }

void CCrashFileAccess::writeNewLine() noexcept {
  writeChar('\n');
  for (int i = 0; i < m_depth; ++i) write("  ", 2);
}

void CCrashFileAccess::writeTagStart(char const* name, bool newLine) noexcept {
  if (newLine) writeNewLine();
  writeChar('<');
  writeStringRaw(name);
}

void CCrashFileAccess::writeTagEnd(bool empty) noexcept {
  if (empty) {
    writeStringRaw(" />");
  } else {
    writeChar('>');
    ++m_depth;
  }
}

void CCrashFileAccess::writeOpeningTag(char const* name, bool newLine, char const* attributes) noexcept {
  writeTagStart(name, newLine);
  if (attributes != nullptr && attributes[0] != 0) {
    writeChar(' ');
    writeStringRaw(attributes);
  }
  writeTagEnd(false);
}

void CCrashFileAccess::writeClosingTag(char const* name, bool newLine) noexcept {
  if (m_depth > 0) --m_depth;
  if (newLine) writeNewLine();
  writeStringRaw("</");
  writeStringRaw(name);
  writeChar('>');
}

void CCrashFileAccess::writeEmptyTag(char const* name, bool newLine) noexcept {
  writeTagStart(name, newLine);
  writeTagEnd(true);
}

void CCrashFileAccess::writeAttribute(char const* name, char const* value) noexcept {
  writeChar(' ');
  writeStringRaw(name);
  writeStringRaw("=\"");
  writeEscaped(value);
  writeChar('"');
}

void CCrashFileAccess::writeAttribute(char const* name, wchar_t const* value) noexcept {
  writeChar(' ');
  writeStringRaw(name);
  writeStringRaw("=\"");
  writeEscaped(value);
  writeChar('"');
}

void CCrashFileAccess::writeInt64Attribute(char const* name, long long value) noexcept {
  writeChar(' ');
  writeStringRaw(name);
  writeStringRaw("=\"");
  writeInt64String(value);
  writeChar('"');
}

void CCrashFileAccess::writeAddressAttribute(char const* name, unsigned long long value) noexcept {
  writeChar(' ');
  writeStringRaw(name);
  writeStringRaw("=\"");
  writeAddressString(value);
  writeChar('"');
}

void CCrashFileAccess::writeStringElement(char const* name, char const* text) noexcept {
  writeOpeningTag(name, true);
  writeEscaped(text);
  writeClosingTag(name, false);
}

void CCrashFileAccess::writeStringElement(char const* name, wchar_t const* text) noexcept {
  writeOpeningTag(name, true);
  writeEscaped(text);
  writeClosingTag(name, false);
}

void CCrashFileAccess::writeInt64Element(char const* name, long long value) noexcept {
  writeOpeningTag(name, true);
  writeInt64String(value);
  writeClosingTag(name, false);
}

void CCrashFileAccess::writeAddressElement(char const* name, unsigned long long address) noexcept {
  writeOpeningTag(name, true);
  writeAddressString(address);
  writeClosingTag(name, false);
}

void CCrashFileAccess::writeChar(char c) noexcept { write(&c, 1); }

void CCrashFileAccess::writeStringRaw(char const* text) noexcept {
  if (text != nullptr) write(text, static_cast<int>(std::strlen(text)));
}

void CCrashFileAccess::writeEscaped(char const* text) noexcept {
  if (text == nullptr) return;
  char const* run = text;
  for (char const* p = text;; ++p) {
    char const c = *p;
    char const* entity = c == '"' ? "&quot;" : c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : nullptr;
    if (entity == nullptr && c != 0) continue;
    write(run, static_cast<int>(p - run));
    if (c == 0) return;
    writeStringRaw(entity);
    run = p + 1;
  }
}

void CCrashFileAccess::writeEscapedCodePoint(unsigned long c) noexcept {
  switch (c) {
    case '"': writeStringRaw("&quot;"); return;
    case '&': writeStringRaw("&amp;"); return;
    case '<': writeStringRaw("&lt;"); return;
    case '>': writeStringRaw("&gt;"); return;
    default: break;
  }
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
  char b[4];
  int n;
  if (c < 0x80) {
    b[0] = static_cast<char>(c);
    n = 1;
  } else if (c < 0x800) {
    b[0] = static_cast<char>(0xC0 | (c >> 6));
    b[1] = static_cast<char>(0x80 | (c & 0x3F));
    n = 2;
  } else if (c < 0x10000) {
    b[0] = static_cast<char>(0xE0 | (c >> 12));
    b[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    b[2] = static_cast<char>(0x80 | (c & 0x3F));
    n = 3;
  } else {
    b[0] = static_cast<char>(0xF0 | (c >> 18));
    b[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    b[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    b[3] = static_cast<char>(0x80 | (c & 0x3F));
    n = 4;
  }
  write(b, n);
}

void CCrashFileAccess::writeEscaped(wchar_t const* text) noexcept {
  if (text == nullptr) return;
  for (wchar_t const* p = text; *p != 0; ++p) {
    auto c = static_cast<unsigned long>(*p);
    if constexpr (sizeof(wchar_t) == 2) {
      c &= 0xFFFF;
      if (c >= 0xD800 && c <= 0xDBFF) {
        auto const next = static_cast<unsigned long>(p[1]) & 0xFFFF;
        if (next >= 0xDC00 && next <= 0xDFFF) {
          c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
          ++p;
        }
      }
    }
    writeEscapedCodePoint(c);
  }
}

void CCrashFileAccess::writeInt64String(long long value) noexcept {
  char text[CCrashTools::kDecimalCapacity];
  int const length = CCrashTools::formatDecimal(text, value);
  for (int i = 0; i < length; ++i) writeChar(text[i]);
}

void CCrashFileAccess::writeAddressString(unsigned long long address) noexcept {
  char text[18];
  text[0] = '0';
  text[1] = 'x';
  for (int i = 0; i < 16; ++i) text[2 + i] = "0123456789abcdef"[(address >> (60 - 4 * i)) & 0xF];
  write(text, 18);
}

void CCrashFileAccess::writeInt64Binary(long long value) noexcept {
  unsigned char bytes[8];
  auto const v = static_cast<unsigned long long>(value);
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(v >> (8 * i));
  write(bytes, 8);
}

}  // namespace qo
