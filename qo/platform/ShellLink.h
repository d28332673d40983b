// qo/platform/ShellLink.h - shell links through the Windows shell itself
// (internal, OS-free).
//
// Windows: CoInitializeEx (apartment-threaded, undone when this call did
// it), CoCreateInstance(CLSID_ShellLink) for IShellLinkW, and its
// IPersistFile for Save and Load. Other systems have no shell to ask:
// shellLinkSupported() is false and the functions fail with ENOTSUP.
//
//   char const* api = nullptr;
//   if (SysError e = shellLinkCreate(u"C:\\x.lnk", u"C:\\x.exe", u"", u"", u"", api)) report(api, e);
//
// The functions never throw and are thread-safe. On failure api names the
// call that failed.
#ifndef QO_PLATFORM_SHELLLINK_H
#define QO_PLATFORM_SHELLLINK_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// Whether the shell's link objects exist here (Windows).
bool shellLinkSupported();
/// Makes the link file linkPath pointing at target with the given
/// arguments, working folder and description (empty: not set).
SysError shellLinkCreate(std::u16string const& linkPath, std::u16string const& target,
                         std::u16string const& arguments, std::u16string const& workingDir,
                         std::u16string const& description, char const*& api);
/// The target path the shell reads from the link file linkPath.
SysError shellLinkGetPath(std::u16string const& linkPath, std::u16string& target, char const*& api);

}  // namespace qo::platform

#endif  // QO_PLATFORM_SHELLLINK_H
