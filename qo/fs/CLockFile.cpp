#include "qo/fs/CLockFile.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CLockFileError.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/fs/LocalFile.h"
#include "qo/stream/IIOStream.h"
#include "qo/stream/StreamError.h"

#include <climits>

namespace qo {

namespace {

// The whole file, also bytes written after locking.
constexpr long long kWholeFile = LLONG_MAX;
// A holder deleting its file between our open and our lock makes us start
// over; more than a few such races in a row means something else is wrong.
constexpr int kMaxAttempts = 16;

[[noreturn]] void throwLockError(String const& path, IStreamBase::LockType type, CError const& cause) {
  if (CLockFileError::isLockConflictError(&cause)) {
    CProps props;
    if (CIOError const* io = dynamic_cast<CIOError const*>(&cause)) {
      String const uri = io->getParams().lookup(CIOError::paramURI());
      if (!uri.isEmpty()) props.add(CIOError::paramURI(), uri);
    }
    CFileSystemError const conflict(CFileSystemError::kLockConflict, String(), props, &cause);
    throw CLockFileError(path, type, &conflict);
  }
  throw CLockFileError(path, type, &cause);
}

}  // namespace

CLockFile::CLockFile(String const& path, IStreamBase::LockType type, bool deleteOnRelease)
    : m_path(path), m_type(type), m_deleteOnRelease(deleteOnRelease) {
  // Everyone may open the file: the byte-range lock decides, and a holder
  // must be able to delete it while others have it open.
  TFlags<IIOStream::Flags> const flags{IIOStream::FlagCreate, IIOStream::FlagShareRead, IIOStream::FlagShareWrite,
                                       IIOStream::FlagShareDelete};
  for (int attempt = 1;; ++attempt) {
    P<CLocalFileStream> stream;
    try {
      stream = newP<CLocalFileStream>(path, IIOStream::AccessReadWrite, flags);
    } catch (CError const& e) {
      throwLockError(path, type, e);
    }
    P<IStreamLock> lock;
    try {
      lock = stream->lockRange(0, kWholeFile, type);
      if (attempt < kMaxAttempts && !stream->isStillAtPath()) continue;  // the dropped stream unlocks
    } catch (CError const& e) {
      lock = nil;
      try {
        stream->close();
      } catch (CError const&) {
      }
      throwLockError(path, type, e);
    }
    m_stream = stream;
    m_lock = lock;
    return;
  }
}

CLockFile::~CLockFile() { unlock(); }

void CLockFile::unlock() {
  if (!m_stream) return;
  m_lock = nil;
  bool deleteIt = false;
  if (m_deleteOnRelease) {
    // Only the last holder deletes: a shared holder leaving must not take
    // the file from under the others' locks. Whoever grabs the lock in the
    // gap keeps the file; a newcomer that opened the file before it goes
    // finds its path changed and starts over.
    try {
      m_lock = m_stream->lockRange(0, kWholeFile, IStreamBase::LockExclusive);
      deleteIt = true;
    } catch (...) {
    }
  }
  if (deleteIt) {
    try {
      deleteLocalFile(m_path, 1);
    } catch (...) {
    }
  }
  m_lock = nil;
  try {
    m_stream->close();
  } catch (...) {
    // The OS dropped the lock with the handle either way.
  }
  m_stream = nil;
}

bool CLockFile::isHeld() const { return m_stream != nil; }

String const& CLockFile::getPath() const { return m_path; }

}  // namespace qo
