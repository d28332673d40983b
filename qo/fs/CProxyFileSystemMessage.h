// qo/fs/CProxyFileSystemMessage.h - the requests and answers that carry
// IFileSystem calls between a CProxyFileSystem client and a
// CProxyFileSystemServer.
//
// One message is one IPC frame (CIPCConnection::call). Every message is a
// record written with CDataOutStream and read with CDataInStream (integers
// little-endian, a String as an int32 byte count and UTF-8). A message holds
// an operation and the fields that operation uses; which fields, in which
// order, is fixed per operation by the table in the source file and listed
// below (request -> answer). Field codes and their wire form:
//   u, v  a CURI (uri, uri2): String of CURI::toString(true); "" = empty URI
//   s     text: String (a name, the "what" of native meta data, a format)
//   b     flag: 1 byte (0 / 1; any non-zero byte reads as true)
//   n, m  number, number2: int32 (options, access, open flags, a size)
//   h     handle: int64 (a stream, lock, folder listing or background op)
//   x, y  value, value2: int64 (positions, lengths, results)
//   d     data: int32 byte count, then the bytes
//   i     info: bool present; then uri, name (String), kind (int32), size
//         (int64), creation, last-write and last-access time (int64 micros,
//         INT64_MIN = unknown), attributes (int64 TFlags mask), POSIX mode
//         (int32), link target (String), link to folder (bool), volume id,
//         file id (uint64), hard-link count (int64)
//   I     infos: int32 count, then count "i" records
//   M     meta change: creation, last-write, last-access time (int64 micros,
//         INT64_MIN = leave), bool + int64 attribute mask, bool + int32 mode
//   E     ended background ops: int32 count, then per op its handle (int64),
//         bool failed and, when failed, an error record
//
// Request: int32 kVersion, int32 operation, the request fields.
// Answer:  uint8 status (0 = done, 1 = failed); done: the answer fields;
//          failed: an error record.
// Error record: String class name (qo::typeNameOf, "qo::CIOError"), String
// message, String domain, int64 code, int32 property count and per property
// key and value (String), bool has cause and then the cause's record (at
// most kMaxCauseDepth deep). readError() rebuilds the error with the factory
// registered for the class name (registerErrorClass; the library's own
// error classes are registered already), so the receiver can catch the same
// class; an unknown class arrives as a CError with every field kept.
//
// Operations (request fields -> answer fields):
//   GetFileInfo ub->i  GetFileSectorSize u->x  FolderOpen u->h  FolderNext h->Ib
//   FolderClose h->  CreateStream unm->hxnmyu  CreateSubDataStream usnm->hxnmyu
//   (stream handle, length, position align, buffer align, best align, URI)
//   CreateFolder un->  EnsureFolderExists un->b  EnsureFileExists u->
//   Create{File,Folder}{Hard,Sym}Link uv->  FileExists FolderExists PathExists
//   QuickCheckFolderAccessible IsFolderEmpty u->b  DeleteFile ub->
//   DeleteSymLink u->  DeleteEmptyFolder ub->  UnlinkFolder u->
//   GetVolumeRootPath u->u  CreateUniqueFilename us->u
//   CreateUniqueFolderName us->u  MoveFileOrFolder uvb->  CopyFile uvb->
//   GetFreeSpaceInFolder u->x  GetAccountName u->s  GetNativeMetaData ubs->sd
//   CommitMeta ubM->  BgCreateFolder un->h  BgMove uvb->h  BgDelete u->h
//   BgPoll ->E  StreamRead hxnb->d (position, size, exact)  StreamWrite hxd->
//   StreamGetLength h->x  StreamSetLength hx->  StreamFlush h->
//   StreamLock hxyn->h (start, length, type)  LockRelease h->  StreamClose h->
//
// A reader never trusts a count: strings, data and lists longer than what is
// left of the frame, unknown operations, a bad status and a cause chain that
// is too deep are CIOError kind 5 (kCorruptData), another version kind 6;
// a frame cut short is kind 4.
//
//   CProxyFileSystemMessage request(CProxyFileSystemMessage::OpFileExists);
//   request.uri = uri;
//   std::vector<unsigned char> bytes;
//   request.writeRequest(bytes);
//   ...
//   P<CProxyFileSystemMessage> in = CProxyFileSystemMessage::readRequest(bytes);
#ifndef QO_FS_CPROXYFILESYSTEMMESSAGE_H
#define QO_FS_CPROXYFILESYSTEMMESSAGE_H

#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/CTime.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileInfoBase.h"

namespace qo {

class CDataInStream;
class CDataOutStream;

/// One request or answer of the proxy file system. A plain value holder:
/// not thread-safe; the static functions are thread-safe.
class QO_API CProxyFileSystemMessage : public CBase {
public:
  /// The version of this message format; also the IPC protocol version.
  static constexpr int kVersion = 1;
  /// The deepest cause chain an error record may carry.
  static constexpr int kMaxCauseDepth = 16;
  /// Entries per FolderNext answer.
  static constexpr int kFolderBatch = 256;

