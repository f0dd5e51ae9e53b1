#pragma once

// The log: lines for developers, on the standard error stream from notices up by default.
//
//     SWARNING << "no such child " << index << endLog;     stream form
//     FWARNING(("no such child %u\n", index));             print form
//
// Any thread may write; one line is composed in the thread's own buffer and leaves it whole.

#include "OSGBaseTypes.h"

#include <ostream>

#define OSG_LOG_MODULE "OpenSG"

OSG_BEGIN_NAMESPACE

enum LogLevel {
    LOG_LOG = 0,
    LOG_FATAL = 1,
    LOG_WARNING = 2,
    LOG_NOTICE = 3,
    LOG_INFO = 4,
    LOG_DEBUG = 5
};

enum LogType { LOG_NONE = 0, LOG_STDOUT = 1, LOG_STDERR = 2 };

/// A stream that can be pointed to another buffer.
class OSG_BASE_DLLMAPPING LogOStream : public std::ostream {
  public:
    explicit LogOStream(std::streambuf* buffer) : std::ostream(buffer) {}
    void setrdbuf(std::streambuf* buffer) { rdbuf(buffer); }
};

class OSG_BASE_DLLMAPPING Log {
  public:
    /// Lines of a level above this are dropped.
    void setLogLevel(LogLevel level, bool force = false);
    LogLevel getLogLevel() const;
    void setLogType(LogType type, bool force = false);
    LogType getLogType() const;
    bool checkLevel(LogLevel level) const { return level <= getLogLevel(); }
    bool checkModule(const Char8*) const { return true; }
    /// The calling thread's stream of this level; one that drops everything if the level is off.
    std::ostream& stream(LogLevel level);
    /// Puts a printf-style text behind what the calling thread has begun to write, and hands both
    /// on.
    void doLog(const Char8* format, ...) __attribute__((format(printf, 2, 3)));
};

OSG_BASE_DLLMAPPING void doInitLog();
OSG_BASE_DLLMAPPING Log& osgLog();
/// The stream to write one line to, with its head ("WARNING:  ") if asked for.
OSG_BASE_DLLMAPPING std::ostream& osgStartLog(bool header, LogLevel level, const Char8* module,
                                              const Char8* file, UInt32 line);
/// Ends the line and hands it on.
OSG_BASE_DLLMAPPING std::ostream& endLog(std::ostream& out);

OSG_END_NAMESPACE

#define OSG_LOG_LINE(HEADER, LEVEL)                                                                \
    ::osg::osgStartLog(HEADER, ::osg::LEVEL, OSG_LOG_MODULE, __FILE__, __LINE__)
#define SLOG OSG_LOG_LINE(true, LOG_LOG)
#define SFATAL OSG_LOG_LINE(true, LOG_FATAL)
#define SWARNING OSG_LOG_LINE(true, LOG_WARNING)
#define SNOTICE OSG_LOG_LINE(true, LOG_NOTICE)
#define SINFO OSG_LOG_LINE(true, LOG_INFO)
#define PLOG OSG_LOG_LINE(false, LOG_LOG)
#define PFATAL OSG_LOG_LINE(false, LOG_FATAL)
#define PWARNING OSG_LOG_LINE(false, LOG_WARNING)
#define PNOTICE OSG_LOG_LINE(false, LOG_NOTICE)
#define PINFO OSG_LOG_LINE(false, LOG_INFO)

#define OSG_LOG_PRINT(LEVEL, PARAMETERS)                                                           \
    do {                                                                                           \
        if (::osg::osgLog().checkLevel(::osg::LEVEL)) {                                            \
            OSG_LOG_LINE(true, LEVEL);                                                             \
            ::osg::osgLog().doLog PARAMETERS;                                                      \
        }                                                                                          \
    } while (false)
#define FLOG(PARAMETERS) OSG_LOG_PRINT(LOG_LOG, PARAMETERS)
#define FFATAL(PARAMETERS) OSG_LOG_PRINT(LOG_FATAL, PARAMETERS)
#define FWARNING(PARAMETERS) OSG_LOG_PRINT(LOG_WARNING, PARAMETERS)
#define FNOTICE(PARAMETERS) OSG_LOG_PRINT(LOG_NOTICE, PARAMETERS)
#define FINFO(PARAMETERS) OSG_LOG_PRINT(LOG_INFO, PARAMETERS)
