#include "qo/thread/IDoneListener.h"

namespace qo {

IDoneListener::~IDoneListener() = default;

}  // namespace qo
