// Edits that SIGKILL cuts off at any system call, and edits by two processes at once.
#include <ddal/auth.h>
#include <ddal/sshd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <regex>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "auth/service_accounts.h"
#include "support/board.h"

using namespace testing_board;

namespace {

// Runs an operation in a child and kills the child at its nth stop, before or after a system call. Returns false if the
// child ended earlier. Returns only when every process that it started has ended.
bool is_killed_at(unsigned nth, const std::function<void()> &operation)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        operation();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD);
    unsigned stops = 0;
    int passed_on = 0; // signals reach the child unchanged
    while (stops < nth && ptrace(PTRACE_SYSCALL, child, nullptr, passed_on) == 0) {
        waitpid(child, &status, 0);
        if (!WIFSTOPPED(status))
            break;
        const bool at_call = WSTOPSIG(status) == (SIGTRAP | 0x80);
        stops += at_call;
        passed_on = at_call ? 0 : WSTOPSIG(status);
    }
    const bool killed = WIFSTOPPED(status);
    if (killed)
        kill(child, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    return killed;
}

// Removes the stray names that a killed edit may leave. Any other name in the folder is a fault.
void expect_strays_only(const std::string &folder, const std::set<std::string> &known)
{
    static const std::regex stray("\\.ddal-[A-Za-z0-9]{6}");
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        if (known.contains(name))
            continue;
        EXPECT_TRUE(std::regex_match(name, stray)) << name;
        std::filesystem::remove(entry.path());
    }
}

std::set<std::string> names_in(const std::string &folder)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.insert(entry.path().filename());
    return names;
}

struct EditedFile {
    std::string path, before, after;
};

// The files change in this order: a later one never changes without the earlier ones.
void expect_whole_files_wherever_it_is_killed(const std::vector<EditedFile> &files,
                                              const std::function<void()> &operation)
{
    std::vector<std::set<std::string>> names;
    for (const EditedFile &file : files) {
        put_file(file.path, file.before);
        names.push_back(names_in(std::filesystem::path(file.path).parent_path()));
    }
    unsigned nth = 1;
    unsigned changed = 0;
    while (is_killed_at(nth, operation)) {
        bool earlier = true;
        for (size_t i = 0; i < files.size(); ++i) {
            const std::string content = file_content(files[i].path);
            ASSERT_TRUE(content == files[i].before || content == files[i].after) << "killed at " << nth << "\n"
                                                                                 << content;
            EXPECT_TRUE(earlier || content == files[i].before) << "killed at " << nth;
            earlier = content == files[i].after;
            changed += earlier;
            EXPECT_TRUE(is_unlocked(files[i].path)) << "killed at " << nth;
            expect_strays_only(std::filesystem::path(files[i].path).parent_path(), names[i]);
            put_file(files[i].path, files[i].before);
        }
        ++nth;
    }
    for (const EditedFile &file : files)
        EXPECT_EQ(file_content(file.path), file.after) << "the last run was not killed";
    EXPECT_GT(changed, 0u) << "no kill came late enough";
    std::cout << "killed at " << nth - 1 << " places" << std::endl;
}

TEST(Interruption, SshdConfigurationsAreOldOrNewAfterAKilledEdit)
{
    install_daemon();
    const EditedFile live = {kLiveConfig, "UsePAM yes\nClientAliveInterval 1\n",
                             "UsePAM yes\nClientAliveInterval 42\n"};
    EXPECT_TRUE(daemon_accepts(live.before) && daemon_accepts(live.after));
    const EditedFile persistent = {kPersistentConfig, "ClientAliveInterval 9\n", "ClientAliveInterval 42\n"};
    expect_whole_files_wherever_it_is_killed(
        {live, persistent}, [] { ddal_sshd_set_parameter("ClientAliveInterval", "42", DDAL_SSHD_PERSIST); });
}

TEST(Interruption, PamFileIsOldOrNewAfterAKilledEdit)
{
    const std::string line = "password required pam_pwhistory.so remember=";
    const EditedFile pam = {kPamFile, line + "5 use_authtok\n# rest\n", line + "12 use_authtok\n# rest\n"};
    expect_whole_files_wherever_it_is_killed({pam, {"/rom/etc/security/pwhistory_remember", "5\n", "12\n"}},
                                             [] { ddal_auth_set_password_history_len(12); });
}

constexpr int kEdits = 25;

void edit_many_times(const char *name)
{
    for (int i = 1; i <= kEdits; ++i)
        if (ddal_sshd_set_parameter(name, std::to_string(i).c_str(), DDAL_SSHD_PERSIST) != 0)
            _exit(1);
}

void expect_both_edits(const std::string &before)
{
    const std::string last = std::to_string(kEdits) + "\n";
    EXPECT_EQ(file_content(kLiveConfig),
              with(with(before, "Interval 0\n", "Interval " + last), "Max 0\n", "Max " + last));
    const std::string interval = "ClientAliveInterval " + last;
    const std::string count = "ClientAliveCountMax " + last;
    const std::string persistent = file_content(kPersistentConfig);
    EXPECT_TRUE(persistent == interval + count || persistent == count + interval) << persistent;
}

TEST(Interruption, TwoEditorsLoseNothingAndReadersSeeWholeFiles)
{
    install_daemon();
    put_program("/usr/sbin/sshd", "#!/bin/sh\nexec cat >/dev/null\n"); // quick, so that the two edits often overlap
    const std::string before = "UsePAM yes\nClientAliveInterval 0\nClientAliveCountMax 0\n# the end\n";
    const std::regex whole("UsePAM yes\nClientAliveInterval [0-9]+\nClientAliveCountMax [0-9]+\n# the end\n");

    put_file(kLiveConfig, before);
    std::filesystem::remove(kPersistentConfig);
    for (const char *name : {"ClientAliveInterval", "ClientAliveCountMax"})
        if (fork() == 0) {
            edit_many_times(name);
            _exit(0);
        }
    int left = 2;
    for (int status = 0; left > 0;) {
        EXPECT_TRUE(std::regex_match(file_content(kLiveConfig), whole));
        if (waitpid(-1, &status, WNOHANG) > 0) {
            --left;
            EXPECT_EQ(status, 0);
        }
    }
    expect_both_edits(before);

    put_file(kLiveConfig, before);
    std::filesystem::remove(kPersistentConfig);
    std::thread one(edit_many_times, "ClientAliveInterval");
    std::thread other(edit_many_times, "ClientAliveCountMax");
    one.join();
    other.join();
    expect_both_edits(before);
}

// The persistent number and the one in the PAM file are two files. The last setter sets both.
TEST(Interruption, TwoSettersOfTheHistoryLengthAgree)
{
    constexpr const char *kStored = "/rom/etc/security/pwhistory_remember";
    const std::string line = "password required pam_pwhistory.so remember=";
    put_file(kPamFile, line + "0 use_authtok\n");
    for (const uint32_t first : {100u, 200u})
        if (fork() == 0) {
            for (uint32_t i = first; i < first + kEdits; ++i)
                if (ddal_auth_set_password_history_len(i) != 0)
                    _exit(1);
            _exit(0);
        }
    for (int status = 0; waitpid(-1, &status, 0) > 0;)
        EXPECT_EQ(status, 0);
    const std::string stored = file_content(kStored);
    EXPECT_TRUE(stored == "124\n" || stored == "224\n") << stored;
    EXPECT_EQ(file_content(kPamFile), line + stored.substr(0, 3) + " use_authtok\n");
}

} // namespace
