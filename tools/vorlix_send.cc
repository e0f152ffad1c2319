// vorlix-send: sends jobs to a Vorlix print server, in its extended protocol or in plain LPD,
// and asks it about jobs, queues, printers and extensions. Application servers and admins'
// scripts call it; its exit code says what happened (see --help), and a failure is one line on
// standard error that names the reason, with the server's own error text when it gave one.
#include <cctype>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "base/console.h"
#include "base/ni.h"
#include "base/text.h"
#include "tools/extended_sender.h"
#include "tools/job_input.h"
#include "tools/lpd_sender.h"
#include "tools/send_options.h"
#include "tools/send_result.h"
#include "tools/usage_text.h"

namespace vx {

namespace {

// A connection or two at a time.
constexpr int kHandles = 8;

int Report(const SendResult& result) {
    if (result.exitCode != kExitDelivered) fprintf(stderr, "vorlix-send: %s\n", result.reason);
    return result.exitCode;
}

uint64_t MicrosecondsNow() {
    auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

int SendFiles(const SendOptions& options) {
    std::vector<const char*> files = options.files;
    if (files.empty()) files.push_back("-");
    char hostName[256] = {};
    if (NiMyHostName(hostName, sizeof hostName) != kNiOk || hostName[0] == '\0')
        CopyText(hostName, "localhost");
    FILE* progressOut = !options.quiet && StdStreamIsTerminal(kStdErr) ? stderr : nullptr;
    FILE* warnings = options.quiet ? nullptr : stderr;
    uint64_t stamp = MicrosecondsNow();
    int firstFailure = kExitDelivered;
    for (size_t i = 0; i < files.size(); ++i) {
        SendResult result;
        JobInput input;
        char jobId[64] = {};
        if (OpenJobInput(files[i], &input, &result) == 0) {
            if (options.lpd) {
                // One LPD job number per file of this call, from the clock so that calls differ.
                int number = static_cast<int>((stamp / 1000 + i) % 1000);
                SendLpdJob(options, hostName, number, input, progressOut, jobId, sizeof jobId,
                           &result);
            } else {
                char ownId[64];
                MakeJobId(options, hostName, stamp, i, ownId, sizeof ownId);
                SendExtendedJob(options, ownId, input, warnings, progressOut, jobId, sizeof jobId,
                                &result);
            }
        }
        if (Report(result) != kExitDelivered) {
            if (firstFailure == kExitDelivered) firstFailure = result.exitCode;
            // The server is out of reach: the other files would only wait for the same time-out.
            if (result.exitCode == kExitNetwork) break;
            continue;
        }
        if (!options.quiet) printf("%s\n", jobId);
    }
    return firstFailure;
}

int Query(const SendOptions& options) {
    SendResult result;
    switch (options.action) {
        case kActionStatus:
        case kActionQueueState: {
            std::string answer;
            bool job = options.action == kActionStatus;
            if (QueryLpd(options, job ? options.statusJob : nullptr, &answer, &result) != 0)
                return Report(result);
            fputs(answer.c_str(), stdout);
            if (!job) return kExitDelivered;
            int code = JobStatusExit(answer);
            if (code == kExitRefused)
                fprintf(stderr, "vorlix-send: job %s: the server reports it failed or unknown\n",
                        options.statusJob);
            else if (code == kExitNotFinished)
                fprintf(stderr, "vorlix-send: job %s: no final status yet\n", options.statusJob);
            return code;
        }
        case kActionListPrinters: {
            std::vector<InstalledPrinter> printers;
            if (ListInstalledPrinters(options, &printers, &result) != 0) return Report(result);
            for (const InstalledPrinter& p : printers)
                printf("%s\t%s\t%s\n", p.name.c_str(), p.location.c_str(), p.driver.c_str());
            return kExitDelivered;
        }
        case kActionQueryOptions: {
            std::string answers;
            char command[300];
            FormatText(command, sizeof command, "OM %s", options.optionList);
            if (AskServer(options, command, &answers, &result) != 0) return Report(result);
            // One line per option asked for: its name and the server's Y or N.
            size_t at = 0;
            const char* c = options.optionList;
            while (*c != '\0') {
                const char* start = c;
                while (isalnum(static_cast<unsigned char>(*c))) ++c;
                if (c > start) {
                    char answer = at < answers.size() ? answers[at] : '?';
                    printf("%.*s %c\n", static_cast<int>(c - start), start, answer);
                    ++at;
                }
                if (*c != '\0') ++c;
            }
            return kExitDelivered;
        }
        case kActionQueryEquipment: {
            std::string answer;
            char command[32];
            FormatText(command, sizeof command, "EQ %s", options.equipment);
            if (AskServer(options, command, &answer, &result) != 0) return Report(result);
            // Y the server has it, N it has not, U it does not know the equipment.
            printf("%s %s\n", options.equipment, answer.c_str());
            return kExitDelivered;
        }
        default:
            return kExitUsage;
    }
}

int Main(int argc, char** argv) {
    SendOptions options;
    char error[300];
    if (ParseSendArguments(argc, argv, &options, error, sizeof error) != 0) {
        fprintf(stderr, "vorlix-send: %s\nTry 'vorlix-send --help'.\n", error);
        return kExitUsage;
    }
    if (options.action == kActionHelp) {
        PrintSendHelp(stdout);
        return kExitDelivered;
    }
    if (options.action == kActionVersion) {
        PrintSendVersion(stdout);
        return kExitDelivered;
    }
    ApplySendDefaults(&options);
    if (NiInit(kHandles) != kNiOk) {
        fprintf(stderr, "vorlix-send: the network layer could not be started\n");
        return kExitNetwork;
    }
    return options.action == kActionSend ? SendFiles(options) : Query(options);
}

}  // namespace

}  // namespace vx

int main(int argc, char** argv) {
    return vx::Main(argc, argv);
}
