#include "qo/thread/CDummyThreadInitService.h"

namespace qo {

CDummyThreadInitService::CDummyThreadInitService() = default;
CDummyThreadInitService::~CDummyThreadInitService() = default;

void CDummyThreadInitService::initThread(String const&) {}

}  // namespace qo
