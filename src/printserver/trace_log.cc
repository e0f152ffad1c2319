// The trace logs: level-filtered lines with the thread-and-time prefix, the API log, size-driven
// switching of the main log (old logs beyond MaxLogFiles deleted), run-time option changes and
// moving trace files aside.
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "base/clock.h"
#include "base/fileops.h"
#include "base/syserror.h"
#include "printserver/process_locks.h"
#include "printserver/rotated_logs.h"
#include "printserver/service_events.h"
#include "printserver/zelprsrv.h"

namespace vx {

void FormatTracePrefix(char* out, size_t cap) {
    char date[32];
    char time[32];
    FormatLocalDate('.', date, sizeof date);
    FormatLocalTime(':', time, sizeof time);
    FormatText(out, cap, "Th %5.5d: (%s %s) ", static_cast<int>(CurrentThreadId()), date, time);
}

namespace {

// "<path>.dd_MM_yyyy_hh_mm_ss": where a trace file is moved aside.
void FormatStampedPath(const char* path, char* out, size_t cap) {
    char stamp[48];
    FormatFileStamp(stamp, sizeof stamp);
    FormatText(out, cap, "%s.%s", path, stamp);
}

// How a switch opens the main log. The commit letter "c" makes every flush a commit to disk where
// the C library honours it (Windows); glibc ignores it, and there a line outlives the process
// once its write has reached the system.
constexpr const char* kNewLogMode = "w+c";
constexpr const char* kKeptLogMode = "a+c";

// A whole trace line: the prefix and the text (the line and error buffers hold no more than
// kTraceLineSize and a little), formatted once.
class TraceLine {
  public:
    explicit TraceLine(const char* text) : text_(text) {
        FormatTracePrefix(prefix_, sizeof prefix_);
        length_ = CopyText(line_, prefix_);
        length_ += CopyText(line_ + length_, sizeof line_ - length_, text);
    }
    const char* Prefix() const { return prefix_; }
    const char* Text() const { return text_; }
    // Into the stream with one system call: every line is flushed, so the stream's buffer is
    // empty before, takes the line whole (it is shorter than any buffer the C library gives a
    // stream) and hands it to the system in one write at the flush. A process that dies later
    // loses none of it and never leaves half of it; nothing waits for the disk.
    void WriteTo(FILE* stream) const {
        fwrite(line_, 1, length_, stream);
        fflush(stream);
    }

