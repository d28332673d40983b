#include "qo/fs/CLocalFileSystem.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/fs/LocalFile.h"
#include "qo/fs/LocalFileSystemShared.h"
#include "qo/platform/File.h"
#include "qo/platform/FileSystem.h"
#include "qo/stream/IInStream.h"
#include "qo/thread/CBackgroundOpThread.h"
#include "qo/thread/CMutexLock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qo {

using localfs::nativeOf;
using localfs::statOf;
using localfs::throwOsError;
using localfs::throwProblem;
using localfs::windowsPaths;
using platform::FsErrorKind;
using platform::FsKind;
using platform::FsStat;
using platform::SysError;

namespace {

char16_t const kTemporaryPrefix[] = u"~qo-";
char16_t const kTemporarySuffix[] = u".tmp";
constexpr std::size_t kTemporaryDigits = 16;

}  // namespace

namespace localfs {

// A name no other store, in this process or another, picks: a random start
// per process, then a counter, both mixed so that the names look unrelated.
String temporaryName() {
  static std::atomic<std::uint64_t> next{[] {
    std::random_device device;
    std::uint64_t const seed = (static_cast<std::uint64_t>(device()) << 32) ^ device();
    return seed ^ static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
           reinterpret_cast<std::uintptr_t>(&next);
  }()};
  std::uint64_t x = next.fetch_add(0x9E3779B97F4A7C15ULL, std::memory_order_relaxed);
  x ^= x >> 30, x *= 0xBF58476D1CE4E5B9ULL, x ^= x >> 27, x *= 0x94D049BB133111EBULL, x ^= x >> 31;
  std::u16string digits(kTemporaryDigits, u'0');
  for (std::size_t i = 0; i < kTemporaryDigits; ++i) digits[i] = u"0123456789abcdef"[(x >> (4 * i)) & 15];
  return String(kTemporaryPrefix) + String(digits) + kTemporarySuffix;
}

}  // namespace localfs

namespace {

using localfs::temporaryName;

// A file being written under a temporary name beside its target; deleted
// unless it was renamed into place.
class CTemporaryFile {
public:
  explicit CTemporaryFile(CURI const& target) {
    CURI const folder = target.getParent();
    platform::FileOpenOptions options;
    options.write = true;
    options.creation = platform::FileOpenOptions::CreateNew;
    options.sequential = true;
    options.ownerOnly = true;
    for (int attempt = 0;; ++attempt) {
      m_uri = folder << temporaryName();
      m_path = nativeOf(m_uri);
      SysError const e = platform::fileOpen(m_path.data(), m_path.size(), options, m_handle);
      if (!e) return;
      if (attempt < 10 && platform::fileErrorKind(e) == platform::FileErrorKind::AlreadyExists) continue;
      throw detail::makeLocalFileError(CIOError::kOpenFailed, "CLocalFileSystem::storeFile", "CreateFileW", e, target,
                                       CProps().add(u"temporary", m_uri.toString(true)));
    }
  }
  ~CTemporaryFile() {
    platform::fileClose(m_handle);
    if (!m_kept) platform::fileDelete(m_path.data(), m_path.size());
  }
  CTemporaryFile(CTemporaryFile const&) = delete;
  CTemporaryFile& operator=(CTemporaryFile const&) = delete;

  // Writes size bytes; a run of zeros is skipped instead, so that the
  // holes of a sparse source stay holes (the file system fills what is
  // skipped with zeros, and replace() sets the final length).
  void write(void const* data, std::size_t size, CURI const& target) {
    auto const* bytes = static_cast<unsigned char const*>(data);
    if (size >= kMinHole && std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0; })) {
      m_length += static_cast<long long>(size);
      if (SysError e = platform::fileSeek(m_handle, m_length)) fail(e, "SetFilePointerEx", target);
      return;
    }
    if (SysError e = platform::fileWrite(m_handle, data, size)) fail(e, "WriteFile", target);
    m_length += static_cast<long long>(size);
    m_written = m_length;
  }
  // Flushes and closes the file, then renames it over target.
  void replace(CURI const& target, bool overwrite, char const* action) {
    if (m_written < m_length) {
      if (SysError e = platform::fileSetSize(m_handle, m_length)) fail(e, "SetEndOfFile", target);
    }
    if (SysError e = platform::fileFlush(m_handle)) fail(e, "FlushFileBuffers", target);
    platform::FileHandle const handle = m_handle;
    m_handle = nullptr;
    if (SysError e = platform::fileClose(handle)) fail(e, "CloseHandle", target);
    if (SysError e = platform::fsReplaceFile(m_path, nativeOf(target), overwrite)) {
      throwOsError(e, CIOError::kWriteFailed, action, "MoveFileExW", target, &m_uri);
    }
    m_kept = true;
  }
  std::u16string const& path() const { return m_path; }

