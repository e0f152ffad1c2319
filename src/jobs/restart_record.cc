#include "jobs/restart_record.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/text.h"
#include "printserver/trace.h"

namespace vx {

namespace {

constexpr const char* kTemporarySuffix = ".tmp";

void PutString(RestartRecord* r, const char* text) {
    size_t room = sizeof r->data - r->length;
    if (room == 0) return;
    size_t n = strnlen(text, room - 1);
    memcpy(r->data + r->length, text, n);
    r->data[r->length + n] = '\0';
    r->length += n + 1;
}

void PutByte(RestartRecord* r, char c) {
    if (r->length < sizeof r->data) r->data[r->length++] = c;
}

void PutTrailer(RestartRecord* r, const char* trailer) {
    size_t n = strlen(trailer);
    if (n > sizeof r->data - r->length) n = sizeof r->data - r->length;
    memcpy(r->data + r->length, trailer, n);
    r->length += n;
}

// Everything of the job record up to its trailer.
void PutJobHead(const JobInfo& job, RestartRecord* r) {
    r->length = 0;
    PutString(r, job.PrinterName);
    PutString(r, job.Owner);
    PutString(r, job.Title);
    // A blank would end the file name when the record is read back.
    char fileName[kMaxPath];
    CopyText(fileName, job.FileName);
    for (char* c = fileName; *c != '\0'; ++c)
        if (*c == ' ') *c = '?';
    PutString(r, fileName);
    PutString(r, job.JobId);
    PutByte(r, job.Protocol == 'S' && job.NoStatusFlag != 0 ? 'N' : job.Protocol);
}

// Takes the next NUL-terminated string of the record, cut to maxChars.
void TakeString(const RestartRecord& r, size_t* at, char* out, size_t cap, size_t maxChars) {
    const char* start = r.data + *at;
    size_t rest = *at < r.length ? r.length - *at : 0;
    size_t n = strnlen(start, rest);
    CopyTextN(out, cap, start, n < maxChars ? n : maxChars);
    *at += n < rest ? n + 1 : n;
}

// A record as it stands in a file: the length field ("%.5u" for jobs, "%.5d" for statuses: the
// same digits), then the bytes; written with one fwrite.
class EncodedRecord {
  public:
    explicit EncodedRecord(const RestartRecord& r) {
        length_ = FormatText(bytes_, sizeof bytes_, "%.5u", static_cast<unsigned>(r.length));
        size_t data = std::min(r.length, sizeof bytes_ - length_);
        memcpy(bytes_ + length_, r.data, data);
        length_ += data;
    }
    bool WriteTo(FILE* file) const { return fwrite(bytes_, 1, length_, file) == length_; }
    bool AppendTo(const char* path, bool durable) const {
        return FsAppendBytes(path, bytes_, length_, durable) == 0;
    }

