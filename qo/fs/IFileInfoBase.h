// qo/fs/IFileInfoBase.h - what a file system knows about one file or folder.
//
// IFileSystem::getFileInfo() and the folder iterator hand these out. They
// are snapshots taken when the object was made; they never change and never
// touch the file system again. Values a file system cannot tell are
// "unknown": an invalid CTime, -1 for numbers, 0 for identities, empty text.
//
//   P<IFileInfoBase> info = fs->getFileInfo(uri, false);
//   if (info->getKind() == IFileInfoBase::KindFile) total += info->getSize();
//   if (info->getAttributes().has(IFileInfoBase::AttrHidden)) ...
//
// Hard links: two infos with the same non-zero getVolumeId() and getFileId()
// name the same file data (Windows: volume serial number and file index;
// POSIX: st_dev and st_ino).
#ifndef QO_FS_IFILEINFOBASE_H
#define QO_FS_IFILEINFOBASE_H

#include "qo/core/CTime.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/String.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CURI.h"

namespace qo {

/// Facts about one file-system object. Implementations are immutable, so
/// they are thread-safe.
class QO_API IFileInfoBase : public virtual IBase {
public:
  /// What the object is. A link is reported as a link, whatever it points to
  /// (unless the info was taken following links).
  enum Kind {
    KindNone = 0,      ///< Nothing exists under the URI.
    KindFile = 1,      ///< A regular file.
    KindFolder = 2,    ///< A folder (directory).
    KindSymLink = 3,   ///< A symbolic link (to a file or a folder).
    KindJunction = 4,  ///< A Windows junction (mount point / folder link).
    KindOther = 5,     ///< A device, pipe, socket or something else.
  };
  /// Attributes, as bit indexes of a TFlags<Attribute> set.
  enum Attribute {
    AttrReadOnly = 0,
    AttrHidden = 1,
    AttrSystem = 2,
    AttrArchive = 3,
  };

  ~IFileInfoBase() override;

  /// The URI the info describes.
  [[nodiscard]] virtual CURI getURI() const = 0;
  /// The object's own name (the last part of the URI's path), as stored by
  /// the file system.
  [[nodiscard]] virtual String getName() const = 0;
  /// What the object is; KindNone when nothing exists.
  [[nodiscard]] virtual Kind getKind() const = 0;
  /// Size of the file's data in bytes; 0 for folders, -1 when unknown.
  [[nodiscard]] virtual long long getSize() const = 0;
  /// Times; each an invalid CTime when the file system does not know it.
  [[nodiscard]] virtual CTime getCreationTime() const = 0;
  [[nodiscard]] virtual CTime getLastWriteTime() const = 0;
  [[nodiscard]] virtual CTime getLastAccessTime() const = 0;
  /// The attributes set on the object (empty when the file system has none).
  [[nodiscard]] virtual TFlags<Attribute> getAttributes() const = 0;
  /// POSIX permission and type bits (st_mode); -1 when the file system has none.
  [[nodiscard]] virtual int getPosixMode() const = 0;
  /// For a link: its target as stored in the link (may be relative); empty
  /// otherwise or when unknown.
  [[nodiscard]] virtual String getLinkTarget() const = 0;
  /// For a link: true when it links to a folder (a junction always does; a
  /// Windows symbolic link was made as a folder link). False otherwise.
  [[nodiscard]] virtual bool isLinkToFolder() const = 0;
  /// The volume (device) holding the object; 0 when unknown.
  [[nodiscard]] virtual unsigned long long getVolumeId() const = 0;
  /// The object's number within its volume (file index, inode); 0 when unknown.
  [[nodiscard]] virtual unsigned long long getFileId() const = 0;
  /// Number of names (hard links) of the file data; 0 when unknown.
  [[nodiscard]] virtual long long getHardLinkCount() const = 0;

  /// True for KindNone only.
  [[nodiscard]] bool exists() const { return getKind() != KindNone; }
  [[nodiscard]] bool isFile() const { return getKind() == KindFile; }
  [[nodiscard]] bool isFolder() const { return getKind() == KindFolder; }
  /// True for symbolic links and junctions.
  [[nodiscard]] bool isLink() const { return getKind() == KindSymLink || getKind() == KindJunction; }
};

}  // namespace qo

#endif  // QO_FS_IFILEINFOBASE_H
