#include "qo/fs/CProxyFileSystemServer.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/stream/IAlignedStreamBase.h"
#include "qo/thread/CBackgroundOpThread.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"

#include <deque>
#include <map>
#include <vector>


namespace qo {

CProxyFileSystemServer::IPolicy::~IPolicy() = default;

namespace {

using Msg = CProxyFileSystemMessage;

// The largest read a client may ask for at once.
constexpr int kMaxTransfer = 8 * 1024 * 1024;
// Links followed while resolving one path.
constexpr int kMaxLinkHops = 40;

// A native path as a prefix (POSIX: ""; Windows: "C:" or "\\server\share")
// and its components.
struct NativePath {
  String prefix;
  std::vector<String> parts;
  bool windows = false;
};

bool isSeparator(char16_t c, bool windows) { return c == u'/' || (windows && c == u'\\'); }

std::vector<String> splitParts(String const& text, bool windows) {
  std::vector<String> parts;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= text.length(); ++i) {
    if (i == text.length() || isSeparator(text[i], windows)) {
      if (i > start) parts.push_back(text.Mid(start, i - start));
      start = i + 1;
    }
  }
  return parts;
}

bool isAbsoluteNative(String const& p, bool windows) {
  if (!windows) return p.StartsWith(u"/");
  return (p.length() >= 2 && p[1] == u':') || p.StartsWith(u"\\\\");
}

NativePath parseNative(String path, bool windows) {
  NativePath out;
  out.windows = windows;
  if (windows) {
    if (path.StartsWith(u"\\\\?\\") || path.StartsWith(u"\\??\\")) {
      path = path.Mid(4);
      if (path.StartsWith(u"UNC\\", true)) path = String(u"\\\\") + path.Mid(4);
    }
    if (path.length() >= 2 && path[1] == u':') {
      out.prefix = path.Left(2).Upper();
      path = path.Mid(2);
    } else if (path.StartsWith(u"\\\\")) {
      std::vector<String> p = splitParts(path, true);
      if (p.size() >= 2) out.prefix = String(u"\\\\") + p[0] + u"\\" + p[1];
      out.parts.assign(p.size() >= 2 ? p.begin() + 2 : p.end(), p.end());
      return out;
    }
  }
  out.parts = splitParts(path, windows);
  return out;
}

String joinNative(NativePath const& p) {
  String s = p.prefix;
  if (p.parts.empty()) return s + (p.windows ? u"\\" : u"/");
  for (String const& part : p.parts) s = s + (p.windows ? u"\\" : u"/") + part;
  return s;
}

CFileSystemError outsideRoot(CURI const& uri) {
  return CFileSystemError(CFileSystemError::kAccessDenied, u"The path lies outside the served root.",
                          CProps().add(u"uri", uri.toString(true)));
}

// What one client has open in the server. Used by the client's connection
// thread only; the handler's map holds it.
struct Session : CBase {
  long long nextHandle = 1;
  std::map<long long, P<IIOStream>> streams;
  std::map<long long, P<IStreamLock>> locks;
  std::map<long long, P<IFolderContentsIterator>> folders;
  std::map<long long, P<IBackgroundOp>> ops;
  P<CBackgroundOpThread> worker;

  long long add() { return nextHandle++; }

  void end() noexcept {
    locks.clear();
    for (auto& entry : streams) {
      try {
        entry.second->close();
      } catch (...) {
      }
    }
    streams.clear();
    folders.clear();
    if (worker) {
      // Queued operations are dropped; one that is running finishes on its
      // own, without holding up the end of the connection (the library's
      // shutdown waits for it).
      try {
        worker->signalStop();
        worker->detach(true);
      } catch (...) {
      }
      worker.reset();
    }
    ops.clear();
  }
};

template <class T>
T const& lookup(std::map<long long, T> const& map, long long handle) {
  auto it = map.find(handle);
  if (it == map.end())
    throw CIOError(CIOError::kStreamClosed, u"The proxy handle is not open.", CProps().addLong(u"handle", static_cast<long>(handle)));
  return it->second;
}

}  // namespace

