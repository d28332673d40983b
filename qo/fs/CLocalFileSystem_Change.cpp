#include "qo/fs/CLocalFileSystem.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/fs/LocalFile.h"
#include "qo/fs/LocalFileSystemShared.h"
#include "qo/platform/FileSystem.h"

#include <vector>

namespace qo {

using localfs::nativeOf;
using localfs::statOf;
using localfs::throwOsError;
using localfs::throwProblem;
using localfs::windowsPaths;
using platform::FsErrorKind;
using platform::FsKind;
using platform::FsStat;
using platform::SysError;

namespace {

bool isFolderLink(FsStat const& st) {
  return st.kind == FsKind::Junction || (st.kind == FsKind::SymLink && st.linkToFolder);
}

// Removes the object at uri with remove, after looking at it without
// following links: wrongKind says which objects remove must not touch
// (the OS would remove some of them, or refuse with a vague error).
template <class WrongKind>
void removeObject(CURI const& uri, bool ignoreMissing, char const* action, char const* windowsApi, WrongKind wrongKind,
                  SysError (*remove)(std::u16string const&)) {
  FsStat const st = statOf(uri, false, action);
  if (st.kind == FsKind::None) {
    if (ignoreMissing) return;
    throwProblem(CFileSystemError::kNotFound, action, uri);
  }
  if (wrongKind(st)) throwProblem(CFileSystemError::kWrongKind, action, uri);
  if (SysError e = remove(nativeOf(uri))) {
    // Gone meanwhile: what the caller wanted.
    if (ignoreMissing && platform::fsErrorKind(e) == FsErrorKind::NotFound) return;
    throwOsError(e, CIOError::kDeleteFailed, action, windowsApi, uri);
  }
}

// The text a symbolic link stores for target: a relative reference stays
// relative (so that the link survives moving its folder), anything else
// becomes the absolute native path.
String linkTextOf(CURI const& link, CURI const& target) {
  if (!target.hasScheme() && !target.hasAuthority() && !target.isAbsolute()) {
    String text = target.getPath();
    if (text.isEmpty()) {
      throw CInvalidArgError(u"CLocalFileSystem::createSymLink", u"the link target is empty",
                             CProps().add(u"uri", link.toString(true)));
    }
    if (windowsPaths()) text = text.Replace(u"/", u"\\");
    return text;
  }
  return CLocalFileSystem::toNativePath(target.hasScheme() ? target : CURI(link, target));
}

}  // namespace

void CLocalFileSystem::createFolder(CURI const& uri, int options) {
  std::u16string const path = nativeOf(uri);
  if (options & kCreateParents) {
    // Walk up to the first folder that exists, then create downwards.
    std::vector<CURI> missing;
    for (CURI current = uri;;) {
      CURI parent = current.getParent();
      // Above the root there is nothing to create; a root that is missing
      // (an unknown drive) is left to the final call to report.
      if (parent.getPath().length() >= current.getPath().length()) break;
      FsStat st;
      try {
        st = statOf(parent, true, "createFolder");
      } catch (CFileSystemError const& e) {
        if (e.getProblem() == CFileSystemError::kUnservedURI) break;
        throw;
      }
      if (st.kind == FsKind::Folder) break;
      if (st.kind != FsKind::None) throwProblem(CFileSystemError::kWrongKind, "createFolder", parent, &uri);
      missing.push_back(parent);
      current = parent;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
      SysError e = platform::fsCreateFolder(nativeOf(*it));
      // Another thread may create the same parent meanwhile.
      if (e && !(platform::fsErrorKind(e) == FsErrorKind::AlreadyExists &&
                 statOf(*it, true, "createFolder").kind == FsKind::Folder)) {
        throwOsError(e, CIOError::kWriteFailed, "createFolder", "CreateDirectoryW", *it, &uri);
      }
    }
  }
  if (SysError e = platform::fsCreateFolder(path)) throwOsError(e, CIOError::kWriteFailed, "createFolder", "CreateDirectoryW", uri);
}

bool CLocalFileSystem::ensureFolderExists(CURI const& uri, int options) {
  FsStat const st = statOf(uri, true, "ensureFolderExists");
  if (st.kind == FsKind::Folder) return false;
  if (st.kind != FsKind::None) throwProblem(CFileSystemError::kWrongKind, "ensureFolderExists", uri);
  try {
    createFolder(uri, options | kCreateParents);
  } catch (CFileSystemError const& e) {
    if (e.getProblem() != CFileSystemError::kAlreadyExists || !folderExists(uri)) throw;
    return false;  // created by someone else meanwhile
  }
  return true;
}

void CLocalFileSystem::ensureFileExists(CURI const& uri) {
  FsStat const st = statOf(uri, true, "ensureFileExists");
  if (st.kind == FsKind::File) return;
  if (st.kind != FsKind::None) throwProblem(CFileSystemError::kWrongKind, "ensureFileExists", uri);
  CLocalFileStream file(toNativePath(uri), IIOStream::AccessWriteOnly, TFlags<IIOStream::Flags>{IIOStream::FlagCreate});
  file.close();
}

void CLocalFileSystem::createFileHardLink(CURI const& link, CURI const& target) {
  if (statOf(target, false, "createFileHardLink").kind == FsKind::Folder) {
    throwProblem(CFileSystemError::kWrongKind, "createFileHardLink", link, &target);
  }
  if (SysError e = platform::fsCreateHardLink(nativeOf(link), nativeOf(target))) {
    throwOsError(e, CIOError::kWriteFailed, "createFileHardLink", "CreateHardLinkW", link, &target);
  }
}

void CLocalFileSystem::createFolderHardLink(CURI const& link, CURI const& target) {
  FsStat const st = statOf(target, true, "createFolderHardLink");
  if (st.kind == FsKind::None) throwProblem(CFileSystemError::kNotFound, "createFolderHardLink", link, &target);
  if (st.kind != FsKind::Folder) throwProblem(CFileSystemError::kWrongKind, "createFolderHardLink", link, &target);
  if (SysError e = platform::fsCreateJunction(nativeOf(link), nativeOf(target))) {
    throwOsError(e, CIOError::kWriteFailed, "createFolderHardLink", "FSCTL_SET_REPARSE_POINT", link, &target);
  }
}

void CLocalFileSystem::createFileSymLink(CURI const& link, CURI const& target) {
  if (SysError e = platform::fsCreateSymLink(nativeOf(link), linkTextOf(link, target).str(), false)) {
    throwOsError(e, CIOError::kWriteFailed, "createFileSymLink", "CreateSymbolicLinkW", link, &target);
  }
}

void CLocalFileSystem::createFolderSymLink(CURI const& link, CURI const& target) {
  if (SysError e = platform::fsCreateSymLink(nativeOf(link), linkTextOf(link, target).str(), true)) {
    throwOsError(e, CIOError::kWriteFailed, "createFolderSymLink", "CreateSymbolicLinkW", link, &target);
  }
}

void CLocalFileSystem::deleteFile(CURI const& uri, bool ignoreMissing) {
  removeObject(uri, ignoreMissing, "deleteFile", "DeleteFileW",
               [](FsStat const& st) { return st.kind == FsKind::Folder || isFolderLink(st); }, platform::fsDeleteFile);
}

void CLocalFileSystem::deleteSymLink(CURI const& uri) {
  removeObject(uri, false, "deleteSymLink", "DeleteFileW",
               [](FsStat const& st) { return st.kind != FsKind::SymLink && st.kind != FsKind::Junction; },
               platform::fsRemoveLink);
}

void CLocalFileSystem::deleteEmptyFolder(CURI const& uri, bool ignoreMissing) {
  removeObject(uri, ignoreMissing, "deleteEmptyFolder", "RemoveDirectoryW",
               [](FsStat const& st) { return st.kind != FsKind::Folder; }, platform::fsRemoveFolder);
}

void CLocalFileSystem::unlinkFolder(CURI const& uri) {
  removeObject(uri, false, "unlinkFolder", "RemoveDirectoryW", [](FsStat const& st) { return !isFolderLink(st); },
               platform::fsRemoveLink);
}

void CLocalFileSystem::moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) {
  std::u16string const source = nativeOf(from);
  std::u16string const target = nativeOf(to);
  if (overwrite) {
    // POSIX would let a folder replace an empty folder; neither OS lets a
    // folder be replaced otherwise, so none is. A name that differs only in
    // case on a case-blind volume is the source itself.
    FsStat const existing = statOf(to, false, "moveFileOrFolder");
    if (existing.kind == FsKind::Folder) {
      FsStat const moving = statOf(from, false, "moveFileOrFolder");
      if (moving.fileId == 0 || moving.fileId != existing.fileId || moving.volumeId != existing.volumeId) {
        throwProblem(CFileSystemError::kAlreadyExists, "moveFileOrFolder", from, &to);
      }
    }
  }
  SysError const e = platform::fsRename(source, target, overwrite);
  if (!e) return;
  if (platform::fsErrorKind(e) == FsErrorKind::CrossDevice &&
      statOf(from, false, "moveFileOrFolder").kind == FsKind::File) {
    copyFile(from, to, overwrite);
    deleteFile(from, false);
    return;
  }
  throwOsError(e, CIOError::kMoveFailed, "moveFileOrFolder", "MoveFileExW", from, &to);
}

}  // namespace qo
