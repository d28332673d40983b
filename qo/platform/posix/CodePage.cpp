#include "qo/platform/CodePage.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include <iconv.h>

namespace qo::platform {

namespace {

// iconv sees char16_t buffers as bytes, so it must be told the machine's order.
char const* utf16Name() {
  std::uint16_t const probe = 1;
  return *reinterpret_cast<unsigned char const*>(&probe) == 1 ? "UTF-16LE" : "UTF-16BE";
}

// Windows numbers whose iconv name is not simply "CP<n>".
struct NamedPage {
  unsigned number;
  char const* name;
};
constexpr NamedPage kNamedPages[] = {
    {20127, "ASCII"},         {20866, "KOI8-R"},       {21866, "KOI8-U"},        {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},    {28593, "ISO-8859-3"},   {28594, "ISO-8859-4"},    {28595, "ISO-8859-5"},
    {28596, "ISO-8859-6"},    {28597, "ISO-8859-7"},   {28598, "ISO-8859-8"},    {28599, "ISO-8859-9"},
    {28603, "ISO-8859-13"},   {28605, "ISO-8859-15"},  {38598, "ISO-8859-8"},    {10000, "MACINTOSH"},
    {10007, "MAC-CYRILLIC"},  {10029, "MAC-CENTRALEUROPE"}, {20932, "EUC-JP"},   {51932, "EUC-JP"},
    {20936, "GB2312"},        {51936, "EUC-CN"},       {51949, "EUC-KR"},        {54936, "GB18030"},
    {50220, "ISO-2022-JP"},   {50221, "ISO-2022-JP"},  {50222, "ISO-2022-JP"},   {50225, "ISO-2022-KR"},
    {1361, "JOHAB"},          {65000, "UTF-7"},        {65001, "UTF-8"},
};

// Windows' UTF-16 and UTF-32 "code pages" are not reachable through its
// narrow conversion calls either; refusing them keeps both platforms alike.
bool isRefused(unsigned codePage) {
  return codePage == 1200 || codePage == 1201 || codePage == 12000 || codePage == 12001;
}

// Opens a converter for the page, trying the names glibc uses for it.
// toPage: UTF-16 -> page, else page -> UTF-16.
iconv_t openFor(unsigned codePage, bool toPage) {
  iconv_t const failed = reinterpret_cast<iconv_t>(-1);
  if (codePage == 0 || isRefused(codePage)) return failed;
  char names[3][24];
  int count = 0;
  for (NamedPage const& page : kNamedPages) {
    if (page.number == codePage) {
      std::snprintf(names[count++], sizeof names[0], "%s", page.name);
      break;
    }
  }
  if (count == 0) {
    std::snprintf(names[count++], sizeof names[0], "CP%u", codePage);
    // Windows numbers IBM's EBCDIC pages as n or 20000 + n.
    unsigned const ibm = codePage > 20000 && codePage < 21000 ? codePage - 20000 : codePage;
    std::snprintf(names[count++], sizeof names[0], ibm < 100 ? "IBM%03u" : "IBM%u", ibm);
  }
  for (int i = 0; i < count; ++i) {
    iconv_t cd = toPage ? iconv_open(names[i], utf16Name()) : iconv_open(utf16Name(), names[i]);
    if (cd != failed) return cd;
  }
  return failed;
}

class Converter {
public:
  explicit Converter(iconv_t cd) : m_cd(cd) {}
  ~Converter() {
    if (valid()) iconv_close(m_cd);
  }
  Converter(Converter const&) = delete;
  Converter& operator=(Converter const&) = delete;
  bool valid() const { return m_cd != reinterpret_cast<iconv_t>(-1); }

  // Runs the whole input through iconv into out (a std::string or
  // std::u16string, grown as needed from guess units). Returns Ok or
  // Unencodable, with the byte offset of the failure in badByte (npos when
  // unknown). When strict, irreversible conversions count as failures: they
  // mean iconv replaced a character it could not represent.
  template <typename Out>
  CodePageResult run(char const* in, std::size_t inBytes, Out& out, std::size_t guess, bool strict,
                     std::size_t& badByte) {
    using Unit = typename Out::value_type;
    char* inPtr = const_cast<char*>(in);
    std::size_t inLeft = inBytes;
    std::size_t used = 0;  // units of out already written
    out.resize(guess + 16);
    bool flushing = false;
    for (;;) {
      if (used == out.size()) out.resize(out.size() * 2);
      char* outPtr = reinterpret_cast<char*>(&out[used]);
      std::size_t outLeft = (out.size() - used) * sizeof(Unit);
      std::size_t const outStart = outLeft;
      // The flush call writes the closing shift sequence of stateful pages.
      std::size_t const rc =
          flushing ? iconv(m_cd, nullptr, nullptr, &outPtr, &outLeft) : iconv(m_cd, &inPtr, &inLeft, &outPtr, &outLeft);
      used += (outStart - outLeft) / sizeof(Unit);
      if (rc == static_cast<std::size_t>(-1)) {
        if (errno == E2BIG) {
          out.resize(out.size() * 2);
          continue;
        }
        // EILSEQ (no such character / invalid bytes) or EINVAL (input ends
        // inside a character); either way inPtr stops at the culprit.
        badByte = inBytes - inLeft;
        return CodePageResult::Unencodable;
      }
      if (rc != 0 && strict) {
        badByte = static_cast<std::size_t>(-1);
        return CodePageResult::Unencodable;
      }
      if (flushing) break;
      flushing = true;
    }
    out.resize(used);
    return CodePageResult::Ok;
  }

private:
  iconv_t m_cd;
};

}  // namespace

CodePageResult encodeCodePage(unsigned codePage, char16_t const* text, std::size_t length, std::string& out,
                              std::size_t* errorOffset) {
  if (errorOffset) *errorOffset = static_cast<std::size_t>(-1);
  Converter conv(openFor(codePage, true));
  if (!conv.valid()) return CodePageResult::Unsupported;
  std::size_t badByte = 0;
  CodePageResult const result =
      conv.run(reinterpret_cast<char const*>(text), length * sizeof(char16_t), out, length, true, badByte);
  if (result != CodePageResult::Ok) {
    out.clear();
    if (errorOffset && badByte != static_cast<std::size_t>(-1)) *errorOffset = badByte / sizeof(char16_t);
  }
  return result;
}

CodePageResult decodeCodePage(unsigned codePage, char const* bytes, std::size_t length, std::u16string& out,
                              std::size_t* errorOffset) {
  if (errorOffset) *errorOffset = static_cast<std::size_t>(-1);
  Converter conv(openFor(codePage, false));
  if (!conv.valid()) return CodePageResult::Unsupported;
  std::size_t badByte = 0;
  CodePageResult const result = conv.run(bytes, length, out, length, false, badByte);
  if (result != CodePageResult::Ok) {
    out.clear();
    if (errorOffset) *errorOffset = badByte;  // already npos when unknown
  }
  return result;
}

}  // namespace qo::platform
