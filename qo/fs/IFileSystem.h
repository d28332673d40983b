// qo/fs/IFileSystem.h - the one interface through which all file access goes.
//
// Every operation names its object by a CURI. Concrete file systems (local,
// proxy, wrappers) implement it; CFileSystemHub routes each call to the file
// system registered for the URI's scheme. Rules shared by all of them:
// - Failures are thrown: CFileSystemError with a problem number for reasons
//   a caller may branch on (not found, exists, access denied ...), CIOError
//   for failures of the medium, CInvalidArgError for bad arguments.
// - The bool and int arguments (overwrite, followLinks, recursive, the
//   folder creation options ...) are defined by each file system; the names
//   below say what they usually mean. CDelegatingFileSystemBase and the hub
//   pass them on unchanged.
// - The background* operations return at once with an IBackgroundOp; the
//   work runs on a worker thread, and the listener (when given) is told once
//   when it is done. Errors of the work come from IBackgroundOp, not from
//   the call (which throws only when the work cannot even be queued).
// - The order of the virtual operations is part of the binary interface:
//   never reorder or insert; new operations go at the end.
//
//   P<IIOStream> out = fs->createStream(uri, IIOStream::AccessWriteOnly,
//                                       {IIOStream::FlagCreate, IIOStream::FlagTruncate});
//   out->write(data, size);
//   out->close();
//   P<IBackgroundOp> op = fs->backgroundDeleteFile(uri, nullptr);
//   op->waitFinished(-1);
//   op->throwErrorIfFailed();
#ifndef QO_FS_IFILESYSTEM_H
#define QO_FS_IFILESYSTEM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TBuffer.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileInfoBase.h"
#include "qo/fs/IFileMetaModifier.h"
#include "qo/fs/IFolderContentsIterator.h"
#include "qo/stream/IIOStream.h"
#include "qo/stream/IInStream.h"
#include "qo/thread/IBackgroundOp.h"
#include "qo/thread/IDoneListener.h"

namespace qo {

/// A file system. Implementations are thread-safe: any thread may call any
/// operation (objects they return, such as streams, are not, unless their
/// own header says so).
class QO_API IFileSystem : public virtual IBase {
public:
  /// A file system's own description of an object's meta data (security
  /// descriptor, extended attributes, stream list ...) as opaque bytes, with
  /// the name of their format so that only a file system that knows the
  /// format interprets them. Immutable, so thread-safe.
  class QO_API CNativeMetaData : public CBase {
  public:
    /// Holds format and data (a null data counts as empty; the buffer is
    /// shared, so the caller must not change it afterwards).
    CNativeMetaData(String const& format, P<TBuffer<unsigned char>> const& data);
    /// Holds format and a copy of size bytes at bytes.
    CNativeMetaData(String const& format, void const* bytes, long long size);
    ~CNativeMetaData() override;
    CNativeMetaData(CNativeMetaData const&) = delete;
    CNativeMetaData& operator=(CNativeMetaData const&) = delete;

    /// The format name, chosen by the file system that made the data.
    [[nodiscard]] String const& getFormat() const noexcept { return m_format; }
    /// The bytes (never null; possibly empty).
    [[nodiscard]] PC<TBuffer<unsigned char>> getData() const noexcept { return m_data; }
    /// Number of bytes.
    [[nodiscard]] long long getSize() const noexcept { return m_data->getSize(); }

  private:
    String m_format;
    P<TBuffer<unsigned char>> m_data;
  };

  ~IFileSystem() override;

  /// Stores length bytes (-1: all until its end) of source as the file
  /// target in the background; overwrite as defined by the file system.
  /// source and listener are kept until the job is done.
  virtual P<IBackgroundOp> backgroundStore(CURI const& target, long long length, IInStream* source,
                                                         bool overwrite, IDoneListener* listener) = 0;
  /// createFolder(uri, options) in the background.
  virtual P<IBackgroundOp> backgroundCreateFolder(CURI const& uri, int options,
                                                                IDoneListener* listener) = 0;
  /// moveFileOrFolder(from, to, overwrite) in the background.
  virtual P<IBackgroundOp> backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                                                    IDoneListener* listener) = 0;
  /// deleteFile(uri, ...) in the background.
  virtual P<IBackgroundOp> backgroundDeleteFile(CURI const& uri, IDoneListener* listener) = 0;

