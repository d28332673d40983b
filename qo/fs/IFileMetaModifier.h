// qo/fs/IFileMetaModifier.h - changes the meta data of one file or folder.
//
// IFileSystem::createMetaModifier() returns one. The setters only collect
// the new values; commit() applies them all at once, so a restore can set
// times after the data was written and before a read-only attribute
// forbids further changes. What is not set stays as it is.
//
//   P<IFileMetaModifier> mod = fs->createMetaModifier(uri, false);
//   mod->setLastWriteTime(info->getLastWriteTime());
//   mod->setAttributes(info->getAttributes());
//   mod->commit();
#ifndef QO_FS_IFILEMETAMODIFIER_H
#define QO_FS_IFILEMETAMODIFIER_H

#include "qo/core/CTime.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/TFlags.h"
#include "qo/fs/IFileInfoBase.h"

namespace qo {

/// Collects meta-data changes and applies them with commit(). Not
/// thread-safe.
class QO_API IFileMetaModifier : public virtual IBase {
public:
  ~IFileMetaModifier() override;

  /// Times to set; an invalid CTime leaves that time unchanged.
  virtual void setCreationTime(CTime time) = 0;
  virtual void setLastWriteTime(CTime time) = 0;
  virtual void setLastAccessTime(CTime time) = 0;
  /// Replaces the object's attributes by this set.
  virtual void setAttributes(TFlags<IFileInfoBase::Attribute> attributes) = 0;
  /// POSIX permission bits (the low 12 bits of st_mode).
  virtual void setPosixMode(int mode) = 0;
  /// Applies what was set. Throws CFileSystemError (kUnsupported for a value
  /// the file system cannot keep) or CIOError; a value it cannot keep may
  /// instead be ignored, as each file system defines.
  virtual void commit() = 0;
};

}  // namespace qo

#endif  // QO_FS_IFILEMETAMODIFIER_H
