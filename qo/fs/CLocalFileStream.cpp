#include "qo/fs/CLocalFileStream.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CLockFileError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/fs/CLockFile.h"
#include "qo/fs/LocalFile.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/stream/IStreamLock.h"
#include "qo/stream/StreamError.h"
#include "qo/thread/CMutexLock.h"
#include "qo/platform/File.h"

#include <utility>

namespace qo {

using platform::SysError;

/// One hold of a range; dropping it releases the hold. Keeps the stream
/// alive so that the release has somewhere to go.
class CLocalFileStream::CRangeLock : public CBase, public IStreamLock {
public:
  CRangeLock(P<CLocalFileStream> stream, long long start, long long length, LockType type)
      : m_stream(std::move(stream)), m_start(start), m_length(length), m_type(type) {}
  ~CRangeLock() override { m_stream->releaseRange(m_start, m_length, m_type); }

private:
  P<CLocalFileStream> m_stream;
  long long m_start;
  long long m_length;
  LockType m_type;
};

namespace {

void checkSize(long long size, char const* place) {
  if (size < 0) throw CInvalidArgError(String(place), u"the size is negative", CProps().addLong(u"size", size));
}

}  // namespace

CLocalFileStream::CLocalFileStream(String const& path, IIOStream::Access access, TFlags<IIOStream::Flags> flags)
    : m_path(path), m_access(access), m_flags(flags) {
  char const* const place = "CLocalFileStream::CLocalFileStream";
  if (access != AccessReadOnly && access != AccessWriteOnly && access != AccessReadWrite && access != AccessAppend) {
    throw CInvalidArgError(String(place), u"unknown access mode", CProps().addLong(u"access", access));
  }
  if (flags.has(FlagFailIfExists) && !flags.has(FlagCreate)) {
    throw CInvalidArgError(String(place), u"FlagFailIfExists needs FlagCreate", CProps().add(u"path", path));
  }
  if (flags.has(FlagNoBuffering) && !platform::fileSupportsNoBuffering()) {
    throw CNotImplementedError(u"CLocalFileStream: FlagNoBuffering");
  }
  m_apiPath = localFileAPIPath(path);
  m_uri = localFileURI(path);

  bool const writer = access != AccessReadOnly;
  if (flags.has(FlagLockFile)) {
    try {
      m_lockFile = newP<CLockFile>(path + u".lock", writer ? LockExclusive : LockShared);
    } catch (CError const& e) {
      CProps props;
      bool const conflict = CLockFileError::isLockConflictError(&e);
      props.addBool(IIOStream::errParamLockConflict(), conflict);
      if (conflict) props.addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kLockConflict);
      throw CIOError(CIOError::kLockFailed, String(), withStreamURI(props, m_uri), &e);
    }
  }

  platform::FileOpenOptions options;
  options.read = access == AccessReadOnly || access == AccessReadWrite;
  options.write = writer;
  options.append = access == AccessAppend;
  bool const create = flags.has(FlagCreate);
  bool const truncate = flags.has(FlagTruncate) && writer;
  if (create && flags.has(FlagFailIfExists)) {
    options.creation = platform::FileOpenOptions::CreateNew;
  } else if (create) {
    options.creation = truncate ? platform::FileOpenOptions::CreateOrTruncate : platform::FileOpenOptions::OpenOrCreate;
  } else {
    options.creation = truncate ? platform::FileOpenOptions::TruncateExisting : platform::FileOpenOptions::OpenExisting;
  }
  options.shareRead = flags.has(FlagShareRead);
  options.shareWrite = flags.has(FlagShareWrite);
  options.shareDelete = flags.has(FlagShareDelete);
  options.writeThrough = flags.has(FlagWriteThrough);
  options.noBuffering = flags.has(FlagNoBuffering);
  options.sequential = flags.has(FlagSequential);
  options.randomAccess = flags.has(FlagRandomAccess);
  options.deleteOnClose = flags.has(FlagDeleteOnClose);

  if (SysError e = platform::fileOpen(m_apiPath.data(), m_apiPath.length(), options, m_file)) {
    platform::FileErrorKind const kind = platform::fileErrorKind(e);
    bool const conflict =
        kind == platform::FileErrorKind::SharingViolation || kind == platform::FileErrorKind::LockConflict;
    m_lockFile = nil;
    throw detail::makeLocalFileError(conflict ? CIOError::kLockFailed : CIOError::kOpenFailed, place, "CreateFileW", e,
                             m_uri, CProps());
  }
  if (access == AccessAppend) {
    long long size = 0;
    if (!platform::fileGetSize(m_file, size)) m_position = size;
  }
}

CLocalFileStream::~CLocalFileStream() { closeNoThrow(); }

String const& CLocalFileStream::getPath() const { return m_path; }