  private:
    const char* text_;
    char prefix_[96];
    char line_[sizeof prefix_ + 2 * kTraceLineSize];
    size_t length_ = 0;
};

}  // namespace

void Czelprsrv::Trace(int level, const char* fmt, ...) {
    if (!TraceOn(level)) return;
    va_list args;
    va_start(args, fmt);
    TraceV(level, fmt, args);
    va_end(args);
}

void Czelprsrv::TraceV(int level, const char* fmt, va_list args) {
    if (!TraceOn(level)) return;
    LockHold hold(traceLock_);
    FormatTextV(line_, sizeof line_, fmt, args);
    WriteTrace(level, line_);
}

void Czelprsrv::TraceError(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    TraceErrorV(fmt, args);
    va_end(args);
}

void Czelprsrv::TraceErrorV(const char* fmt, va_list args) {
    if (!TraceOn(kTraceError)) return;
    LockHold hold(traceLock_);
    static constexpr size_t kPrefixLength = 7;  // "Error: "
    CopyText(error_, "Error: ");
    FormatTextV(error_ + kPrefixLength, sizeof error_ - kPrefixLength, fmt, args);
    WriteTrace(kTraceError, error_);
}

void Czelprsrv::TraceApi(const char* fmt, ...) {
    if (apiLog_ == nullptr) return;
    LockHold hold(traceLock_);
    va_list args;
    va_start(args, fmt);
    FormatTextV(line_, sizeof line_, fmt, args);
    va_end(args);
    WriteApiTrace(line_);
}

void Czelprsrv::EchoToConsole(const char* prefix, const char* text) {
    fputs(prefix, stdout);
    fputs(text, stdout);
    fflush(stdout);
}

void Czelprsrv::WriteTrace(int level, const char* text) {
    if (mainLog_ != nullptr) {
        TraceLine line(text);
        if (TraceOn(level)) {
            line.WriteTo(mainLog_);
            if (runMode_ == kRunModeConsole) EchoToConsole(line.Prefix(), line.Text());
        }
        // A console run shows every error line twice: once as a trace line, once as an error.
        if (level < 0 && runMode_ == kRunModeConsole) EchoToConsole(line.Prefix(), line.Text());
    }
    ++linesWritten_;
    // Lines written while switching (the rename notice, the environment report) never switch again.
    if (switching_ || runMode_ == kRunModeConsole || maxLogFileSize_ == 0) return;
    if (linesWritten_ > static_cast<uint32_t>(maxLogFileSize_) / 100u) {
        int64_t length = FsSize(mainLogPath_);
        if (mainLog_ != nullptr && length > maxLogFileSize_) SwitchLogFile();
    }
}

void Czelprsrv::WriteApiTrace(const char* text) {
    if (apiLog_ == nullptr) return;
    TraceLine(text).WriteTo(apiLog_);
}

void Czelprsrv::OpenLogFile(const char* baseName, const char* suffix, const char* extension,
                            char* path, FILE** stream, bool switchAtOpen) {
    char dir[kRegistryTextSize] = {};
    if (runMode_ == kRunModeService) {
        const char* unset = BuiltInText("LogPath");
        GetGlobalString("LogPath", unset, dir, sizeof dir);
        if (strcmp(dir, unset) == 0 || dir[0] == '\0')
            CopyText(dir, logDir_);
        else
            AppendSeparator(dir, sizeof dir);
    } else {
        CopyText(dir, logDir_);
    }
    const char* sfx = suffix != nullptr ? suffix : "";
    FormatText(path, kMaxPath, "%s%s%s%s", dir, baseName, sfx, extension);

    if (switchAtOpen && stream == &mainLog_) {
        SwitchLogFile();
        return;
    }
    *stream = FsOpenStream(path, runMode_ == kRunModeTool ? "w" : "a");
    if (*stream == nullptr) {
        // The configured directory is not writable: fall back to the working directory.
        FormatText(path, kMaxPath, ".%c%s%s%s", kPathSeparator, baseName, sfx, extension);
        *stream = FsOpenStream(path, "a");
    }
}

void Czelprsrv::SwitchLogFile() {
    LockHold hold(traceLock_);
    switching_ = true;
    FormatStampedPath(mainLogPath_, switchTarget_, sizeof switchTarget_);
    if (mainLog_ != nullptr) fclose(mainLog_);
    mainLog_ = nullptr;

    if (!FsExists(mainLogPath_)) {
        mainLog_ = FsOpenStream(mainLogPath_, kNewLogMode);
    } else if (noLogFileSwitch_ != 0) {
        FsRemove(mainLogPath_);
        mainLog_ = FsOpenStream(mainLogPath_, kNewLogMode);
    } else if (FsRename(mainLogPath_, switchTarget_) != 0) {
        mainLog_ = FsOpenStream(mainLogPath_, kKeptLogMode);
        Trace(kTraceNotable, "Rename from %s to %s is not possible.\n", mainLogPath_,
              switchTarget_);
    } else {
        mainLog_ = FsOpenStream(mainLogPath_, kNewLogMode);
        Trace(kTraceDetail, "Rename from %s to %s successful.\n", mainLogPath_, switchTarget_);
    }
    WriteEnvironmentReport(1);
    PruneRotatedLogs(mainLogPath_, maxLogFiles_);
    switching_ = false;
}

void Czelprsrv::ChangeTraceOption(const char* name, const char* value) {
    if (name == nullptr || value == nullptr) return;
    int32_t v = ParseDecimalInt(value);
    struct Field {
        const char* name;
        int32_t* field;
    };
    const Field fields[] = {
        {"LogLevel", &logLevel_},
        {"WinAPILog", &winApiLog_},
        {"MemoryLog", &memoryLog_},
        {"PDFPacketSize", &pdfPacketSize_},
        {"NoLogFileSwitch", &noLogFileSwitch_},
        {"MaxLogFileSize", &maxLogFileSize_},
        {"MaxLogFiles", &maxLogFiles_},
        {"NoPrinterLogging", &noPrinterLogging_},
        {"PDFasRAW", &pdfAsRaw_},
    };
    for (const Field& f : fields) {
        if (strcmp(name, f.name) != 0 || *f.field == v) continue;
        Trace(kTraceNormal, "Option %s will be changed to value %i\n", name, v);
        *f.field = v;
    }
    if (strcmp(name, "KeepFile") == 0) deleteLogsAtEnd_ = v == 0;
    IntCacheRemove(name);
    IntCacheInsert(name, v);
}

void Czelprsrv::RenameWithTimeStamp(const char* path) {
    if (path == nullptr) return;
    LockHold fileHold(ProcessFileLock());
    if (!FsExists(path)) return;
    char target[kMaxPath];
    FormatStampedPath(path, target, sizeof target);
    if (FsRename(path, target) != 0)
        Trace(kTraceNotable, "Rename from %s to %s probably already done.\n", path, target);
    else
        Trace(kTraceNotable, "Rename from %s to %s successful.\n", path, target);
}

void Czelprsrv::ReportLastError(const char* function, int eventType) {
    uint32_t code = LastSystemError();
    char text[kTraceLineSize];
    bool found = SystemErrorText(code, text, sizeof text) == 0;
    if (found)
        TraceError("%s failed: %s\n", function, text);
    else
        TraceError("FormatMessage for %s failed: %s\n", function, text);
    if (found && runMode_ == kRunModeService) {
        ReportServiceEvent(eventType == kEventError ? kEventError : kEventWarning, kEventIdApiError,
                           function, text);
    }
}

void Trace(int level, const char* fmt, ...) {
    Czelprsrv* p = g_prsrv;
    if (p == nullptr || !p->TraceOn(level)) return;
    va_list args;
    va_start(args, fmt);
    p->TraceV(level, fmt, args);
    va_end(args);
}

void TraceError(const char* fmt, ...) {
    Czelprsrv* p = g_prsrv;
    if (p == nullptr) return;
    va_list args;
    va_start(args, fmt);
    p->TraceErrorV(fmt, args);
    va_end(args);
}

}  // namespace vx