private:
  [[noreturn]] void fail(SysError const& e, char const* windowsApi, CURI const& target) {
    throw detail::makeLocalFileError(CIOError::kWriteFailed, "CLocalFileSystem::storeFile", windowsApi, e, target,
                                     CProps().add(u"temporary", m_uri.toString(true)));
  }

  static constexpr std::size_t kMinHole = 4096;

  CURI m_uri;
  std::u16string m_path;
  platform::FileHandle m_handle = nullptr;
  bool m_kept = false;
  long long m_length = 0;   // bytes stored so far, holes included
  long long m_written = 0;  // the end of the last bytes written
};

// Refuses, as opening the target to write it would, a target that must not
// or cannot be replaced: an existing one without overwrite, a folder, a file
// this process may not write (or, on Windows, one open without sharing).
void checkStoreTarget(CURI const& target, bool overwrite) {
  FsStat const st = statOf(target, false, "storeFile");
  if (st.kind == FsKind::None) return;
  CProps props;
  props.add(u"action", String(u"storeFile"));
  if (!overwrite) {
    props.addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kAlreadyExists);
    props.add(CIOError::paramURI(), target.toString(true));
    CIOError error(CIOError::kOpenFailed, String(), props);
    error.addTrace(u"CLocalFileSystem::storeFile");
    throw error;
  }
  std::u16string const path = nativeOf(target);
  platform::FileOpenOptions options;
  options.write = true;
  options.shareRead = options.shareWrite = options.shareDelete = true;
  platform::FileHandle probe = nullptr;
  SysError e = platform::fileOpen(path.data(), path.size(), options, probe);
  if (!e) e = platform::fileClose(probe);
  if (e) throw detail::makeLocalFileError(CIOError::kOpenFailed, "CLocalFileSystem::storeFile", "CreateFileW", e, target, props);
}

void checkStoreArguments(IInStream* source, long long length, char16_t const* place) {
  if (!source) throw CInvalidArgError(place, u"the source stream is null");
  if (length < -1) throw CInvalidArgError(place, u"the length is below -1", CProps().addLong(u"length", length));
}

}  // namespace

P<CBackgroundOpThread> CLocalFileSystem::worker() {
  CMutexLock lock(m_workerMutex);
  if (!m_worker) {
    P<CBackgroundOpThread> worker = newP<CBackgroundOpThread>();
    worker->start();  // kept only once it runs, so that a failed start is retried
    m_worker = worker;
  }
  return m_worker;
}

// storeFile on the worker.
class CLocalFileSystem::CStoreJob : public CBackgroundOpThread::CJob {
public:
  CStoreJob(CLocalFileSystem* fs, CURI const& target, long long length, IInStream* source, bool overwrite,
            IDoneListener* listener)
      : CJob(listener), m_target(target), m_length(length), m_overwrite(overwrite) {
    // Shared, not adopted: the caller keeps its references.
    m_fs = fs;
    m_source = source;
  }

  void run(void*, CBackgroundOpThread*) override { m_fs->storeFile(m_target, m_length, m_source.get(), m_overwrite); }

protected:
  void dropReferences() noexcept override {
    m_fs = nil;
    m_source = nil;
  }

private:
  P<CLocalFileSystem> m_fs;
  CURI m_target;
  long long m_length;
  P<IInStream> m_source;
  bool m_overwrite;
};

