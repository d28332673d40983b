#include "qo/stream/CDataInStream.h"

#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/stream/IeeeExtended.h"

namespace qo {

namespace {

// Records up to this many bytes are read into the stack instead of a heap
// array; the bytes and the outcome are the same.
constexpr std::size_t kSmallText = 256;

/// The text before the first NUL, as strict UTF-8; ASCII skips the decoder.
String decodeText(char const* bytes, std::size_t length) {
  if (void const* nul = std::memchr(bytes, 0, length)) length = static_cast<std::size_t>(static_cast<char const*>(nul) - bytes);
  std::u16string units(length, u'\0');
  for (std::size_t i = 0; i < length; ++i) {
    unsigned char const c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x80) return String::fromUTF8(std::string_view(bytes, length));
    units[i] = c;
  }
  return String(std::move(units));
}

}  // namespace

CDataInStream::CDataInStream(IInStream* inner) {
  if (!inner) throw CInvalidArgError(u"CDataInStream::CDataInStream", u"the inner stream is null");
  m_inner = inner;
  if (typeid(*inner) == typeid(CBufferStream)) m_pBufferStream = dynamic_cast<CBufferStream*>(inner);
}

CDataInStream::~CDataInStream() = default;

void CDataInStream::readRaw(void* buffer, int size) { m_inner->read(buffer, size); }

double CDataInStream::readDouble() {
  char bytes[kIeeeExtendedSize];
  readRaw(bytes, sizeof bytes);
  return convertFromIeeeExtended(bytes);
}

std::int32_t CDataInStream::readTextCount() {
  std::int32_t const count = readInt32();
  if (count < 0) throwError(CIOError::kCorruptData);
  return count;
}

String CDataInStream::readString() {
  std::int32_t const count = readTextCount();
  std::size_t const length = static_cast<std::size_t>(count);
  if (length <= kSmallText) {
    char bytes[kSmallText];
    if (count > 0) readSmall(bytes, length);
    return decodeText(bytes, length);
  }
  std::unique_ptr<char[]> bytes(new char[length + 1]);
  readRaw(bytes.get(), count);
  return decodeText(bytes.get(), length);
}

char* CDataInStream::readUTF8() {
  std::int32_t const count = readTextCount();
  std::size_t const length = static_cast<std::size_t>(count);
  std::unique_ptr<char[]> bytes(new char[length + 1]);
  if (count > 0) readRaw(bytes.get(), count);
  bytes[length] = '\0';
  return bytes.release();
}

void CDataInStream::throwError(long long code) {
  CProps props;
  String const uri = m_inner->getURI().toString(true);
  if (!uri.isEmpty()) props.add(CIOError::paramURI(), uri);
  throw CIOError(code, String(), props);
}

// --- forwarded stream operations -------------------------------------------------

void CDataInStream::read(void* buffer, int size) { m_inner->read(buffer, size); }

int CDataInStream::readLax(void* buffer, int size) { return m_inner->readLax(buffer, size); }

int CDataInStream::readAvailable(void* buffer, int size) { return m_inner->readAvailable(buffer, size); }

bool CDataInStream::waitReadable(int timeoutMs) const { return m_inner->waitReadable(timeoutMs); }

bool CDataInStream::isEndOfStream() const { return m_inner->isEndOfStream(); }

int CDataInStream::isEndOfStream_NonBlocking() const { return m_inner->isEndOfStream_NonBlocking(); }

long long CDataInStream::getLength() const { return m_inner->getLength(); }

long long CDataInStream::getPosition() const { return m_inner->getPosition(); }

CURI CDataInStream::getURI() { return m_inner->getURI(); }

void CDataInStream::seek(long long position) { m_inner->seek(position); }

P<IStreamLock> CDataInStream::lockRange(long long start, long long length, LockType type) {
  return m_inner->lockRange(start, length, type);
}

void CDataInStream::close() { m_inner->close(); }

}  // namespace qo
