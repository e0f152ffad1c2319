// The extended-protocol session over loopback, as a sender sees it: a job's data and description
// arriving whole, the error replies byte for byte (each ending the session with nothing left in
// the temporary directory) and the names of the job files. The answers to queries and EQ are
// session_text_test's and test_extended.py's.
#include "protocol/extended_session.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/fileops.h"
#include "base/ni.h"
#include "config/process_state.h"
#include "jobs/job_context.h"
#include "loopback_pair.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "test_support.h"

namespace {

using vxtest::LoopbackPair;

const std::string kProtocolError = "ER 818 Vorlix: Protokollfehler zum Vorlix festgestellt.\n\n";

struct HandedJob {
    vx::JobRecord record;
    vx::JobContext context;
    std::string data;  // the job's file as it was handed over
};

// Filled on the session's thread, read after it has ended.
struct HandOvers {
    std::vector<HandedJob> jobs;
    int result = 0;

    static int Take(void* context, vx::JobRecord* job, bool /*delivered*/) {
        auto* self = static_cast<HandOvers*>(context);
        if (self->result != 0) return self->result;
        self->jobs.push_back({*job, *job->Context, vxtest::ReadWholeFile(job->Context->FileName)});
        return 0;
    }
};

// Raw deflate, as senders make C2 blocks: zlib's stream without its 2-byte header and 4-byte check.
std::string Deflate(const std::string& data) {
    uLongf size = compressBound(data.size());
    std::string out(size, '\0');
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(out.data()), &size,
                        reinterpret_cast<const Bytef*>(data.data()), data.size(), 9),
              Z_OK);
    return out.substr(2, size - 6);
}

class ExtendedSessionTest : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        Seed("LogLevel", "9");
        vxtest::UseDefaultListenerParams();
        vx::g_StopReason = vx::kStopNone;
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
        temp_ = prsrv_->TempDirectory();
    }

    void TearDown() override {
        if (server_.joinable()) End();
        vx::g_prsrv = nullptr;
    }

    // Connects a sender and starts the session; returns the greeting.
    std::string Start() {
        if (server_.joinable()) End();
        pair_ = std::make_unique<LoopbackPair>();
        EXPECT_EQ(pair_->Open(), vx::kNiOk);
        socket_ = vx::NetSocket{};
        socket_.niHandle = pair_->server;
        pair_->server = vx::kNiNoHandle;
        server_ = std::thread([this] {
            vx::ExtendedSession(socket_, HandOvers::Take, &handed_);
            vx::SocketClose(socket_);
        });
        return Reply();
    }

    // The next reply: one line, or an error reply with its two line feeds.
    std::string Reply() {
        std::string got;
        for (;;) {
            char byte = 0;
            int32_t count = 0;
            if (vx::NiRawRead(pair_->client, &byte, 1, 10000, &count) != vx::kNiOk || count != 1)
                return got;
            got += byte;
            bool error = got.rfind("ER", 0) == 0;
            size_t n = got.size();
            if (byte == '\n' && (!error || (n >= 2 && got[n - 2] == '\n'))) return got;
        }
    }

    std::string Say(const std::string& packet) {
        EXPECT_TRUE(pair_->Send(packet));
        return Reply();
    }

    // Waits for the session to end (the sender closes its end first).
    void End() {
        LoopbackPair::Close(pair_->client);
        server_.join();
    }

    void SayOk(const std::vector<std::string>& packets) {
        for (const std::string& packet : packets) EXPECT_EQ(Say(packet), "OK\n") << packet;
    }

    // The commands that must come before DS.
    void Prepare() { SayOk({"DP lp", "DT 0", "PT RAW"}); }

    // Names in the temporary directory besides the service's own logs (a journal counts).
    std::vector<std::string> JobFiles() {
        std::vector<std::string> names;
        vx::FsListDirectory(
            temp_.c_str(),
            [](void* context, const char* name) {
                std::string n = name;
                if (n.find(".dbg") == n.npos && n.find(".nit") == n.npos &&
                    n.find(".trc") == n.npos)
                    static_cast<std::vector<std::string>*>(context)->push_back(n);
                return 0;
            },
            &names);
        return names;
    }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
    std::string temp_;
    std::unique_ptr<LoopbackPair> pair_;
    vx::NetSocket socket_;
    std::thread server_;
    HandOvers handed_;
};

// A job's data arrives unchanged in C2 blocks, also where its file is written on a thread of its
// own (past the first megabyte), and the job carries what the sender said of it. (Every encoding
// goes through the real server in test_extended.py.)
TEST_F(ExtendedSessionTest, AClosedJobCarriesItsDataAndDescription) {
    std::string data;
    for (int i = 0; data.size() < 2'500'000; ++i)
        data += "line " + std::to_string(i) + "\n" + std::string(i % 7, '\0');
    EXPECT_EQ(Start(), "OK ZELLPD 231 15000 N N\n");
    Prepare();
    SayOk({"DO john doe", "AT  report", "DC 3", "TI 2", "MD1", "C2", "DS job-1"});
    for (size_t at = 0; at < data.size(); at += 7000) {
        std::string block = Deflate(data.substr(at, 7000));
        EXPECT_EQ(Say("DB " + std::to_string(block.size()) + "\r\n" + block), "OK\n");
    }
    EXPECT_EQ(Say("DE"), "OK job-1\n");
    EXPECT_EQ(Say("EX done"), "OK\n");
    server_.join();
    ASSERT_EQ(handed_.jobs.size(), 1u);
    const HandedJob& job = handed_.jobs[0];
    EXPECT_EQ(job.data, data);
    EXPECT_STREQ(job.record.JobId, "job-1");
    EXPECT_STREQ(job.record.PrinterName, "lp");
    EXPECT_STREQ(job.record.Owner, "john_doe");
    EXPECT_EQ(job.record.Copies, 3);
    EXPECT_EQ(job.record.PrintParam1, 2);
    EXPECT_EQ(job.record.PrintParam2, 1);
    EXPECT_STREQ(job.context.Title, "john_doe/job-1:report");
    // The compression library keeps its own trace of the C2 blocks.
    EXPECT_NE(vxtest::ReadTextFile(temp_ + "cstrace.trc").find("CsRDecompress: "),
              std::string::npos);
}

