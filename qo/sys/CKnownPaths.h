// qo/sys/CKnownPaths.h - the folders a program keeps its files in, as file
// URIs.
//
// Windows asks the shell (SHGetKnownFolderPath; GetTempPathW for the
// temporary folder). Linux follows the XDG base-folder rules: home $HOME,
// per-user data $XDG_DATA_HOME else ~/.local/share, machine-wide data the
// first of $XDG_DATA_DIRS else /usr/local/share, temporary $TMPDIR else
// /tmp, programs /opt. Every result is a folder URI (its path ends in "/").
//
//   CURI data = CKnownPaths::getUserAppData();   // file:///home/me/.local/share/
//   String sub = u"Acme/";
//   CURI mine(data, &sub);                       // .../share/Acme/
//
// Thread-safe.
#ifndef QO_SYS_CKNOWNPATHS_H
#define QO_SYS_CKNOWNPATHS_H

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"

namespace qo {

/// Well-known folders. Thread-safe.
class QO_API CKnownPaths {
public:
  /// Which folder.
  enum Folder { Temp, Home, UserAppData, MachineAppData, ProgramFiles };

  CKnownPaths() = delete;

  /// The folder as a "file" URI ending in "/". Throws CSystemError (api
  /// "SHGetKnownFolderPath", for Temp "GetTempPathW") when the OS cannot
  /// tell, CInvalidArgError for an unknown folder. Thread-safe.
  static CURI getFolder(Folder which);
  /// The folder's native path without a trailing separator (except a
  /// root). Throws as getFolder(). Thread-safe.
  static String getFolderPath(Folder which);
  /// A short English name of the folder ("temp", "home", "userAppData",
  /// "machineAppData", "programFiles"). Thread-safe.
  static String getFolderName(Folder which);

  static CURI getTemp() { return getFolder(Temp); }                      ///< getFolder(Temp). Thread-safe.
  static CURI getHome() { return getFolder(Home); }                      ///< getFolder(Home). Thread-safe.
  static CURI getUserAppData() { return getFolder(UserAppData); }        ///< Thread-safe.
  static CURI getMachineAppData() { return getFolder(MachineAppData); }  ///< Thread-safe.
  static CURI getProgramFiles() { return getFolder(ProgramFiles); }      ///< Thread-safe.
};

}  // namespace qo

#endif  // QO_SYS_CKNOWNPATHS_H
