// Host log capture: every line that reaches one of the platform log sinks
// (the plug-in utility library's online and offline sinks, the debug
// library's interceptor and offline sink, Android's liblog) can be recorded
// in one process-wide store and read back by tests and tools.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kvhost {

enum class LogSink {
    Online,          // __UtilsLog_PintOnline
    Offline,         // __UtilsLog_PintOffline
    Android,         // __android_log_print and everything else written through liblog
    DebugIntercept,  // kvdebug::Log::catchLogEncryptLog
    DebugOffline,    // kvdebug::Log::logSystem
};

const char* sinkName(LogSink sink);

struct LogRecord {
    LogSink sink = LogSink::Online;
    // Online/Offline: the caller's level. Debug sinks: the level letter as an
    // Android priority (V 2, D 3, I 4, W 5, E 6, F 7, anything else 0).
    // Android: the priority.
    unsigned level = 0;
    unsigned group = 0;  // 0 for Android
    std::string tag;     // "" for the debug sinks, which take no tag
    std::string file;
    int line = 0;
    std::string func;    // DebugIntercept/DebugOffline only
    char letter = 0;     // DebugIntercept: level letter; DebugOffline: first char of level text
    std::string format;  // raw format string; "" for Android, which sees only the formatted text
    std::string text;    // the formatted message
    int priority = 0;    // Android only
};

// Records every line of every sink, process-wide, from construction until
// destruction.
//
// One store serves all captures. The first capture to start empties it; a
// capture made while another is alive shares it and sees the same records,
// including those from before it was made. Recording stops, and the store is
// emptied, when the last live capture is destroyed.
//
// While a capture is alive no line is echoed to stderr, and liblog's logger is
// replaced by one that records (with the minimum priority lowered to verbose,
// so debug and verbose lines are captured too); both are restored when the
// last capture ends.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // In arrival order.
    std::vector<LogRecord> records() const;
    std::vector<LogRecord> records(LogSink sink) const;
    std::vector<std::string> texts(LogSink sink) const;
    void clear();
};

// Number of lines the store holds now (0 while no capture is alive).
size_t retainedLogRecords();

// Echo of lines to stderr while no capture is alive. On by default; the
// environment variable KVHOST_LOG_ECHO=0 turns it off at load. Only the
// console-facing sinks echo: Online, and Android through liblog's stderr
// logger. Offline sinks and the interceptor write to files on a device and
// are never echoed (each primary line would otherwise print twice).
// While no capture is alive and echo is off, a line costs the sink a check of
// two flags: it is neither formatted nor copied, and liblog's minimum
// priority is raised so that liblog drops its lines before formatting them
// (the priority in force before is restored when echo or a capture returns).
void setLogEcho(bool on);
bool logEcho();

// Value returned by kvdebug::Log::catchLogEncryptLog (default 0, "leave the
// line for normal printing"); non-zero makes the interceptor take the line.
void setDebugInterceptResult(int result);
int debugInterceptResult();

}  // namespace kvhost
