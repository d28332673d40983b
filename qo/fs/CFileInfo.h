// qo/fs/CFileInfo.h - a plain IFileInfoBase that holds its values.
//
// File systems fill one with the setters and then hand it out; from then on
// nobody changes it. Every value starts as "unknown" (see IFileInfoBase),
// the kind as KindNone, the name as the URI's name.
//
//   P<CFileInfo> info = newP<CFileInfo>(uri);
//   info->setKind(IFileInfoBase::KindFile).setSize(st.size).setLastWriteTime(mtime);
//   return info;
#ifndef QO_FS_CFILEINFO_H
#define QO_FS_CFILEINFO_H

#include "qo/core/CBase.h"
#include "qo/core/CTime.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileInfoBase.h"

namespace qo {

/// Value holder for file information. Not thread-safe while being filled;
/// thread-safe once shared and no longer changed.
class QO_API CFileInfo : public CBase, public virtual IFileInfoBase {
public:
  /// Info about uri with every value unknown; name = uri.getName().
  explicit CFileInfo(CURI const& uri);
  /// A copy with its own reference count.
  CFileInfo(CFileInfo const& other);
  CFileInfo& operator=(CFileInfo const& other);
  ~CFileInfo() override;

  [[nodiscard]] CURI getURI() const override;
  [[nodiscard]] String getName() const override;
  [[nodiscard]] Kind getKind() const override;
  [[nodiscard]] long long getSize() const override;
  [[nodiscard]] CTime getCreationTime() const override;
  [[nodiscard]] CTime getLastWriteTime() const override;
  [[nodiscard]] CTime getLastAccessTime() const override;
  [[nodiscard]] TFlags<Attribute> getAttributes() const override;
  [[nodiscard]] int getPosixMode() const override;
  [[nodiscard]] String getLinkTarget() const override;
  [[nodiscard]] bool isLinkToFolder() const override;
  [[nodiscard]] unsigned long long getVolumeId() const override;
  [[nodiscard]] unsigned long long getFileId() const override;
  [[nodiscard]] long long getHardLinkCount() const override;

  /// Setters; each returns *this for chaining.
  CFileInfo& setName(String const& name);
  CFileInfo& setKind(Kind kind);
  CFileInfo& setSize(long long size);
  CFileInfo& setCreationTime(CTime time);
  CFileInfo& setLastWriteTime(CTime time);
  CFileInfo& setLastAccessTime(CTime time);
  CFileInfo& setAttributes(TFlags<Attribute> attributes);
  CFileInfo& setPosixMode(int mode);
  CFileInfo& setLinkTarget(String const& target);
  CFileInfo& setLinkToFolder(bool linkToFolder);
  CFileInfo& setVolumeId(unsigned long long volumeId);
  CFileInfo& setFileId(unsigned long long fileId);
  CFileInfo& setHardLinkCount(long long count);

private:
  CURI m_uri;
  String m_name;
  Kind m_kind = KindNone;
  long long m_size = -1;
  CTime m_creationTime;
  CTime m_lastWriteTime;
  CTime m_lastAccessTime;
  TFlags<Attribute> m_attributes;
  int m_posixMode = -1;
  String m_linkTarget;
  bool m_linkToFolder = false;
  unsigned long long m_volumeId = 0;
  unsigned long long m_fileId = 0;
  long long m_hardLinkCount = 0;
};

}  // namespace qo

#endif  // QO_FS_CFILEINFO_H
