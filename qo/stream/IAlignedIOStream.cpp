#include "qo/stream/IAlignedIOStream.h"

namespace qo {

IAlignedIOStream::~IAlignedIOStream() = default;

}  // namespace qo
