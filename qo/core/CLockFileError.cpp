#include "qo/core/CLockFileError.h"

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/stream/IIOStream.h"

namespace qo {

namespace {
char16_t const kMessage[] = u"Cannot acquire the lock file.";

CProps lockProps(IStreamBase::LockType lockType, CError const* cause) {
  return CProps()
      .addBool(IIOStream::errParamLockConflict(), CLockFileError::isLockConflictError(cause))
      .add(IStreamBase::paramLockType(), IStreamBase::lockTypeToString(lockType));
}
}  // namespace

CLockFileError::CLockFileError(String const& path, IStreamBase::LockType lockType, CError const* cause)
    : CError(kMessage, String(), -1, lockProps(lockType, cause).add(paramPath(), path), cause) {}

CLockFileError::CLockFileError(CURI const& uri, IStreamBase::LockType lockType, CError const* cause)
    : CError(kMessage, String(), -1, lockProps(lockType, cause).add(CIOError::paramURI(), uri.toString(true)),
             cause) {}

CLockFileError::CLockFileError(CLockFileError const& other) = default;
CLockFileError& CLockFileError::operator=(CLockFileError const& other) = default;
CLockFileError::~CLockFileError() = default;

P<CError> CLockFileError::clone() const { return P<CError>(new CLockFileError(*this)); }

void CLockFileError::throwClone() const { throw CLockFileError(*this); }

bool CLockFileError::isLockConflict() const {
  return getParams().lookupBool(IIOStream::errParamLockConflict(), false);
}

String CLockFileError::paramPath() { return u"path"; }

bool CLockFileError::isLockConflictError(CError const* error) {
  if (error == nullptr) return false;
  CProps const& props = error->getParams();
  return (props.contains(CFileSystemError::paramFileSysProblem()) &&
          CFileSystemError::getProblem(props) == CFileSystemError::kLockConflict) ||
         props.lookupBool(IIOStream::errParamLockConflict(), false);
}

}  // namespace qo
