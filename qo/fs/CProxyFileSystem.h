// qo/fs/CProxyFileSystem.h - an IFileSystem whose every call is carried to a
// CProxyFileSystemServer in another process over the library's IPC.
//
// The URIs are those of the server's file system (for a served local file
// system: "file" URIs of the server's machine). Results come back as plain
// values (file infos, URIs); errors come back whole and are rethrown with
// their own class, so catch (CFileSystemError&) and the I/O kinds work as if
// the call had been local.
//
// Streams from createStream are real streams on the server's file: reads,
// writes, seeks and getLength go to it; getAlignInfo reports its alignment
// values; lockRange locks in the server, and the lock is held there until
// the returned lock object dies (or this client goes away).
//
// Background operations: backgroundCreateFolder, backgroundMoveFileOrFolder
// and backgroundDeleteFile run in the server; the "qo.proxyFS.bgOpPoll"
// thread asks the server for their ends while any is pending and finishes
// the local handle, which tells the listener once (a listener must not drop
// the last reference to the file system). backgroundStore reads
// its source in this process, so its copy runs on this client's own
// "qo.bgOp" worker and writes through a proxy stream (see there).
//
// Faults: when the server goes away, the pending call and every later call
// fail with CIOError kind 2 "The connection to the proxy file-system server
// was lost." (property "name", "action"; the transport's error as cause), and
// every pending background operation finishes with that error. The next
// call connects again; streams, locks and listings of the lost connection
// stay dead (CIOError kind 10).
//
//   P<CProxyFileSystem> fs = newP<CProxyFileSystem>(u"qo-fsd", 5000);
//   P<IIOStream> in = fs->createStream(uri, IIOStream::AccessReadOnly, {});
//   in->read(buffer, size);
//
// Thread-safe: calls from several threads are sent one after another.
#ifndef QO_FS_CPROXYFILESYSTEM_H
#define QO_FS_CPROXYFILESYSTEM_H

#include <map>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TRequireNewAlloc.h"
#include "qo/fs/CProxyFileSystemMessage.h"
#include "qo/fs/IFileSystem.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/thread/CMutex.h"

namespace qo {

class CBackgroundOpThread;

/// The client side of the proxy file system. Heap only (newP); thread-safe.
class QO_API CProxyFileSystem : public TRequireNewAlloc<CBase>, public virtual IFileSystem {
public:
  /// Bytes moved per request by the proxy streams.
  static constexpr int kTransferSize = 1024 * 1024;

  /// Connects to the server on the local IPC endpoint name, waiting up to
  /// connectTimeoutMs (-1: no limit) for it. Throws as
  /// CIPCConnection::connect.
  CProxyFileSystem(String const& name, int connectTimeoutMs);
  /// Stops the poll thread and the store worker, closes the connection.
  ~CProxyFileSystem() override;
  CProxyFileSystem(CProxyFileSystem const&) = delete;
  CProxyFileSystem& operator=(CProxyFileSystem const&) = delete;

  /// How long a later reconnect waits for the server (-1: no limit).
  /// Thread-safe.
  void setConnectTimeout(int timeoutMs);
  /// Closes the connection (the server then releases this client's
  /// streams and locks); the next call connects again. Thread-safe.
  void disconnect();
  /// Sends request and returns the answer; rethrows a failed answer's
  /// error with its class; CIOError kind 2 when the connection is lost.
  /// generation, when given, receives the connection's number (streams and
  /// locks belong to it). Thread-safe.
  P<CProxyFileSystemMessage> call(CProxyFileSystemMessage const& request, long long* generation = nullptr);
  /// As call(), but only on the connection numbered generation: throws
  /// CIOError kind 10 when that connection is gone. Thread-safe.
  P<CProxyFileSystemMessage> callOn(long long generation, CProxyFileSystemMessage const& request);
  /// As callOn() for a StreamRead request: the bytes go straight into
  /// buffer (room for request.number bytes); returns their count.
  /// Thread-safe.
  int readOn(long long generation, CProxyFileSystemMessage const& request, void* buffer);
  /// Writes size bytes at data to the stream handle at position, on the
  /// connection numbered generation, without copying them into a message.
  /// Throws as callOn(). Thread-safe.
  void writeOn(long long generation, long long handle, long long position, void const* data, int size);

