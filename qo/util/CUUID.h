// qo/util/CUUID.h - universally unique identifiers (RFC 9562).
//
// A CUUID is a 16-byte value held in the RFC's byte order (big-endian
// fields). It makes:
// - version 4: 122 random bits from the OS's secure generator;
// - version 7: a 48-bit Unix time in milliseconds, then a 12-bit counter,
//   then 62 random bits. Within the process every new id is greater than
//   the previous one: in the same millisecond (or when the clock steps
//   back) the counter grows; when it runs out the time field moves one
//   millisecond ahead of the clock.
// Text forms: "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" in lower or upper case,
// optionally in braces ("{...}", as Windows writes GUIDs). parse() also
// takes the 32 digits without hyphens (with or without braces) and the
// "urn:uuid:" prefix, in any case. Windows keeps the first three fields of
// a GUID little-endian; toGuidBytes/fromGuidBytes convert.
//
//   CUUID id = CUUID::generateV7();
//   String text = id.toString();                         // "01936d3c-..."
//   CUUID same = CUUID::parse(u"{01936D3C-...}");
//   std::unordered_set<CUUID> seen;                      // std::hash below
//
// A value type: thread-safe to read; the generators are thread-safe.
#ifndef QO_UTIL_CUUID_H
#define QO_UTIL_CUUID_H

#include <array>
#include <cstddef>
#include <functional>

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// A 16-byte unique identifier. Thread-safe to read; not thread-safe to
/// assign.
class QO_API CUUID {
public:
  using Bytes = std::array<unsigned char, 16>;

  /// The variant field (the top bits of byte 8).
  enum Variant {
    kVariantNCS = 0,        ///< 0xxx
    kVariantRFC = 1,        ///< 10xx, what this class generates
    kVariantMicrosoft = 2,  ///< 110x
    kVariantFuture = 3      ///< 111x
  };

  /// The nil id (all zero).
  CUUID() noexcept : m_bytes{} {}
  /// The id with these bytes in the RFC's order.
  explicit CUUID(Bytes const& bytes) noexcept : m_bytes(bytes) {}

  /// A new random id (version 4). Throws CSystemError ("api"
  /// "BCryptGenRandom" on Windows, "getrandom" elsewhere) when the OS
  /// refuses random bytes. Thread-safe.
  static CUUID generateV4();
  /// A new time-ordered id (version 7), greater than every id this process
  /// made with it before. Throws as generateV4. Thread-safe.
  static CUUID generateV7();
  /// The id in text (forms above). Throws CParseError ("Invalid UUID
  /// text.") with "offset", the index of the first wrong character (the
  /// length when the text is too short), and "text". Thread-safe.
  static CUUID parse(String const& text);
  /// The id from the 16 bytes of a Windows GUID in memory. Thread-safe.
  static CUUID fromGuidBytes(unsigned char const* guid) noexcept;

  /// Hyphenated hex digits, lower case unless upper, in braces if asked.
  String toString(bool upper = false, bool braces = false) const;
  /// Writes the 16 bytes of the Windows GUID with this value.
  void toGuidBytes(unsigned char* guid) const noexcept;
  Bytes const& getBytes() const noexcept { return m_bytes; }
  /// The version number (the high nibble of byte 6); meaningful for the
  /// RFC variant.
  int getVersion() const noexcept { return m_bytes[6] >> 4; }
  Variant getVariant() const noexcept;
  /// The Unix time in milliseconds of a version 7 id; -1 for other ids.
  long long getTimeMillis() const noexcept;
  bool isNil() const noexcept;

  /// Byte-wise order, which for version 7 ids is the order of creation:
  /// -1, 0 or 1.
  int compare(CUUID const& other) const noexcept;
  std::size_t hash() const noexcept;

  friend bool operator==(CUUID const& a, CUUID const& b) noexcept { return a.m_bytes == b.m_bytes; }
  friend bool operator!=(CUUID const& a, CUUID const& b) noexcept { return a.m_bytes != b.m_bytes; }
  friend bool operator<(CUUID const& a, CUUID const& b) noexcept { return a.m_bytes < b.m_bytes; }
  friend bool operator>(CUUID const& a, CUUID const& b) noexcept { return a.m_bytes > b.m_bytes; }
  friend bool operator<=(CUUID const& a, CUUID const& b) noexcept { return a.m_bytes <= b.m_bytes; }
  friend bool operator>=(CUUID const& a, CUUID const& b) noexcept { return a.m_bytes >= b.m_bytes; }

private:
  Bytes m_bytes;
};

}  // namespace qo

/// Lets CUUID key unordered containers.
template <>
struct std::hash<qo::CUUID> {
  std::size_t operator()(qo::CUUID const& id) const noexcept { return id.hash(); }
};

#endif  // QO_UTIL_CUUID_H
