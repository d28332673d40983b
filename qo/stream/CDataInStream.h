// qo/stream/CDataInStream.h - typed values read back from the library's
// record format.
//
// CDataInStream wraps any IInStream and reads what CDataOutStream wrote (the
// format is described in CDataOutStream.h). Each value is read with the
// wrapped stream's read(), which delivers exactly the bytes asked for or
// throws; a short read therefore raises the wrapped stream's error (for
// the library's streams CIOError kind 4, "Unexpected end of data."), the
// value is not delivered, and the position is wherever the wrapped stream
// left it. A negative string count raises CIOError kind 5 ("The data is
// invalid or corrupted.") with the stream's URI under "uri".
//
// A string count has no upper bound: a corrupt count up to 2^31 - 1 makes
// the reader allocate that much and attempt the read, which then fails with
// the short-read error.
//
// The stream is itself an IInStream: the stream operations forward to the
// wrapped stream unchanged. From a CBufferStream holding enough bytes the
// fixed-size values are copied by inline code instead of read() (the same
// bytes and position).
//
//   CDataInStream in(source.get());
//   int version; String name; double rate;
//   in >> version >> name >> rate;
//   long long size = in.readInt64();
//
// Not thread-safe.
#ifndef QO_STREAM_CDATAINSTREAM_H
#define QO_STREAM_CDATAINSTREAM_H

#include <cstddef>
#include <cstdint>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/IInStream.h"
#include "qo/stream/IStreamLock.h"

namespace qo {

/// Reads typed values in the record format from a wrapped input stream.
/// Every read throws what the wrapped stream's read() throws. Not
/// thread-safe.
class QO_API CDataInStream : public CBase, public IInStream {
public:
  /// Wraps inner (shared). Throws CInvalidArgError when inner is null.
  explicit CDataInStream(IInStream* inner);
  ~CDataInStream() override;
  CDataInStream(CDataInStream const&) = delete;
  CDataInStream& operator=(CDataInStream const&) = delete;

  // --- values ------------------------------------------------------------------
  // The fixed-size values are read inline: from a CBufferStream holding
  // enough bytes they come straight from its buffer, else through read().
  std::int8_t readInt8() { return static_cast<std::int8_t>(readFixed<std::uint8_t>()); }  ///< 1 byte.
  std::uint8_t readUInt8() { return readFixed<std::uint8_t>(); }                         ///< 1 byte.
  std::int16_t readInt16() { return static_cast<std::int16_t>(readFixed<std::uint16_t>()); }  ///< 2 bytes.
  std::uint16_t readUInt16() { return readFixed<std::uint16_t>(); }                      ///< 2 bytes.
  std::int32_t readInt32() { return static_cast<std::int32_t>(readFixed<std::uint32_t>()); }  ///< 4 bytes.
  std::uint32_t readUInt32() { return readFixed<std::uint32_t>(); }                      ///< 4 bytes.
  long long readInt64() { return static_cast<long long>(readFixed<std::uint64_t>()); }  ///< 8 bytes.
  unsigned long long readUInt64() { return readFixed<std::uint64_t>(); }                ///< 8 bytes.
  /// Any non-zero byte is true.
  bool readBool() { return readFixed<std::uint8_t>() != 0; }
  /// 10 bytes of big-endian 80-bit extended (convertFromIeeeExtended).
  double readDouble();
  /// A string record decoded as strict UTF-8; bytes after a NUL inside the
  /// record are ignored. Throws CIOError kind 5 (negative count) and
  /// CParseError (property "offset") for bytes that are not UTF-8.
  String readString();
  /// A string record's bytes, unchecked, as a new NUL-terminated array of
  /// count + 1 bytes that the caller frees with delete[]. Throws CIOError
  /// kind 5 for a negative count (nothing further is read).
  [[nodiscard]] char* readUTF8();

