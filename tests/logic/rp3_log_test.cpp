// The link log's failures, without the registers that come before them in a snapshot.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <semaphore.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "logic/rp3_log.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"
#include "support/waiting.h"

using namespace ddal::logic;
using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;

const std::string kCaller = "3 ddal_rp3_validate_aif: ";
const std::string kResize = "3 resize_log_file: ";

// Expects the semaphore to be free for the next caller.
void expect_free()
{
    sem_t *const semaphore = sem_open(kLinkLogSemaphore, 0);
    ASSERT_NE(semaphore, SEM_FAILED);
    int value = -1;
    sem_getvalue(semaphore, &value);
    EXPECT_EQ(value, 1);
    sem_close(semaphore);
}

TEST(LinkLogFile, SurvivesEveryFailure)
{
    unlink(kLinkLog);
    append_link_log("", "");
    Sweep("append_link_log", [] { return append_link_log("event", "text"); })
        .when("sem_open", fails(-1001, {kCaller + "Log file semaphore open error: %m"}))
        .when("open", fails(-1001, {kCaller + "Cannot open /var/log/kvbinit.log: %m"}))
        .when("fdopen", fails(-1001, {kCaller + "Cannot open /var/log/kvbinit.log: %m"}))
        .when("flock", changes_nothing())
        .when("fflush", fails(-1001, {kCaller + "Error during writing to /var/log/kvbinit.log"}))
        .when("fwrite", fails(-1001, {kCaller + "Error during writing to /var/log/kvbinit.log"}))
        .when("fclose", changes_nothing())
        .when("fseek", changes_nothing()) // a log of unknown size counts as short
        .when("ftell", changes_nothing())
        .after([](const Outcome &) { expect_free(); })
        .run();
}

TEST(LinkLogFile, SurvivesEveryFailureOfTheCut)
{
    const std::string old(350, 'o'), event(kLinkLogLimit - 250, 'e'); // three blocks of the old log are copied
    const std::string whole = kCaller + "Failure during resizing /var/log/kvbinit.log: *";
    const std::string log = "/var/log/kvbinit.log", temporary = log + ".tmp";
    const auto no_log = fails(-1001, {kResize + "Cannot open " + log, whole});
    const auto no_entry = fails(-1001, {kCaller + "Cannot open " + log + ": %m"});
    const auto no_temporary = fails(-1001, {kResize + "Cannot open " + temporary, whole});
    Sweep("append_link_log, full", [&] { return append_link_log(event.c_str(), ""); })
        .before([&] { put_file(log, old); })
        .watch({"/var/log"})
        .when("sem_open", fails(-1001, {kCaller + "Log file semaphore open error: %m"}))
        .when("open:" + temporary, fails(-1001, {kResize + "Cannot open " + temporary, whole}))
        .when("open", in_turn({no_entry, no_entry, no_log}))
        .when("fdopen", in_turn({no_entry, no_log, no_temporary, no_log}))
        .when("flock", changes_nothing())
        .when("unlink", changes_nothing())
        .when("fseek",
              in_turn({changes_nothing(), fails(-1001, {kResize + "Cannot change position in " + log, whole})}))
        .when("ftell", changes_nothing())
        .when("fread/end", changes_nothing()) // the old log ends early
        .when("fread/EIO", fails(-1001, {kResize + "Error during resizing  " + log, whole}))
        .when("fwrite:" + temporary, fails(-1001, {kResize + "Error during resizing  " + log, whole}))
        .when("fflush:" + temporary, fails(-1001, {kResize + "Error during resizing  " + log, whole}))
        .when("fsync", fails(-1001, {kResize + "Error during resizing  " + log, whole}))
        .when("fwrite", fails(-1001, {kCaller + "Error during writing to " + log}))
        .when("fflush", fails(-1001, {kCaller + "Error during writing to " + log}))
        .when("rename", fails(-1001, {kResize + "Error during renaming  " + log, whole}))
        .when("fclose", changes_nothing())
        .after([&](const Outcome &) {
            expect_free();
            // After a failure before the replacement the old log is still there.
            const std::string now = file_content(log);
            EXPECT_TRUE(now.size() > event.size() || now == old || now == old.substr(100)) << now.size();
        })
        .run();
}

TEST(LinkLogFile, ContinuesToWaitAfterASignal)
{
    sem_t *const semaphore = sem_open(kLinkLogSemaphore, O_CREAT, 0666, 1);
    ASSERT_EQ(sem_wait(semaphore), 0);
    LogWatch log;
    Interrupted waiting([] { return append_link_log("event", "text"); });
    EXPECT_TRUE(waiting.blocks());
    waiting.interrupt();
    EXPECT_TRUE(waiting.blocks());
    sem_post(semaphore);
    EXPECT_EQ(waiting.result(), 0);
    EXPECT_EQ(log.take(), Lines{});
    expect_free();
    sem_close(semaphore);
}

// An entry that just fits keeps the log; one byte more costs the oldest byte.
TEST(LinkLogFile, IsCutFromTheFirstExcessByte)
{
    const std::string log = "/var/log/kvbinit.log", old(200, 'o');
    for (const unsigned over : {0U, 1U}) {
        put_file(log, "!" + old);
        const Fault renamed("rename");
        EXPECT_EQ(append_link_log(std::string(kLinkLogLimit - 201 - 4 + over, 'e').c_str(), "text"), 0);
        EXPECT_EQ(renamed.seen(), over);
        EXPECT_TRUE(file_content(log).starts_with(over ? old + "2" : "!" + old + "2"));
    }
}

// Another user of the folder could have put a link to any file there.
TEST(LinkLogFile, DoesNotFollowALink)
{
    const std::string log = "/var/log/kvbinit.log", other = "/flash/other", old(kLinkLogLimit, 'o');
    put_file(other, old);
    unlink(log.c_str());
    ASSERT_EQ(symlink(other.c_str(), log.c_str()), 0);
    EXPECT_EQ(append_link_log("event", "text"), -1001);
    unlink(log.c_str());
    put_file(log, old);
    for (const bool hard : {false, true}) {
        unlink((log + ".tmp").c_str());
        ASSERT_EQ((hard ? link : symlink)(other.c_str(), (log + ".tmp").c_str()), 0);
        EXPECT_EQ(append_link_log("event", "text"), 0);
    }
    EXPECT_TRUE(file_content(other) == old);
}

} // namespace
