#include "qo/core/ErrorLog.h"

#include <atomic>
#include <string>

#include "qo/core/CStdExceptionError.h"
#include "qo/platform/Debug.h"

namespace qo {

namespace {
std::atomic<ErrorLogHook> g_errorLogHook{nullptr};
}  // namespace

ErrorLogHook setErrorLogHook(ErrorLogHook hook) { return g_errorLogHook.exchange(hook, std::memory_order_acq_rel); }

ErrorLogHook getErrorLogHook() { return g_errorLogHook.load(std::memory_order_acquire); }

void logError(CError const& error, String const& summary) noexcept {
  try {
    if (ErrorLogHook hook = g_errorLogHook.load(std::memory_order_acquire)) {
      hook(error, summary);
      return;
    }
    std::string text = "ERROR: " + summary.toUTF8Lossy() + " " + error.getDesc().toUTF8Lossy() + "\n";
    platform::debugOutput(text.c_str());
  } catch (...) {
    // A report must never become a second failure.
  }
}

void logError(std::exception const& exception, String const& summary) noexcept {
  try {
    if (auto const* error = dynamic_cast<CError const*>(&exception)) {
      logError(*error, summary);
      return;
    }
    logError(CStdExceptionError(exception), summary);
  } catch (...) {
  }
}

}  // namespace qo
