#include "printlib/pending_jobs_file.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "base/codepage.h"
#include "base/fileops.h"
#include "base/text.h"
#include "printlib/wide_text.h"

namespace zel {

namespace {

constexpr char kFileName[] = "zelwin_pending_jobs.txt";
constexpr char kHeader[] = "# zelwin pending jobs 1";
constexpr int kFieldCount = 7;

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Tabs, line breaks and backslashes inside a field are written as escapes.
void AppendEscaped(std::string* line, const std::u16string& field) {
    std::string text;
    text.resize(field.size() * 3 + 1);
    NarrowText(field, vx::kCodePageUtf8, text.data(), text.size());
    for (const char* p = text.c_str(); *p != '\0'; ++p) {
        switch (*p) {
            case '\\':
                *line += "\\\\";
                break;
            case '\t':
                *line += "\\t";
                break;
            case '\n':
                *line += "\\n";
                break;
            case '\r':
                *line += "\\r";
                break;
            default:
                *line += *p;
        }
    }
}

std::u16string Unescaped(const std::string& field) {
    std::string text;
    for (size_t i = 0; i < field.size(); ++i) {
        char c = field[i];
        if (c == '\\' && i + 1 < field.size()) {
            char next = field[++i];
            c = next == 't' ? '\t' : next == 'n' ? '\n' : next == 'r' ? '\r' : next;
        }
        text += c;
    }
    return WideFromNarrow(text.c_str(), vx::kCodePageUtf8);
}

bool ReadLine(FILE* file, std::string* line) {
    line->clear();
    int c;
    while ((c = fgetc(file)) != EOF && c != '\n') *line += static_cast<char>(c);
    if (!line->empty() && line->back() == '\r') line->pop_back();
    return c != EOF || !line->empty();
}

bool ParseJob(const std::string& line, QueuedJob* job) {
    std::string fields[kFieldCount];
    int count = 0;
    size_t start = 0;
    for (;;) {
        size_t tab = line.find('\t', start);
        if (count == kFieldCount) return false;
        fields[count++] = line.substr(start, tab == std::string::npos ? tab : tab - start);
        if (tab == std::string::npos) break;
        start = tab + 1;
    }
    if (count != kFieldCount) return false;
    job->printer = Unescaped(fields[0]);
    job->fileName = Unescaped(fields[1]);
    job->jobId = Unescaped(fields[2]);
    job->title = Unescaped(fields[3]);
    job->owner = Unescaped(fields[4]);
    job->copies = vx::ParseDecimalInt(fields[5].c_str());
    job->noStatus = vx::ParseDecimalInt(fields[6].c_str());
    return !job->printer.empty() && !job->fileName.empty();
}

}  // namespace

void PendingJobsPath(const char* outputDirectory, char* out, size_t size) {
    char directory[vx::kMaxPath * 2];
    vx::CopyText(directory, outputDirectory != nullptr ? outputDirectory : "");
    size_t length = strlen(directory);
    while (length > 1 && vx::IsPathSeparator(directory[length - 1])) directory[--length] = '\0';
    // Up to the separator before the output directory's own name; a name without one is
    // the current directory's.
    size_t parent = length;
    while (parent > 0 && !vx::IsPathSeparator(directory[parent - 1])) --parent;
    directory[parent] = '\0';
    vx::FormatText(out, size, "%s%s", directory, kFileName);
}

int SavePendingJobs(const char* path, const std::vector<QueuedJob>& jobs) {
    if (jobs.empty()) {
        return vx::FsExists(path) ? vx::FsRemove(path) : 0;
    }
    char temporary[vx::kMaxPath * 2];
    vx::FormatText(temporary, sizeof temporary, "%s.new", path);
    {
        FilePtr file(fopen(temporary, "wb"));
        if (file == nullptr) return -1;
        bool ok = fprintf(file.get(), "%s\n", kHeader) > 0;
        for (const QueuedJob& job : jobs) {
            std::string line;
            for (const std::u16string* field :
                 {&job.printer, &job.fileName, &job.jobId, &job.title, &job.owner}) {
                AppendEscaped(&line, *field);
                line += '\t';
            }
            line += std::to_string(job.copies) + "\t" + std::to_string(job.noStatus) + "\n";
            ok = ok && fwrite(line.data(), 1, line.size(), file.get()) == line.size();
        }
        ok = ok && fflush(file.get()) == 0;
        if (!ok) {
            file.reset();
            vx::FsRemove(temporary);
            return -1;
        }
    }
    if (vx::FsReplace(temporary, path) != 0) {
        vx::FsRemove(temporary);
        return -1;
    }
    return 0;
}

int LoadPendingJobs(const char* path, std::vector<QueuedJob>* jobs) {
    jobs->clear();
    if (!vx::FsExists(path)) return 0;
    FilePtr file(fopen(path, "rb"));
    if (file == nullptr) return -1;
    std::string line;
    if (!ReadLine(file.get(), &line) || line != kHeader) return -1;
    while (ReadLine(file.get(), &line)) {
        QueuedJob job;
        if (ParseJob(line, &job)) jobs->push_back(job);
    }
    return 0;
}

}  // namespace zel
