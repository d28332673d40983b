#include "qo/stream/CDataOutStream.h"

#include <cstring>
#include <limits>
#include <typeinfo>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/stream/IeeeExtended.h"

namespace qo {

namespace {

template <class TUnsigned>
void putLittleEndian(TUnsigned value, unsigned char* bytes) {
  for (std::size_t i = 0; i < sizeof(TUnsigned); ++i) {
    bytes[i] = static_cast<unsigned char>(value & 0xFF);
    value = static_cast<TUnsigned>(value >> 8);
  }
}

// Texts up to this many bytes go out with their count in one write, which
// halves the calls into the wrapped stream for the common short string.
constexpr std::size_t kSmallText = 252;

}  // namespace

CDataOutStream::CDataOutStream(IOutStream* inner) {
  if (!inner) throw CInvalidArgError(u"CDataOutStream::CDataOutStream", u"the inner stream is null");
  m_inner = inner;
  if (typeid(*inner) == typeid(CBufferStream)) m_pBufferStream = dynamic_cast<CBufferStream*>(inner);
}

CDataOutStream::~CDataOutStream() = default;

void CDataOutStream::writeRaw(void const* data, int size) { m_inner->write(data, size, nullptr); }

CDataOutStream& CDataOutStream::writeDouble(double value) {
  char bytes[kIeeeExtendedSize];
  convertToIeeeExtended(value, bytes);
  writeSmall(bytes, sizeof bytes);
  return *this;
}

CDataOutStream& CDataOutStream::writeString(String const& text) {
  // Pure ASCII (no NUL) is its own UTF-8: skip the conversion's allocation.
  std::size_t const length = text.length();
  if (length <= kSmallText) {
    unsigned char record[4 + kSmallText];
    char16_t const* units = text.data();
    std::size_t i = 0;
    while (i < length && units[i] != 0 && units[i] < 0x80) {
      record[4 + i] = static_cast<unsigned char>(units[i]);
      ++i;
    }
    if (i == length) {
      putLittleEndian(static_cast<std::uint32_t>(length), record);
      writeSmall(record, 4 + length);
      return *this;
    }
  }
  // The whole text is converted first, so a lone surrogate after a NUL
  // still throws, as the conversion does.
  std::string const utf8 = text.toUTF8();
  std::size_t const cut = utf8.find('\0');
  return writeText(utf8.data(), cut == std::string::npos ? utf8.size() : cut, "CDataOutStream::writeString");
}

CDataOutStream& CDataOutStream::writeUTF8(char const* text) {
  return writeText(text, text ? std::strlen(text) : 0, "CDataOutStream::writeUTF8");
}

CDataOutStream& CDataOutStream::writeUTF8(std::string const& text) {
  std::size_t const cut = text.find('\0');
  return writeText(text.data(), cut == std::string::npos ? text.size() : cut, "CDataOutStream::writeUTF8");
}

CDataOutStream& CDataOutStream::writeText(char const* bytes, std::size_t length, char const* place) {
  if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw CInvalidArgError(String(place), u"the text is longer than 2147483647 bytes",
                           CProps().addLong(u"length", static_cast<long long>(length)));
  }
  if (length <= kSmallText) {
    unsigned char record[4 + kSmallText];
    putLittleEndian(static_cast<std::uint32_t>(length), record);
    if (length > 0) std::memcpy(record + 4, bytes, length);
    writeSmall(record, 4 + length);
  } else {
    writeUInt32(static_cast<std::uint32_t>(length));
    writeRaw(bytes, static_cast<int>(length));
  }
  return *this;
}

// --- patching ------------------------------------------------------------------

namespace {
// No try/finally on purpose: after a failed write the wrapped stream stays
// at the patch position, and a seek back could only hide the first error.
template <class TWrite>
CDataOutStream& patchAt(CDataOutStream& out, IOutStream& inner, long long position, TWrite const& writeValue) {
  long long const back = inner.getPosition();
  inner.seek(position);
  writeValue();
  inner.seek(back);
  return out;
}
}  // namespace

CDataOutStream& CDataOutStream::patchInt8(long long position, std::int8_t value) {
  return patchAt(*this, *m_inner, position, [&] { writeInt8(value); });
}

CDataOutStream& CDataOutStream::patchUInt8(long long position, std::uint8_t value) {
  return patchAt(*this, *m_inner, position, [&] { writeUInt8(value); });
}

CDataOutStream& CDataOutStream::patchInt16(long long position, std::int16_t value) {
  return patchAt(*this, *m_inner, position, [&] { writeInt16(value); });
}

CDataOutStream& CDataOutStream::patchUInt16(long long position, std::uint16_t value) {
  return patchAt(*this, *m_inner, position, [&] { writeUInt16(value); });
}

CDataOutStream& CDataOutStream::patchInt32(long long position, std::int32_t value) {
  return patchAt(*this, *m_inner, position, [&] { writeInt32(value); });
}

CDataOutStream& CDataOutStream::patchUInt32(long long position, std::uint32_t value) {
  return patchAt(*this, *m_inner, position, [&] { writeUInt32(value); });
}

CDataOutStream& CDataOutStream::patchInt64(long long position, long long value) {
  return patchAt(*this, *m_inner, position, [&] { writeInt64(value); });
}

CDataOutStream& CDataOutStream::patchUInt64(long long position, unsigned long long value) {
  return patchAt(*this, *m_inner, position, [&] { writeUInt64(value); });
}

CDataOutStream& CDataOutStream::patchBool(long long position, bool value) {
  return patchAt(*this, *m_inner, position, [&] { writeBool(value); });
}

CDataOutStream& CDataOutStream::patchDouble(long long position, double value) {
  return patchAt(*this, *m_inner, position, [&] { writeDouble(value); });
}

CDataOutStream& CDataOutStream::patchString(long long position, String const& text) {
  return patchAt(*this, *m_inner, position, [&] { writeString(text); });
}

// --- forwarded stream operations -------------------------------------------------

void CDataOutStream::write(void const* data, int size, IWriteBarrier* barrier) { m_inner->write(data, size, barrier); }

void CDataOutStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  m_inner->writeKeepBuffer(data, barrier);
}

P<IWriteBarrier> CDataOutStream::createWriteBarrier(IWriteBarrier* previous) {
  return m_inner->createWriteBarrier(previous);
}

void CDataOutStream::flush() { m_inner->flush(); }

void CDataOutStream::setLength(long long length) { m_inner->setLength(length); }

long long CDataOutStream::getLength() const { return m_inner->getLength(); }

long long CDataOutStream::getPosition() const { return m_inner->getPosition(); }

CURI CDataOutStream::getURI() { return m_inner->getURI(); }

void CDataOutStream::seek(long long position) { m_inner->seek(position); }

P<IStreamLock> CDataOutStream::lockRange(long long start, long long length, LockType type) {
  return m_inner->lockRange(start, length, type);
}

void CDataOutStream::close() { m_inner->close(); }

}  // namespace qo
