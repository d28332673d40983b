#include "qo/util/CBase64.h"

#include "qo/core/CParseError.h"
#include "qo/core/CProps.h"

namespace qo {

namespace {

constexpr char kStandardChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrlSafeChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// Character values per alphabet; 0xFF marks characters outside it.
struct DecodeTable {
  unsigned char value[256];
  constexpr explicit DecodeTable(char const* chars) : value() {
    for (int i = 0; i < 256; ++i) value[i] = 0xFF;
    for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(chars[i])] = static_cast<unsigned char>(i);
  }
};
constexpr DecodeTable kStandardTable(kStandardChars);
constexpr DecodeTable kUrlSafeTable(kUrlSafeChars);

// The value of c in the alphabet, -1 when it is not one of its characters.
int valueOf(char c, CBase64::Alphabet alphabet) {
  unsigned char v = (alphabet == CBase64::kUrlSafe ? kUrlSafeTable : kStandardTable).value[static_cast<unsigned char>(c)];
  return v == 0xFF ? -1 : v;
}

}  // namespace

std::string CBase64::encode(void const* data, std::size_t size, Alphabet alphabet, bool pad) {
  std::string out;
  out.reserve(getEncodedLength(size, pad));
  CEncoder encoder(alphabet, pad);
  encoder.feed(data, size, out);
  encoder.finish(out);
  return out;
}

std::string CBase64::encode(std::string_view data, Alphabet alphabet, bool pad) {
  return encode(data.data(), data.size(), alphabet, pad);
}

std::string CBase64::decode(std::string_view text, Alphabet alphabet, bool pad) {
  std::string out;
  out.reserve(text.size() / 4 * 3 + 2);
  CDecoder decoder(alphabet, pad);
  decoder.feed(text.data(), text.size(), out);
  decoder.finish(out);
  return out;
}

std::size_t CBase64::getEncodedLength(std::size_t size, bool pad) noexcept {
  std::size_t full = size / 3 * 4;
  std::size_t rest = size % 3;
  if (rest == 0) return full;
  return full + (pad ? 4 : rest + 1);
}

// --- encoder -------------------------------------------------------------------

CBase64::CEncoder::CEncoder(Alphabet alphabet, bool pad) noexcept
    : m_chars(alphabet == kUrlSafe ? kUrlSafeChars : kStandardChars), m_pad(pad) {}

void CBase64::CEncoder::feed(void const* data, std::size_t size, std::string& out) {
  auto const* in = static_cast<unsigned char const*>(data);
  std::size_t i = 0;
  if (m_heldCount > 0) {
    unsigned char group[3] = {m_held[0], m_held[1], 0};
    int count = m_heldCount;
    while (count < 3 && i < size) group[count++] = in[i++];
    m_heldCount = 0;
    if (count < 3) {
      m_held[0] = group[0];
      m_held[1] = group[1];
      m_heldCount = count;
      return;
    }
    feed(group, 3, out);
  }
  std::size_t const groups = (size - i) / 3;
  if (groups > 0) {
    std::size_t const start = out.size();
    out.resize(start + groups * 4);
    char* dst = &out[start];
    for (std::size_t g = 0; g < groups; ++g, i += 3) {
      unsigned v = (unsigned(in[i]) << 16) | (unsigned(in[i + 1]) << 8) | in[i + 2];
      dst[0] = m_chars[v >> 18];
      dst[1] = m_chars[(v >> 12) & 63];
      dst[2] = m_chars[(v >> 6) & 63];
      dst[3] = m_chars[v & 63];
      dst += 4;
    }
  }
  while (i < size) m_held[m_heldCount++] = in[i++];
}

void CBase64::CEncoder::finish(std::string& out) {
  if (m_heldCount == 0) return;
  unsigned v = unsigned(m_held[0]) << 16;
  if (m_heldCount == 2) v |= unsigned(m_held[1]) << 8;
  out += m_chars[v >> 18];
  out += m_chars[(v >> 12) & 63];
  if (m_heldCount == 2) out += m_chars[(v >> 6) & 63];
  if (m_pad) out.append(m_heldCount == 2 ? 1 : 2, '=');
  m_heldCount = 0;
}

// --- decoder -------------------------------------------------------------------

