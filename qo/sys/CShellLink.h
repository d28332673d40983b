// qo/sys/CShellLink.h - Windows shell links (".lnk" shortcut files), read
// and written on every system.
//
// The binary format is Microsoft's documented shell-link format: a 76-byte
// header (flags, attributes, times, size, icon index, show command, hot
// key), the target's item-ID list, the link information (volume, local base
// path, network share and common path suffix), the string data (name,
// relative path, working folder, arguments, icon location) and extra data
// blocks. This reader understands all of that portably, so a backup made on
// Windows shows on Linux where a shortcut points (getTargetPath()).
// - Texts that the file holds in the "ANSI" code page are decoded with the
//   code page given to parse()/load() (1252 unless told; bytes invalid there
//   are read as Latin-1); Unicode texts are taken as they are.
// - The writer always writes Unicode string data; link information gets
//   Unicode forms beside the ANSI ones where a text is not plain ASCII.
//   Item-ID lists and extra data blocks other than the environment-variable
//   target are kept as raw bytes and written back unchanged. The content
//   flags are derived from what is set; the other flag bits are kept.
// - String data is counted, not terminated; a terminating NUL that some
//   writers count is dropped when reading.
// - Malformed data throws CParseError with the "offset" where it went wrong.
// - createWithShell/getPathWithShell use the shell itself (IShellLinkW and
//   IPersistFile); they exist on Windows only and throw
//   CNotImplementedError elsewhere.
//
//   P<CShellLink> link = CShellLink::load(u"/backup/Desktop/Editor.lnk");
//   print(link->getTargetPath(), link->getArguments());
//   auto made = newP<CShellLink>();
//   made->setLocalBasePath(u"C:\\Tools\\edit.exe");
//   made->save(u"/tmp/edit.lnk");
//
// Not thread-safe.
#ifndef QO_SYS_CSHELLLINK_H
#define QO_SYS_CSHELLLINK_H

#include <cstddef>

#include "qo/core/CBase.h"
#include "qo/core/CTime.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TArray.h"

namespace qo {

/// A shell link's content. Not thread-safe.
class QO_API CShellLink : public CBase {
public:
  using Bytes = TArray<unsigned char>;

  /// Link flag bits (header); the content bits are set by the writer.
  enum LinkFlag : unsigned {
    kHasLinkTargetIDList = 0x1,
    kHasLinkInfo = 0x2,
    kHasName = 0x4,
    kHasRelativePath = 0x8,
    kHasWorkingDir = 0x10,
    kHasArguments = 0x20,
    kHasIconLocation = 0x40,
    kIsUnicode = 0x80,
    kForceNoLinkInfo = 0x100,
    kHasExpString = 0x200,
    kRunInSeparateProcess = 0x400,
    kRunAsUser = 0x2000,
  };
  /// Show commands of the header.
  enum ShowCommand : unsigned { kShowNormal = 1, kShowMaximized = 3, kShowMinNoActive = 7 };
  /// Drive types of the volume information (as GetDriveTypeW).
  enum DriveType : unsigned { kDriveUnknown = 0, kDriveRemovable = 2, kDriveFixed = 3, kDriveRemote = 4, kDriveCdRom = 5 };

  /// An empty link: show normal, fixed drive, no target.
  CShellLink();
  ~CShellLink() override;

  /// Parses size bytes at data. ANSI texts use codePage. Throws CParseError
  /// ("offset") for data that is not a well-formed shell link.
  static P<CShellLink> parse(void const* data, std::size_t size, unsigned codePage = 1252);
  /// Reads and parses the file at path (native). Throws CIOError when it
  /// cannot be read, CParseError as parse().
  static P<CShellLink> load(String const& path, unsigned codePage = 1252);
  /// The link in the binary format.
  Bytes serialize() const;
  /// Writes serialize() to path (native), replacing a file there. Throws
  /// CIOError.
  void save(String const& path) const;

  /// Where the link points: the local base path plus the common path
  /// suffix; else the network share, a backslash and the suffix; else the
  /// environment-variable target; else the relative path; else empty.
  String getTargetPath() const;

  // Header
  unsigned getLinkFlags() const { return m_flags; }
  /// Sets the non-content flag bits (the content bits are recomputed when
  /// writing).
  void setLinkFlags(unsigned flags) { m_flags = flags; }
  unsigned getFileAttributes() const { return m_fileAttributes; }
  void setFileAttributes(unsigned attributes) { m_fileAttributes = attributes; }
  /// The target's times; invalid when the link does not know them (0).
  /// The file's values are kept to the 100 ns, so they write back exactly.
  CTime getCreationTime() const;
  CTime getAccessTime() const;
  CTime getWriteTime() const;
  void setTimes(CTime creation, CTime access, CTime write);
  /// The target's size (its low 32 bits).
  unsigned getFileSize() const { return m_fileSize; }
  void setFileSize(unsigned size) { m_fileSize = size; }
  int getIconIndex() const { return m_iconIndex; }
  void setIconIndex(int index) { m_iconIndex = index; }
  unsigned getShowCommand() const { return m_showCommand; }
  void setShowCommand(unsigned show) { m_showCommand = show; }
  /// Low byte the virtual key, high byte the modifiers.
  unsigned short getHotKey() const { return m_hotKey; }
  void setHotKey(unsigned short hotKey) { m_hotKey = hotKey; }