  // The same, into a reference; each returns *this.
  CDataInStream& readInt8(std::int8_t& value) { value = readInt8(); return *this; }
  CDataInStream& readUInt8(std::uint8_t& value) { value = readUInt8(); return *this; }
  CDataInStream& readInt16(std::int16_t& value) { value = readInt16(); return *this; }
  CDataInStream& readUInt16(std::uint16_t& value) { value = readUInt16(); return *this; }
  CDataInStream& readInt32(std::int32_t& value) { value = readInt32(); return *this; }
  CDataInStream& readUInt32(std::uint32_t& value) { value = readUInt32(); return *this; }
  CDataInStream& readInt64(long long& value) { value = readInt64(); return *this; }
  CDataInStream& readUInt64(unsigned long long& value) { value = readUInt64(); return *this; }
  CDataInStream& readBool(bool& value) { value = readBool(); return *this; }
  CDataInStream& readDouble(double& value) { value = readDouble(); return *this; }
  CDataInStream& readString(String& value) { value = readString(); return *this; }

  CDataInStream& operator>>(char& value) { value = static_cast<char>(readInt8()); return *this; }
  CDataInStream& operator>>(signed char& value) { value = readInt8(); return *this; }
  CDataInStream& operator>>(unsigned char& value) { value = readUInt8(); return *this; }
  CDataInStream& operator>>(short& value) { value = readInt16(); return *this; }
  CDataInStream& operator>>(unsigned short& value) { value = readUInt16(); return *this; }
  CDataInStream& operator>>(int& value) { value = readInt32(); return *this; }
  CDataInStream& operator>>(unsigned& value) { value = readUInt32(); return *this; }
  CDataInStream& operator>>(long long& value) { value = readInt64(); return *this; }
  CDataInStream& operator>>(unsigned long long& value) { value = readUInt64(); return *this; }
  CDataInStream& operator>>(bool& value) { value = readBool(); return *this; }
  CDataInStream& operator>>(double& value) { value = readDouble(); return *this; }
  CDataInStream& operator>>(String& value) { value = readString(); return *this; }
  // long is 4 bytes on Windows and 8 elsewhere; see CDataOutStream.
  CDataInStream& operator>>(long&) = delete;
  CDataInStream& operator>>(unsigned long&) = delete;

  /// The wrapped stream.
  P<IInStream> getInnerStream() const { return m_inner; }

  // --- IInStream / IStreamBase: forwarded unchanged ------------------------------
  void read(void* buffer, int size) override;
  int readLax(void* buffer, int size) override;
  int readAvailable(void* buffer, int size) override;
  bool waitReadable(int timeoutMs) const override;
  bool isEndOfStream() const override;
  int isEndOfStream_NonBlocking() const override;
  long long getLength() const override;
  long long getPosition() const override;
  CURI getURI() override;
  void seek(long long position) override;
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the wrapped stream.
  void close() override;

protected:
  /// Throws CIOError of kind code (a CIOError::k... constant) with its
  /// default message and, when the wrapped stream's URI is not empty, that
  /// URI (CURI::toString(true)) under CIOError::paramURI().
  [[noreturn]] void throwError(long long code);

private:
  template <class TUnsigned>
  TUnsigned readFixed() {
    TUnsigned bytes = 0;
    readSmall(&bytes, sizeof bytes);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    TUnsigned value = 0;
    for (std::size_t i = 0; i < sizeof(TUnsigned); ++i) value = static_cast<TUnsigned>((value << 8) | ((bytes >> (8 * i)) & 0xFF));
    return value;
#else
    return bytes;  // the record's byte order is the machine's
#endif
  }
  void readSmall(void* buffer, std::size_t size) {
    if (m_pBufferStream == nullptr || !m_pBufferStream->tryReadInPlace(buffer, size))
      readRaw(buffer, static_cast<int>(size));
  }
  void readRaw(void* buffer, int size);
  /// The count of a string record; throws kind 5 when it is negative.
  std::int32_t readTextCount();

  P<IInStream> m_inner;
  // m_inner when it is exactly a CBufferStream (no subclass that could
  // change read()), else null.
  CBufferStream* m_pBufferStream = nullptr;
};

}  // namespace qo

#endif  // QO_STREAM_CDATAINSTREAM_H