void CLocalFileStream::checkOpen(char const* place) const {
  if (!m_file) throw makeStreamError(CIOError::kStreamClosed, place, String(), CProps(), m_uri);
}

void CLocalFileStream::checkWritable(char const* place) const {
  checkOpen(place);
  if (m_access == AccessReadOnly) {
    throw makeStreamError(CIOError::kWriteFailed, place, u"The file is open for reading only.", CProps(), m_uri);
  }
}

long long CLocalFileStream::getLength() const {
  checkOpen("CLocalFileStream::getLength");
  long long size = 0;
  if (SysError e = platform::fileGetSize(m_file, size)) {
    throw detail::makeLocalFileError(CIOError::kReadFailed, "CLocalFileStream::getLength", "GetFileSizeEx", e, m_uri,
                             CProps());
  }
  return size;
}

bool CLocalFileStream::isStillAtPath() const {
  char const* const place = "CLocalFileStream::isStillAtPath";
  checkOpen(place);
  bool same = false;
  if (SysError e = platform::fileIsAtPath(m_file, m_apiPath.data(), m_apiPath.length(), same)) {
    throw detail::makeLocalFileError(CIOError::kReadFailed, place, "GetFileInformationByHandle", e, m_uri, CProps());
  }
  return same;
}

long long CLocalFileStream::getPosition() const { return m_position; }

CURI CLocalFileStream::getURI() { return m_uri; }

void CLocalFileStream::seek(long long position) {
  char const* const place = "CLocalFileStream::seek";
  checkOpen(place);
  if (position < 0) {
    throw makeStreamError(CIOError::kSeekFailed, place, String(), CProps().addLong(u"pos", position), m_uri);
  }
  if (SysError e = platform::fileSeek(m_file, position)) {
    throw detail::makeLocalFileError(CIOError::kSeekFailed, place, "SetFilePointerEx", e, m_uri,
                             CProps().addLong(u"pos", position));
  }
  m_position = position;
}

P<IStreamLock> CLocalFileStream::lockRange(long long start, long long length, LockType type) {
  char const* const place = "CLocalFileStream::lockRange";
  checkOpen(place);
  if (start < 0 || length < 1) {
    throw CInvalidArgError(String(place), u"the range is empty or starts before 0",
                           CProps().addLong(u"start", start).addLong(u"length", length));
  }
  CProps props;
  props.addLong(u"start", start).addLong(u"length", length).add(paramLockType(), lockTypeToString(type));
  TList<CRangeKey> fresh;
  try {
    m_locks.lockRange(start, length, type, fresh);
  } catch (CFileSystemError const& e) {
    props.addBool(IIOStream::errParamLockConflict(), true)
        .addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kLockConflict);
    CIOError error(CIOError::kLockFailed, String(), withStreamURI(props, m_uri), &e);
    error.addTrace(String(place));
    throw error;
  }
  CMutexLock guard(m_osLockMutex);
  std::size_t const before = m_osLocks.size();
  for (CRangeKey const& range : fresh) {
    SysError e = platform::fileLock(m_file, range.getStart(), range.getLength(), type == LockExclusive);
    if (!e) {
      m_osLocks.push_back(OsLock{range.getStart(), range.getLength()});
      continue;
    }
    // Undo this request alone: its own OS ranges and its hold in the manager.
    while (m_osLocks.size() > before) {
      (void)platform::fileUnlock(m_file, m_osLocks.back().start, m_osLocks.back().length);
      m_osLocks.pop_back();
    }
    TList<CRangeKey> ignored;
    try {
      m_locks.unlockRange(start, length, type, ignored);
    } catch (CError const&) {
      // The hold was recorded a moment ago under this stream's control.
    }
    throw detail::makeLocalFileError(CIOError::kLockFailed, place, "LockFileEx", e, m_uri, props);
  }
  return P<IStreamLock>(new CRangeLock(P<CLocalFileStream>::share(this), start, length, type));
}

void CLocalFileStream::releaseRange(long long start, long long length, LockType type) noexcept {
  try {
    TList<CRangeKey> freed;
    m_locks.unlockRange(start, length, type, freed);
    if (freed.empty()) return;
    CMutexLock guard(m_osLockMutex);
    if (!m_file) return;  // closing dropped every OS lock
    // An OS range goes only once nothing inside it is held: Windows cannot
    // unlock part of a range, and the stream's ranges split as they overlap.
    TArray<CStreamLockManager::Entry> const held = m_locks.getLockedRanges();
    for (std::size_t i = 0; i < m_osLocks.size();) {
      CRangeKey const os(m_osLocks[i].start, m_osLocks[i].length);
      bool inUse = false;
      for (CStreamLockManager::Entry const& entry : held) {
        if (!entry.first.getOverlap(os).isZero()) {
          inUse = true;
          break;
        }
      }
      if (inUse) {
        ++i;
        continue;
      }
      (void)platform::fileUnlock(m_file, os.getStart(), os.getLength());
      m_osLocks.erase(m_osLocks.begin() + static_cast<std::ptrdiff_t>(i));
    }
  } catch (...) {
    // Releasing runs in destructors; a failure leaves the range locked until
    // the file is closed, which is the worst it can do.
  }
}

