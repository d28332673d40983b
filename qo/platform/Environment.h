// qo/platform/Environment.h - the process's environment variables
// (internal, OS-free).
//
// Windows: GetEnvironmentStringsW, whose names compare without regard to
// case. POSIX: environ, whose names are case-sensitive; its bytes are read
// as UTF-8 and, where they are not valid UTF-8, as Latin-1.
//
//   std::vector<EnvVar> vars;
//   if (SysError e = readEnvironment(vars)) report(e);
//
// Never throws but std::bad_alloc; thread-safe as far as the C runtime's
// environment is (setenv on another thread may race with a POSIX read).
#ifndef QO_PLATFORM_ENVIRONMENT_H
#define QO_PLATFORM_ENVIRONMENT_H

#include <string>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct EnvVar {
  std::u16string name;
  std::u16string value;
};

/// The name readEnvironment's errors report: "GetEnvironmentStringsW" on
/// Windows, "environ" elsewhere.
char const* environmentApiName();

/// Replaces out with every variable, in the OS's order. An entry without
/// '=' (after its first character) becomes a name with an empty value.
SysError readEnvironment(std::vector<EnvVar>& out);

/// True where variable names compare without regard to case (Windows).
bool environmentNamesIgnoreCase();

}  // namespace qo::platform

#endif  // QO_PLATFORM_ENVIRONMENT_H