  // --- IFileSystem: each operation is done by the server's file system,
  // with its meaning of the bool and int arguments, and throws its errors
  // (or the lost-connection CIOError). All thread-safe. ---------------------
  /// Copies source on this client's "qo.bgOp" worker, as the local file
  /// system stores: into a new "~qo-<16 hex digits>.tmp" file beside target
  /// through a proxy stream, flushed and then moved over target (removed
  /// when anything fails), so target holds the old or the whole new data.
  /// Without overwrite an existing target fails the job with CIOError kind
  /// 1 and "fileSysProblem" 2 before the source is read. Throws
  /// CInvalidArgError ("CProxyFileSystem::backgroundStore") for a null
  /// source or a length below -1.
  P<IBackgroundOp> backgroundStore(CURI const& target, long long length, IInStream* source, bool overwrite,
                                   IDoneListener* listener) override;
  /// Runs in the server; the poll thread finishes the returned operation.
  P<IBackgroundOp> backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) override;
  P<IBackgroundOp> backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                              IDoneListener* listener) override;
  P<IBackgroundOp> backgroundDeleteFile(CURI const& uri, IDoneListener* listener) override;
  [[nodiscard]] P<IFileInfoBase> getFileInfo(CURI const& uri, bool followLinks) override;
  /// A modifier that collects the changes and sends them all at commit().
  [[nodiscard]] P<IFileMetaModifier> createMetaModifier(CURI const& uri, bool followLinks) override;
  [[nodiscard]] long long getFileSectorSize(CURI const& uri) override;
  /// Fetches the entries in batches of CProxyFileSystemMessage::kFolderBatch.
  [[nodiscard]] P<IFolderContentsIterator> getFolderContents(CURI const& uri) override;
  [[nodiscard]] P<IIOStream> createStream(CURI const& uri, IIOStream::Access access,
                                          TFlags<IIOStream::Flags> flags) override;
  [[nodiscard]] P<IIOStream> createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                                 TFlags<IIOStream::Flags> flags) override;
  void createFolder(CURI const& uri, int options) override;
  bool ensureFolderExists(CURI const& uri, int options) override;
  void ensureFileExists(CURI const& uri) override;
  void createFileHardLink(CURI const& link, CURI const& target) override;
  void createFolderHardLink(CURI const& link, CURI const& target) override;
  void createFileSymLink(CURI const& link, CURI const& target) override;
  void createFolderSymLink(CURI const& link, CURI const& target) override;
  [[nodiscard]] bool fileExists(CURI const& uri) override;
  [[nodiscard]] bool folderExists(CURI const& uri) override;
  [[nodiscard]] bool pathExists(CURI const& uri) override;
  /// False also when the server cannot be reached.
  [[nodiscard]] bool quickCheckFolderAccessible(CURI const& uri) override;
  [[nodiscard]] bool isFolderEmpty(CURI const& uri) override;
  void deleteFile(CURI const& uri, bool ignoreMissing) override;
  void deleteSymLink(CURI const& uri) override;
  void deleteEmptyFolder(CURI const& uri, bool ignoreMissing) override;
  void unlinkFolder(CURI const& uri) override;
  [[nodiscard]] CURI getVolumeRootPath(CURI const& uri) override;
  [[nodiscard]] CURI createUniqueFilename(CURI const& folder, String const& name) override;
  [[nodiscard]] CURI createUniqueFolderName(CURI const& folder, String const& name) override;
  void moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) override;
  void copyFile(CURI const& from, CURI const& to, bool overwrite) override;
  [[nodiscard]] long long getFreeSpaceInFolder(CURI const& uri) override;
  [[nodiscard]] String getAccountOrUserNameUsedForAccess(CURI const& uri) override;
  [[nodiscard]] P<CNativeMetaData> getNativeMetaData(CURI const& uri, bool followLinks, String const& what) override;

private:
  class CPollThread;
  class CRemoteOp;
  friend class CPollThread;
  P<CProxyFileSystemMessage> callLocked(CProxyFileSystemMessage const& request);
  std::vector<unsigned char> callLockedRaw(CProxyFileSystemMessage const& request);
  // Sends request (on connection number required unless it is -1) and
  // returns the raw answer; a lost connection fails the pending operations.
  std::vector<unsigned char> exchange(CProxyFileSystemMessage const& request, long long required, long long* generation);
  std::vector<unsigned char> exchangeBytes(std::vector<unsigned char> const& bytes, int op, long long required,
                                           long long* generation);
  std::vector<unsigned char> sendLocked(std::vector<unsigned char> const& bytes, int op);
  P<IBackgroundOp> startRemoteOp(CProxyFileSystemMessage const& request, IDoneListener* listener);
  // One poll of the server for ended operations; false when none is pending.
  bool pollOnce();
  void failPendingOps(CError const& error) noexcept;
  P<IIOStream> openStream(CProxyFileSystemMessage const& request);

  String const m_name;
  int m_connectTimeoutMs;
  CMutex m_mutex;  // the connection and the fields below
  P<CIPCConnection> m_connection;
  long long m_generation = 0;
  std::map<long long, P<CRemoteOp>> m_pendingOps;  // by server handle
  P<CPollThread> m_pollThread;
  P<CBackgroundOpThread> m_storeWorker;
};

}  // namespace qo

#endif  // QO_FS_CPROXYFILESYSTEM_H
