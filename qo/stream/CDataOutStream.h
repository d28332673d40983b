// qo/stream/CDataOutStream.h - typed values written as bytes of the library's
// record format.
//
// CDataOutStream wraps any IOutStream and writes values in the fixed format
// that CDataInStream reads back. The format has no header, no type tags and
// no padding, so the reader must know the sequence of types:
//   8/16/32/64-bit integer  1/2/4/8 bytes, little-endian, two's complement
//   bool                    1 byte, 1 or 0
//   double                  10 bytes, 80-bit extended, BIG-endian
//                           (IeeeExtended.h)
//   String / narrow text    int32 little-endian byte count n, then n bytes of
//                           UTF-8 without terminator; text is cut at its
//                           first NUL
// The mixed byte orders are part of the format; never "fix" them.
//
// The stream is itself an IOutStream: the stream operations forward to the
// wrapped stream unchanged, so typed values and raw blocks mix freely, and
// position, length and URI are the wrapped stream's. It keeps no buffer:
// each value reaches the wrapped stream as one write() with no barrier, or,
// for a CBufferStream with room enough, is stored straight into its buffer
// by inline code (the same bytes, position and length).
//
//   CDataOutStream out(buffer.get());
//   out << 42 << String(u"name") << 1.5;
//   long long countPos = out.getPosition();
//   out.writeInt32(0);                     // placeholder
//   ... write the items ...
//   out.patchInt32(countPos, itemCount);   // needs a seekable stream
//
// Not thread-safe.
#ifndef QO_STREAM_CDATAOUTSTREAM_H
#define QO_STREAM_CDATAOUTSTREAM_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TConstBufferSlice.h"
#include "qo/fs/CURI.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/IOutStream.h"
#include "qo/stream/IStreamLock.h"
#include "qo/stream/IWriteBarrier.h"

namespace qo {

/// Writes typed values in the record format to a wrapped output stream.
/// Every write throws what the wrapped stream's write() throws (the value
/// may then be partly written). Not thread-safe.
class QO_API CDataOutStream : public CBase, public IOutStream {
public:
  /// Wraps inner (shared). Throws CInvalidArgError when inner is null.
  explicit CDataOutStream(IOutStream* inner);
  ~CDataOutStream() override;
  CDataOutStream(CDataOutStream const&) = delete;
  CDataOutStream& operator=(CDataOutStream const&) = delete;

  // --- values; each returns *this -------------------------------------------
  // The fixed-size values are written inline: into a CBufferStream with
  // room enough they go straight to its buffer, else through write().
  CDataOutStream& writeInt8(std::int8_t value) { return writeFixed(static_cast<std::uint8_t>(value)); }  ///< 1 byte.
  CDataOutStream& writeUInt8(std::uint8_t value) { return writeFixed(value); }    ///< 1 byte.
  /// 2 bytes, little-endian.
  CDataOutStream& writeInt16(std::int16_t value) { return writeFixed(static_cast<std::uint16_t>(value)); }
  CDataOutStream& writeUInt16(std::uint16_t value) { return writeFixed(value); }  ///< 2 bytes, little-endian.
  /// 4 bytes, little-endian.
  CDataOutStream& writeInt32(std::int32_t value) { return writeFixed(static_cast<std::uint32_t>(value)); }
  CDataOutStream& writeUInt32(std::uint32_t value) { return writeFixed(value); }  ///< 4 bytes, little-endian.
  /// 8 bytes, little-endian.
  CDataOutStream& writeInt64(long long value) { return writeFixed(static_cast<std::uint64_t>(value)); }
  /// 8 bytes, little-endian.
  CDataOutStream& writeUInt64(unsigned long long value) { return writeFixed(static_cast<std::uint64_t>(value)); }
  /// 1 byte: 1 for true, 0 for false.
  CDataOutStream& writeBool(bool value) { return writeFixed(static_cast<std::uint8_t>(value ? 1 : 0)); }
  /// 10 bytes, big-endian 80-bit extended (convertToIeeeExtended); -0.0 is
  /// written as 0, NaN as infinity.
  CDataOutStream& writeDouble(double value);
  /// The UTF-8 of text up to its first NUL, after its byte count. Throws
  /// CUnencodableStringError for a lone surrogate (nothing is written),
  /// CInvalidArgError when the UTF-8 exceeds 2^31 - 1 bytes.
  CDataOutStream& writeString(String const& text);
  /// The bytes of text up to its first NUL, unchecked, after their count;
  /// null writes an empty record.
  CDataOutStream& writeUTF8(char const* text);
  /// The bytes of text up to its first NUL, unchecked, after their count.
  /// Throws CInvalidArgError beyond 2^31 - 1 bytes.
  CDataOutStream& writeUTF8(std::string const& text);

