// A file system for tests: every operation appends one line naming itself
// and its arguments to a log, runs an optional hook (which may throw or
// block), and returns a canned result. createStream hands out a
// CBufferStream over a fresh buffer that the test can read afterwards.
#ifndef QO_TESTS_FS_FAKEFILESYSTEM_H
#define QO_TESTS_FS_FAKEFILESYSTEM_H

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/TBuffer.h"
#include "qo/fs/CFileInfo.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileSystem.h"
#include "qo/stream/CBufferStream.h"
#include "qo/thread/CErrorBackgroundOp.h"

namespace qo::test {

/// A finished, successful operation (the fake's background result).
class CDoneOp : public CBase, public virtual IBackgroundOp {
public:
  bool hasFinished() const override { return true; }
  bool waitFinished(int) const override { return true; }
  void throwErrorIfFailed() const override {}
};

/// An iterator with nothing in it.
class CEmptyIterator : public CBase, public virtual IFolderContentsIterator {
public:
  bool getNext(P<IFileInfoBase>& out) override { out = nil; return false; }
};

/// A modifier that accepts everything and does nothing.
class CNullModifier : public CBase, public virtual IFileMetaModifier {
public:
  void setCreationTime(CTime) override {}
  void setLastWriteTime(CTime) override {}
  void setLastAccessTime(CTime) override {}
  void setAttributes(TFlags<IFileInfoBase::Attribute>) override {}
  void setPosixMode(int) override {}
  void commit() override {}
};

class CFakeFileSystem : public CBase, public virtual IFileSystem {
public:
  using Buffer = TBuffer<unsigned char>;

  P<IBackgroundOp> const op = newP<CDoneOp>();
  P<IFileInfoBase> const info = newP<CFileInfo>(CURI(u"fake:///info"));
  P<IFileMetaModifier> const modifier = newP<CNullModifier>();
  P<IFolderContentsIterator> const iterator = newP<CEmptyIterator>();
  P<IIOStream> const subStream = newP<CBufferStream>();
  P<CNativeMetaData> const metaData = newP<CNativeMetaData>(u"fake", "md", 2);
  static constexpr long long kNumber = 0x123456789LL;
  static CURI resultURI() { return CURI(u"fake:///result"); }
  static String resultText() { return u"fake-user"; }

