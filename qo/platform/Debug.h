// qo/platform/Debug.h - text for an attached debugger (internal, OS-free).
//
// OutputDebugStringA on Windows; standard error elsewhere, where there is no
// debugger channel. Never throws, never allocates.
#ifndef QO_PLATFORM_DEBUG_H
#define QO_PLATFORM_DEBUG_H

namespace qo::platform {

/// Writes a NUL-terminated narrow text to the debugger output.
void debugOutput(char const* text);

}  // namespace qo::platform

#endif  // QO_PLATFORM_DEBUG_H
