// qo/util/CBase64.h - Base64 encoding and strict decoding (RFC 4648).
//
// Two alphabets: the standard one ("+/") and the URL- and file-name-safe one
// ("-_"); each with or without '=' padding. Decoding is strict: every
// character must belong to the chosen alphabet (no white space), padding
// must be present exactly when asked for and complete, and the unused low
// bits of the last character must be zero, so that every accepted text is
// the one and only encoding of its bytes. A bad text throws CParseError
// ("Invalid Base64 text.") whose "offset" is the index of the first offending
// character (the text's length when the text ends too early) and whose
// "reason" says what is wrong.
//
//   std::string text = CBase64::encode("foobar", 6);          // "Zm9vYmFy"
//   std::string bytes = CBase64::decode(text);                // "foobar"
//   CBase64::encode(data, n, CBase64::kUrlSafe, false);       // no padding
//
// For data that arrives in pieces, CEncoder and CDecoder keep the state
// between calls; CBase64OutStream and CBase64InStream wrap them as streams.
#ifndef QO_UTIL_CBASE64_H
#define QO_UTIL_CBASE64_H

#include <cstddef>
#include <string>
#include <string_view>

#include "qo/core/Export.h"

namespace qo {

/// Base64 coding functions. Thread-safe.
class QO_API CBase64 {
public:
  enum Alphabet {
    kStandard = 0,  ///< A-Z a-z 0-9 + /
    kUrlSafe = 1    ///< A-Z a-z 0-9 - _
  };

  /// The text for size bytes at data (data may be null when size is 0).
  /// Never throws but std::bad_alloc. Thread-safe.
  static std::string encode(void const* data, std::size_t size, Alphabet alphabet = kStandard, bool pad = true);
  /// As encode(data.data(), data.size(), ...). Thread-safe.
  static std::string encode(std::string_view data, Alphabet alphabet = kStandard, bool pad = true);
  /// The bytes of text. With pad, the text's length must be a multiple of 4
  /// and its last group padded with '='; without, no '=' may appear.
  /// Throws CParseError as the file comment says. Thread-safe.
  static std::string decode(std::string_view text, Alphabet alphabet = kStandard, bool pad = true);
  /// The length of the text for size bytes. Thread-safe.
  static std::size_t getEncodedLength(std::size_t size, bool pad = true) noexcept;

  /// Incremental encoder: bytes in, text out. Not thread-safe.
  class QO_API CEncoder {
  public:
    explicit CEncoder(Alphabet alphabet = kStandard, bool pad = true) noexcept;
    /// Appends to out the text of every complete 3-byte group, keeping up to
    /// two bytes for the next call.
    void feed(void const* data, std::size_t size, std::string& out);
    /// Appends the last, partial group (padded if asked) and starts over.
    void finish(std::string& out);

  private:
    char const* m_chars;
    bool m_pad;
    unsigned char m_held[2] = {0, 0};
    int m_heldCount = 0;
  };

  /// Incremental strict decoder: text in, bytes out. Offsets in its errors
  /// count from the first character fed. Not thread-safe.
  class QO_API CDecoder {
  public:
    explicit CDecoder(Alphabet alphabet = kStandard, bool pad = true) noexcept;
    /// Appends to out the bytes of every complete 4-character group. Throws
    /// CParseError at the first bad character; the decoder is then spent.
    void feed(char const* text, std::size_t size, std::string& out);
    /// Checks the end of the text and appends the bytes of a last, unpadded
    /// group. Throws CParseError when the text ends too early.
    void finish(std::string& out);
    /// How many characters were fed.
    unsigned long long getOffset() const noexcept { return m_offset; }

  private:
    [[noreturn]] void fail(unsigned long long offset, char const* reason);
    Alphabet m_alphabet;
    bool m_pad;
    unsigned char m_quad[4] = {0, 0, 0, 0};
    int m_count = 0;        // characters of the current group
    int m_padCount = 0;     // '=' seen in the current group
    bool m_ended = false;   // a padded group closed the text
    unsigned long long m_offset = 0;
    unsigned long long m_lastCharOffset = 0;
  };
};

}  // namespace qo

#endif  // QO_UTIL_CBASE64_H
