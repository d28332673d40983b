// qo/core/CSystemError.h - a failed system call.
//
// The domain names the kind of code: "WIN32" (GetLastError) on Windows,
// "POSIX" (errno) elsewhere; the code is the OS's. Properties say where it
// happened: "function" is the library function that made the call
// ("CThread::start"), "api" the system call that failed: the Windows
// function on Windows ("_beginthreadex"), the POSIX call on the other systems
// ("pthread_create"), as the platform layer reports it. "sysErrorText", when
// known, is the OS's description of the code.
//
//   throw CSystemError(u"Error creating thread.", u"CThread::start", u"_beginthreadex", code, text);
//   // "Error creating thread. [WIN32 8 (api='_beginthreadex', function='CThread::start', sysErrorText='...')]"
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CSYSTEMERROR_H
#define QO_CORE_CSYSTEMERROR_H

#include <cstdint>

#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/platform/LastError.h"

namespace qo {

/// A system call that failed. Not thread-safe.
class QO_API CSystemError : public CError {
public:
  /// Domain getPlatformDomain(), the given code, properties "function",
  /// "api", "sysErrorText" (only when not empty) and the given extra ones.
  CSystemError(String const& message, String const& function, String const& api, std::uint32_t code,
               String const& sysErrorText = String(), CProps const& props = CProps());
  /// The same from a platform failure: its code and text, and as "api" the
  /// call it names, else windowsApi (the Windows function the library
  /// calls there).
  CSystemError(String const& message, String const& function, String const& windowsApi,
               platform::SysError const& error, CProps const& props = CProps());
  CSystemError(CSystemError const& other);
  CSystemError& operator=(CSystemError const& other);
  ~CSystemError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// "WIN32" on Windows, "POSIX" elsewhere.
  static String getPlatformDomain();
  /// "function": the library function that failed.
  static String paramFunction();
  /// "api": the system call that failed.
  static String paramAPI();
  /// "sysErrorText": the OS's text for the code.
  static String paramSysErrorText();
};

}  // namespace qo

#endif  // QO_CORE_CSYSTEMERROR_H
