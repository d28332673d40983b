// qo/platform/ErrorDomain.h - the code domain of this OS's system error
// codes (internal, OS-free).
#ifndef QO_PLATFORM_ERRORDOMAIN_H
#define QO_PLATFORM_ERRORDOMAIN_H

namespace qo::platform {

/// "WIN32" on Windows (GetLastError codes), "POSIX" elsewhere (errno codes):
/// the domain under which a SysError's code is reported.
char const* sysErrorDomain();

}  // namespace qo::platform

#endif  // QO_PLATFORM_ERRORDOMAIN_H
