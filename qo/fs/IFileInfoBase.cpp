#include "qo/fs/IFileInfoBase.h"

namespace qo {

IFileInfoBase::~IFileInfoBase() = default;

}  // namespace qo
