// Passwords of the service accounts: the tool's input, the results, and that memory holds no copy afterwards.
#include <ddal/auth.h>
#include <ddal/error.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "auth/service_accounts.h"
#include "support/board.h"
#include "support/log_watch.h"
#include "support/surroundings.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Lines = std::vector<std::string>;

namespace {

constexpr const char *kTool = "/usr/sbin/updpassword";
constexpr const char *kUser = "serviceuser";

// Replaces one of the board's programs and restores it at the end of the scope.
class ReplacedProgram {
public:
    ReplacedProgram(std::string path, const std::string &script)
        : path_(std::move(path)), original_(file_content(path_))
    {
        put_program(path_, script);
    }
    ~ReplacedProgram() { put_program(path_, original_); }

private:
    std::string path_;
    std::string original_;
};

TEST(SetPassword, ChecksItsArgumentsInOrder)
{
    const KeptFile accounts("/etc/passwd");
    put_file("/etc/passwd", "toor4qrx:x:0:0::/user/toor4qrx:/bin/sh\n");
    const std::string null_text = "username, password or error_msg is null";
    const Lines null_line = {"3 ddal_auth_set_user_password: argument can't be NULL pointer"};
    const struct {
        const char *user, *password;
        uint32_t size; // size of the text; the buffer itself is larger
        int result;
        std::string text;
        Lines lines;
    } cases[] = {
        {nullptr, "secret1234", 64, -EINVAL, null_text, null_line},
        {"root", nullptr, 64, -EINVAL, null_text, null_line},
        {"toor4qrx", "secret1234", 0, -EINVAL, "untouched", null_line},
        {nullptr, nullptr, 8, -EINVAL, "usernam", null_line},
        {"root", "", 64, -1027, "user root is not supported", {}},
        {"Toor4qrx", "secret1234", 64, -1027, "user Toor4qrx is not supported", {}},
        {"toor4qrx\n", "secret1234", 8, -1027, "user to", {}},
        {"serviceuser",
         "",
         64,
         -EINVAL,
         "username account does not exist",
         {"3 ddal_auth_set_user_password: user serviceuser does not exist"}},
        {"toor4qrx", "", 64, -EINVAL, "empty password", {}},
        {"toor4qrx", "", 1, -EINVAL, "", {}},
    };
    const Fault started("exec:/usr/sbin/updpassword errno=EACCES count=0");
    for (const auto &c : cases) {
        char text[128] = "untouched";
        LogWatch log;
        EXPECT_EQ(ddal_auth_set_user_password(c.user, c.password, text, c.size), c.result) << c.text;
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(log.take(), c.lines) << c.text;
    }
    LogWatch log;
    EXPECT_EQ(ddal_auth_set_user_password("toor4qrx", "secret1234", nullptr, 64), -EINVAL);
    EXPECT_EQ(log.take(), null_line);
    EXPECT_EQ(started.seen(), 0u);
}

TEST(SetPassword, FollowsThePolicyOfTheTool)
{
    char text[256];
    const std::string factory = password_hash(kUser);
    LogWatch log;
    EXPECT_EQ(ddal_auth_set_user_password(kUser, "short", text, sizeof text), DDAL_ERR_PASSWORD_REFUSED);
    EXPECT_STREQ(text, "the password has fewer than 8 characters\nthe password has no digit\n");
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_auth_set_user_password: update password failed: 1"));
    EXPECT_EQ(password_hash(kUser), factory);

    EXPECT_EQ(ddal_auth_set_user_password(kUser, "first-password-1", text, sizeof text), 0);
    EXPECT_STREQ(text, "");
    const std::string first = password_hash(kUser);
    EXPECT_NE(first, factory);
    EXPECT_EQ(ddal_auth_set_user_password(kUser, "second-password-2", text, sizeof text), 0);
    EXPECT_EQ(ddal_auth_set_user_password(kUser, "first-password-1", text, sizeof text), DDAL_ERR_PASSWORD_REFUSED);
    EXPECT_STREQ(text, "the password was used before\n");
    // A forgotten history makes the password valid again.
    EXPECT_EQ(ddal_auth_set_password_history_len(0), 0);
    EXPECT_EQ(ddal_auth_set_user_password(kUser, "first-password-1", text, sizeof text), 0);
    EXPECT_EQ(password_hash(kUser), first);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_auth_set_user_password: update password failed: 1"));
}

TEST(SetPassword, ReportsHowTheToolEnded)
{
    const std::string long_text(1000, 'x');
    const std::string very_long_text(200000, 'y');
    put_file("/ram/long", long_text);
    put_file("/ram/very-long", very_long_text);
    const struct {
        const char *what, *script;
        uint32_t size;
        int result;
        std::string text;
    } cases[] = {
        {"silent refusal", "cat >/dev/null; exit 1", 64, -1026, "password failed policy check"},
        {"silent refusal, small text", "cat >/dev/null; exit 1", 9, -1026, "password"},
        {"a text of just the size", "cat >/dev/null; printf 1234567; exit 3", 8, -1026, "1234567"},
        {"a text after success", "cat >/dev/null; printf 'expires soon'", 64, 0, "expires soon"},
        {"a text with a NUL", "cat >/dev/null; printf 'a\\0b'; exit 1", 64, -1026, "a"},
        {"killed", "cat >/dev/null; echo why; kill -9 $$", 64, -EINTR, "why\n"},
        {"too long", "cat >/dev/null; cat /ram/long; exit 1", 64, -EFBIG, std::string(63, 'x')},
        {"too long, one byte", "cat >/dev/null; cat /ram/long; exit 1", 1, -ENOSPC, ""},
        {"longer than any pipe", "cat >/dev/null; cat /ram/very-long; exit 1", 100, -EFBIG, std::string(99, 'y')},
    };
    for (const auto &c : cases) {
        const ReplacedProgram tool(kTool, std::string("#!/bin/sh\n") + c.script + "\n");
        std::vector<char> text(c.size + 16, '#');
        LogWatch log;
        EXPECT_EQ(ddal_auth_set_user_password(kUser, "secret1234", text.data(), c.size), c.result) << c.what;
        if (c.size > 1) {
            EXPECT_EQ(text.data(), c.text) << c.what;
        }
        EXPECT_EQ(std::string(text.data() + c.size, 16), std::string(16, '#')) << c.what;
        const Lines lines = log.take();
        if (c.result != 0) {
            EXPECT_EQ(lines.back(), "3 ddal_auth_set_user_password: update password failed: " +
                                        std::to_string(c.result == -1026 ? (c.size == 8 ? 3 : 1) : c.result));
        }
    }
}

TEST(SetPassword, SurvivesAToolThatIsMissingOrDoesNotRead)
{
    char text[64];
    const std::string big(200000, 'p'); // more than a pipe can hold
    {
        const ReplacedProgram tool(kTool, "#!/bin/sh\nexec <&-\necho no\nexit 1\n");
        EXPECT_EQ(ddal_auth_set_user_password(kUser, big.c_str(), text, sizeof text), -EPIPE);
        EXPECT_STREQ(text, "no\n");
    }
    {
        const ReplacedProgram tool(kTool, "#!/bin/sh\ncat >/ram/stdin\n");
        EXPECT_EQ(ddal_auth_set_user_password(kUser, big.c_str(), text, sizeof text), 0);
        EXPECT_EQ(file_content("/ram/stdin"), big);
    }
    // The default handling of SIGPIPE would have ended this process. The handling must be unchanged.
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

TEST(SetPassword, ReachesTheToolThroughStandardInputOnly)
{
    const ReplacedProgram tool(
        kTool, "#!/bin/sh\ntr '\\0' '\\n' <\"/proc/$$/cmdline\" >/ram/seen\nenv >>/ram/seen\ncat >/ram/stdin\n");
    const LogWatch log;
    const size_t syslog_before = file_content(board().directory() / ".vboard/syslog").size();
    char text[64];
    EXPECT_EQ(ddal_auth_set_user_password("toor4qrx", "tell-no-1 else\\", text, sizeof text), 0);
    EXPECT_EQ(file_content("/ram/stdin"), "tell-no-1 else\\") << "unchanged, without a newline";
    const std::string seen = file_content("/ram/seen");
    EXPECT_THAT(seen, HasSubstr("updpassword\n-u\ntoor4qrx\n"));
    EXPECT_THAT(seen, Not(HasSubstr("tell-no-1")));
    const std::string syslog = file_content(board().directory() / ".vboard/syslog").substr(syslog_before);
    EXPECT_THAT(syslog, Not(HasSubstr("tell-no-1")));
    // The trace holds every program that the board started, with its arguments in hexadecimal.
    const std::string trace = file_content(board().directory() / ".vboard/trace.jsonl");
    EXPECT_THAT(trace, HasSubstr("2d7520746f6f7234717278")) << "-u toor4qrx";
    EXPECT_THAT(trace, Not(HasSubstr("74656c6c2d6e6f2d31"))) << "the password";
}

// --- copies in memory
// ---------------------------------------------------------------------------------------------

// Finds a text in the writable memory of this process, without ever holding a second copy of the text.
class MemoryScan {
public:
    explicit MemoryScan(const char *text) : size_(strlen(text))
    {
        for (size_t i = 0; i < size_; ++i)
            masked_[i] = static_cast<char>(text[i] ^ kMask);
        window_ =
            static_cast<char *>(mmap(nullptr, kWindow, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
    ~MemoryScan() { munmap(window_, kWindow); }

    std::vector<uintptr_t> places()
    {
        std::vector<uintptr_t> found;
        std::ifstream maps("/proc/self/maps");
        const int memory = memfd_create("copy", MFD_CLOEXEC); // receives the readable memory and refuses the rest
        for (std::string line; std::getline(maps, line);) {
            uintptr_t from = 0, to = 0;
            char dash = 0;
            std::string rights;
            std::istringstream words(line);
            words >> std::hex >> from >> dash >> to >> rights;
            // A sanitizer's shadow takes terabytes and does not hold the text.
            if (rights.substr(0, 2) == "rw" && to - from < kLargest && from != reinterpret_cast<uintptr_t>(window_))
                scan(memory, from, to, found);
        }
        close(memory);
        return found;
    }

private:
    static constexpr char kMask = 0x5a;
    static constexpr size_t kWindow = 1 << 20;
    static constexpr uintptr_t kLargest = uintptr_t{256} << 20;

    void scan(int memory, uintptr_t from, uintptr_t to, std::vector<uintptr_t> &found)
    {
        for (uintptr_t at = from; at < to; at += kWindow - sizeof masked_) {
            lseek(memory, 0, SEEK_SET);
            // A direct system call, because a sanitizer refuses to read its memory.
            ssize_t n =
                syscall(SYS_write, memory, reinterpret_cast<const void *>(at), std::min<size_t>(kWindow, to - at));
            if (n > 0)
                n = pread(memory, window_, static_cast<size_t>(n), 0);
            for (ssize_t i = 0; i + static_cast<ssize_t>(size_) <= n; ++i)
                if (fits(window_ + i) && (found.empty() || found.back() != at + static_cast<size_t>(i)))
                    found.push_back(at + static_cast<size_t>(i));
        }
        memset(window_, 0, kWindow);
    }
    bool fits(const char *at) const
    {
        for (size_t i = 0; i < size_; ++i)
            if ((at[i] ^ kMask) != masked_[i])
                return false;
        return true;
    }

    size_t size_;
    char masked_[64] = {};
    char *window_;
};

TEST(SetPassword, LeavesNoCopyInMemory)
{
    static char password[] = "0000-not-to-be-found-again";
    for (int i = 0; i < 4; ++i) // filled at run time, so that the program file holds no copy
        password[i] = static_cast<char>('A' + getpid() / (i + 1) % 26);
    MemoryScan scan(password);
    char text[256];
    const ReplacedProgram tool(kTool, "#!/bin/sh\ncat >/dev/null\n");
    ASSERT_EQ(ddal_auth_set_user_password(kUser, password, text, sizeof text), 0);
    EXPECT_THAT(scan.places(), ElementsAre(reinterpret_cast<uintptr_t>(password)));

    const ReplacedProgram deaf(kTool, "#!/bin/sh\nexec <&-\nsleep 0.2\nexit 1\n");
    ddal_auth_set_user_password(kUser, password, text, sizeof text);
    EXPECT_THAT(scan.places(), ElementsAre(reinterpret_cast<uintptr_t>(password)));
}

// --- login delay
// -----------------------------------------------------------------------------------------------------

constexpr const char *kDelayFile = "/rom/etc/ssh/ssh_fail_login_delay";

TEST(LoginDelay, IsStoredWithoutTheDelayOfTheSystem)
{
    const struct {
        uint32_t delay;
        const char *stored;
    } cases[] = {{0, "0\n"},       {1500000, "0\n"}, {1999999, "0\n"},
                 {2000000, "0\n"}, {2000007, "7\n"}, {4294967295u, "4292967295\n"}};
    for (const auto &c : cases) {
        EXPECT_EQ(ddal_auth_set_login_faildelay(c.delay), 0);
        EXPECT_EQ(file_content(kDelayFile), c.stored);
    }
}

TEST(LoginDelay, SurvivesEveryFailure)
{
    const Expectation fails_at = fails_with_errno(
        std::string("3 ddal_auth_set_login_faildelay: error during writing to ") + kDelayFile + ": %m");
    Sweep sweep("ddal_auth_set_login_faildelay", [] { return ddal_auth_set_login_faildelay(2000005); });
    sweep
        .before([] {
            put_file(kDelayFile, "1\n");
            give_own_attributes(kDelayFile);
        })
        .watch({"/rom/etc/ssh"})
        .after([](const Outcome &seen) {
            EXPECT_EQ(file_content(kDelayFile), seen.result == 0 ? "5\n" : "1\n");
            EXPECT_EQ(attributes(kDelayFile), kOwnAttributes);
            EXPECT_TRUE(is_unlocked(kDelayFile));
        })
        .when("flock/EINTR", changes_nothing())
        .when("fclose", changes_nothing())
        .when("fsync:/rom/etc/ssh", changes_nothing())
        .when("close", changes_nothing());
    for (const char *call : {"open", "flock", "stat", "fstat", "fdopen", "fwrite", "fflush", "fsync", "fchmod",
                             "fchown", "link", "rename"})
        sweep.when(call, fails_at);
    sweep.run();
}

std::string wrong_change()
{
    char text[256];
    const std::string before = password_hash(kUser);
    const int refused = ddal_auth_set_user_password(kUser, "short", text, sizeof text);
    const int changed =
        ddal_auth_set_user_password(kUser, ("password-" + std::to_string(getpid())).c_str(), text, sizeof text);
    end_ticking();
    return refused == -1026 && changed == 0 && password_hash(kUser) != before
               ? ""
               : std::to_string(refused) + ", " + std::to_string(changed);
}

TEST(SetPassword, IsNotCutShortByASignal)
{
    expect_in_each({kTicking}, wrong_change);
}

TEST(SetPassword, KnowsHowTheToolEndedDespiteReaping)
{
    expect_in_each(kReaping, wrong_change);
}

// The runner's thread and the child race, which decides which of two failures is reported.
TEST(SetPassword, SurvivesEveryFailure)
{
    static char text[64];
    const ReplacedProgram tool(kTool, "#!/bin/sh\ncat >/ram/stdin\n");
    const std::string failed = "3 ddal_auth_set_user_password: update password failed: ";
    const std::string not_started =
        "3 _ddal_common_shell_command_read_write_fp: popen ('/usr/sbin/updpassword') failed: ";
    const auto judge = [&](const Injected &injected, const Outcome &seen) {
        const std::string code = std::to_string(-injected.error);
        const Lines with_code = {failed + code};
        const std::string &call = injected.call;
        if (injected.error == 0 || injected.error == EINTR || call == "close" || call == "poll") {
            EXPECT_EQ(seen.result, 0);
            EXPECT_EQ(seen.lines, Lines{});
        } else if (call == "pipe" || call == "fdopen" || call == "fork") {
            EXPECT_EQ(seen.result, -injected.error);
            EXPECT_EQ(seen.lines, (Lines{not_started + code, failed + code}));
        } else if (call == "open") { // fails in the child, which then ends before it has read
            EXPECT_TRUE(seen.result == -1026 || seen.result == -EPIPE);
            EXPECT_EQ(seen.lines, Lines{failed + (seen.result == -EPIPE ? "-32" : "127")});
        } else if (call == "fclose") { // closes the tool's input, or a stream that is no longer used
            EXPECT_TRUE(seen.result == -injected.error || seen.result == 0);
            EXPECT_EQ(seen.lines, seen.result == 0 ? Lines{} : with_code);
        } else {
            EXPECT_EQ(seen.result, -injected.error);
            EXPECT_EQ(seen.lines, with_code);
        }
        EXPECT_STREQ(text, seen.result == 0 ? "" : "password failed policy check");
    };
    Sweep("ddal_auth_set_user_password",
          [] { return ddal_auth_set_user_password(kUser, "secret1234", text, sizeof text); })
        .judged_by(judge)
        .run();
    Sweep("ddal_auth_set_user_password",
          [] { return ddal_auth_set_user_password(kUser, "secret1234", text, sizeof text); })
        .only("exec")
        .judged_by([&](const Injected &injected, const Outcome &seen) {
            // The end of the program and the first byte written to it race.
            EXPECT_TRUE(injected.call.empty() ? seen.result == 0 : seen.result == -1026 || seen.result == -EPIPE);
        })
        .run();
}

} // namespace