  CDataOutStream& operator<<(char value) { return writeInt8(static_cast<std::int8_t>(value)); }
  CDataOutStream& operator<<(signed char value) { return writeInt8(value); }
  CDataOutStream& operator<<(unsigned char value) { return writeUInt8(value); }
  CDataOutStream& operator<<(short value) { return writeInt16(value); }
  CDataOutStream& operator<<(unsigned short value) { return writeUInt16(value); }
  CDataOutStream& operator<<(int value) { return writeInt32(value); }
  CDataOutStream& operator<<(unsigned value) { return writeUInt32(value); }
  CDataOutStream& operator<<(long long value) { return writeInt64(value); }
  CDataOutStream& operator<<(unsigned long long value) { return writeUInt64(value); }
  CDataOutStream& operator<<(bool value) { return writeBool(value); }
  CDataOutStream& operator<<(double value) { return writeDouble(value); }
  CDataOutStream& operator<<(String const& text) { return writeString(text); }
  /// Narrow text of unknown origin: decoded as UTF-8 where valid and as
  /// Latin-1 elsewhere, then written as a String. Null writes "".
  CDataOutStream& operator<<(char const* text) { return writeString(String(text)); }
  /// The platform's wide text (UTF-16 on Windows, UTF-32 elsewhere) up to
  /// its first NUL, written as a String. Null writes "".
  CDataOutStream& operator<<(wchar_t const* text) { return writeString(String(text)); }
  /// UTF-16 text up to its first NUL, written as a String (without this a
  /// u"..." literal would be written as a bool). Null writes "".
  CDataOutStream& operator<<(char16_t const* text) { return writeString(String(text)); }
  // long has no operator: it is 4 bytes on Windows and 8 elsewhere, which
  // would make the record depend on the platform. Other pointers would be
  // written as a bool; both fail to compile instead.
  CDataOutStream& operator<<(long) = delete;
  CDataOutStream& operator<<(unsigned long) = delete;
  CDataOutStream& operator<<(void const*) = delete;

  // --- patching: write at position, then return to the current position ----
  // Each writes the value exactly as the matching write operation would and
  // needs a seekable wrapped stream. They throw what getPosition(), seek()
  // and write() of the wrapped stream throw; after a failed write the
  // wrapped stream stays where the write left it (not restored).
  CDataOutStream& patchInt8(long long position, std::int8_t value);
  CDataOutStream& patchUInt8(long long position, std::uint8_t value);
  CDataOutStream& patchInt16(long long position, std::int16_t value);
  CDataOutStream& patchUInt16(long long position, std::uint16_t value);
  CDataOutStream& patchInt32(long long position, std::int32_t value);
  CDataOutStream& patchUInt32(long long position, std::uint32_t value);
  CDataOutStream& patchInt64(long long position, long long value);
  CDataOutStream& patchUInt64(long long position, unsigned long long value);
  CDataOutStream& patchBool(long long position, bool value);
  CDataOutStream& patchDouble(long long position, double value);
  /// Writes the whole string record, count included: it must replace a
  /// record of the same encoded length, or it overwrites what follows.
  CDataOutStream& patchString(long long position, String const& text);

  /// The wrapped stream.
  P<IOutStream> getInnerStream() const { return m_inner; }

  // --- IOutStream / IStreamBase: forwarded unchanged -----------------------
  void write(void const* data, int size, IWriteBarrier* barrier = nullptr) override;
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier = nullptr) override;
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier* previous) override;
  void flush() override;
  void setLength(long long length) override;
  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  void seek(long long position) override;
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the wrapped stream.
  void close() override;

private:
  template <class TUnsigned>
  CDataOutStream& writeFixed(TUnsigned value) {
    // The value as one integer, not byte by byte: a following load of the
    // whole would stall on several narrow stores.
    TUnsigned const bytes = toLittleEndian(value);
    writeSmall(&bytes, sizeof bytes);
    return *this;
  }
  template <class TUnsigned>
  static TUnsigned toLittleEndian(TUnsigned value) noexcept {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    TUnsigned swapped = 0;
    for (std::size_t i = 0; i < sizeof(TUnsigned); ++i) swapped = static_cast<TUnsigned>((swapped << 8) | ((value >> (8 * i)) & 0xFF));
    return swapped;
#else
    return value;
#endif
  }
  // For bytes outside the wrapped stream's buffer (a local copy).
  void writeSmall(void const* data, std::size_t size) {
    if (m_pBufferStream == nullptr || !m_pBufferStream->tryWriteInPlace(data, size))
      writeRaw(data, static_cast<int>(size));
  }
  void writeRaw(void const* data, int size);
  CDataOutStream& writeText(char const* bytes, std::size_t length, char const* place);

  P<IOutStream> m_inner;
  // m_inner when it is exactly a CBufferStream (no subclass that could
  // change write()), else null.
  CBufferStream* m_pBufferStream = nullptr;
};

}  // namespace qo

#endif  // QO_STREAM_CDATAOUTSTREAM_H
