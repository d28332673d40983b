#include "qo/platform/Semaphore.h"

#include "qo/platform/posix/PosixWait.h"

#include <cerrno>
#include <climits>
#include <new>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <time.h>

namespace qo::platform {

struct NativeSemaphore {
  sem_t* named = nullptr;  // null: the unnamed counter below
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  unsigned count = 0;  // guarded by mutex
  unsigned maxValue = 0;
};

using posixwait::fromCode;

namespace {

std::string posixName(char const* utf8Name) {
  std::string name = "/";
  for (char const* p = utf8Name; *p; ++p) name += (*p == '/' || *p == '\\') ? '_' : *p;
  return name;
}

SysError createUnnamed(unsigned initialValue, unsigned maxValue, NativeSemaphore*& semaphore) {
  auto* s = new (std::nothrow) NativeSemaphore;
  if (!s) return fromCode(ENOMEM, "malloc");
  int rc = pthread_mutex_init(&s->mutex, nullptr);
  if (rc != 0) {
    delete s;
    return fromCode(rc, "pthread_mutex_init");
  }
  rc = posixwait::initMonotonicCond(s->cond);
  if (rc != 0) {
    pthread_mutex_destroy(&s->mutex);
    delete s;
    return fromCode(rc, "pthread_cond_init");
  }
  s->count = initialValue;
  s->maxValue = maxValue;
  semaphore = s;
  return {};
}

SysError wrapNamed(sem_t* named, unsigned maxValue, NativeSemaphore*& semaphore) {
  auto* s = new (std::nothrow) NativeSemaphore;
  if (!s) {
    sem_close(named);
    return fromCode(ENOMEM, "malloc");
  }
  s->named = named;
  s->maxValue = maxValue;
  semaphore = s;
  return {};
}

SysError waitNamed(sem_t* named, int timeoutMillis, bool& acquired) {
  int rc;
  if (timeoutMillis < 0) {
    while ((rc = sem_wait(named)) != 0 && errno == EINTR) {
    }
  } else if (timeoutMillis == 0) {
    rc = sem_trywait(named);
  } else {
    // sem_timedwait measures on the wall clock.
    timespec at;
    clock_gettime(CLOCK_REALTIME, &at);
    long long nanos = static_cast<long long>(at.tv_nsec) + static_cast<long long>(timeoutMillis % 1000) * 1000000LL;
    at.tv_sec += timeoutMillis / 1000 + static_cast<time_t>(nanos / 1000000000LL);
    at.tv_nsec = static_cast<long>(nanos % 1000000000LL);
    while ((rc = sem_timedwait(named, &at)) != 0 && errno == EINTR) {
    }
  }
  if (rc == 0) {
    acquired = true;
    return {};
  }
  if (errno == ETIMEDOUT || errno == EAGAIN) return {};
  return lastSysError(timeoutMillis < 0 ? "sem_wait" : timeoutMillis == 0 ? "sem_trywait" : "sem_timedwait");
}

}  // namespace

SysError semaphoreCreate(char const* utf8Name, unsigned initialValue, unsigned maxValue, NativeSemaphore*& semaphore,
                         bool& created) {
  semaphore = nullptr;
  created = false;
  if (maxValue == 0 || maxValue > 0x7fffffffu || initialValue > maxValue)
    return fromCode(EINVAL, utf8Name && *utf8Name ? "sem_open" : "sem_init");
  if (!utf8Name || !*utf8Name) {
    created = true;
    return createUnnamed(initialValue, maxValue, semaphore);
  }
  std::string name = posixName(utf8Name);
  sem_t* named = sem_open(name.c_str(), O_CREAT | O_EXCL, 0600, initialValue);
  if (named != SEM_FAILED) {
    created = true;
    return wrapNamed(named, maxValue, semaphore);
  }
  if (errno != EEXIST) return lastSysError("sem_open");
  named = sem_open(name.c_str(), 0);
  if (named == SEM_FAILED) return lastSysError("sem_open");
  return wrapNamed(named, SEM_VALUE_MAX, semaphore);
}

SysError semaphoreOpen(char const* utf8Name, NativeSemaphore*& semaphore) {
  semaphore = nullptr;
  if (!utf8Name || !*utf8Name) return fromCode(EINVAL, "sem_open");
  sem_t* named = sem_open(posixName(utf8Name).c_str(), 0);
  if (named == SEM_FAILED) return lastSysError("sem_open");
  return wrapNamed(named, SEM_VALUE_MAX, semaphore);
}

void semaphoreClose(NativeSemaphore* semaphore) {
  if (!semaphore) return;
  if (semaphore->named) {
    sem_close(semaphore->named);
  } else {
    pthread_cond_destroy(&semaphore->cond);
    pthread_mutex_destroy(&semaphore->mutex);
  }
  delete semaphore;
}

SysError semaphoreRelease(NativeSemaphore* semaphore) {
  if (semaphore->named) {
    int value = 0;
    if (sem_getvalue(semaphore->named, &value) == 0 && value >= 0 &&
        static_cast<unsigned>(value) >= semaphore->maxValue)
      return fromCode(EOVERFLOW, "sem_post");
    if (sem_post(semaphore->named) != 0) return lastSysError("sem_post");
    return {};
  }
  pthread_mutex_lock(&semaphore->mutex);
  bool full = semaphore->count >= semaphore->maxValue;
  if (!full) {
    ++semaphore->count;
    pthread_cond_signal(&semaphore->cond);
  }
  pthread_mutex_unlock(&semaphore->mutex);
  return full ? fromCode(EOVERFLOW, "sem_post") : SysError{};
}

SysError semaphoreWait(NativeSemaphore* semaphore, int timeoutMillis, bool& acquired) {
  acquired = false;
  if (semaphore->named) return waitNamed(semaphore->named, timeoutMillis, acquired);
  SysError error;
  pthread_mutex_lock(&semaphore->mutex);
  if (timeoutMillis < 0) {
    while (semaphore->count == 0) pthread_cond_wait(&semaphore->cond, &semaphore->mutex);
  } else if (timeoutMillis > 0) {
    timespec at = posixwait::deadlineAfter(timeoutMillis);
    while (semaphore->count == 0) {
      int rc = pthread_cond_timedwait(&semaphore->cond, &semaphore->mutex, &at);
      if (rc == ETIMEDOUT) break;
      if (rc != 0) {
        error = fromCode(rc, "pthread_cond_timedwait");
        break;
      }
    }
  }
  if (semaphore->count > 0) {
    --semaphore->count;
    acquired = true;
  }
  pthread_mutex_unlock(&semaphore->mutex);
  return error;
}

void semaphoreUnlink(char const* utf8Name) {
  if (utf8Name && *utf8Name) sem_unlink(posixName(utf8Name).c_str());
}

}  // namespace qo::platform
