#include "qo/core/CFileSystemError.h"

#include <limits>

namespace qo {

namespace {
char16_t const* const kProblemMessages[] = {
    u"File system error.",
    u"File system error: the file or folder does not exist.",
    u"File system error: the file or folder already exists.",
    u"File system error: access denied.",
    u"File system error: the object is not of the expected kind (file or folder).",
    u"File system error: lock conflict.",
    u"File system error: no file system serves the URI, or the objects are on different file systems.",
    u"File system error: the folder is not empty.",
    u"File system error: not enough space.",
    u"File system error: the operation is not supported.",
};
constexpr int kProblemCount = static_cast<int>(sizeof kProblemMessages / sizeof kProblemMessages[0]);
static_assert(kProblemCount == CFileSystemError::kUnsupported + 1, "one message per problem");

CProps withProblem(CProps props, int problem) {
  props.addLong(CFileSystemError::paramFileSysProblem(), problem);
  return props;
}
}  // namespace

CFileSystemError::CFileSystemError(int problem, CError const* cause)
    : CError(getProblemMessage(problem), String(), -1, withProblem(CProps(), problem), cause) {}

CFileSystemError::CFileSystemError(int problem, String const& message, CProps const& props, CError const* cause)
    : CError(message.isEmpty() ? getProblemMessage(problem) : message, String(), -1, withProblem(props, problem),
             cause) {}

CFileSystemError::CFileSystemError(CFileSystemError const& other) = default;
CFileSystemError& CFileSystemError::operator=(CFileSystemError const& other) = default;
CFileSystemError::~CFileSystemError() = default;

P<CError> CFileSystemError::clone() const { return P<CError>(new CFileSystemError(*this)); }

void CFileSystemError::throwClone() const { throw CFileSystemError(*this); }

int CFileSystemError::getProblem(CProps const& props) {
  long long problem = props.lookupLong(paramFileSysProblem(), kUnknown);
  if (problem < std::numeric_limits<int>::min() || problem > std::numeric_limits<int>::max()) return kUnknown;
  return static_cast<int>(problem);
}

String CFileSystemError::paramFileSysProblem() { return u"fileSysProblem"; }

String CFileSystemError::getProblemMessage(int problem) {
  if (problem < 0 || problem >= kProblemCount) return kProblemMessages[kUnknown];
  return kProblemMessages[problem];
}

}  // namespace qo
