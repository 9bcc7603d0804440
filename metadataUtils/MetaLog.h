// The library's two log conventions, each one helper called in one line.
//
// KV_LOG(level, fmt, ...): the primary convention. One statement sends the
// line to the online sink and then to the offline sink of the plug-in
// utility library, group 64, with "[file][function()]:[line] " in front of
// the message, where file, function and line are those of the statement.
//
// KV_DLOG_I(fmt, ...): the secondary convention at information level,
// through the debug library's gates, its interceptor, Android's log and the
// debug library's offline sink.
//
// Shared helpers that log on behalf of a caller (the tag getter skeleton)
// take a LogSite made by KV_HERE at the call, so the line names the caller.
#pragma once

#include "KvDebug.h"
#include "UtilsLog.h"

namespace kvalgo2 {
namespace log {

struct LogSite {
    const char* path;  // source path as the build gives it
    const char* func;  // bare function name ("operator()" inside a lambda)
    unsigned line;
};

// Primary convention with a site given explicitly. `fmt` already carries the
// "[%s][%s()]:[%d] " prefix; its first three arguments are file, function
// and line.
template <typename... Args>
inline void Write(const LogSite& at, unsigned level, const char* fmt, Args... args) {
    constexpr unsigned kGroup = 64;
    UtilsSettings* settings = UtilsSettings_getter();
    __UtilsLog_PintOnline(level, kGroup, settings->logTag, __UtilsLog_NoDirFileName(at.path),
                          at.line, fmt, __UtilsLog_NoDirFileName(at.path), at.func, at.line,
                          args...);
    settings = UtilsSettings_getter();
    __UtilsLog_PintOffline(level, kGroup, settings->logTag, __UtilsLog_NoDirFileName(at.path),
                           at.line, fmt, __UtilsLog_NoDirFileName(at.path), at.func, at.line,
                           args...);
}

// Secondary convention at level "I" (numeric 4), group 2. `bare` is the
// message without prefix, `console` is "%s %s:%d %s()" followed by it.
template <typename... Args>
inline void WriteDebugInfo(const LogSite& at, const char* bare, const char* console, Args... args) {
    constexpr unsigned kGroup = 2;
    constexpr uint32_t kLevel = 4;
    constexpr int kAndroidInfo = 4;
    if (kvdebug::gKvCamLogLevel <= kLevel && (kvdebug::gKvCamLogGroup & 0xFF & kGroup) != 0) {
        const char* file = kvdebug::Log::getFileName(at.path);
        if (kvdebug::Log::catchLogEncryptLog(kGroup, file, static_cast<int>(at.line), at.func, 'I',
                                             bare, args...) == 0) {
            __android_log_print(kAndroidInfo, UtilsSettings_getter()->logTag, console,
                                kvdebug::Log::kvaGroupToString(kGroup),
                                kvdebug::Log::getFileName(at.path), static_cast<int>(at.line),
                                at.func, args...);
        }
    }
    if (kvdebug::gKvCamOfflineLogLevel <= kLevel &&
        (kvdebug::gKvCamOfflineLogGroup & 0xFF & kGroup) != 0 && kvdebug::gKvCamDebugMask != 0) {
        kvdebug::Log::logSystem(kGroup, "I", kvdebug::Log::getFileName(at.path), at.func,
                                static_cast<int>(at.line), bare, args...);
    }
}

// Compile-time check of a message against its arguments; never called.
__attribute__((format(printf, 1, 2))) inline void CheckFormat(const char*, ...) {}

}  // namespace log
}  // namespace kvalgo2

#define KV_LOG_PREFIX "[%s][%s()]:[%d] "
#define KV_HERE (::kvalgo2::log::LogSite{__FILE__, __func__, __LINE__})

#define KV_LOG(level, fmt, ...)                                                              \
    do {                                                                                     \
        if (false) ::kvalgo2::log::CheckFormat(KV_LOG_PREFIX fmt, "", "", 0, ##__VA_ARGS__); \
        ::kvalgo2::log::Write(KV_HERE, level, KV_LOG_PREFIX fmt, ##__VA_ARGS__);             \
    } while (0)

#define KV_DLOG_I(fmt, ...)                                                               \
    do {                                                                                  \
        if (false) ::kvalgo2::log::CheckFormat(fmt, ##__VA_ARGS__);                       \
        ::kvalgo2::log::WriteDebugInfo(KV_HERE, fmt, "%s %s:%d %s()" fmt, ##__VA_ARGS__); \
    } while (0)
