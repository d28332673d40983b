#include "qo/sys/CKnownPaths.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/LocalFile.h"
#include "qo/fs/TPathImpl.h"
#include "qo/platform/KnownPaths.h"

namespace qo {

namespace {

platform::KnownFolder native(CKnownPaths::Folder which) {
  switch (which) {
    case CKnownPaths::Temp:
      return platform::KnownFolder::Temp;
    case CKnownPaths::Home:
      return platform::KnownFolder::Home;
    case CKnownPaths::UserAppData:
      return platform::KnownFolder::UserAppData;
    case CKnownPaths::MachineAppData:
      return platform::KnownFolder::MachineAppData;
    case CKnownPaths::ProgramFiles:
      return platform::KnownFolder::ProgramFiles;
  }
  throw CInvalidArgError(u"CKnownPaths::getFolder", u"unknown folder");
}

}  // namespace

String CKnownPaths::getFolderPath(Folder which) {
  platform::KnownFolder folder = native(which);
  std::u16string path;
  if (platform::SysError e = platform::knownPath(folder, path))
    throw CSystemError(u"Error finding a known folder.", u"CKnownPaths::getFolder",
                       which == Temp ? u"GetTempPathW" : u"SHGetKnownFolderPath", e,
                       CProps().add(u"folder", getFolderName(which)));
  return String(std::move(path));
}

CURI CKnownPaths::getFolder(Folder which) {
  String path = getFolderPath(which);
  if (localPathsAreWindowsPaths()) return CURI(TPathImpl<CWindowsPathTraits>(path), true);
  return CURI(TPathImpl<CUnixPathTraits>(path), true);
}

String CKnownPaths::getFolderName(Folder which) {
  switch (which) {
    case Temp:
      return u"temp";
    case Home:
      return u"home";
    case UserAppData:
      return u"userAppData";
    case MachineAppData:
      return u"machineAppData";
    case ProgramFiles:
      return u"programFiles";
  }
  return String();
}

}  // namespace qo
