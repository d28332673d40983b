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
  bool getNext(P<IFileInfoBase>& out) override {
    out = nil;
    return false;
  }
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

  // --- canned results -------------------------------------------------------
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

  P<IBackgroundOp> backgroundStore(CURI const& target, long long length, IInStream* source, bool overwrite,
                                   IDoneListener* listener) override {
    log("backgroundStore", {str(target), str(length), str(source), str(overwrite), str(listener)});
    return op;
  }
  P<IBackgroundOp> backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) override {
    log("backgroundCreateFolder", {str(uri), str(options), str(listener)});
    return op;
  }
  P<IBackgroundOp> backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                              IDoneListener* listener) override {
    log("backgroundMoveFileOrFolder", {str(from), str(to), str(overwrite), str(listener)});
    return op;
  }
  P<IBackgroundOp> backgroundDeleteFile(CURI const& uri, IDoneListener* listener) override {
    log("backgroundDeleteFile", {str(uri), str(listener)});
    return op;
  }
  P<IFileInfoBase> getFileInfo(CURI const& uri, bool followLinks) override {
    log("getFileInfo", {str(uri), str(followLinks)});
    return info;
  }
  P<IFileMetaModifier> createMetaModifier(CURI const& uri, bool followLinks) override {
    log("createMetaModifier", {str(uri), str(followLinks)});
    return modifier;
  }
  long long getFileSectorSize(CURI const& uri) override {
    log("getFileSectorSize", {str(uri)});
    return kNumber;
  }
  P<IFolderContentsIterator> getFolderContents(CURI const& uri) override {
    log("getFolderContents", {str(uri)});
    return iterator;
  }
  P<IIOStream> createStream(CURI const& uri, IIOStream::Access access, TFlags<IIOStream::Flags> flags) override {
    log("createStream", {str(uri), str(access), str(flags)});
    P<Buffer> buffer = newP<Buffer>();
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_files[uri.toString()] = buffer;
    }
    return newP<CBufferStream>(buffer.get());
  }
  P<IIOStream> createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                   TFlags<IIOStream::Flags> flags) override {
    log("createSubDataStream", {str(uri), str(name), str(access), str(flags)});
    return subStream;
  }
  void createFolder(CURI const& uri, int options) override { log("createFolder", {str(uri), str(options)}); }
  bool ensureFolderExists(CURI const& uri, int options) override {
    log("ensureFolderExists", {str(uri), str(options)});
    return true;
  }
  void ensureFileExists(CURI const& uri) override { log("ensureFileExists", {str(uri)}); }
  void createFileHardLink(CURI const& a, CURI const& b) override { log("createFileHardLink", {str(a), str(b)}); }
  void createFolderHardLink(CURI const& a, CURI const& b) override {
    log("createFolderHardLink", {str(a), str(b)});
  }
  void createFileSymLink(CURI const& a, CURI const& b) override { log("createFileSymLink", {str(a), str(b)}); }
  void createFolderSymLink(CURI const& a, CURI const& b) override { log("createFolderSymLink", {str(a), str(b)}); }
  bool fileExists(CURI const& uri) override { return logTrue("fileExists", uri); }
  bool folderExists(CURI const& uri) override { return logTrue("folderExists", uri); }
  bool pathExists(CURI const& uri) override { return logTrue("pathExists", uri); }
  bool quickCheckFolderAccessible(CURI const& uri) override { return logTrue("quickCheckFolderAccessible", uri); }
  bool isFolderEmpty(CURI const& uri) override { return logTrue("isFolderEmpty", uri); }
  void deleteFile(CURI const& uri, bool ignoreMissing) override { log("deleteFile", {str(uri), str(ignoreMissing)}); }
  void deleteSymLink(CURI const& uri) override { log("deleteSymLink", {str(uri)}); }
  void deleteEmptyFolder(CURI const& uri, bool ignoreMissing) override {
    log("deleteEmptyFolder", {str(uri), str(ignoreMissing)});
  }
  void unlinkFolder(CURI const& uri) override { log("unlinkFolder", {str(uri)}); }
  CURI getVolumeRootPath(CURI const& uri) override {
    log("getVolumeRootPath", {str(uri)});
    return resultURI();
  }
  CURI createUniqueFilename(CURI const& folder, String const& name) override {
    log("createUniqueFilename", {str(folder), str(name)});
    return resultURI();
  }
  CURI createUniqueFolderName(CURI const& folder, String const& name) override {
    log("createUniqueFolderName", {str(folder), str(name)});
    return resultURI();
  }
  void moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) override {
    log("moveFileOrFolder", {str(from), str(to), str(overwrite)});
  }
  void copyFile(CURI const& from, CURI const& to, bool overwrite) override {
    log("copyFile", {str(from), str(to), str(overwrite)});
  }
  long long getFreeSpaceInFolder(CURI const& uri) override {
    log("getFreeSpaceInFolder", {str(uri)});
    return kNumber;
  }
  String getAccountOrUserNameUsedForAccess(CURI const& uri) override {
    log("getAccountOrUserNameUsedForAccess", {str(uri)});
    return resultText();
  }
  P<CNativeMetaData> getNativeMetaData(CURI const& uri, bool followLinks, String const& what) override {
    log("getNativeMetaData", {str(uri), str(followLinks), str(what)});
    return metaData;
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
  bool logTrue(char const* op, CURI const& uri) {
    log(op, {str(uri)});
    return true;
  }

  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;
  std::function<void(std::string const&)> m_hook;
  std::map<String, P<Buffer>> m_files;
};

}  // namespace qo::test

#endif  // QO_TESTS_FS_FAKEFILESYSTEM_H
