#include "qo/fs/CFileInfo.h"

namespace qo {

CFileInfo::CFileInfo(CURI const& uri) : m_uri(uri), m_name(uri.getName()) {}

CFileInfo::CFileInfo(CFileInfo const& other) = default;

CFileInfo& CFileInfo::operator=(CFileInfo const& other) = default;

CFileInfo::~CFileInfo() = default;

CURI CFileInfo::getURI() const { return m_uri; }
String CFileInfo::getName() const { return m_name; }
IFileInfoBase::Kind CFileInfo::getKind() const { return m_kind; }
long long CFileInfo::getSize() const { return m_size; }
CTime CFileInfo::getCreationTime() const { return m_creationTime; }
CTime CFileInfo::getLastWriteTime() const { return m_lastWriteTime; }
CTime CFileInfo::getLastAccessTime() const { return m_lastAccessTime; }
TFlags<IFileInfoBase::Attribute> CFileInfo::getAttributes() const { return m_attributes; }
int CFileInfo::getPosixMode() const { return m_posixMode; }
String CFileInfo::getLinkTarget() const { return m_linkTarget; }
bool CFileInfo::isLinkToFolder() const { return m_linkToFolder; }
unsigned long long CFileInfo::getVolumeId() const { return m_volumeId; }
unsigned long long CFileInfo::getFileId() const { return m_fileId; }
long long CFileInfo::getHardLinkCount() const { return m_hardLinkCount; }

CFileInfo& CFileInfo::setName(String const& name) {
  m_name = name;
  return *this;
}
CFileInfo& CFileInfo::setKind(Kind kind) {
  m_kind = kind;
  return *this;
}
CFileInfo& CFileInfo::setSize(long long size) {
  m_size = size;
  return *this;
}
CFileInfo& CFileInfo::setCreationTime(CTime time) {
  m_creationTime = time;
  return *this;
}
CFileInfo& CFileInfo::setLastWriteTime(CTime time) {
  m_lastWriteTime = time;
  return *this;
}
CFileInfo& CFileInfo::setLastAccessTime(CTime time) {
  m_lastAccessTime = time;
  return *this;
}
CFileInfo& CFileInfo::setAttributes(TFlags<Attribute> attributes) {
  m_attributes = attributes;
  return *this;
}
CFileInfo& CFileInfo::setPosixMode(int mode) {
  m_posixMode = mode;
  return *this;
}
CFileInfo& CFileInfo::setLinkTarget(String const& target) {
  m_linkTarget = target;
  return *this;
}
CFileInfo& CFileInfo::setLinkToFolder(bool linkToFolder) {
  m_linkToFolder = linkToFolder;
  return *this;
}
CFileInfo& CFileInfo::setVolumeId(unsigned long long volumeId) {
  m_volumeId = volumeId;
  return *this;
}
CFileInfo& CFileInfo::setFileId(unsigned long long fileId) {
  m_fileId = fileId;
  return *this;
}
CFileInfo& CFileInfo::setHardLinkCount(long long count) {
  m_hardLinkCount = count;
  return *this;
}

}  // namespace qo
