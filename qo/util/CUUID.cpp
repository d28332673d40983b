#include "qo/util/CUUID.h"

#include <cstring>
#include <mutex>

#include "qo/core/CParseError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CTime.h"
#include "qo/platform/Random.h"

namespace qo {

namespace {

void randomBytes(void* out, std::size_t size, char16_t const* function) {
  if (platform::SysError e = platform::fillRandom(out, size)) {
    throw CSystemError(u"Error reading random bytes from the system.", function,
                       String(platform::randomApiName()), e.code, String::wstringFromUTF8WithLatin1Fallback(e.text));
  }
}

int hexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

[[noreturn]] void parseFailure(String const& text, std::size_t offset) {
  throw CParseError(u"Invalid UUID text.",
                    CProps().addLong(u"offset", static_cast<long long>(offset)).add(u"text", text));
}

// The last version 7 id's time field and counter, shared by all threads.
std::mutex g_v7Mutex;
long long g_v7LastMillis = -1;
unsigned g_v7Counter = 0;

}  // namespace

CUUID CUUID::generateV4() {
  Bytes b;
  randomBytes(b.data(), b.size(), u"CUUID::generateV4");
  b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
  return CUUID(b);
}

CUUID CUUID::generateV7() {
  Bytes b;
  randomBytes(b.data(), b.size(), u"CUUID::generateV7");
  long long millis = CTime::now().getMicros() / 1000;
  unsigned counter;
  {
    std::lock_guard<std::mutex> lock(g_v7Mutex);
    if (millis > g_v7LastMillis) {
      // A fresh millisecond starts the counter at a random value below the
      // middle, leaving at least 2048 steps for ids in the same millisecond.
      counter = ((b[6] << 8) | b[7]) & 0x7FFu;
    } else {
      millis = g_v7LastMillis;
      counter = g_v7Counter + 1;
      if (counter > 0xFFFu) {
        ++millis;
        counter = ((b[6] << 8) | b[7]) & 0x7FFu;
      }
    }
    g_v7LastMillis = millis;
    g_v7Counter = counter;
  }
  auto const ts = static_cast<unsigned long long>(millis);
  for (int i = 0; i < 6; ++i) b[i] = static_cast<unsigned char>(ts >> (40 - 8 * i));
  b[6] = static_cast<unsigned char>(0x70 | (counter >> 8));
  b[7] = static_cast<unsigned char>(counter & 0xFF);
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
  return CUUID(b);
}

CUUID CUUID::parse(String const& text) {
  std::u16string_view t = text.str();
  std::size_t pos = 0, end = t.size();
  auto startsNoCase = [&](std::u16string_view prefix) {
    if (t.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
      char16_t c = t[i];
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
      if (c != prefix[i]) return false;
    }
    return true;
  };
  if (startsNoCase(u"urn:uuid:")) {
    pos = 9;
  } else if (!t.empty() && t[0] == u'{') {
    pos = 1;
    if (end < 2 || t[end - 1] != u'}') parseFailure(text, end);
    --end;
  }
  // Hyphens after digit 8, 12, 16 and 20, in all of them or none.
  bool hyphens = end - pos > 32 || (end - pos > 8 && t[pos + 8] == u'-');
  Bytes b{};
  std::size_t i = pos;
  for (int digit = 0; digit < 32; ++digit) {
    if (hyphens && (digit == 8 || digit == 12 || digit == 16 || digit == 20)) {
      if (i >= end) parseFailure(text, i);
      if (t[i] != u'-') parseFailure(text, i);
      ++i;
    }
    if (i >= end) parseFailure(text, i);
    int v = hexValue(t[i]);
    if (v < 0) parseFailure(text, i);
    b[digit / 2] = static_cast<unsigned char>(b[digit / 2] | (digit % 2 ? v : v << 4));
    ++i;
  }
  if (i != end) parseFailure(text, i);
  return CUUID(b);
}

CUUID CUUID::fromGuidBytes(unsigned char const* g) noexcept {
  Bytes b = {g[3], g[2], g[1], g[0], g[5], g[4], g[7], g[6], g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]};
  return CUUID(b);
}

void CUUID::toGuidBytes(unsigned char* guid) const noexcept {
  // The swap is its own inverse.
  Bytes swapped = fromGuidBytes(m_bytes.data()).m_bytes;
  std::memcpy(guid, swapped.data(), 16);
}

String CUUID::toString(bool upper, bool braces) const {
  char const* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  std::u16string out;
  out.reserve(38);
  if (braces) out += u'{';
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += u'-';
    out += static_cast<char16_t>(digits[m_bytes[i] >> 4]);
    out += static_cast<char16_t>(digits[m_bytes[i] & 15]);
  }
  if (braces) out += u'}';
  return String(std::move(out));
}

CUUID::Variant CUUID::getVariant() const noexcept {
  unsigned v = m_bytes[8];
  if ((v & 0x80) == 0) return kVariantNCS;
  if ((v & 0xC0) == 0x80) return kVariantRFC;
  if ((v & 0xE0) == 0xC0) return kVariantMicrosoft;
  return kVariantFuture;
}

long long CUUID::getTimeMillis() const noexcept {
  if (getVersion() != 7 || getVariant() != kVariantRFC) return -1;
  unsigned long long ts = 0;
  for (int i = 0; i < 6; ++i) ts = (ts << 8) | m_bytes[i];
  return static_cast<long long>(ts);
}

bool CUUID::isNil() const noexcept { return *this == CUUID(); }

int CUUID::compare(CUUID const& other) const noexcept {
  int c = std::memcmp(m_bytes.data(), other.m_bytes.data(), 16);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

std::size_t CUUID::hash() const noexcept {
  // FNV-1a over the bytes: cheap and mixes every byte into every bit.
  std::uint64_t h = 14695981039346656037ULL;
  for (unsigned char c : m_bytes) h = (h ^ c) * 1099511628211ULL;
  return static_cast<std::size_t>(h ^ (h >> 32));
}

}  // namespace qo