bool CLocalFileSystem::isTemporaryName(String const& name) {
  std::u16string const& text = name.str();
  std::size_t const prefix = std::char_traits<char16_t>::length(kTemporaryPrefix);
  std::size_t const suffix = std::char_traits<char16_t>::length(kTemporarySuffix);
  if (text.size() != prefix + kTemporaryDigits + suffix || !name.StartsWith(kTemporaryPrefix) ||
      !name.EndsWith(kTemporarySuffix)) {
    return false;
  }
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(prefix),
                     text.begin() + static_cast<std::ptrdiff_t>(prefix + kTemporaryDigits),
                     [](char16_t c) { return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f'); });
}

void CLocalFileSystem::storeFile(CURI const& target, long long length, IInStream* source, bool overwrite) {
  checkStoreArguments(source, length, u"CLocalFileSystem::storeFile");
  checkStoreTarget(target, overwrite);
  CTemporaryFile file(target);
  constexpr int kChunk = 64 * 1024;
  std::vector<unsigned char> buffer(kChunk);
  if (length < 0) {
    while (int const got = source->readLax(buffer.data(), kChunk)) file.write(buffer.data(), static_cast<std::size_t>(got), target);
  } else {
    for (long long left = length; left > 0;) {
      int const chunk = static_cast<int>(std::min<long long>(left, kChunk));
      // read() rather than readLax(): a source shorter than promised fails
      // the store instead of leaving a short file.
      source->read(buffer.data(), chunk);
      file.write(buffer.data(), static_cast<std::size_t>(chunk), target);
      left -= chunk;
    }
  }
  file.replace(target, overwrite, "storeFile");
}

P<IBackgroundOp> CLocalFileSystem::backgroundStore(CURI const& target, long long length, IInStream* source,
                                                   bool overwrite, IDoneListener* listener) {
  checkStoreArguments(source, length, u"CLocalFileSystem::backgroundStore");
  return worker()->addJob(P<CBackgroundOpThread::CJob>(new CStoreJob(this, target, length, source, overwrite, listener)));
}

P<IBackgroundOp> CLocalFileSystem::backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) {
  return worker()->addCreateFolderJob(this, uri, options, listener);
}

P<IBackgroundOp> CLocalFileSystem::backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                                              IDoneListener* listener) {
  return worker()->addMoveFileJob(this, from, to, overwrite, listener);
}

P<IBackgroundOp> CLocalFileSystem::backgroundDeleteFile(CURI const& uri, IDoneListener* listener) {
  return worker()->addDeleteFileJob(this, uri, listener);
}

void CLocalFileSystem::copyFile(CURI const& from, CURI const& to, bool overwrite) {
  FsStat const existing = statOf(to, false, "copyFile");
  FsStat const source = statOf(from, true, "copyFile");
  bool const sameFile = source.fileId != 0 && source.fileId == existing.fileId && source.volumeId == existing.volumeId;
  if (!overwrite || existing.kind != FsKind::File || source.kind != FsKind::File || sameFile) {
    // Nothing to replace, or a copy the system refuses before it touches
    // the target.
    if (SysError e = platform::fsCopyFile(nativeOf(from), nativeOf(to), overwrite)) {
      throwOsError(e, CIOError::kWriteFailed, "copyFile", "CopyFileW", from, &to);
    }
    return;
  }
  // A complete copy under a temporary name, then renamed over the old file.
  CURI const folder = to.getParent();
  for (int attempt = 0;; ++attempt) {
    CURI const temporary = folder << temporaryName();
    std::u16string const path = nativeOf(temporary);
    SysError e = platform::fsCopyFile(nativeOf(from), path, false);
    if (e && attempt < 10 && platform::fsErrorKind(e) == FsErrorKind::AlreadyExists) continue;
    if (e) throwOsError(e, CIOError::kWriteFailed, "copyFile", "CopyFileW", from, &to);
    e = platform::fsReplaceFile(path, nativeOf(to), true);
    if (!e) return;
    platform::fsDeleteFile(path);
    throwOsError(e, CIOError::kWriteFailed, "copyFile", "MoveFileExW", from, &to);
  }
}


}  // namespace qo
