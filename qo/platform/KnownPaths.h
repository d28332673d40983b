// qo/platform/KnownPaths.h - the folders a program keeps its files in
// (internal, OS-free).
//
// Windows: GetTempPathW and SHGetKnownFolderPath (Profile, RoamingAppData,
// ProgramData, ProgramFiles). POSIX: the XDG base-folder rules ($HOME,
// $XDG_DATA_HOME else ~/.local/share, the first of $XDG_DATA_DIRS else
// /usr/local/share), $TMPDIR else /tmp, and /opt for add-on programs;
// an environment value that is not absolute is ignored, as XDG says.
//
//   std::u16string home;
//   if (!knownPath(KnownFolder::Home, home)) use(home);
//
// Never throws; thread-safe (as far as the process does not change its
// environment meanwhile).
#ifndef QO_PLATFORM_KNOWNPATHS_H
#define QO_PLATFORM_KNOWNPATHS_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

enum class KnownFolder {
  Temp,            ///< Temporary files.
  Home,            ///< The user's home folder.
  UserAppData,     ///< Per-user application data.
  MachineAppData,  ///< Application data shared by all users.
  ProgramFiles,    ///< Installed programs.
};

/// The native absolute path of the folder, without a trailing separator
/// (except a root).
SysError knownPath(KnownFolder which, std::u16string& out);

}  // namespace qo::platform

#endif  // QO_PLATFORM_KNOWNPATHS_H
