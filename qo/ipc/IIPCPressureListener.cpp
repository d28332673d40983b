#include "qo/ipc/IIPCPressureListener.h"

namespace qo {

IIPCPressureListener::~IIPCPressureListener() = default;

}  // namespace qo
