#include "qo/stream/IInStream.h"

namespace qo {

IInStream::~IInStream() = default;

}  // namespace qo
