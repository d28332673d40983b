#include "qo/fs/CNetworkAutoMounter.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/log/logFunctions.h"
#include "qo/platform/NetworkShare.h"
#include "qo/platform/Process.h"
#include "qo/thread/CMutexLock.h"

#include <algorithm>
#include <string>
#include <utility>

namespace qo {

namespace {

constexpr std::size_t kMaxOutput = 4096;

bool helperMounts() { return !platform::netShareHasConnectCall(); }

// The share of a UNC URI: "\\host\first segment"; empty for other URIs.
String uncShareOf(CURI const& uri) {
  if (uri.getScheme() != u"file" || uri.getHost().isEmpty()) return String();
  String const& path = uri.getPath();
  std::size_t const start = path.StartsWith(u"/") ? 1 : 0;
  std::size_t end = path.Find(u'/', start);
  if (end == String::npos) end = path.length();
  if (end == start) return String();
  return String(u"\\\\") + uri.getHost() + u"\\" + path.Mid(start, end - start);
}

// The strongest reason among failure and its causes that a share is to
// blame: a code of this OS's domain that the platform recognises.
platform::NetShareFailure shareFailureOf(CError const& failure) {
  String const domain = CSystemError::getPlatformDomain();
  platform::NetShareFailure found = platform::NetShareFailure::Other;
  for (CError const* e = &failure; e != nullptr; e = e->getCause().get()) {
    if (e->getErrorCodeDomain() != domain || e->getErrorCode() <= 0 || e->getErrorCode() > 0xFFFFFFFFLL) continue;
    platform::NetShareFailure const kind = platform::netShareFailureOf(static_cast<std::uint32_t>(e->getErrorCode()));
    if (kind == platform::NetShareFailure::NeedsCredentials) return kind;
    if (kind == platform::NetShareFailure::NotConnected) found = kind;
  }
  return found;
}

std::u16string replaced(String const& argument, String const& remote, String const& mountPoint, String const& user) {
  return argument.Replace(u"{remote}", remote).Replace(u"{mountPoint}", mountPoint).Replace(u"{user}", user).str();
}

}  // namespace

P<CNetworkAutoMounter> const& CNetworkAutoMounter::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CNetworkAutoMounter>::get(g_pInstanceSlot);
}

CNetworkAutoMounter::CNetworkAutoMounter()
    : m_mountCommand{u"mount", u"-t", u"cifs", u"{remote}", u"{mountPoint}"},
      m_unmountCommand{u"umount", u"{mountPoint}"} {}

CNetworkAutoMounter::~CNetworkAutoMounter() { _deinit(); }

void CNetworkAutoMounter::setLoginManager(IFileSystemLoginManager* manager) {
  CMutexLock lock(m_mutex);
  m_logins = manager;
}

void CNetworkAutoMounter::addShare(String const& remote, CURI const& mountPoint) {
  if (!helperMounts()) throw CNotImplementedError(u"CNetworkAutoMounter::addShare");
  (void)CLocalFileSystem::toNativePath(mountPoint);  // refuses what is not a local folder
  CMutexLock lock(m_mutex);
  m_shares.erase(std::remove_if(m_shares.begin(), m_shares.end(),
                                [&](Share const& s) { return s.mountPoint.toString() == mountPoint.toString(); }),
                 m_shares.end());
  m_shares.push_back(Share{remote, mountPoint});
}

void CNetworkAutoMounter::setMountCommands(std::vector<String> const& mount, std::vector<String> const& unmount) {
  if (!helperMounts()) throw CNotImplementedError(u"CNetworkAutoMounter::setMountCommands");
  if (mount.empty() || unmount.empty() || mount[0].isEmpty() || unmount[0].isEmpty()) {
    throw CInvalidArgError(u"CNetworkAutoMounter::setMountCommands", u"a command is empty");
  }
  CMutexLock lock(m_mutex);
  m_mountCommand = mount;
  m_unmountCommand = unmount;
}

bool CNetworkAutoMounter::connectFor(CURI const& uri, CError const& failure) {
  CMutexLock lock(m_mutex);
  if (helperMounts()) {
    // The innermost mount point that holds uri.
    Share const* share = nullptr;
    for (Share const& s : m_shares) {
      if (s.mountPoint.isParentOfOrEqual(uri) &&
          (!share || s.mountPoint.getPath().length() > share->mountPoint.getPath().length())) {
        share = &s;
      }
    }
    if (!share) return false;
    bool mounted = false;
    std::u16string const folder = CLocalFileSystem::toNativePath(share->mountPoint).str();
    if (platform::netShareIsMounted(folder, mounted)) return false;  // no folder: nothing to mount on
    if (mounted) {
      // Mounted by another thread meanwhile: try again; mounted by someone
      // else: not this mounter's failure.
      return std::any_of(m_connected.begin(), m_connected.end(),
                         [&](Share const& c) { return c.remote == share->remote; });
    }
    return connectShare(uri, *share, failure);
  }
  String const remote = uncShareOf(uri);
  if (remote.isEmpty()) return false;
  platform::NetShareFailure const kind = shareFailureOf(failure);
  if (kind == platform::NetShareFailure::Other) return false;
  for (Share const& c : m_connected) {
    // Connected already (by another thread meanwhile): another failure of
    // the same kind is not the connection's.
    if (c.remote.CmpNoCase(remote) == 0) return false;
  }
  return connectShare(uri, Share{remote, CURI()}, failure);
}

