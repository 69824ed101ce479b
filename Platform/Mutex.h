// Locks whose use clang checks at compile time: a field says which mutex guards it, a function
// which mutex it needs held. With `-Wthread-safety`, as this project is compiled, clang warns of a
// breach; other compilers see a plain mutex. It does not check constructors, destructors and catch
// handlers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// An attribute of clang's analysis; nothing for other compilers.
#if defined(__clang__)
#define WAKELATCH_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define WAKELATCH_THREAD_SAFETY(attribute)
#endif

/// Of a field: read and written only while `mutex` is held.
#define WAKELATCH_GUARDED_BY(mutex) WAKELATCH_THREAD_SAFETY(guarded_by(mutex))
/// Of a function: to be called only while `mutex` is held.
#define WAKELATCH_REQUIRES(mutex) WAKELATCH_THREAD_SAFETY(requires_capability(mutex))

#pragma GCC visibility push(default)
namespace wakelatch::platform {

/// Held by a MutexLock and no other way.
class WAKELATCH_THREAD_SAFETY(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

/// Holds a mutex for as long as it lives.
class WAKELATCH_THREAD_SAFETY(scoped_lockable) MutexLock {
 public:
  /// Waits until no other thread holds the mutex; this one must not hold it already.
  explicit MutexLock(Mutex& mutex) WAKELATCH_THREAD_SAFETY(acquire_capability(mutex))
      : lock_(mutex.mutex_) {}
  ~MutexLock() WAKELATCH_THREAD_SAFETY(release_capability()) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

/// What a thread waits for while it lets go of a lock. A wait may end early for no reason: ask
/// again in a loop, in which clang sees that the lock is held.
class Condition {
 public:
  /// Waits until somebody notifies; releases `lock` meanwhile.
  void wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  /// As wait(), at most until `deadline`; false when that has passed.
  bool waitUntil(MutexLock& lock, std::chrono::steady_clock::time_point deadline) {
    return condition_.wait_until(lock.lock_, deadline) == std::cv_status::no_timeout;
  }
  /// Ends the wait of one thread, if any waits.
  void notifyOne() { condition_.notify_one(); }
  /// Ends the wait of every thread that waits.
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace wakelatch::platform
#pragma GCC visibility pop
