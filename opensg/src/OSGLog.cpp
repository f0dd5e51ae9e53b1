#include "OpenSG/OSGLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <sstream>

OSG_BEGIN_NAMESPACE

namespace {

std::atomic<int> level{LOG_WARNING};
std::atomic<int> type{LOG_STDERR};

std::mutex& outputMutex() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

void write(const std::string& text) {
    if (type == LOG_NONE)
        return;
    const std::lock_guard<std::mutex> guard(outputMutex());
    (type == LOG_STDOUT ? std::cout : std::cerr) << text << std::flush;
}

/// Collects a thread's text; a flush hands it on.
class line_buffer : public std::stringbuf {
  protected:
    int sync() override {
        write(str());
        str(std::string());
        return 0;
    }
};

class null_buffer : public std::streambuf {
  protected:
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

std::ostream& lineStream() {
    thread_local line_buffer buffer;
    thread_local LogOStream stream(&buffer);
    return stream;
}

std::ostream& nullStream() {
    thread_local null_buffer buffer;
    thread_local LogOStream stream(&buffer);
    return stream;
}

const Char8* nameOf(LogLevel which) {
    static const Char8* const names[] = {"LOG", "FATAL", "WARNING", "NOTICE", "INFO", "DEBUG"};
    return names[which];
}

} // namespace

void Log::setLogLevel(LogLevel which, bool) { level = which; }
LogLevel Log::getLogLevel() const { return static_cast<LogLevel>(level.load()); }
void Log::setLogType(LogType which, bool) { type = which; }
LogType Log::getLogType() const { return static_cast<LogType>(type.load()); }

std::ostream& Log::stream(LogLevel which) {
    return checkLevel(which) ? lineStream() : nullStream();
}

void Log::doLog(const Char8* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Char8 text[4096];
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): missed by it behind another file's check
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    lineStream() << text << std::flush;
}

void doInitLog() { osgLog(); }

Log& osgLog() {
    static Log& log = *new Log;
    return log;
}

std::ostream& osgStartLog(bool header, LogLevel which, const Char8*, const Char8*, UInt32) {
    std::ostream& out = osgLog().stream(which);
    if (header)
        out << nameOf(which) << ":  ";
    return out;
}

std::ostream& endLog(std::ostream& out) { return out << '\n' << std::flush; }

OSG_END_NAMESPACE