// Every refusal is answered byte for byte, ends the session, hands nothing over and leaves
// nothing in the temporary directory. (An unknown command, a block over the packet size and one
// that is not deflate are refused through the real server in test_extended.py.)
TEST_F(ExtendedSessionTest, BadInputIsRefusedAndLeavesNothingBehind) {
    const std::string bomb = Deflate(std::string(20'000'000, 'a'));
    const std::vector<std::string> open = {"DP lp", "DT 0", "PT RAW", "DS dropped"};
    struct Case {
        const char* name;
        std::vector<std::string> before;  // each answered OK
        std::string packet;
    };
    const std::vector<Case> cases = {
        {"DB without DS", {}, "DB 3\nabc"},
        {"DE without DS", {}, "DE"},
        {"length missing", open, "DB -5\nabc"},
        {"longer than its packet", open, "DB 2\nabc"},
        {"DC after DS", open, "DC 2"},
        {"empty printer", {}, "DP   "},
        {"OM run too long", {}, "OM " + std::string(60, 'A')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Start();
        SayOk(c.before);
        EXPECT_EQ(Say(c.packet), kProtocolError);
        server_.join();
        EXPECT_TRUE(handed_.jobs.empty());
        EXPECT_TRUE(JobFiles().empty());
    }
    // A bomb that fills the output many times over is written out in full and is one whole job.
    Start();
    Prepare();
    SayOk({"C2", "DS bomb"});
    EXPECT_EQ(Say("DB " + std::to_string(bomb.size()) + "\n" + bomb), "OK\n");
    EXPECT_EQ(Say("DE"), "OK bomb\n");
    End();
    ASSERT_EQ(handed_.jobs.size(), 1u);
    EXPECT_EQ(handed_.jobs[0].data.size(), 20'000'000u);
    handed_.jobs.clear();
    // The service never stops for what one sender sent.
    EXPECT_EQ(vx::g_StopReason, vx::kStopNone);
}

// A sender that goes away in the middle of a block, or before DE, leaves no fragment to print.
TEST_F(ExtendedSessionTest, SessionEndingBeforeDeDropsTheJob) {
    Start();
    Prepare();
    SayOk({"DS half"});
    EXPECT_TRUE(pair_->Send("DB 100\nonly part of it"));
    End();
    // A large job whose writing thread is at work when the sender goes away.
    Start();
    Prepare();
    SayOk({"C2", "DS large"});
    const std::string block = Deflate(std::string(200'000, 'b'));
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(Say("DB " + std::to_string(block.size()) + "\n" + block), "OK\n");
    End();
    EXPECT_TRUE(handed_.jobs.empty());
    EXPECT_TRUE(JobFiles().empty());
    EXPECT_NE(
        vxtest::ReadTextFile(prsrv_->MainLogPath()).find("Error: Job large for printer lp dropped"),
        std::string::npos);
}

// The identifier names the job's file (that "../../x" stays in the temporary directory is
// test_extended.py's); a name that a queued job still owns is never overwritten.
TEST_F(ExtendedSessionTest, JobFileNamesAreNeverReused) {
    auto send = [&](const std::string& id, const std::string& data) {
        Start();
        Prepare();
        EXPECT_EQ(Say("DS " + id), "OK\n");
        EXPECT_EQ(Say("DB " + std::to_string(data.size()) + "\n" + data), "OK\n");
        EXPECT_EQ(Say("DE"), "OK " + id + "\n");
        End();
    };
    // The first job's file is still queued (its journal lies beside it): the second gets a name of
    // its own.
    send("same", "first");
    send("same", "second");
    ASSERT_EQ(handed_.jobs.size(), 2u);
    EXPECT_NE(std::string(handed_.jobs[0].context.FileName), handed_.jobs[1].context.FileName);
    EXPECT_EQ(vxtest::ReadWholeFile(handed_.jobs[0].context.FileName), "first");

    // No identifier: the job is named after its file.
    Start();
    Prepare();
    EXPECT_EQ(Say("DS"), "OK\n");
    std::string reply = Say("DE");
    End();
    ASSERT_EQ(handed_.jobs.size(), 3u);
    EXPECT_EQ(reply, "OK " + std::string(handed_.jobs[2].record.JobId) + "\n");
    EXPECT_EQ(temp_.compare(0, 20, handed_.jobs[2].record.JobId, 0, 20), 0);
}

// A job that cannot be taken over is refused with 809 and its file removed.
TEST_F(ExtendedSessionTest, RefusedHandOverLeavesNoFile) {
    handed_.result = -1;
    Start();
    Prepare();
    SayOk({"DS refused", "DB 1\nx"});
    EXPECT_EQ(Say("DE"), "ER 809 Vorlix: Warteschlange voll.\n\n");
    server_.join();
    EXPECT_TRUE(JobFiles().empty());
}

}  // namespace