CBase64::CDecoder::CDecoder(Alphabet alphabet, bool pad) noexcept : m_alphabet(alphabet), m_pad(pad) {}

void CBase64::CDecoder::fail(unsigned long long offset, char const* reason) {
  // A spent decoder keeps failing rather than resynchronising mid-group.
  m_ended = true;
  throw CParseError(u"Invalid Base64 text.",
                    CProps().addLong(u"offset", static_cast<long long>(offset)).add(u"reason", String(reason)));
}

void CBase64::CDecoder::feed(char const* text, std::size_t size, std::string& out) {
  std::size_t i = 0;
  if (m_count == 0 && m_padCount == 0 && !m_ended && size >= 4) {
    // Whole groups of valid characters in one go; the first group with
    // anything else (padding, a bad character) goes the careful way below.
    unsigned char const* table = (m_alphabet == kUrlSafe ? kUrlSafeTable : kStandardTable).value;
    auto const* in = reinterpret_cast<unsigned char const*>(text);
    std::size_t const start = out.size();
    out.resize(start + size / 4 * 3);
    char* dst = &out[start];
    for (; i + 4 <= size; i += 4) {
      unsigned a = table[in[i]], b = table[in[i + 1]], c = table[in[i + 2]], d = table[in[i + 3]];
      if ((a | b | c | d) & 0x80) break;
      unsigned v = (a << 18) | (b << 12) | (c << 6) | d;
      *dst++ = static_cast<char>(v >> 16);
      *dst++ = static_cast<char>(v >> 8);
      *dst++ = static_cast<char>(v);
    }
    out.resize(static_cast<std::size_t>(dst - out.data()));
    m_offset += i;
    if (i > 0) m_lastCharOffset = m_offset - 1;
  }
  for (; i < size; ++i, ++m_offset) {
    char c = text[i];
    if (m_ended) fail(m_offset, "text after the end");
    if (c == '=') {
      if (!m_pad) fail(m_offset, "padding where none is expected");
      if (m_count < 2) fail(m_offset, "misplaced padding");
      if (++m_padCount + m_count < 4) continue;
      // The group is complete: one byte (2 characters) or two (3).
      if (m_count == 2) {
        if (m_quad[1] & 15) fail(m_lastCharOffset, "unused bits are not zero");
        out += static_cast<char>((m_quad[0] << 2) | (m_quad[1] >> 4));
      } else {
        if (m_quad[2] & 3) fail(m_lastCharOffset, "unused bits are not zero");
        out += static_cast<char>((m_quad[0] << 2) | (m_quad[1] >> 4));
        out += static_cast<char>((m_quad[1] << 4) | (m_quad[2] >> 2));
      }
      m_count = m_padCount = 0;
      m_ended = true;
      ++m_offset;
      if (i + 1 < size) fail(m_offset, "text after the end");
      return;
    }
    int v = valueOf(c, m_alphabet);
    if (v < 0) fail(m_offset, "character outside the alphabet");
    if (m_padCount > 0) fail(m_offset, "character after padding");
    m_quad[m_count++] = static_cast<unsigned char>(v);
    m_lastCharOffset = m_offset;
    if (m_count == 4) {
      out += static_cast<char>((m_quad[0] << 2) | (m_quad[1] >> 4));
      out += static_cast<char>((m_quad[1] << 4) | (m_quad[2] >> 2));
      out += static_cast<char>((m_quad[2] << 6) | m_quad[3]);
      m_count = 0;
    }
  }
}

void CBase64::CDecoder::finish(std::string& out) {
  if (m_padCount > 0) fail(m_offset, "incomplete padding");
  if (m_count == 0) return;
  if (m_pad) fail(m_offset, "missing padding");
  if (m_count == 1) fail(m_offset, "text ends inside a group");
  if (m_count == 2) {
    if (m_quad[1] & 15) fail(m_lastCharOffset, "unused bits are not zero");
    out += static_cast<char>((m_quad[0] << 2) | (m_quad[1] >> 4));
  } else {
    if (m_quad[2] & 3) fail(m_lastCharOffset, "unused bits are not zero");
    out += static_cast<char>((m_quad[0] << 2) | (m_quad[1] >> 4));
    out += static_cast<char>((m_quad[1] << 4) | (m_quad[2] >> 2));
  }
  m_count = 0;
}

}  // namespace qo
