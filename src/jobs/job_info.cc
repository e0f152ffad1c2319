#include "jobs/job_info.h"

#include <cstring>

#include "base/fileops.h"
#include "base/text.h"
#include "config/option_globals.h"
#include "printlib/zelwin.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr char kZelwinMarker[] = "\x1b%ZELWIN";
constexpr char kPdfMarker[] = "%PDF";
constexpr size_t kMaxTitle = 100;

// Finds the UTF-16LE form of an ASCII text anywhere in the bytes read (NULs included).
bool ContainsUtf16(const char* data, size_t size, const char* ascii) {
    size_t n = strlen(ascii);
    if (size < 2 * n) return false;
    for (size_t at = 0; at + 2 * n <= size; ++at) {
        size_t i = 0;
        while (i < n && data[at + 2 * i] == ascii[i] && data[at + 2 * i + 1] == '\0') ++i;
        if (i == n) return true;
    }
    return false;
}

struct Detection {
    int32_t streamType;
    int32_t wideData;
};

// The single-byte searches stop at the first NUL of the buffer (it is terminated after the bytes
// read); the UTF-16 ones look at every byte read.
Detection DetectStream(const char* data, size_t size) {
    Detection d{ZEL_STREAM_RAW, 0};
    bool marker = strstr(data, kZelwinMarker) != nullptr;
    if (!marker && ContainsUtf16(data, size, kZelwinMarker)) {
        marker = true;
        d.wideData = 1;
    }
    bool pdf = strstr(data, kPdfMarker) != nullptr;
    if (!pdf && ContainsUtf16(data, size, kPdfMarker)) {
        pdf = true;
        d.wideData = 1;
    }
    // "XTG" only counts as the very first bytes of the file.
    if (!pdf) pdf = strncmp(data, "XTG", 3) == 0;
    if (marker)
        d.streamType = ZEL_STREAM_ZELWIN;
    else if (pdf)
        d.streamType = ZEL_STREAM_PDF;
    return d;
}

void TraceDetection(int32_t streamType, const char* jobId, const char* fileName) {
    const char* kind = streamType == ZEL_STREAM_ZELWIN ? "ZELWIN"
                       : streamType == ZEL_STREAM_PDF  ? "PDF"
                                                       : "RAW";
    Trace(kTraceDetail, "%s datastream detected for job %s\n", kind, jobId);
    Trace(kTraceDetail, "File name = %s\n", fileName);
}

// Cuts trailing blanks, but a title of blanks only keeps its first blank.
void CutTrailingBlanks(char* title) {
    size_t len = strlen(title);
    if (len == 0) return;
    size_t pos = len - 1;
    while (pos > 0 && title[pos] == ' ' && title[pos - 1] == ' ') title[pos--] = '\0';
    if (pos > 0 && title[pos] == ' ') title[pos] = '\0';
}

EventHandle MakeJobEvent(const char* jobId) {
    EventHandle event = EvCreate(jobId);
    // A job id that the system refuses as an event name (Windows: a backslash) still needs an
    // event: the receiver waits on it.
    if (event == nullptr) event = EvCreate(nullptr);
    return event;
}

}  // namespace

const char* JobBaseDirectory() {
    return g_prsrv != nullptr ? g_prsrv->TempDirectory() : "";
}

int FillJobInfo(const char* printer, const char* fileName, const char* jobId, const char* owner,
                const char* title, int32_t copies, int32_t param1, int32_t param2,
                int32_t noStatusFlag, char protocol, int32_t ownThread, int32_t setupAgain,
                JobInfo* out) {
    if (out == nullptr) return 0;
    memset(out, 0, sizeof *out);
    if (fileName == nullptr || fileName[0] == '\0') return 0;
    if (printer == nullptr) printer = "";
    if (jobId == nullptr) jobId = "";

    char probe[kStreamProbeSize + 1];
    size_t got = 0;
    {
        StreamPtr file(FsOpenStream(fileName, "r"));
        if (!file) return 0;
        got = fread(probe, 1, kStreamProbeSize, file.get());
    }
    probe[got] = '\0';
    Detection detection = DetectStream(probe, got);
    TraceDetection(detection.streamType, jobId, fileName);

    if (g_Options.ProcessingMode == 0 || ownThread != 0) out->hEvent = MakeJobEvent(jobId);

    CopyText(out->PrinterName, printer);
    CopyText(out->FileName, fileName);
    CopyText(out->JobId, jobId);
    CopyText(out->WorkDir, JobBaseDirectory());
    if (owner != nullptr) CopyText(out->Owner, owner);
    if (title != nullptr && g_Options.UseOldTitle != 0) {
        char cut[1024];
        CopyText(cut, title);
        CutTrailingBlanks(cut);
        CopyTextN(out->Title, sizeof out->Title, cut, kMaxTitle);
    }

    out->Copies = copies;
    out->WideData = detection.wideData;
    out->StreamType = detection.streamType;
    out->Protocol = protocol;
    out->OwnThread = ownThread;
    out->SetupAgain = setupAgain;
    out->PrintParam1 = param1;
    out->PrintParam2 = param2;
    out->NoStatusFlag = noStatusFlag;
    return 1;
}

}  // namespace vx