  /// Facts about the object at uri (an info of KindNone when nothing is
  /// there, or CFileSystemError kNotFound, as the file system defines).
  [[nodiscard]] virtual P<IFileInfoBase> getFileInfo(CURI const& uri, bool followLinks) = 0;
  /// A modifier for the meta data of the object at uri.
  [[nodiscard]] virtual P<IFileMetaModifier> createMetaModifier(CURI const& uri, bool followLinks) = 0;
  /// The sector (alignment unit) size in bytes of the medium holding uri.
  [[nodiscard]] virtual long long getFileSectorSize(CURI const& uri) = 0;
  /// An iteration over the entries of the folder uri.
  [[nodiscard]] virtual P<IFolderContentsIterator> getFolderContents(CURI const& uri) = 0;
  /// Opens the file uri as a stream.
  [[nodiscard]] virtual P<IIOStream> createStream(CURI const& uri, IIOStream::Access access,
                                                  TFlags<IIOStream::Flags> flags) = 0;
  /// Opens the named sub-stream (alternate data stream, resource fork ...)
  /// of the file uri.
  [[nodiscard]] virtual P<IIOStream> createSubDataStream(CURI const& uri, String const& name,
                                                         IIOStream::Access access,
                                                         TFlags<IIOStream::Flags> flags) = 0;
  /// Creates the folder uri; options as defined by the file system.
  virtual void createFolder(CURI const& uri, int options) = 0;
  /// Creates the folder uri (and its parents) when missing; true when it
  /// was created, false when it existed.
  virtual bool ensureFolderExists(CURI const& uri, int options) = 0;
  /// Creates an empty file uri when missing.
  virtual void ensureFileExists(CURI const& uri) = 0;
  /// Makes link a hard link to the existing file target.
  virtual void createFileHardLink(CURI const& link, CURI const& target) = 0;
  /// Makes link a hard link (or junction) to the existing folder target.
  virtual void createFolderHardLink(CURI const& link, CURI const& target) = 0;
  /// Makes link a symbolic link to the file target (target may be relative).
  virtual void createFileSymLink(CURI const& link, CURI const& target) = 0;
  /// Makes link a symbolic link to the folder target (target may be relative).
  virtual void createFolderSymLink(CURI const& link, CURI const& target) = 0;
  /// True when uri is an existing file.
  [[nodiscard]] virtual bool fileExists(CURI const& uri) = 0;
  /// True when uri is an existing folder.
  [[nodiscard]] virtual bool folderExists(CURI const& uri) = 0;
  /// True when anything exists at uri.
  [[nodiscard]] virtual bool pathExists(CURI const& uri) = 0;
  /// A fast test (short timeouts, no retries) whether the folder uri can be
  /// reached; false instead of throwing.
  [[nodiscard]] virtual bool quickCheckFolderAccessible(CURI const& uri) = 0;
  /// True when the folder uri has no entries.
  [[nodiscard]] virtual bool isFolderEmpty(CURI const& uri) = 0;
  /// Deletes the file uri; ignoreMissing as defined by the file system.
  virtual void deleteFile(CURI const& uri, bool ignoreMissing) = 0;
  /// Deletes the symbolic link uri itself, not its target.
  virtual void deleteSymLink(CURI const& uri) = 0;
  /// Deletes the empty folder uri; ignoreMissing as defined by the file system.
  virtual void deleteEmptyFolder(CURI const& uri, bool ignoreMissing) = 0;
  /// Removes the folder link (junction, folder symbolic link) uri, not
  /// what it links to.
  virtual void unlinkFolder(CURI const& uri) = 0;
  /// The root folder of the volume holding uri.
  [[nodiscard]] virtual CURI getVolumeRootPath(CURI const& uri) = 0;
  /// A URI in folder for a file named after name that does not exist yet.
  [[nodiscard]] virtual CURI createUniqueFilename(CURI const& folder, String const& name) = 0;
  /// A URI in folder for a folder named after name that does not exist yet.
  [[nodiscard]] virtual CURI createUniqueFolderName(CURI const& folder, String const& name) = 0;
  /// Moves (renames) from to to; overwrite as defined by the file system.
  virtual void moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) = 0;
  /// Copies the file from to to; overwrite as defined by the file system.
  virtual void copyFile(CURI const& from, CURI const& to, bool overwrite) = 0;
  /// Bytes the caller may still write in the folder uri.
  [[nodiscard]] virtual long long getFreeSpaceInFolder(CURI const& uri) = 0;
  /// The account name under which the file system reaches uri.
  [[nodiscard]] virtual String getAccountOrUserNameUsedForAccess(CURI const& uri) = 0;
  /// The native meta data of the object at uri; what selects as defined by
  /// the file system (empty: all it has).
  [[nodiscard]] virtual P<CNativeMetaData> getNativeMetaData(CURI const& uri, bool followLinks,
                                                             String const& what) = 0;
};

}  // namespace qo

#endif  // QO_FS_IFILESYSTEM_H