class CProxyFileSystemServer::CHandler : public CBase, public IIPCRequestHandler {
public:
  explicit CHandler(P<IFileSystem> fs) : m_fs(std::move(fs)) {}

  void handleRequest(CIPCConnection& connection, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override {
    P<Session> session = sessionOf(connection);
    Msg out;
    try {
      // Writes are the bulk of a store: their bytes go to the stream
      // straight from the request frame.
      long long handle = 0, position = 0;
      unsigned char const* bytes = nullptr;
      int size = 0;
      if (!m_policy && Msg::peekStreamWrite(request, handle, position, bytes, size)) {
        IIOStream& stream = *lookup(session->streams, handle);
        if (stream.getPosition() != position) stream.seek(position);
        if (size > 0) stream.write(bytes, size, nullptr);
        answer.assign(1, 0);
        return;
      }
      P<Msg> in = Msg::readRequest(request);
      out.op = in->op;
      if (m_policy && !m_policy->isAllowed(connection.getPeerUserId(), in->op, in->uri))
        throw CFileSystemError(CFileSystemError::kAccessDenied, u"The proxy file-system server refused the operation.",
                               CProps()
                                   .add(u"uri", in->uri.isEmpty() ? String() : in->uri.toString(true))
                                   .add(u"action", String::fromUTF8(Msg::opName(in->op)))
                                   .addLong(u"user", static_cast<long>(connection.getPeerUserId())));
      if (dispatch(*session, *in, out, answer)) return;
    } catch (CError const& e) {
      out.error = e.clone();
    } catch (std::exception const& e) {
      out.error = CStdExceptionError::exceptionToError(&e);
    }
    answer.clear();
    out.writeAnswer(answer);
  }

  void connectionEnded(CIPCConnection& connection) noexcept override {
    P<Session> session;
    {
      CMutexLock lock(m_mutex);
      auto it = m_sessions.find(&connection);
      if (it == m_sessions.end()) return;
      session = it->second;
    }
    // Counted until everything is released, so that a caller who sees the
    // count drop finds the files free.
    session->end();
    CMutexLock lock(m_mutex);
    m_sessions.erase(&connection);
  }

  int sessionCount() const {
    CMutexLock lock(m_mutex);
    return static_cast<int>(m_sessions.size());
  }

  void setRoot(CURI const& root) {
    if (root.isEmpty()) {
      m_hasRoot = false;
      return;
    }
    m_root = resolve(root);
    m_hasRoot = true;
  }

  P<IPolicy> m_policy;

private:
  P<Session> sessionOf(CIPCConnection& connection) {
    CMutexLock lock(m_mutex);
    P<Session>& s = m_sessions[&connection];
    if (!s) s = newP<Session>();
    return s;
  }

  // The native path of uri with every link followed and every "." and ".."
  // applied.
  NativePath resolve(CURI const& uri) {
    String const native = CLocalFileSystem::toNativePath(uri);
    bool const windows = isAbsoluteNative(native, true) && !native.StartsWith(u"/");
    NativePath given = parseNative(native, windows);
    NativePath out;
    out.windows = windows;
    out.prefix = given.prefix;
    std::deque<String> queue(given.parts.begin(), given.parts.end());
    int hops = 0;
    bool missing = false;  // nothing exists from here on: no links to follow
    while (!queue.empty()) {
      String const part = queue.front();
      queue.pop_front();
      if (part.isEmpty() || part == u".") continue;
      if (part == u"..") {
        if (!out.parts.empty()) out.parts.pop_back();
        missing = false;
        continue;
      }
      out.parts.push_back(part);
      if (missing) continue;
      P<IFileInfoBase> info = m_fs->getFileInfo(CLocalFileSystem::toURI(joinNative(out), false), false);
      if (!info->exists()) {
        missing = true;
        continue;
      }
      if (!info->isLink()) continue;
      if (++hops > kMaxLinkHops) throw outsideRoot(uri);
      out.parts.pop_back();
      String const target = info->getLinkTarget();
      if (isAbsoluteNative(target, windows) || target.StartsWith(u"\\??\\")) {
        NativePath t = parseNative(target, windows);
        out.prefix = t.prefix;
        out.parts.clear();
        queue.insert(queue.begin(), t.parts.begin(), t.parts.end());
      } else {
        std::vector<String> t = splitParts(target, windows);
        queue.insert(queue.begin(), t.begin(), t.end());
      }
    }
    return out;
  }

  static bool same(String const& a, String const& b, bool windows) { return windows ? a.CmpNoCase(b) == 0 : a == b; }

  void confine(CURI const& uri) {
    if (!m_hasRoot || uri.isEmpty()) return;
    NativePath p;
    try {
      p = resolve(uri);
    } catch (CFileSystemError const& e) {
      if (e.getParams().lookup(u"fileSysProblem") == u"6") throw;
      throw outsideRoot(uri);
    }
    bool inside = same(p.prefix, m_root.prefix, p.windows) && p.parts.size() >= m_root.parts.size();
    for (std::size_t i = 0; inside && i < m_root.parts.size(); ++i) inside = same(p.parts[i], m_root.parts[i], p.windows);
    if (!inside) throw outsideRoot(uri);
  }

  void answerStream(Session& s, P<IIOStream> const& stream, Msg& out) {
    out.handle = s.add();
    s.streams[out.handle] = stream;
    out.value = stream->getLength();
    int posAlign = 1, bufAlign = 1, bestAlign = 1;
    IAlignedStreamBase::getAlignInfo(*stream, posAlign, bufAlign, bestAlign);
    out.number = posAlign;
    out.number2 = bufAlign;
    out.value2 = bestAlign;
    out.uri = stream->getURI();
  }

  CBackgroundOpThread& worker(Session& s) {
    if (!s.worker) {
      s.worker = newP<CBackgroundOpThread>();
      s.worker->start();
    }
    return *s.worker;
  }

  // Does the request; true when it wrote the answer itself (a read, whose
  // bytes go straight into the answer frame: status 0, count, bytes).
  bool dispatch(Session& s, Msg const& in, Msg& out, std::vector<unsigned char>& answer) {
    IFileSystem& fs = *m_fs;
    confine(in.uri);
    if (!in.uri2.isEmpty()) {
      // A symbolic link's text may point anywhere (following it is checked
      // when it is used); every other second object must lie in the root.
      bool const linkText = in.op == Msg::OpCreateFileSymLink || in.op == Msg::OpCreateFolderSymLink;
      if (in.uri2.hasScheme()) {
        confine(in.uri2);
      } else if (!linkText) {
        confine(CURI(in.uri, in.uri2));
      }
    }
    switch (in.op) {
      case Msg::OpGetFileInfo: out.info = fs.getFileInfo(in.uri, in.flag); break;
      case Msg::OpGetFileSectorSize: out.value = fs.getFileSectorSize(in.uri); break;
      case Msg::OpFolderOpen:
        out.handle = s.add();
        s.folders[out.handle] = fs.getFolderContents(in.uri);
        break;
      case Msg::OpFolderNext: {
        P<IFolderContentsIterator> const& it = lookup(s.folders, in.handle);
        P<IFileInfoBase> entry;
        out.flag = false;
        while (static_cast<int>(out.infos.size()) < Msg::kFolderBatch) {
          if (!it->getNext(entry)) {
            out.flag = true;
            break;
          }
          out.infos.push_back(entry);
        }
        if (out.flag) s.folders.erase(in.handle);
        break;
      }
      case Msg::OpFolderClose: s.folders.erase(in.handle); break;
      case Msg::OpCreateStream:
        answerStream(s,
                     fs.createStream(in.uri, static_cast<IIOStream::Access>(in.number),
                                     TFlags<IIOStream::Flags>::fromRaw(static_cast<unsigned>(in.number2))),
                     out);
        break;
      case Msg::OpCreateSubDataStream:
        answerStream(s,
                     fs.createSubDataStream(in.uri, in.text, static_cast<IIOStream::Access>(in.number),
                                            TFlags<IIOStream::Flags>::fromRaw(static_cast<unsigned>(in.number2))),
                     out);
        break;
      case Msg::OpCreateFolder: fs.createFolder(in.uri, in.number); break;
      case Msg::OpEnsureFolderExists: out.flag = fs.ensureFolderExists(in.uri, in.number); break;
      case Msg::OpEnsureFileExists: fs.ensureFileExists(in.uri); break;
      case Msg::OpCreateFileHardLink: fs.createFileHardLink(in.uri, in.uri2); break;
      case Msg::OpCreateFolderHardLink: fs.createFolderHardLink(in.uri, in.uri2); break;
      case Msg::OpCreateFileSymLink: fs.createFileSymLink(in.uri, in.uri2); break;
      case Msg::OpCreateFolderSymLink: fs.createFolderSymLink(in.uri, in.uri2); break;
      case Msg::OpFileExists: out.flag = fs.fileExists(in.uri); break;
      case Msg::OpFolderExists: out.flag = fs.folderExists(in.uri); break;
      case Msg::OpPathExists: out.flag = fs.pathExists(in.uri); break;
      case Msg::OpQuickCheckFolderAccessible: out.flag = fs.quickCheckFolderAccessible(in.uri); break;
      case Msg::OpIsFolderEmpty: out.flag = fs.isFolderEmpty(in.uri); break;
      case Msg::OpDeleteFile: fs.deleteFile(in.uri, in.flag); break;
      case Msg::OpDeleteSymLink: fs.deleteSymLink(in.uri); break;
      case Msg::OpDeleteEmptyFolder: fs.deleteEmptyFolder(in.uri, in.flag); break;
      case Msg::OpUnlinkFolder: fs.unlinkFolder(in.uri); break;
      case Msg::OpGetVolumeRootPath: out.uri = fs.getVolumeRootPath(in.uri); break;
      case Msg::OpCreateUniqueFilename: out.uri = fs.createUniqueFilename(in.uri, in.text); break;
      case Msg::OpCreateUniqueFolderName: out.uri = fs.createUniqueFolderName(in.uri, in.text); break;
      case Msg::OpMoveFileOrFolder: fs.moveFileOrFolder(in.uri, in.uri2, in.flag); break;
      case Msg::OpCopyFile: fs.copyFile(in.uri, in.uri2, in.flag); break;
      case Msg::OpGetFreeSpaceInFolder: out.value = fs.getFreeSpaceInFolder(in.uri); break;
      case Msg::OpGetAccountName: out.text = fs.getAccountOrUserNameUsedForAccess(in.uri); break;
      case Msg::OpGetNativeMetaData: {
        P<IFileSystem::CNativeMetaData> meta = fs.getNativeMetaData(in.uri, in.flag, in.text);
        out.text = meta->getFormat();
        PC<TBuffer<unsigned char>> bytes = meta->getData();
        out.data.assign(bytes->getData(), bytes->getData() + bytes->getSize());
        break;
      }
      case Msg::OpCommitMeta: {
        P<IFileMetaModifier> mod = fs.createMetaModifier(in.uri, in.flag);
        if (in.meta.creation.isValid()) mod->setCreationTime(in.meta.creation);
        if (in.meta.lastWrite.isValid()) mod->setLastWriteTime(in.meta.lastWrite);
        if (in.meta.lastAccess.isValid()) mod->setLastAccessTime(in.meta.lastAccess);
        using Attrs = TFlags<IFileInfoBase::Attribute>;
        if (in.meta.hasAttributes) mod->setAttributes(Attrs::fromRaw(static_cast<Attrs::Raw>(in.meta.attributes)));
        if (in.meta.hasMode) mod->setPosixMode(in.meta.mode);
        mod->commit();
        break;
      }
      case Msg::OpBgCreateFolder:
        out.handle = s.add();
        s.ops[out.handle] = worker(s).addCreateFolderJob(m_fs.get(), in.uri, in.number, nullptr);
        break;
      case Msg::OpBgMove:
        out.handle = s.add();
        s.ops[out.handle] = worker(s).addMoveFileJob(m_fs.get(), in.uri, in.uri2, in.flag, nullptr);
        break;
      case Msg::OpBgDelete:
        out.handle = s.add();
        s.ops[out.handle] = worker(s).addDeleteFileJob(m_fs.get(), in.uri, nullptr);
        break;
      case Msg::OpBgPoll:
        for (auto it = s.ops.begin(); it != s.ops.end();) {
          if (!it->second->hasFinished()) {
            ++it;
            continue;
          }
          Msg::Ended e;
          e.handle = it->first;
          try {
            it->second->throwErrorIfFailed();
          } catch (CError const& error) {
            e.error = error.clone();
          }
          out.ended.push_back(e);
          it = s.ops.erase(it);
        }
        break;
      case Msg::OpStreamRead: {
        if (in.number < 0 || in.number > kMaxTransfer)
          throw CInvalidArgError(u"CProxyFileSystemServer::read", u"size out of range",
                                 CProps().addLong(u"size", in.number));
        IIOStream& stream = *lookup(s.streams, in.handle);
        if (stream.getPosition() != in.value) stream.seek(in.value);
        answer.resize(5 + static_cast<std::size_t>(in.number));
        unsigned char* const bytes = answer.data() + 5;
        int got = 0;
        if (in.flag) {  // exact: the stream's own short-read error
          stream.read(bytes, in.number);
          got = in.number;
        }
        while (got < in.number) {
          int const n = stream.readLax(bytes + got, in.number - got);
          if (n <= 0) break;
          got += n;
        }
        answer.resize(5 + static_cast<std::size_t>(got));
        answer[0] = 0;
        for (int i = 0; i < 4; ++i) answer[1 + static_cast<std::size_t>(i)] = static_cast<unsigned char>(got >> (8 * i));
        return true;
      }
      case Msg::OpStreamWrite: {
        IIOStream& stream = *lookup(s.streams, in.handle);
        if (stream.getPosition() != in.value) stream.seek(in.value);
        if (!in.data.empty()) stream.write(in.data.data(), static_cast<int>(in.data.size()), nullptr);
        break;
      }
      case Msg::OpStreamGetLength: out.value = lookup(s.streams, in.handle)->getLength(); break;
      case Msg::OpStreamSetLength: lookup(s.streams, in.handle)->setLength(in.value); break;
      case Msg::OpStreamFlush: lookup(s.streams, in.handle)->flush(); break;
      case Msg::OpStreamLock: {
        P<IStreamLock> lock = lookup(s.streams, in.handle)->lockRange(
            in.value, in.value2, in.number == 1 ? IStreamBase::LockExclusive : IStreamBase::LockShared);
        out.handle = s.add();
        s.locks[out.handle] = lock;
        break;
      }
      case Msg::OpLockRelease: s.locks.erase(in.handle); break;
      case Msg::OpStreamClose: {
        auto it = s.streams.find(in.handle);
        if (it == s.streams.end()) break;
        P<IIOStream> stream = it->second;
        s.streams.erase(it);
        stream->close();
        break;
      }
      default: throw CIOError(CIOError::kCorruptData, u"Unknown proxy file-system operation.");
    }
    return false;
  }

  P<IFileSystem> m_fs;
  bool m_hasRoot = false;
  NativePath m_root;
  mutable CMutex m_mutex;
  std::map<CIPCConnection*, P<Session>> m_sessions;
};

CProxyFileSystemServer::CProxyFileSystemServer(P<IFileSystem> const& fs) {
  if (!fs) throw CInvalidArgError(u"CProxyFileSystemServer::CProxyFileSystemServer", u"no file system");
  m_handler = newP<CHandler>(fs);
  m_ipc = newP<CIPCServer>(m_handler);
  m_ipc->setProtocolVersion(CProxyFileSystemMessage::kVersion);
}

CProxyFileSystemServer::~CProxyFileSystemServer() {
  try {
    stop();
  } catch (...) {
  }
}

void CProxyFileSystemServer::setRoot(CURI const& root) { m_handler->setRoot(root); }

void CProxyFileSystemServer::setPolicy(P<IPolicy> const& policy) { m_handler->m_policy = policy; }

void CProxyFileSystemServer::listen(String const& name) { m_ipc->listen(name); }

void CProxyFileSystemServer::stop() { m_ipc->stop(); }

int CProxyFileSystemServer::getSessionCount() const { return m_handler->sessionCount(); }

}  // namespace qo
