#include "qo/stream/IStreamBase.h"

namespace qo {

IStreamBase::~IStreamBase() = default;

String IStreamBase::lockTypeToString(LockType type) {
  switch (type) {
    case LockShared:
      return u"shared";
    case LockExclusive:
      return u"exclusive";
  }
  return String();
}

String IStreamBase::paramLockType() { return u"lockType"; }

}  // namespace qo
