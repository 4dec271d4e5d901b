// Mutex: an optional heap-allocated POSIX mutex with default attributes,
// and ScopedLock, which takes it for the length of a scope.
#pragma once

#include <pthread.h>

class Mutex {
public:
    Mutex() : handle(new pthread_mutex_t) { pthread_mutex_init(handle, nullptr); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    ~Mutex() {
        pthread_mutex_destroy(handle);
        delete handle;
    }

    void lock() { pthread_mutex_lock(handle); }
    void unlock() { pthread_mutex_unlock(handle); }
    pthread_mutex_t* native() { return handle; }

private:
    pthread_mutex_t* handle;
};

class ScopedLock {
public:
    explicit ScopedLock(Mutex& m) : mutex(m) { mutex.lock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    ~ScopedLock() { mutex.unlock(); }

private:
    Mutex& mutex;
};
