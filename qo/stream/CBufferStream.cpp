#include "qo/stream/CBufferStream.h"

#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/stream/StreamError.h"

#include <cstring>
#include <functional>
#include <string_view>

namespace qo {

namespace {
void checkSize(long long size, char const* place) {
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
}
}  // namespace

CBufferStream::CBufferStream() : CBufferStream(static_cast<Buffer*>(nullptr)) {}

CBufferStream::CBufferStream(Buffer* buffer, double growthFactor) : m_growthFactor(growthFactor) {
  m_buffer = buffer ? P<Buffer>::share(buffer) : newP<Buffer>();
  m_constBuffer = m_buffer;
  m_pOpenBuffer = m_buffer.get();
  m_pOpenConstBuffer = m_buffer.get();
}

CBufferStream::CBufferStream(Buffer const* buffer) {
  m_constBuffer = buffer ? PC<Buffer>::share(buffer) : PC<Buffer>(newP<Buffer>());
  m_pOpenConstBuffer = m_constBuffer.get();
}

CBufferStream::~CBufferStream() = default;

P<CBufferStream::Buffer> CBufferStream::getBuffer() { return m_buffer; }

String CBufferStream::getDataAsString() const {
  auto const* bytes = reinterpret_cast<char const*>(m_constBuffer->getData());
  return String::wstringFromUTF8WithLatin1Fallback(
      std::string_view(bytes, static_cast<std::size_t>(m_constBuffer->getSize())));
}

void CBufferStream::setURI(CURI const& uri) { m_uri = uri; }

void CBufferStream::checkOpen(char const* place) const {
  if (m_closed) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_uri);
}

void CBufferStream::checkWritable(char const* place) const {
  checkOpen(place);
  if (!m_buffer) throw makeStreamError(CIOError::kWriteFailed, place, String(), CProps(), m_uri);
}

long long CBufferStream::getLength() const { return m_constBuffer->getSize(); }

long long CBufferStream::getPosition() const { return m_position; }

CURI CBufferStream::getURI() { return m_uri; }

void CBufferStream::seek(long long position) {
  checkOpen("CBufferStream::seek");
  long long const length = m_constBuffer->getSize();
  if (position < 0 || position > length) {
    throw makeStreamError(CIOError::kSeekFailed, "CBufferStream::seek", String(),
                          CProps().addLong(u"pos", position).addLong(u"length", length), m_uri);
  }
  m_position = position;
}

P<IStreamLock> CBufferStream::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CBufferStream::lockRange",
                        u"Buffer stream does not support range locking.", CProps(), m_uri);
}

void CBufferStream::close() {
  m_closed = true;
  m_pOpenBuffer = nullptr;
  m_pOpenConstBuffer = nullptr;
}

void CBufferStream::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CBufferStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_uri);
  }
}

int CBufferStream::readLax(void* buffer, int size) {
  if (m_closed || size < 0) {
    checkOpen("CBufferStream::readLax");
    checkSize(size, "CBufferStream::readLax");
  }
  long long const left = m_constBuffer->getSize() - m_position;
  int const count = left < size ? static_cast<int>(left) : size;
  if (count <= 0) return 0;
  std::memcpy(buffer, m_constBuffer->getData() + m_position, static_cast<std::size_t>(count));
  m_position += count;
  return count;
}

int CBufferStream::readAvailable(void* buffer, int size) { return readLax(buffer, size); }

bool CBufferStream::waitReadable(int) const { return true; }

bool CBufferStream::isEndOfStream() const {
  checkOpen("CBufferStream::isEndOfStream");
  return m_position >= m_constBuffer->getSize();
}

int CBufferStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

void CBufferStream::write(void const* data, int size, IWriteBarrier*) {
  if (m_closed || !m_buffer || size < 0) {
    checkWritable("CBufferStream::write");
    checkSize(size, "CBufferStream::write");
  }
  writeBytes(data, size);
}

void CBufferStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier*) {
  checkWritable("CBufferStream::writeKeepBuffer");
  writeBytes(data.getData(), data.getLength());
}

// The common case (room enough) stays free of the growth work below.
void CBufferStream::writeBytes(void const* data, long long size) {
  if (size == 0) return;
  long long const end = m_position + size;
  if (end > m_buffer->getCapacity()) data = grow(end, data);
  // A write may start inside the data and run past its end: the size only
  // ever grows here, so the bytes before the position stay.
  if (end > m_buffer->getSize()) m_buffer->setSize(end);
  // memmove: a slice of this very buffer may overlap the target.
  std::memmove(m_buffer->getData() + m_position, data, static_cast<std::size_t>(size));
  m_position = end;
}

void const* CBufferStream::grow(long long end, void const* data) {
  // A slice of this very buffer moves with it.
  unsigned char const* const oldData = m_buffer->getData();
  auto const* const source = static_cast<unsigned char const*>(data);
  std::less<unsigned char const*> const before;
  bool const ownBytes =
      oldData != nullptr && !before(source, oldData) && before(source, oldData + m_buffer->getCapacity());
  // Geometric growth keeps a run of small writes linear overall; the product
  // is cut to a whole count and never below what this write needs.
  double const scaled = static_cast<double>(m_buffer->getCapacity()) * m_growthFactor;
  long long capacity = end;
  if (scaled > static_cast<double>(end)) {
    capacity = scaled >= static_cast<double>(Buffer::kMaxSize) ? Buffer::kMaxSize : static_cast<long long>(scaled);
  }
  m_buffer->reserve(capacity);
  return ownBytes ? m_buffer->getData() + (source - oldData) : data;
}

P<IWriteBarrier> CBufferStream::createWriteBarrier(IWriteBarrier*) {
  flush();
  return newP<CDummyWriteBarrier>();
}

void CBufferStream::flush() {}

void CBufferStream::setLength(long long length) {
  checkWritable("CBufferStream::setLength");
  if (length < 0) {
    throw CInvalidArgError(u"CBufferStream::setLength", u"the length is negative",
                           CProps().addLong(u"length", length));
  }
  m_buffer->setSizeZeroed(length);
  if (m_position > length) m_position = length;
}

}  // namespace qo