  /// Runs after an operation logged itself; may throw or block.
  void setHook(std::function<void(std::string const&)> hook) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(hook);
  }
  std::vector<std::string> calls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
  }
  /// The bytes written to the stream last created for uri (null: none).
  P<Buffer> written(CURI const& uri) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_files.find(uri.toString());
    return it == m_files.end() ? P<Buffer>() : it->second;
  }

  static std::string str(CURI const& uri) { return uri.toString().toUTF8(); }
  static std::string str(String const& text) { return "'" + text.toUTF8() + "'"; }
  static std::string str(bool b) { return b ? "true" : "false"; }
  static std::string str(long long n) { return std::to_string(n); }
  static std::string str(int n) { return std::to_string(n); }
  static std::string str(IIOStream::Access a) { return "access" + std::to_string(static_cast<int>(a)); }
  static std::string str(TFlags<IIOStream::Flags> f) { return "flags" + std::to_string(f.getRaw()); }
  static std::string str(void const* p) { return p ? "ptr" : "null"; }

  P<IBackgroundOp> backgroundStore(CURI const& u, long long length, IInStream* source, bool overwrite,
                                   IDoneListener* l) override {
    return log("backgroundStore", {str(u), str(length), str(source), str(overwrite), str(l)}), op;
  }
  P<IBackgroundOp> backgroundCreateFolder(CURI const& u, int options, IDoneListener* l) override {
    return log("backgroundCreateFolder", {str(u), str(options), str(l)}), op;
  }
  P<IBackgroundOp> backgroundMoveFileOrFolder(CURI const& a, CURI const& b, bool overwrite, IDoneListener* l) override {
    return log("backgroundMoveFileOrFolder", {str(a), str(b), str(overwrite), str(l)}), op;
  }
  P<IBackgroundOp> backgroundDeleteFile(CURI const& u, IDoneListener* l) override {
    return log("backgroundDeleteFile", {str(u), str(l)}), op;
  }
  P<IFileInfoBase> getFileInfo(CURI const& u, bool follow) override {
    return log("getFileInfo", {str(u), str(follow)}), info;
  }
  P<IFileMetaModifier> createMetaModifier(CURI const& u, bool follow) override {
    return log("createMetaModifier", {str(u), str(follow)}), modifier;
  }
  long long getFileSectorSize(CURI const& u) override { return log("getFileSectorSize", {str(u)}), kNumber; }
  P<IFolderContentsIterator> getFolderContents(CURI const& u) override {
    return log("getFolderContents", {str(u)}), iterator;
  }
  P<IIOStream> createStream(CURI const& u, IIOStream::Access access, TFlags<IIOStream::Flags> flags) override {
    log("createStream", {str(u), str(access), str(flags)});
    P<Buffer> buffer = newP<Buffer>();
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_files[u.toString()] = buffer;
    }
    return newP<CBufferStream>(buffer.get());
  }
  P<IIOStream> createSubDataStream(CURI const& u, String const& name, IIOStream::Access access,
                                   TFlags<IIOStream::Flags> flags) override {
    return log("createSubDataStream", {str(u), str(name), str(access), str(flags)}), subStream;
  }
  void createFolder(CURI const& u, int options) override { log("createFolder", {str(u), str(options)}); }
  bool ensureFolderExists(CURI const& u, int options) override {
    return log("ensureFolderExists", {str(u), str(options)}), true;
  }
  void ensureFileExists(CURI const& u) override { log("ensureFileExists", {str(u)}); }
  void createFileHardLink(CURI const& a, CURI const& b) override { log("createFileHardLink", {str(a), str(b)}); }
  void createFolderHardLink(CURI const& a, CURI const& b) override { log("createFolderHardLink", {str(a), str(b)}); }
  void createFileSymLink(CURI const& a, CURI const& b) override { log("createFileSymLink", {str(a), str(b)}); }
  void createFolderSymLink(CURI const& a, CURI const& b) override { log("createFolderSymLink", {str(a), str(b)}); }
  bool fileExists(CURI const& u) override { return log("fileExists", {str(u)}), true; }
  bool folderExists(CURI const& u) override { return log("folderExists", {str(u)}), true; }
  bool pathExists(CURI const& u) override { return log("pathExists", {str(u)}), true; }
  bool quickCheckFolderAccessible(CURI const& u) override { return log("quickCheckFolderAccessible", {str(u)}), true; }
  bool isFolderEmpty(CURI const& u) override { return log("isFolderEmpty", {str(u)}), true; }
  void deleteFile(CURI const& u, bool ignoreMissing) override { log("deleteFile", {str(u), str(ignoreMissing)}); }
  void deleteSymLink(CURI const& u) override { log("deleteSymLink", {str(u)}); }
  void deleteEmptyFolder(CURI const& u, bool ignore) override { log("deleteEmptyFolder", {str(u), str(ignore)}); }
  void unlinkFolder(CURI const& u) override { log("unlinkFolder", {str(u)}); }
  CURI getVolumeRootPath(CURI const& u) override { return log("getVolumeRootPath", {str(u)}), resultURI(); }
  CURI createUniqueFilename(CURI const& u, String const& name) override {
    return log("createUniqueFilename", {str(u), str(name)}), resultURI();
  }
  CURI createUniqueFolderName(CURI const& u, String const& name) override {
    return log("createUniqueFolderName", {str(u), str(name)}), resultURI();
  }
  void moveFileOrFolder(CURI const& a, CURI const& b, bool overwrite) override {
    log("moveFileOrFolder", {str(a), str(b), str(overwrite)});
  }
  void copyFile(CURI const& a, CURI const& b, bool overwrite) override {
    log("copyFile", {str(a), str(b), str(overwrite)});
  }
  long long getFreeSpaceInFolder(CURI const& u) override { return log("getFreeSpaceInFolder", {str(u)}), kNumber; }
  String getAccountOrUserNameUsedForAccess(CURI const& u) override {
    return log("getAccountOrUserNameUsedForAccess", {str(u)}), resultText();
  }
  P<CNativeMetaData> getNativeMetaData(CURI const& u, bool follow, String const& what) override {
    return log("getNativeMetaData", {str(u), str(follow), str(what)}), metaData;
  }

private:
  void log(char const* op, std::vector<std::string> const& args) {
    std::string line = op;
    line += '(';
    for (std::size_t i = 0; i < args.size(); ++i) line += (i ? "," : "") + args[i];
    line += ')';
    std::function<void(std::string const&)> hook;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_calls.push_back(line);
      hook = m_hook;
    }
    if (hook) hook(line);
  }

  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;
  std::function<void(std::string const&)> m_hook;
  std::map<String, P<Buffer>> m_files;
};

}  // namespace qo::test

#endif  // QO_TESTS_FS_FAKEFILESYSTEM_H
