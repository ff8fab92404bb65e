#pragma once

#include <pthread.h>

/// Clang's thread-safety attributes: `clang++ -Wthread-safety` refuses an access to a guarded
/// member without its mutex. Other compilers ignore them.
#if defined(__clang__)
#define KELVARA_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define KELVARA_THREAD_ATTRIBUTE(attribute)
#endif

#define KELVARA_CAPABILITY(name) KELVARA_THREAD_ATTRIBUTE(capability(name))
#define KELVARA_SCOPED_CAPABILITY KELVARA_THREAD_ATTRIBUTE(scoped_lockable)
#define KELVARA_GUARDED_BY(mutex) KELVARA_THREAD_ATTRIBUTE(guarded_by(mutex))
#define KELVARA_ACQUIRE(...) KELVARA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KELVARA_RELEASE(...) KELVARA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KELVARA_REQUIRES(...) KELVARA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KELVARA_EXCLUDES(...) KELVARA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

namespace kelvara::controller {

/// A mutex with the attributes for the analysis; locked through `MutexLock` alone. Its owner
/// inherits the priority of the highest thread that waits for it, where the system supports that.
class KELVARA_CAPABILITY("mutex") Mutex {
 public:
  Mutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    if (pthread_mutex_init(&mutex_, &attributes) != 0) {
      pthread_mutex_init(&mutex_, nullptr);
    }
    pthread_mutexattr_destroy(&attributes);
  }
  ~Mutex() { pthread_mutex_destroy(&mutex_); }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() KELVARA_ACQUIRE() { pthread_mutex_lock(&mutex_); }
  void unlock() KELVARA_RELEASE() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_{};
};

/// Holds a mutex for its own lifetime.
class KELVARA_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) KELVARA_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() KELVARA_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace kelvara::controller
