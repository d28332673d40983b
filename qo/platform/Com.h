// qo/platform/Com.h - COM start on a thread and process-wide COM security
// (internal, OS-free).
//
// Windows: CoInitializeEx (multithreaded apartment), CoUninitialize,
// CoInitializeSecurity (default authentication, impersonation, no
// capabilities). POSIX has no COM: every function succeeds and does
// nothing, and comAvailable() is false.
//
//   bool owe = false;
//   long hr = comInitThread(owe);   // < 0: failed
//   ...
//   if (owe) comUninitThread();     // on the same thread
//
// Never throws.
#ifndef QO_PLATFORM_COM_H
#define QO_PLATFORM_COM_H

namespace qo::platform {

/// True where COM exists (Windows).
bool comAvailable();
/// CoInitializeEx on the calling thread; the HRESULT (0 on POSIX).
/// mustUninit: a CoUninitialize on this thread is owed.
long comInitThread(bool& mustUninit);
/// CoUninitialize on the calling thread.
void comUninitThread();
/// CoInitializeSecurity for the process; the HRESULT (0 on POSIX).
long comInitSecurity();
/// The HRESULT CoInitializeSecurity gives when security was set already.
constexpr long kComSecurityTooLate = static_cast<long>(0x80010119L);
/// The HRESULT CoInitializeEx gives when the thread has the other model.
constexpr long kComChangedMode = static_cast<long>(0x80010106L);

}  // namespace qo::platform

#endif  // QO_PLATFORM_COM_H