  /// The operations. The numbers are part of the wire format.
  enum Op : int {
    OpNone = 0,
    OpGetFileInfo = 1,
    OpGetFileSectorSize,
    OpFolderOpen,
    OpFolderNext,
    OpFolderClose,
    OpCreateStream,
    OpCreateSubDataStream,
    OpCreateFolder,
    OpEnsureFolderExists,
    OpEnsureFileExists,
    OpCreateFileHardLink,
    OpCreateFolderHardLink,
    OpCreateFileSymLink,
    OpCreateFolderSymLink,
    OpFileExists,
    OpFolderExists,
    OpPathExists,
    OpQuickCheckFolderAccessible,
    OpIsFolderEmpty,
    OpDeleteFile,
    OpDeleteSymLink,
    OpDeleteEmptyFolder,
    OpUnlinkFolder,
    OpGetVolumeRootPath,
    OpCreateUniqueFilename,
    OpCreateUniqueFolderName,
    OpMoveFileOrFolder,
    OpCopyFile,
    OpGetFreeSpaceInFolder,
    OpGetAccountName,
    OpGetNativeMetaData,
    OpCommitMeta,
    OpBgCreateFolder,
    OpBgMove,
    OpBgDelete,
    OpBgPoll,
    OpStreamRead,
    OpStreamWrite,
    OpStreamGetLength,
    OpStreamSetLength,
    OpStreamFlush,
    OpStreamLock,
    OpLockRelease,
    OpStreamClose,
    OpCount  ///< One past the last operation.
  };

  /// Meta data to change (field M); unknown times and unset flags leave the
  /// value as it is.
  struct Meta {
    CTime creation, lastWrite, lastAccess;
    bool hasAttributes = false;
    long long attributes = 0;
    bool hasMode = false;
    int mode = 0;
  };

  /// The end of one background operation (field E); error null: success.
  struct Ended {
    long long handle = 0;
    P<CError> error;
  };

  /// Makes an error of a registered class from its fields.
  using ErrorFactory = P<CError> (*)(CError const& fields);

  /// An empty message of operation op.
  explicit CProxyFileSystemMessage(Op op = OpNone);
  ~CProxyFileSystemMessage() override;

  /// The operation.
  Op op;
  /// Fields u and v: the object and the second object (link target, move
  /// or copy target); in answers u is a resulting URI or a stream's URI.
  CURI uri, uri2;
  /// Field s: a name, the "what" of native meta data, a format, an account.
  String text;
  /// Field b: the operation's bool argument, or a bool result.
  bool flag = false;
  /// Fields n and m: options, access and open flags, a size, a lock type,
  /// alignment values.
  int number = 0, number2 = 0;
  /// Field h: the handle a request names, or the new handle of an answer.
  long long handle = 0;
  /// Fields x and y: positions, lengths and 64-bit results.
  long long value = 0, value2 = 0;
  /// Field d: bytes (read or written data, native meta data).
  std::vector<unsigned char> data;
  /// Field i: one file info (null: none).
  P<IFileInfoBase> info;
  /// Field I: folder entries.
  std::vector<P<IFileInfoBase>> infos;
  /// Field M: meta data to change.
  Meta meta;
  /// Field E: background operations that have ended.
  std::vector<Ended> ended;
  /// Set in a failed answer: the error to rethrow.
  P<CError> error;

  /// The name of op ("GetFileInfo"), "?" for an unknown one. Thread-safe.
  static char const* opName(int op) noexcept;

  /// Appends the request record to out. Throws what the writer throws.
  /// Not thread-safe.
  void writeRequest(std::vector<unsigned char>& out) const;
  /// Appends the answer record to out: the failed form when error is set.
  /// Not thread-safe.
  void writeAnswer(std::vector<unsigned char>& out) const;
  /// Reads a whole request. Throws CIOError kind 4, 5 or 6 as described at
  /// the top (also for bytes left over). Thread-safe.
  static P<CProxyFileSystemMessage> readRequest(std::vector<unsigned char> const& in);
  /// Reads a whole answer to a request of op; a failed answer has error
  /// set. Throws as readRequest. Thread-safe.
  static P<CProxyFileSystemMessage> readAnswer(std::vector<unsigned char> const& in, Op op);

  /// Appends a StreamWrite request of size bytes at data, exactly as
  /// writeRequest() would write it, without copying the bytes into a
  /// message first. Not thread-safe.
  static void writeStreamWrite(std::vector<unsigned char>& out, long long handle, long long position,
                               void const* data, int size);
  /// True when in is a whole, well-formed StreamWrite request; then handle,
  /// position and the bytes (pointing into in) are set. Thread-safe.
  static bool peekStreamWrite(std::vector<unsigned char> const& in, long long& handle, long long& position,
                              unsigned char const*& data, int& size);

  /// Writes the error record of e (with its causes). Not thread-safe.
  static void writeError(CDataOutStream& out, CError const& e);
  /// Reads an error record, rebuilding the class by the factories. Throws
  /// as readRequest. Thread-safe.
  static P<CError> readError(CDataInStream& in);
  /// Registers factory for errors whose class name (qo::typeNameOf of the
  /// dynamic type) is className; a later registration replaces it.
  /// Thread-safe.
  static void registerErrorClass(String const& className, ErrorFactory factory);

private:
  void writeFields(CDataOutStream& out, char const* layout) const;
  void readFields(CDataInStream& in, char const* layout, long long size);
};

}  // namespace qo

#endif  // QO_FS_CPROXYFILESYSTEMMESSAGE_H
