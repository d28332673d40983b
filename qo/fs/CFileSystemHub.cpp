#include "qo/fs/CFileSystemHub.h"

#include "qo/core/CError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CProps.h"
#include "qo/fs/CURI.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

CFileSystemHub::CFileSystemHub() = default;

CFileSystemHub::~CFileSystemHub() = default;

void CFileSystemHub::registerFileSystem(String const& scheme, IFileSystem* fs) {
  P<IFileSystem> replaced;  // released after the lock: its last release may do work
  CMutexLock lock(m_mutex);
  auto it = m_fileSystems.find(scheme);
  if (it != m_fileSystems.end()) {
    replaced.swap(it->second);
    if (fs) {
      it->second = fs;
    } else {
      m_fileSystems.erase(it);
    }
  } else if (fs) {
    m_fileSystems.emplace(scheme, P<IFileSystem>::share(fs));
  }
}

void CFileSystemHub::setLoginManager(IFileSystemLoginManager* manager) {
  P<IFileSystemLoginManager> replaced;
  CMutexLock lock(m_mutex);
  replaced.swap(m_loginManager);
  m_loginManager = manager;
}

P<IFileSystemLoginManager> CFileSystemHub::getLoginManager() const {
  CMutexLock lock(m_mutex);
  return m_loginManager;
}

P<IFileSystem> CFileSystemHub::getFileSystem(CURI const& uri) {
  {
    CMutexLock lock(m_mutex);
    auto it = m_fileSystems.find(uri.getScheme());
    if (it != m_fileSystems.end()) return it->second;
  }
  CError const cause(u"The URI scheme is not supported.", String(), -1, CProps().add(u"uri", uri.toString(true)));
  throw CFileSystemError(CFileSystemError::kUnservedURI, &cause);
}

}  // namespace qo
