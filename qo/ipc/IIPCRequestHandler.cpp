#include "qo/ipc/IIPCRequestHandler.h"

namespace qo {

IIPCRequestHandler::~IIPCRequestHandler() = default;

}  // namespace qo