  private:
    char bytes_[kMaxRestartRecord + 8];
    size_t length_ = 0;
};

// The directory part of a path, separator included ("" when there is none).
void DirectoryOf(const char* path, char* out, size_t cap) {
    size_t cut = 0;
    for (size_t i = 0; path[i] != '\0'; ++i)
        if (IsPathSeparator(path[i])) cut = i + 1;
    CopyTextN(out, cap, path, cut);
}

}  // namespace

void JobToRecord(const JobInfo& job, RestartRecord* r) {
    PutJobHead(job, r);
    char trailer[40];
    FormatText(trailer, sizeof trailer, " %.5d %.5d\n", job.Copies, job.SetupAgain);
    PutTrailer(r, trailer);
}

void JobToJournalRecord(const JobInfo& job, unsigned long long sequence, int finished,
                        int spoolNumber, RestartRecord* r) {
    PutJobHead(job, r);
    char trailer[112];
    FormatText(trailer, sizeof trailer, " %.5d %.5d %llu %d %d %d %d\n", job.Copies, job.SetupAgain,
               sequence, job.PrintParam1, job.PrintParam2, finished, spoolNumber);
    PutTrailer(r, trailer);
}

void ParseJob(const RestartRecord& r, SavedJob* job) {
    memset(job, 0, sizeof *job);
    size_t at = 0;
    TakeString(r, &at, job->printer, sizeof job->printer, 256);
    TakeString(r, &at, job->owner, sizeof job->owner, 12);
    TakeString(r, &at, job->title, sizeof job->title, 100);
    TakeString(r, &at, job->fileName, sizeof job->fileName, 259);
    TakeString(r, &at, job->jobId, sizeof job->jobId, 50);
    for (char* c = job->fileName; *c != '\0'; ++c)
        if (*c == '?') *c = ' ';
    job->protocol = at < r.length ? r.data[at++] : 'U';
    if (job->protocol == 'N') {
        job->protocol = 'S';
        job->noStatus = 1;
    }
    if (at < r.length)
        sscanf(r.data + at, "%5d %5d %llu %d %d %d %d", &job->copies, &job->setupAgain,
               &job->sequence, &job->param1, &job->param2, &job->finished, &job->spoolNumber);
}

void StatusToRecord(const JobRecord& status, RestartRecord* r) {
    r->length = 0;
    PutString(r, status.JobId);
    PutString(r, status.Owner);
    PutString(r, status.PrinterName);
    PutString(r, status.StatusText);
    char trailer[48];
    FormatText(trailer, sizeof trailer, " %.5d %.5d %.5d\n", status.PrintParam1, status.Status,
               status.Copies);
    PutTrailer(r, trailer);
}

void ParseStatus(const RestartRecord& r, JobRecord* status) {
    memset(status, 0, sizeof *status);
    size_t at = 0;
    TakeString(r, &at, status->JobId, sizeof status->JobId, 50);
    TakeString(r, &at, status->Owner, sizeof status->Owner, 12);
    TakeString(r, &at, status->PrinterName, sizeof status->PrinterName, 256);
    TakeString(r, &at, status->StatusText, sizeof status->StatusText, 80);
    int param1 = 0, value = 0, copies = 0;
    if (at < r.length) sscanf(r.data + at, "%5d %5d %5d", &param1, &value, &copies);
    status->PrintParam1 = param1;
    status->Status = value;
    status->Copies = copies;
}

RestartReadResult ReadRestartRecord(FILE* file, RestartRecord* r, unsigned* announced) {
    char field[6] = {};
    size_t got = fread(field, 1, 5, file);
    if (got == 0) return kReadEnd;
    unsigned length = 0;
    bool digits = got == 5;
    for (size_t i = 0; digits && i < 5; ++i) digits = isdigit(static_cast<unsigned char>(field[i]));
    if (!digits || sscanf(field, "%5u", &length) != 1 || length > kMaxRestartRecord)
        return kReadTooLong;
    *announced = length;
    r->length = fread(r->data, 1, length, file);
    r->data[r->length] = '\0';
    return r->length < length ? kReadShort : kReadRecord;
}

int AppendRestartRecord(const char* path, const RestartRecord& r, bool durable) {
    return EncodedRecord(r).AppendTo(path, durable) ? 0 : -1;
}

RestartFileWriter::RestartFileWriter(const char* path, bool durable) : durable_(durable) {
    CopyText(path_, path);
    FormatText(temporary_, sizeof temporary_, "%s%s", path, kTemporarySuffix);
    file_.reset(FsOpenStream(temporary_, "w"));
}

RestartFileWriter::~RestartFileWriter() {
    // Not committed: the temporary file goes, the previous file stays as it was.
    if (file_) {
        file_.reset();
        FsRemove(temporary_);
    }
}

void RestartFileWriter::Write(const RestartRecord& r) {
    if (file_) EncodedRecord(r).WriteTo(file_.get());
}

int RestartFileWriter::Commit() {
    if (!file_) return -1;
    bool ok = ferror(file_.get()) == 0;
    if (ok && durable_) ok = FsFlushToDisk(file_.get()) == 0;
    ok = fclose(file_.release()) == 0 && ok;
    if (ok && FsReplace(temporary_, path_) == 0) {
        if (durable_) {
            char dir[kMaxPath];
            DirectoryOf(path_, dir, sizeof dir);
            FsSyncDirectory(dir);
        }
        return 0;
    }
    FsRemove(temporary_);
    TraceError("Cannot write restart file %s\n", path_);
    return -1;
}

}  // namespace vx
