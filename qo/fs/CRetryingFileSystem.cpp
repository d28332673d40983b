#include "qo/fs/CRetryingFileSystem.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/CNetworkAutoMounter.h"
#include "qo/log/logFunctions.h"
#include "qo/platform/FileSystem.h"
#include "qo/platform/Yield.h"
#include "qo/stream/IIOStream.h"

#include <algorithm>
#include <utility>

namespace qo {

namespace {

bool failsIfExists(TFlags<IIOStream::Flags> flags) { return flags.has(IIOStream::FlagFailIfExists); }

}  // namespace

CRetryingFileSystem::CRetryingFileSystem(P<IFileSystem> const& inner, int attempts, int firstDelayMs, int maxDelayMs)
    : m_inner(inner), m_attempts(attempts), m_firstDelayMs(firstDelayMs), m_maxDelayMs(maxDelayMs) {
  char16_t const* const place = u"CRetryingFileSystem::CRetryingFileSystem";
  if (!inner) throw CInvalidArgError(place, u"the inner file system is null");
  CProps const props =
      CProps().addLong(u"attempts", attempts).addLong(u"firstDelayMs", firstDelayMs).addLong(u"maxDelayMs", maxDelayMs);
  if (attempts < 1) throw CInvalidArgError(place, u"the attempts are fewer than 1", props);
  if (firstDelayMs < 0 || maxDelayMs < firstDelayMs) {
    throw CInvalidArgError(place, u"a delay is negative or the longest is shorter than the first", props);
  }
}

CRetryingFileSystem::~CRetryingFileSystem() = default;

void CRetryingFileSystem::setSleeper(std::function<void(int)> sleeper) { m_sleeper = std::move(sleeper); }

int CRetryingFileSystem::getDelayMs(int retry) const {
  long long delay = m_firstDelayMs;
  for (int i = 1; i < retry && delay < m_maxDelayMs; ++i) delay *= 2;
  return static_cast<int>(std::min<long long>(delay, m_maxDelayMs));
}

CRetryingFileSystem::Transience CRetryingFileSystem::classify(CError const& error) {
  String const domain = CSystemError::getPlatformDomain();
  Transience found = kLasting;
  for (CError const* e = &error; e != nullptr; e = e->getCause().get()) {
    CProps const& params = e->getParams();
    if (CFileSystemError::getProblem(params) == CFileSystemError::kLockConflict ||
        params.lookupBool(u"lockConflict", false)) {
      return kRefused;
    }
    if (e->getErrorCodeDomain() != domain || e->getErrorCode() <= 0 || e->getErrorCode() > 0xFFFFFFFFLL) continue;
    switch (platform::fsErrorTransience(static_cast<std::uint32_t>(e->getErrorCode()))) {
      case platform::FsTransience::Refused: return kRefused;
      case platform::FsTransience::Uncertain: found = kUncertain; break;
      case platform::FsTransience::Lasting: break;
    }
  }
  return found;
}

template <class F>
auto CRetryingFileSystem::run(char const* operation, CURI const& uri, bool idempotent, F const& call)
    -> decltype(call()) {
  bool mounted = false;
  for (int attempt = 1;; ++attempt) {
    int delay = 0;
    try {
      return call();
    } catch (CError const& e) {
      Transience const transience = classify(e);
      if (m_autoMount && !mounted && transience == kLasting && CNetworkAutoMounter::get()->connectFor(uri, e)) {
        mounted = true;
        --attempt;
        continue;
      }
      if (attempt >= m_attempts || transience == kLasting || (transience == kUncertain && !idempotent)) throw;
      delay = getDelayMs(attempt);
      String const context = String(u"CRetryingFileSystem::") + String(operation) + u" on " + uri.toString(true) +
                             u": try " + toString(attempt + 1) + u" of " + toString(m_attempts) + u" after " +
                             toString(delay) + u" ms";
      logWarning(e, u"A file-system call failed for a reason that may pass; it is made again.", context);
    }
    if (m_sleeper) {
      m_sleeper(delay);
    } else if (delay > 0) {
      platform::sleepMillis(static_cast<unsigned>(delay));
    }
  }
}

P<IFileSystem> CRetryingFileSystem::getFileSystem(CURI const&) { return m_inner; }

P<IFileSystem> CRetryingFileSystem::getFileSystemForTwo(CURI const&, CURI const&, bool) { return m_inner; }

P<IFileInfoBase> CRetryingFileSystem::getFileInfo(CURI const& uri, bool followLinks) {
  return run("getFileInfo", uri, true, [&] { return m_inner->getFileInfo(uri, followLinks); });
}

long long CRetryingFileSystem::getFileSectorSize(CURI const& uri) {
  return run("getFileSectorSize", uri, true, [&] { return m_inner->getFileSectorSize(uri); });
}

P<IFolderContentsIterator> CRetryingFileSystem::getFolderContents(CURI const& uri) {
  return run("getFolderContents", uri, true, [&] { return m_inner->getFolderContents(uri); });
}

P<IIOStream> CRetryingFileSystem::createStream(CURI const& uri, IIOStream::Access access,
                                               TFlags<IIOStream::Flags> flags) {
  return run("createStream", uri, !failsIfExists(flags), [&] { return m_inner->createStream(uri, access, flags); });
}

P<IIOStream> CRetryingFileSystem::createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                                      TFlags<IIOStream::Flags> flags) {
  return run("createSubDataStream", uri, !failsIfExists(flags),
             [&] { return m_inner->createSubDataStream(uri, name, access, flags); });
}

