#include "qo/stream/IAlignedOutStream.h"

namespace qo {

IAlignedOutStream::~IAlignedOutStream() = default;

}  // namespace qo
