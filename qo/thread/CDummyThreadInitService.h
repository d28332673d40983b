// qo/thread/CDummyThreadInitService.h - the default thread-init service,
// which prepares nothing.
#ifndef QO_THREAD_CDUMMYTHREADINITSERVICE_H
#define QO_THREAD_CDUMMYTHREADINITSERVICE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/thread/IThreadInitService.h"

namespace qo {

/// initThread does nothing. Thread-safe.
class QO_API CDummyThreadInitService : public CBase, public IThreadInitService {
public:
  CDummyThreadInitService();
  ~CDummyThreadInitService() override;
  /// Does nothing.
  void initThread(String const& threadName) override;
};

}  // namespace qo

#endif  // QO_THREAD_CDUMMYTHREADINITSERVICE_H
