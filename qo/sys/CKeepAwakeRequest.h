// qo/sys/CKeepAwakeRequest.h - keeps the machine from going to sleep while
// it lives (say, during a backup).
//
// Windows: SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED) on
// the creating thread, which must also destroy it (the system keeps this
// state per thread; nested requests on one thread are counted). Linux: a
// logind "sleep" inhibitor, held by a `systemd-inhibit --mode=block` child
// process for as long as the request lives and released at once when it
// ends, also when this process dies. Where the system offers no inhibitor
// (no systemd-inhibit, no logind) the constructor throws
// CNotImplementedError with the reason in its properties, rather than
// pretending.
//
//   {
//     CKeepAwakeRequest awake(u"qo-backup", u"Backup running");
//     runBackup();
//   }   // the machine may sleep again
//
// Not thread-safe: create and destroy on one thread.
#ifndef QO_SYS_CKEEPAWAKEREQUEST_H
#define QO_SYS_CKEEPAWAKEREQUEST_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

namespace platform {
struct NativeKeepAwake;
}  // namespace platform

/// A held request to keep the machine awake. Not thread-safe.
class QO_API CKeepAwakeRequest : public CBase {
public:
  /// Takes the request; who and why are what the system shows for it
  /// (Linux: `systemd-inhibit --list`). Throws CNotImplementedError
  /// (function "CKeepAwakeRequest::CKeepAwakeRequest"; property "reason":
  /// the system's words, e.g. "Failed to connect to bus: No such file or
  /// directory") where no such request is available, CSystemError
  /// (function "CKeepAwakeRequest::CKeepAwakeRequest", api
  /// "SetThreadExecutionState"; POSIX the call that failed) when taking it
  /// fails otherwise, CInvalidArgError for an empty who.
  CKeepAwakeRequest(String const& who, String const& why);
  /// Releases the request; never throws.
  ~CKeepAwakeRequest() override;
  CKeepAwakeRequest(CKeepAwakeRequest const&) = delete;
  CKeepAwakeRequest& operator=(CKeepAwakeRequest const&) = delete;

private:
  platform::NativeKeepAwake* m_handle = nullptr;
};

}  // namespace qo

#endif  // QO_SYS_CKEEPAWAKEREQUEST_H
