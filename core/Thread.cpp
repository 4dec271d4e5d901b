// Thread: runs a delegate on a POSIX thread of its own.
#include "core/Thread.h"

#include <sched.h>

Thread::~Thread() { stop(); }

void* Thread::entry(void* self) {
    static_cast<Thread*>(self)->run();
    return nullptr;
}

bool Thread::start() {
    if (running)
        return false;
    pthread_create(&handle, nullptr, &entry, this);
    running = true;
    return true;
}

void Thread::run() { runDelegate(this); }

void Thread::stop() {
    if (!running)
        return;
    requestStop();
    stopping.store(true, std::memory_order_release);
    if (pthread_join(handle, nullptr) != 0) {
        // Joining fails when a thread stops itself: cancel it outright.
        int previousType;
        pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &previousType);
        pthread_cancel(handle);
        pthread_setcanceltype(previousType, nullptr);
    }
    running = false;
    stopping.store(false, std::memory_order_release);
}

void Thread::stopAndDestroy() {
    destroying = true;
    stop();
    delete this;
}

bool Thread::setPriority(int32_t priority) {
    sched_param parameters{};
    parameters.sched_priority = -priority;
    if (running)
        pthread_setschedparam(handle, SCHED_OTHER, &parameters);
    return true;
}
