// Log: dispatching runtime messages to listeners.
#include "core/Log.h"

#include <cstdarg>
#include <cstdio>

bool LogDispatcher::addListener(const LogListener& listener) {
    ScopedLock lock(mutex);
    for (const LogListener& existing : listeners)
        if (existing == listener)
            return false;
    return listeners.add(listener);
}

bool LogDispatcher::removeListener(const LogListener& listener) {
    ScopedLock lock(mutex);
    for (int32_t i = 0; i < listeners.count(); ++i) {
        if (listeners[i] == listener) {
            listeners.removeAt(i);
            return true;
        }
    }
    return false;
}

void LogDispatcher::log(const String& message) {
    ScopedLock lock(mutex);
    for (const LogListener& listener : listeners) {
        String copy(message);
        listener(copy);
    }
}

bool addLogListener(const LogListener& listener) {
    LogDispatcher* dispatcher = logDispatcher();
    return dispatcher && dispatcher->addListener(listener);
}

bool removeLogListener(const LogListener& listener) {
    LogDispatcher* dispatcher = logDispatcher();
    return dispatcher && dispatcher->removeListener(listener);
}

void logMessage(const String& message) {
    if (LogDispatcher* dispatcher = logDispatcher())
        dispatcher->log(message);
}

void logf(const char* pattern, ...) {
    char buffer[16000];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(buffer, sizeof buffer, pattern, args);
    va_end(args);
    logMessage(buffer);
}
