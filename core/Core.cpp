// Core: the runtime's process-wide singletons, in start-up order.
#include "core/Core.h"

#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/ClassInfo.h"
#include "core/FileStream.h"
#include "core/Heap.h"
#include "core/Log.h"
#include "core/Mutex.h"
#include "core/Object.h"

namespace {

struct CoreCounts {
    uint32_t physical = 0;
    uint32_t logical = 0;
};

struct ExecutableLocation {
    String exeDir;
    String baseDir;
};

struct NameTable {
    Mutex mutex;
    Array<String> names;
};

// Writes each message and a line break to the log file; no flush per line.
struct LogFile {
    FileStream stream;
    void write(const String& message) {
        const char* text = message.c_str();
        stream.writeAll(text, int32_t(std::strlen(text)));
        stream.writeAll("\n", 1);
    }
};

std::atomic<int32_t> initCount{0};
Mutex* globalLock = nullptr;
CoreCounts* coreCounts = nullptr;
ExecutableLocation* location = nullptr;
NameTable* nameTable = nullptr;
uint32_t currentCodePage = 1;
LogDispatcher* dispatcher = nullptr;
LogFile* logFile = nullptr;
ClassRegistry* registry = nullptr;

const String& emptyString() {
    static const String empty;
    return empty;
}

// A singleton that already exists (or is missing at shutdown) is fatal.
template <typename T>
void mustBeAbsent(T* singleton) {
    if (singleton)
        fatalExit(nullptr, 1);
}
template <typename T>
void mustBePresent(T* singleton) {
    if (!singleton)
        fatalExit(nullptr, 1);
}

void findExecutable() {
    char path[8192];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length > 0) {
        // The executable joined with ".." gives its folder with the slash kept.
        location->exeDir = joinPath(String(path, int32_t(length)), "..");
        location->baseDir = location->exeDir;
    }
}

void openLogFile(const char* logFileName) {
    logFile = new LogFile;
    String path = location->baseDir + logFileName;
    if (!logFile->stream.open(path, FileWrite | FileCreate | FileTruncate, 7)) {
        delete logFile;
        logFile = nullptr;
        return;
    }
    dispatcher->addListener(LogListener::fromMethod<&LogFile::write>(logFile));
}

}  // namespace

LogDispatcher* logDispatcher() { return dispatcher; }
ClassRegistry* classRegistry() { return registry; }

uint32_t codePageForLocale(const char* localeName) {
    if (localeName && std::strstr(localeName, ".1250"))
        return 5;
    if (localeName && std::strstr(localeName, ".1252"))
        return 4;
    return 1;
}

void coreInit(const char* logFileName) {
    if (initCount.fetch_add(1, std::memory_order_acq_rel) + 1 != 1)
        return;
    mustBeAbsent(globalLock);
    globalLock = new Mutex;
    attachHeap();

    mustBeAbsent(coreCounts);
    coreCounts = new CoreCounts;
    long processors = sysconf(_SC_NPROCESSORS_ONLN);
    coreCounts->physical = coreCounts->logical = processors > 0 ? uint32_t(processors) : 0;

    mustBeAbsent(location);
    location = new ExecutableLocation;
    findExecutable();

    mustBeAbsent(nameTable);
    nameTable = new NameTable;

    currentCodePage = codePageForLocale(std::setlocale(LC_ALL, nullptr));

    mustBeAbsent(dispatcher);
    dispatcher = new LogDispatcher;
    if (logFileName)
        openLogFile(logFileName);

    mustBeAbsent(registry);
    registry = new ClassRegistry;
    for (ClassStartup startup : builtInClassStartups)
        startup(1);

    logMessage("Core initialized");
    if (coreCounts->physical)
        logf("Number of physical cores: %d", int(coreCounts->physical));
    if (coreCounts->logical)
        logf("Number of logical cores: %d", int(coreCounts->logical));
}

void coreShutdown() {
    if (initCount.fetch_sub(1, std::memory_order_acq_rel) - 1 != 0)
        return;
    logMessage("shutting down Core");
    for (int i = 3; i >= 0; --i)
        builtInClassStartups[i](0);

    mustBePresent(registry);
    delete registry;
    registry = nullptr;

    if (Object::liveObjects() != 0)
        fatalExit("Object heap contains live blocks!", 1);

    if (logFile) {
        dispatcher->removeListener(LogListener::fromMethod<&LogFile::write>(logFile));
        delete logFile;
        logFile = nullptr;
    }
    mustBePresent(dispatcher);
    delete dispatcher;
    dispatcher = nullptr;

    mustBePresent(nameTable);
    delete nameTable;
    nameTable = nullptr;

    mustBePresent(location);
    delete location;
    location = nullptr;
    delete coreCounts;
    coreCounts = nullptr;

    // The heap stays attached: later allocations and releases still use it.
    mustBePresent(globalLock);
    delete globalLock;
    globalLock = nullptr;
}

void fatalExit(const char* message, int status) {
    if (message)
        logMessage(message);
    std::exit(status);
}

void assertFailed(const char* expression, const char* file, int line, int status) {
    char buffer[4096];
    std::snprintf(buffer, sizeof buffer, "Assertion failed: %s at line %d in file %s", expression, line, file);
    fatalExit(buffer, status);
}

uint32_t physicalCores() { return coreCounts ? coreCounts->physical : 0; }
uint32_t logicalCores() { return coreCounts ? coreCounts->logical : 0; }
const String& exeDir() { return location ? location->exeDir : emptyString(); }
const String& baseDir() { return location ? location->baseDir : emptyString(); }
uint32_t codePage() { return currentCodePage; }
