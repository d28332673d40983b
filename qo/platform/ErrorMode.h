// qo/platform/ErrorMode.h - keep the OS from showing critical-error dialogs
// (internal, OS-free).
#ifndef QO_PLATFORM_ERRORMODE_H
#define QO_PLATFORM_ERRORMODE_H

namespace qo::platform {

/// Windows: SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX),
/// i.e. 0x8001, so no box appears for a missing disk or an unopenable file.
/// Elsewhere there are no such dialogs and this does nothing.
void suppressCriticalErrorDialogs();

}  // namespace qo::platform

#endif  // QO_PLATFORM_ERRORMODE_H
