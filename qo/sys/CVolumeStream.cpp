#include "qo/sys/CVolumeStream.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/LocalFile.h"
#include "qo/platform/Device.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"
#include "qo/stream/CInStreamToIOStreamWrapper.h"
#include "qo/stream/StreamError.h"

namespace qo {

namespace {

int bestTransferFor(int sectorSize) {
  int const sectors = (CVolumeStream::kBestTransferSize + sectorSize - 1) / sectorSize;
  return sectors * sectorSize;
}

}  // namespace

CVolumeStream::CVolumeStream(String const& path, bool allowBuffered) : m_path(path), m_uri(localFileURI(path)) {
  char const* const place = "CVolumeStream::CVolumeStream";
  platform::RawDeviceInfo info;
  if (platform::SysError e = platform::rawDeviceOpen(path.data(), path.str().size(), allowBuffered, m_device, info)) {
    CSystemError const cause(u"Opening a device for unbuffered reading failed.", String(place), u"CreateFileW", e);
    CProps props;
    props.add(u"path", path);
    String message;
    switch (platform::rawDeviceErrorKind(e)) {
      case platform::RawDeviceErrorKind::NotFound:
        props.addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kNotFound);
        break;
      case platform::RawDeviceErrorKind::AccessDenied:
        props.addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kAccessDenied);
        break;
      case platform::RawDeviceErrorKind::UnbufferedUnsupported:
        message = u"The file system does not support unbuffered access to '" + path +
                  u"' (tmpfs, for one, refuses it); open it with allowBuffered to read it through the cache.";
        break;
      case platform::RawDeviceErrorKind::Other:
        break;
    }
    CIOError error(CIOError::kOpenFailed, message, withStreamURI(props, m_uri), &cause);
    error.addTrace(String(place));
    throw error;
  }
  m_length = info.size;
  m_sectorSize = info.sectorSize;
  m_physicalSectorSize = info.physicalSectorSize;
  m_isDevice = info.isDevice;
  m_unbuffered = info.unbuffered;
}

CVolumeStream::~CVolumeStream() { close(); }

P<IAlignedInStream> CVolumeStream::open(String const& path, bool allowBuffered) {
  P<CVolumeStream> raw = newP<CVolumeStream>(path, allowBuffered);
  P<IIOStream> asIO = newP<CInStreamToIOStreamWrapper>(raw.get());
  int const sector = raw->getPositionAlign();
  return newP<CEnforcingIOStreamWrapper>(asIO.get(), sector, sector, raw->getBestPerformancePositionAlign());
}

void CVolumeStream::checkOpen(char const* place) const {
  if (!m_device) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_uri);
}

long long CVolumeStream::getLength() const {
  checkOpen("CVolumeStream::getLength");
  return m_length;
}

long long CVolumeStream::getPosition() const { return m_position; }

CURI CVolumeStream::getURI() { return m_uri; }

void CVolumeStream::seek(long long position) {
  char const* const place = "CVolumeStream::seek";
  checkOpen(place);
  if (position < 0 || position > m_length) {
    throw makeStreamError(CIOError::kSeekFailed, place, String(),
                          CProps().addLong(u"pos", position).addLong(u"length", m_length), m_uri);
  }
  m_position = position;
}

P<IStreamLock> CVolumeStream::lockRange(long long, long long, LockType) {
  throw makeStreamError(CIOError::kUnsupported, "CVolumeStream::lockRange",
                        u"Volume streams do not support range locking.", CProps(), m_uri);
}

void CVolumeStream::close() {
  platform::rawDeviceClose(m_device);
  m_device = nullptr;
}

int CVolumeStream::readLax(void* buffer, int size) {
  char const* const place = "CVolumeStream::readLax";
  checkOpen(place);
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
  if (size == 0 || m_position >= m_length) return 0;
  std::size_t done = 0;
  if (platform::SysError e = platform::rawDeviceRead(m_device, m_position, buffer, static_cast<std::size_t>(size), done)) {
    CSystemError const cause(u"Reading a device failed.", String(place), u"ReadFile", e);
    CIOError error(CIOError::kReadFailed, String(),
                   withStreamURI(CProps().addLong(u"readPosition", m_position).addLong(u"toRead", size), m_uri),
                   &cause);
    error.addTrace(String(place));
    throw error;
  }
  // A device may deliver a whole last sector beyond a length it reports
  // smaller; the stream ends at its length.
  long long const left = m_length - m_position;
  if (static_cast<long long>(done) > left) done = static_cast<std::size_t>(left);
  m_position += static_cast<long long>(done);
  return static_cast<int>(done);
}

void CVolumeStream::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CVolumeStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_uri);
  }
}

int CVolumeStream::readAvailable(void* buffer, int size) { return readLax(buffer, size); }

bool CVolumeStream::waitReadable(int) const { return true; }

bool CVolumeStream::isEndOfStream() const {
  checkOpen("CVolumeStream::isEndOfStream");
  return m_position >= m_length;
}

int CVolumeStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

int CVolumeStream::getPositionAlign() { return m_sectorSize; }
int CVolumeStream::getBufferAlign() { return m_sectorSize; }
int CVolumeStream::getBestPerformancePositionAlign() { return bestTransferFor(m_sectorSize); }

}  // namespace qo