bool CNetworkAutoMounter::connectShare(CURI const& uri, Share const& share, CError const& failure) {
  String user;
  String secret;
  bool const haveLogin = m_logins && m_logins->getLogin(uri, user, secret);
  if (!haveLogin) user = secret = String();
  if (helperMounts()) {
    try {
      runHelper(m_mountCommand, share, user, secret, &failure);
    } catch (...) {
      // A helper that ran and failed may have refused the credentials;
      // the manager may ask again next time.
      if (haveLogin) m_logins->onLoginFailed(uri, user);
      throw;
    }
  } else if (platform::SysError e = platform::netShareConnect(share.remote.str(), user.str(), secret.str())) {
    if (haveLogin && platform::netShareFailureOf(e.code) == platform::NetShareFailure::NeedsCredentials) {
      m_logins->onLoginFailed(uri, user);
    }
    CSystemError error(u"Error connecting the network share.", u"CNetworkAutoMounter::connectFor",
                       u"WNetAddConnection2W", e,
                       CProps().add(u"remote", share.remote).add(u"uri", uri.toString(true)).add(u"user", user));
    error.setCause(failure);
    throw error;
  }
  m_connected.push_back(share);
  return true;
}

void CNetworkAutoMounter::runHelper(std::vector<String> const& command, Share const& share, String const& user,
                                    String const& secret, CError const* failure) const {
  String const mountPoint = CLocalFileSystem::toNativePath(share.mountPoint);
  platform::ProcessStartInfo info;
  for (String const& argument : command) info.argv.push_back(replaced(argument, share.remote, mountPoint, user));
  std::vector<std::u16string> environment;
  if (!user.isEmpty()) {
    platform::processCurrentEnvironment(environment);
    environment.erase(std::remove_if(environment.begin(), environment.end(),
                                     [](std::u16string const& entry) {
                                       return entry.rfind(u"USER=", 0) == 0 || entry.rfind(u"PASSWD=", 0) == 0;
                                     }),
                      environment.end());
    environment.push_back(u"USER=" + user.str());
    environment.push_back(u"PASSWD=" + secret.str());
    info.inheritEnvironment = false;
    info.environment = std::move(environment);
  }
  info.redirectStdout = true;
  info.stderrToStdout = true;
  CProps props;
  props.add(u"remote", share.remote).add(u"mountPoint", mountPoint).add(u"program", command[0]);
  platform::ProcessHandle process = nullptr;
  platform::PipeHandle in = nullptr;
  platform::PipeHandle out = nullptr;
  platform::PipeHandle err = nullptr;
  if (platform::SysError e = platform::processStart(info, process, in, out, err)) {
    CSystemError error(u"Error starting the mount helper.", u"CNetworkAutoMounter::connectFor", u"CreateProcessW", e,
                       props);
    if (failure) error.setCause(*failure);
    throw error;
  }
  // Read to the end first: a helper that fills the pipe would never end.
  std::string output;
  char buffer[1024];
  for (std::size_t got = 0; !platform::pipeRead(out, buffer, sizeof buffer, got) && got > 0;) {
    if (output.size() < kMaxOutput) output.append(buffer, std::min(got, kMaxOutput - output.size()));
  }
  platform::pipeClose(out);
  bool ended = false;
  platform::SysError const waited = platform::processWait(process, -1, ended);
  int exitCode = -1;
  int signal = 0;
  if (!waited && ended) platform::processExitStatus(process, exitCode, signal);
  platform::processClose(process);
  if (exitCode != 0) {
    props.addLong(u"exitCode", exitCode).add(u"output", String::wstringFromUTF8WithLatin1Fallback(output));
    CError error(u"The mount helper failed.", String(), -1, props);
    if (failure) error.setCause(*failure);
    throw error;
  }
}

std::vector<String> CNetworkAutoMounter::getConnected() const {
  CMutexLock lock(m_mutex);
  std::vector<String> remotes;
  for (Share const& share : m_connected) remotes.push_back(share.remote);
  return remotes;
}

void CNetworkAutoMounter::_deinit() noexcept {
  try {
    CMutexLock lock(m_mutex);
    while (!m_connected.empty()) {
      Share const share = m_connected.back();
      m_connected.pop_back();
      try {
        if (helperMounts()) {
          runHelper(m_unmountCommand, share, String(), String(), nullptr);
        } else if (platform::SysError e = platform::netShareDisconnect(share.remote.str())) {
          throw CSystemError(u"Error disconnecting the network share.", u"CNetworkAutoMounter::_deinit",
                             u"WNetCancelConnection2W", e, CProps().add(u"remote", share.remote));
        }
      } catch (std::exception const& e) {
        logWarning(e, u"A network share connected on demand could not be disconnected.", share.remote);
      }
    }
  } catch (...) {
    // Logging or locking failed at the end of the process: nothing to add.
  }
}

}  // namespace qo
