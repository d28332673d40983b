#include "qo/stream/IIOStream.h"

namespace qo {

IIOStream::~IIOStream() = default;

String IIOStream::errParamLockConflict() { return u"lockConflict"; }

}  // namespace qo