void CRetryingFileSystem::createFolder(CURI const& uri, int options) {
  run("createFolder", uri, false, [&] { m_inner->createFolder(uri, options); });
}

bool CRetryingFileSystem::ensureFolderExists(CURI const& uri, int options) {
  return run("ensureFolderExists", uri, true, [&] { return m_inner->ensureFolderExists(uri, options); });
}

void CRetryingFileSystem::ensureFileExists(CURI const& uri) {
  run("ensureFileExists", uri, true, [&] { m_inner->ensureFileExists(uri); });
}

void CRetryingFileSystem::createFileHardLink(CURI const& link, CURI const& target) {
  run("createFileHardLink", link, false, [&] { m_inner->createFileHardLink(link, target); });
}

void CRetryingFileSystem::createFolderHardLink(CURI const& link, CURI const& target) {
  run("createFolderHardLink", link, false, [&] { m_inner->createFolderHardLink(link, target); });
}

void CRetryingFileSystem::createFileSymLink(CURI const& link, CURI const& target) {
  run("createFileSymLink", link, false, [&] { m_inner->createFileSymLink(link, target); });
}

void CRetryingFileSystem::createFolderSymLink(CURI const& link, CURI const& target) {
  run("createFolderSymLink", link, false, [&] { m_inner->createFolderSymLink(link, target); });
}

bool CRetryingFileSystem::fileExists(CURI const& uri) {
  return run("fileExists", uri, true, [&] { return m_inner->fileExists(uri); });
}

bool CRetryingFileSystem::folderExists(CURI const& uri) {
  return run("folderExists", uri, true, [&] { return m_inner->folderExists(uri); });
}

bool CRetryingFileSystem::pathExists(CURI const& uri) {
  return run("pathExists", uri, true, [&] { return m_inner->pathExists(uri); });
}

bool CRetryingFileSystem::quickCheckFolderAccessible(CURI const& uri) {
  return run("quickCheckFolderAccessible", uri, true, [&] { return m_inner->quickCheckFolderAccessible(uri); });
}

bool CRetryingFileSystem::isFolderEmpty(CURI const& uri) {
  return run("isFolderEmpty", uri, true, [&] { return m_inner->isFolderEmpty(uri); });
}

void CRetryingFileSystem::deleteFile(CURI const& uri, bool ignoreMissing) {
  run("deleteFile", uri, ignoreMissing, [&] { m_inner->deleteFile(uri, ignoreMissing); });
}

void CRetryingFileSystem::deleteSymLink(CURI const& uri) {
  run("deleteSymLink", uri, false, [&] { m_inner->deleteSymLink(uri); });
}

void CRetryingFileSystem::deleteEmptyFolder(CURI const& uri, bool ignoreMissing) {
  run("deleteEmptyFolder", uri, ignoreMissing, [&] { m_inner->deleteEmptyFolder(uri, ignoreMissing); });
}

void CRetryingFileSystem::unlinkFolder(CURI const& uri) {
  run("unlinkFolder", uri, false, [&] { m_inner->unlinkFolder(uri); });
}

CURI CRetryingFileSystem::getVolumeRootPath(CURI const& uri) {
  return run("getVolumeRootPath", uri, true, [&] { return m_inner->getVolumeRootPath(uri); });
}

CURI CRetryingFileSystem::createUniqueFilename(CURI const& folder, String const& name) {
  return run("createUniqueFilename", folder, true, [&] { return m_inner->createUniqueFilename(folder, name); });
}

CURI CRetryingFileSystem::createUniqueFolderName(CURI const& folder, String const& name) {
  return run("createUniqueFolderName", folder, true, [&] { return m_inner->createUniqueFolderName(folder, name); });
}

void CRetryingFileSystem::moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) {
  run("moveFileOrFolder", from, false, [&] { m_inner->moveFileOrFolder(from, to, overwrite); });
}

void CRetryingFileSystem::copyFile(CURI const& from, CURI const& to, bool overwrite) {
  run("copyFile", from, overwrite, [&] { m_inner->copyFile(from, to, overwrite); });
}

long long CRetryingFileSystem::getFreeSpaceInFolder(CURI const& uri) {
  return run("getFreeSpaceInFolder", uri, true, [&] { return m_inner->getFreeSpaceInFolder(uri); });
}

String CRetryingFileSystem::getAccountOrUserNameUsedForAccess(CURI const& uri) {
  return run("getAccountOrUserNameUsedForAccess", uri, true,
             [&] { return m_inner->getAccountOrUserNameUsedForAccess(uri); });
}

P<IFileSystem::CNativeMetaData> CRetryingFileSystem::getNativeMetaData(CURI const& uri, bool followLinks,
                                                                       String const& what) {
  return run("getNativeMetaData", uri, true, [&] { return m_inner->getNativeMetaData(uri, followLinks, what); });
}

}  // namespace qo
