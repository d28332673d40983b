#include "qo/platform/Event.h"

#include "qo/platform/posix/PosixWait.h"

#include <cerrno>
#include <new>

#include <pthread.h>
#include <time.h>

namespace qo::platform {

struct NativeEvent {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  bool manualReset = true;
  bool state = false;  // guarded by mutex
};

using posixwait::deadlineAfter;
using posixwait::fromCode;

SysError eventCreate(bool manualReset, bool initialState, NativeEvent*& event) {
  event = nullptr;
  auto* e = new (std::nothrow) NativeEvent;
  if (!e) return fromCode(ENOMEM, "malloc");
  int rc = pthread_mutex_init(&e->mutex, nullptr);
  if (rc != 0) {
    delete e;
    return fromCode(rc, "pthread_mutex_init");
  }
  rc = posixwait::initMonotonicCond(e->cond);
  if (rc != 0) {
    pthread_mutex_destroy(&e->mutex);
    delete e;
    return fromCode(rc, "pthread_cond_init");
  }
  e->manualReset = manualReset;
  e->state = initialState;
  event = e;
  return {};
}

void eventDestroy(NativeEvent* event) {
  if (!event) return;
  pthread_cond_destroy(&event->cond);
  pthread_mutex_destroy(&event->mutex);
  delete event;
}

SysError eventSet(NativeEvent* event) {
  pthread_mutex_lock(&event->mutex);
  event->state = true;
  if (event->manualReset)
    pthread_cond_broadcast(&event->cond);
  else
    pthread_cond_signal(&event->cond);
  pthread_mutex_unlock(&event->mutex);
  return {};
}

SysError eventReset(NativeEvent* event) {
  pthread_mutex_lock(&event->mutex);
  event->state = false;
  pthread_mutex_unlock(&event->mutex);
  return {};
}

SysError eventWait(NativeEvent* event, int timeoutMillis, bool& signalled) {
  signalled = false;
  SysError error;
  pthread_mutex_lock(&event->mutex);
  if (timeoutMillis < 0) {
    while (!event->state) pthread_cond_wait(&event->cond, &event->mutex);
  } else if (timeoutMillis > 0) {
    timespec at = deadlineAfter(timeoutMillis);
    while (!event->state) {
      int rc = pthread_cond_timedwait(&event->cond, &event->mutex, &at);
      if (rc == ETIMEDOUT) break;
      if (rc != 0) {
        error = fromCode(rc, "pthread_cond_timedwait");
        break;
      }
    }
  }
  signalled = event->state;
  if (signalled && !event->manualReset) event->state = false;
  pthread_mutex_unlock(&event->mutex);
  return error;
}

void* eventNativeHandle(NativeEvent* event) { return event; }

}  // namespace qo::platform
