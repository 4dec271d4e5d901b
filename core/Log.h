// Log: the runtime's log dispatcher. Messages go only to registered
// listeners, one at a time under the dispatcher's mutex; with no listener a
// message is dropped (the command-line tool registers none). The dispatcher
// exists between coreInit and coreShutdown; outside that, logging does nothing.
#pragma once

#include "core/Array.h"
#include "core/Delegate.h"
#include "core/Mutex.h"
#include "core/String.h"

using LogListener = Delegate<void(const String& message)>;

class LogDispatcher {
public:
    bool addListener(const LogListener& listener);     // false when an equal one is there
    bool removeListener(const LogListener& listener);  // false when none matched
    void log(const String& message);

private:
    Mutex mutex;
    Array<LogListener> listeners;
};

// The process's dispatcher, or null outside coreInit/coreShutdown.
LogDispatcher* logDispatcher();

bool addLogListener(const LogListener& listener);
bool removeLogListener(const LogListener& listener);
void logMessage(const String& message);
void logf(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
