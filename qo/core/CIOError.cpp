#include "qo/core/CIOError.h"

namespace qo {

namespace {
// Indexed by kind; the texts are part of the library's log format.
char16_t const* const kDefaultMessages[] = {
    u"Unknown I/O error.",
    u"Error opening file or stream.",
    u"Error reading data.",
    u"Error writing data.",
    u"Unexpected end of data.",
    u"The data is invalid or corrupted.",
    u"Unsupported or invalid data version.",
    u"Error seeking to new position.",
    u"Error moving a file.",
    u"Error deleting a file.",
    u"Error: stream has been closed.",
    u"Error: stream position is not aligned correctly.",
    u"Error: buffer passed to stream is not aligned correctly.",
    u"Error changing the size of a file.",
    u"Operation unsupported",
    u"Locking error",
};
constexpr long long kKindCount = static_cast<long long>(sizeof kDefaultMessages / sizeof kDefaultMessages[0]);
static_assert(kKindCount == CIOError::kLockFailed + 1, "one default message per kind");
}  // namespace

CIOError::CIOError(long long code, String const& message, CProps const& props, CError const* cause)
    : CError(message.isEmpty() ? getDefaultMessage(code) : message, getDomain(), code, props, cause) {}

CIOError::CIOError(CIOError const& other) = default;
CIOError& CIOError::operator=(CIOError const& other) = default;
CIOError::~CIOError() = default;

P<CError> CIOError::clone() const { return P<CError>(new CIOError(*this)); }

void CIOError::throwClone() const { throw CIOError(*this); }

String CIOError::getDefaultMessage(long long code) {
  if (code < 0 || code >= kKindCount) return kDefaultMessages[kUnknown];
  return kDefaultMessages[code];
}

String CIOError::getDomain() { return u"IO"; }

String CIOError::paramURI() { return u"uri"; }

}  // namespace qo
