#include "qo/thread/IBackgroundOpPacer.h"

namespace qo {

IBackgroundOpPacer::~IBackgroundOpPacer() = default;

}  // namespace qo
