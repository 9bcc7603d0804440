// The process-wide log store behind kvhost::LogCapture, shared by every host
// sink. Lives in the plug-in utility stand-in; the debug stand-in reaches it
// through LogStore.h.
#include <android/log.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "LogStore.h"

namespace kvhost {
namespace {

bool echoFromEnvironment() {
    const char* value = std::getenv("KVHOST_LOG_ECHO");
    return value == nullptr || std::strcmp(value, "0") != 0;
}

struct Store {
    // Start and end of captures and echo switches, which also swap liblog's
    // logger and minimum priority. Never held by a sink, so a sink called
    // under liblog's own lock cannot deadlock against a capture that is
    // starting.
    std::mutex activationMutex;
    // liblog's minimum priority as it was before the store first changed it,
    // and whether the store's own value is in place.
    int savedMinPriority = ANDROID_LOG_DEFAULT;
    bool priorityTaken = false;

    // The records and the number of live captures. Captures change `active`
    // holding both mutexes; it is atomic so that a sink can see that nobody
    // listens without taking a lock.
    std::mutex recordsMutex;
    std::atomic<int> active{0};
    std::vector<LogRecord> records;

    std::atomic<bool> echo{echoFromEnvironment()};
    std::atomic<int> interceptResult{0};
};

Store& store() {
    // Never destroyed: sinks may still be called from static destructors of
    // other libraries after this one's would have run.
    static Store* const instance = new Store;
    return *instance;
}

bool consoleFacing(LogSink sink) {
    return sink == LogSink::Online || sink == LogSink::Android;
}

void echoLine(const LogRecord& r) {
    const char* newline = (!r.text.empty() && r.text.back() == '\n') ? "" : "\n";
    std::fprintf(stderr, "%s %s L%u: %s%s", r.tag.c_str(), sinkName(r.sink), r.level,
                 r.text.c_str(), newline);
}

void silentLogger(const __android_logger_data*, const char*) {}

// liblog's logger while a capture is alive.
void captureLogger(const __android_logger_data* data, const char* message) {
    try {
        LogRecord r;
        r.sink = LogSink::Android;
        r.priority = data != nullptr ? data->priority : 0;
        r.level = r.priority > 0 ? static_cast<unsigned>(r.priority) : 0u;
        if (data != nullptr && data->tag != nullptr) r.tag = data->tag;
        if (data != nullptr && data->file != nullptr) {
            r.file = data->file;
            r.line = static_cast<int>(data->line);
        }
        r.text = message != nullptr ? message : "";
        Store& s = store();
        {
            std::lock_guard<std::mutex> lock(s.recordsMutex);
            if (s.active > 0) {
                s.records.push_back(std::move(r));
                return;
            }
        }
        // The last capture ended while this line was on its way.
        if (s.echo.load()) __android_log_stderr_logger(data, message);
    } catch (...) {
        // Out of memory: the line is lost, liblog's caller is not disturbed.
    }
}

// Sets liblog's minimum priority, keeping the value it had before the
// first change. Under activationMutex.
void takeMinPriority(Store& s, int priority) {
    const int previous = __android_log_set_minimum_priority(priority);
    if (!s.priorityTaken) {
        s.savedMinPriority = previous;
        s.priorityTaken = true;
    }
}

// liblog's logger while no capture is alive. Without echo the minimum
// priority is raised above every line, so liblog drops a line before it
// formats it. Under activationMutex.
void installIdleLogger(Store& s, bool echo) {
    __android_log_set_logger(echo ? __android_log_stderr_logger : silentLogger);
    if (!echo) {
        takeMinPriority(s, ANDROID_LOG_SILENT);
    } else if (s.priorityTaken) {
        __android_log_set_minimum_priority(s.savedMinPriority);
        s.priorityTaken = false;
    }
}

// With echo off from the environment, liblog must be silenced before any
// line is written, not only when a capture first ends.
[[maybe_unused]] const bool kIdleLoggerInstalled = [] {
    Store& s = store();
    std::lock_guard<std::mutex> activation(s.activationMutex);
    if (!s.echo.load()) installIdleLogger(s, false);
    return true;
}();

}  // namespace

const char* sinkName(LogSink sink) {
    switch (sink) {
        case LogSink::Online:
            return "online";
        case LogSink::Offline:
            return "offline";
        case LogSink::Android:
            return "android";
        case LogSink::DebugIntercept:
            return "debug-intercept";
        case LogSink::DebugOffline:
            return "debug-offline";
    }
    return "unknown";
}

namespace detail {

std::string formatV(const char* fmt, va_list args) {
    if (fmt == nullptr) return {};
    char small[512];
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(small, sizeof(small), fmt, copy);
    va_end(copy);
    if (length < 0) return {};
    if (static_cast<size_t>(length) < sizeof(small)) return std::string(small, length);
    std::string text(static_cast<size_t>(length), '\0');
    va_copy(copy, args);
    std::vsnprintf(text.data(), text.size() + 1, fmt, copy);
    va_end(copy);
    return text;
}

bool wants(LogSink sink) {
    const Store& s = store();
    return s.active.load(std::memory_order_relaxed) > 0 ||
           (consoleFacing(sink) && s.echo.load(std::memory_order_relaxed));
}

void deliver(LogRecord&& record) {
    try {
        Store& s = store();
        {
            std::lock_guard<std::mutex> lock(s.recordsMutex);
            if (s.active > 0) {
                s.records.push_back(std::move(record));
                return;
            }
        }
        if (s.echo.load() && consoleFacing(record.sink)) echoLine(record);
    } catch (...) {
        // Out of memory: the line is lost, the caller is not disturbed.
    }
}

unsigned letterLevel(char letter) {
    switch (letter) {
        case 'V':
            return ANDROID_LOG_VERBOSE;
        case 'D':
            return ANDROID_LOG_DEBUG;
        case 'I':
            return ANDROID_LOG_INFO;
        case 'W':
            return ANDROID_LOG_WARN;
        case 'E':
            return ANDROID_LOG_ERROR;
        case 'F':
            return ANDROID_LOG_FATAL;
        default:
            return 0;
    }
}

const char* baseName(const char* path) {
    if (path == nullptr) return "";
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace detail

LogCapture::LogCapture() {
    Store& s = store();
    std::lock_guard<std::mutex> activation(s.activationMutex);
    bool first = false;
    {
        std::lock_guard<std::mutex> lock(s.recordsMutex);
        first = s.active == 0;
        if (first) s.records.clear();
        ++s.active;
    }
    if (first) {
        // Host liblog drops lines below info by default; a capture wants all.
        takeMinPriority(s, ANDROID_LOG_VERBOSE);
        __android_log_set_logger(captureLogger);
    }
}

LogCapture::~LogCapture() {
    Store& s = store();
    std::lock_guard<std::mutex> activation(s.activationMutex);
    bool last = false;
    {
        std::lock_guard<std::mutex> lock(s.recordsMutex);
        last = s.active == 1;
    }
    if (last) installIdleLogger(s, s.echo.load());
    std::lock_guard<std::mutex> lock(s.recordsMutex);
    --s.active;
    if (s.active == 0) {
        s.records.clear();
        s.records.shrink_to_fit();
    }
}

std::vector<LogRecord> LogCapture::records() const {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.recordsMutex);
    return s.records;
}

std::vector<LogRecord> LogCapture::records(LogSink sink) const {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.recordsMutex);
    std::vector<LogRecord> out;
    for (const LogRecord& r : s.records) {
        if (r.sink == sink) out.push_back(r);
    }
    return out;
}

std::vector<std::string> LogCapture::texts(LogSink sink) const {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.recordsMutex);
    std::vector<std::string> out;
    for (const LogRecord& r : s.records) {
        if (r.sink == sink) out.push_back(r.text);
    }
    return out;
}

void LogCapture::clear() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.recordsMutex);
    s.records.clear();
}

size_t retainedLogRecords() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.recordsMutex);
    return s.records.size();
}

void setLogEcho(bool on) {
    Store& s = store();
    std::lock_guard<std::mutex> activation(s.activationMutex);
    s.echo.store(on);
    bool idle = false;
    {
        std::lock_guard<std::mutex> lock(s.recordsMutex);
        idle = s.active == 0;
    }
    if (idle) installIdleLogger(s, on);
}

bool logEcho() {
    return store().echo.load();
}

void setDebugInterceptResult(int result) {
    store().interceptResult.store(result);
}

int debugInterceptResult() {
    return store().interceptResult.load();
}

}  // namespace kvhost