  /// The target's item-ID list: each item's bytes without its size field.
  TArray<Bytes> const& getIDList() const { return m_idList; }
  void setIDList(TArray<Bytes> const& items) { m_idList = items; }

  // Link information
  String const& getLocalBasePath() const { return m_localBasePath; }
  void setLocalBasePath(String const& path) { m_localBasePath = path; }
  String const& getCommonPathSuffix() const { return m_commonPathSuffix; }
  void setCommonPathSuffix(String const& suffix) { m_commonPathSuffix = suffix; }
  String const& getVolumeLabel() const { return m_volumeLabel; }
  unsigned getDriveType() const { return m_driveType; }
  unsigned getDriveSerialNumber() const { return m_driveSerial; }
  /// The volume that holds the local base path.
  void setVolume(unsigned driveType, unsigned serialNumber, String const& label);
  /// The share ("\\server\share"), empty for a local link.
  String const& getNetName() const { return m_netName; }
  /// The drive letter the share was mapped to ("Z:"), may be empty.
  String const& getDeviceName() const { return m_deviceName; }
  /// The network provider type (WNNC_NET_*), 0 when unknown.
  unsigned getNetworkProviderType() const { return m_networkProviderType; }
  void setNetwork(String const& netName, String const& deviceName, unsigned providerType);

  // String data
  String const& getName() const { return m_name; }
  void setName(String const& name) { m_name = name; }
  String const& getRelativePath() const { return m_relativePath; }
  void setRelativePath(String const& path) { m_relativePath = path; }
  String const& getWorkingDir() const { return m_workingDir; }
  void setWorkingDir(String const& dir) { m_workingDir = dir; }
  String const& getArguments() const { return m_arguments; }
  void setArguments(String const& arguments) { m_arguments = arguments; }
  String const& getIconLocation() const { return m_iconLocation; }
  void setIconLocation(String const& location) { m_iconLocation = location; }

  // Extra data
  /// The target with environment variables ("%windir%\notepad.exe"), from
  /// the environment-variable block; at most 259 characters are written.
  String const& getEnvironmentTarget() const { return m_environmentTarget; }
  void setEnvironmentTarget(String const& target) { m_environmentTarget = target; }
  /// The other extra data blocks, each whole (size and signature included).
  TArray<Bytes> const& getExtraDataBlocks() const { return m_extraBlocks; }
  void setExtraDataBlocks(TArray<Bytes> const& blocks) { m_extraBlocks = blocks; }

  /// Windows only: makes the link file at linkPath through the shell
  /// (IShellLinkW, IPersistFile::Save) pointing at target. Throws
  /// CSystemError ("api" the failing call), CNotImplementedError on other
  /// systems. Thread-safe.
  static void createWithShell(String const& linkPath, String const& target, String const& arguments,
                              String const& workingDir, String const& description);
  /// Windows only: the target path that the shell reads from the link file
  /// (IPersistFile::Load, IShellLinkW::GetPath; no search for a moved
  /// target). Throws as createWithShell. Thread-safe.
  static String getPathWithShell(String const& linkPath);

private:
  unsigned m_flags = 0;
  unsigned m_fileAttributes = 0;
  long long m_creationFileTime = 0;  // Windows file times; 0 unknown
  long long m_accessFileTime = 0;
  long long m_writeFileTime = 0;
  unsigned m_fileSize = 0;
  int m_iconIndex = 0;
  unsigned m_showCommand = kShowNormal;
  unsigned short m_hotKey = 0;
  TArray<Bytes> m_idList;
  String m_localBasePath;
  String m_commonPathSuffix;
  String m_volumeLabel;
  unsigned m_driveType = kDriveFixed;
  unsigned m_driveSerial = 0;
  String m_netName;
  String m_deviceName;
  unsigned m_networkProviderType = 0;
  String m_name;
  String m_relativePath;
  String m_workingDir;
  String m_arguments;
  String m_iconLocation;
  String m_environmentTarget;
  TArray<Bytes> m_extraBlocks;
  unsigned m_codePage = 1252;
};

}  // namespace qo

#endif  // QO_SYS_CSHELLLINK_H
