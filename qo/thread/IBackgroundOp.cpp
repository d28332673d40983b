#include "qo/thread/IBackgroundOp.h"

namespace qo {

IBackgroundOp::~IBackgroundOp() = default;

}  // namespace qo