void CLocalFileStream::closeNoThrow() noexcept {
  try {
    close();
  } catch (...) {
  }
}

void CLocalFileStream::close() {
  platform::NativeFile* file = nullptr;
  {
    CMutexLock guard(m_osLockMutex);
    file = m_file;
    m_file = nullptr;
    m_osLocks.clear();  // the OS drops them with the handle
  }
  SysError e = platform::fileClose(file);
  P<CLockFile> lockFile = std::move(m_lockFile);
  if (lockFile) lockFile->unlock();
  if (e) throw detail::makeLocalFileError(CIOError::kWriteFailed, "CLocalFileStream::close", "CloseHandle", e, m_uri, CProps());
}

void CLocalFileStream::read(void* buffer, int size) {
  int const got = readLax(buffer, size);
  if (got < size) {
    throw makeStreamError(CIOError::kUnexpectedEOF, "CLocalFileStream::read", String(),
                          CProps().addLong(u"bytesRead", got).addLong(u"toRead", size), m_uri);
  }
}

int CLocalFileStream::readLax(void* buffer, int size) {
  char const* const place = "CLocalFileStream::readLax";
  checkOpen(place);
  checkSize(size, place);
  std::size_t done = 0;
  SysError e = platform::fileRead(m_file, buffer, static_cast<std::size_t>(size), done);
  m_position += static_cast<long long>(done);
  if (e) throw detail::makeLocalFileError(CIOError::kReadFailed, place, "ReadFile", e, m_uri, CProps());
  return static_cast<int>(done);
}

int CLocalFileStream::readAvailable(void* buffer, int size) { return readLax(buffer, size); }

bool CLocalFileStream::waitReadable(int) const { return true; }

bool CLocalFileStream::isEndOfStream() const {
  checkOpen("CLocalFileStream::isEndOfStream");
  return m_position >= getLength();
}

int CLocalFileStream::isEndOfStream_NonBlocking() const { return isEndOfStream() ? 1 : 0; }

void CLocalFileStream::write(void const* data, int size, IWriteBarrier*) {
  char const* const place = "CLocalFileStream::write";
  checkWritable(place);
  checkSize(size, place);
  if (size == 0) return;
  SysError e = platform::fileWrite(m_file, data, static_cast<std::size_t>(size));
  if (m_access == AccessAppend || e) {
    // Where an appending or failed write left the position is the OS's to say.
    long long position = 0;
    if (!platform::fileGetPosition(m_file, position)) m_position = position;
  } else {
    m_position += size;
  }
  if (e) throw detail::makeLocalFileError(CIOError::kWriteFailed, place, "WriteFile", e, m_uri, CProps());
}

void CLocalFileStream::writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) {
  checkWritable("CLocalFileStream::writeKeepBuffer");
  unsigned char const* bytes = data.getData();
  long long left = data.getLength();
  // write() takes an int count; a slice may be longer.
  while (left > 0) {
    int const chunk = left > 0x40000000 ? 0x40000000 : static_cast<int>(left);
    write(bytes, chunk, barrier);
    bytes += chunk;
    left -= chunk;
  }
}

P<IWriteBarrier> CLocalFileStream::createWriteBarrier(IWriteBarrier*) {
  checkOpen("CLocalFileStream::createWriteBarrier");
  return newP<CDummyWriteBarrier>();
}

void CLocalFileStream::flush() {
  char const* const place = "CLocalFileStream::flush";
  checkOpen(place);
  if (m_access == AccessReadOnly) return;
  if (SysError e = platform::fileFlush(m_file)) {
    throw detail::makeLocalFileError(CIOError::kWriteFailed, place, "FlushFileBuffers", e, m_uri, CProps());
  }
}

void CLocalFileStream::setLength(long long length) {
  char const* const place = "CLocalFileStream::setLength";
  checkWritable(place);
  if (length < 0) {
    throw CInvalidArgError(String(place), u"the length is negative", CProps().addLong(u"length", length));
  }
  if (SysError e = platform::fileSetSize(m_file, length)) {
    throw detail::makeLocalFileError(CIOError::kResizeFailed, place, "SetEndOfFile", e, m_uri,
                             CProps().addLong(u"length", length));
  }
  if (m_position > length) seek(length);
}

}  // namespace qo
