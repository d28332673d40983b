// qo/fs/IFolderContentsIterator.h - walks the entries of one folder.
//
// IFileSystem::getFolderContents() returns one. Each entry comes with its
// info (IFileInfoBase::getName() is the entry's name); "." and ".." are
// never reported. The order is the file system's own. Entries added or
// removed while iterating may or may not be seen.
//
//   P<IFolderContentsIterator> it = fs->getFolderContents(folder);
//   P<IFileInfoBase> entry;
//   while (it->getNext(entry)) visit(entry->getName(), entry);
#ifndef QO_FS_IFOLDERCONTENTSITERATOR_H
#define QO_FS_IFOLDERCONTENTSITERATOR_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/fs/IFileInfoBase.h"

namespace qo {

/// An iteration over a folder's entries. Not thread-safe.
class QO_API IFolderContentsIterator : public virtual IBase {
public:
  ~IFolderContentsIterator() override;

  /// Sets out to the next entry and returns true; at the end sets out to
  /// null and returns false (again on every later call). Throws
  /// CFileSystemError / CIOError when the file system fails.
  virtual bool getNext(P<IFileInfoBase>& out) = 0;
};

}  // namespace qo

#endif  // QO_FS_IFOLDERCONTENTSITERATOR_H
