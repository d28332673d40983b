#include "qo/platform/Event.h"

#include "qo/platform/posix/PosixWait.h"

#include <atomic>
#include <cerrno>
#include <new>

#include <pthread.h>
#include <time.h>

namespace qo::platform {

// The state is an atomic beside the mutex: set() of a set event, reset(),
// and a wait() that finds the event set take no lock, and set() locks only
// when a thread sleeps. A sleeper counts itself in waiters before it tests
// the state; set() stores the state before it reads waiters. Both are
// sequentially consistent, so either set() sees the sleeper and wakes it
// under the mutex (which the sleeper holds until it sleeps), or the sleeper
// sees the state and does not sleep.
struct NativeEvent {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  bool manualReset = true;
  std::atomic<bool> state{false};
  std::atomic<int> waiters{0};
};

using posixwait::deadlineAfter;
using posixwait::fromCode;

namespace {

// Takes the state as a wait sees it: an auto-reset event is consumed.
bool consume(NativeEvent* event) {
  if (event->manualReset) return event->state.load();
  bool expected = true;
  return event->state.compare_exchange_strong(expected, false);
}

}  // namespace

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
  e->state.store(initialState);
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
  if (event->state.exchange(true) && event->manualReset) return {};  // still set: every waiter was woken
  if (event->waiters.load() == 0) return {};
  pthread_mutex_lock(&event->mutex);
  if (event->manualReset)
    pthread_cond_broadcast(&event->cond);
  else
    pthread_cond_signal(&event->cond);
  pthread_mutex_unlock(&event->mutex);
  return {};
}

SysError eventReset(NativeEvent* event) {
  event->state.store(false);
  return {};
}

SysError eventWait(NativeEvent* event, int timeoutMillis, bool& signalled) {
  signalled = consume(event);
  if (signalled || timeoutMillis == 0) return {};
  SysError error;
  pthread_mutex_lock(&event->mutex);
  event->waiters.fetch_add(1);
  if (timeoutMillis < 0) {
    while (!(signalled = consume(event))) pthread_cond_wait(&event->cond, &event->mutex);
  } else {
    timespec at = deadlineAfter(timeoutMillis);
    while (!(signalled = consume(event))) {
      int rc = pthread_cond_timedwait(&event->cond, &event->mutex, &at);
      if (rc == ETIMEDOUT) {
        signalled = consume(event);
        break;
      }
      if (rc != 0) {
        error = fromCode(rc, "pthread_cond_timedwait");
        break;
      }
    }
  }
  event->waiters.fetch_sub(1);
  pthread_mutex_unlock(&event->mutex);
  return error;
}

void* eventNativeHandle(NativeEvent* event) { return event; }

}  // namespace qo::platform
