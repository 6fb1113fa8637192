// Every failure of every call that the exported operations of the core make.
#include <ddal/common.h>
#include <ddal/cpu.h>
#include <ddal/mem.h>
#include <ddal/rpram.h>
#include <ddal/security.h>
#include <ddal/sysinfo.h>
#include <ddal/trbl.h>
#include <ddal/version.h>
#include <ddal/wifi.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <unistd.h>

#include <gtest/gtest.h>

#include "file_lock.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

// An operation that reads one file with ddal_common_read_file.
struct Reading {
    const char *name;
    const char *path;
    std::function<long()> operation;
    Outcome success;
    Outcome cut;     // when the file ends after one byte
    Outcome emptied; // when it holds nothing
    std::vector<std::string> callers = {};
    bool sizes_only = false;
};

TEST(Sweep, Readers)
{
    static char buffer[64];
    static uint32_t value;
    static uint64_t number;
    constexpr const char *kText = "/flash/text";
    constexpr const char *kCells = "/flash/cells";
    constexpr const char *kWord = "/ram/hwapi/isti";
    constexpr const char *kRate = "/sys/kernel/debug/clk/gem0/clk_rate";
    constexpr const char *kLinux = "/proc/device-tree/post/linuxid";
    constexpr const char *kSecure = "/proc/device-tree/security/secure_env";
    const Outcome done{0, {}};
    const Outcome no_data{-ENODATA, {}};
    const Outcome no_id{-1001, {"3 ddal_common_linux_id_get: invalid linux ID: -48"}};
    const Outcome no_mode{-EFAULT, {"3 ddal_security_is_secure_env: security mode is undefined"}};
    put_file(kText, "hello");
    put_file(kCells, std::string("\0\0\0\7", 4));
    put_file(kSecure, "2"); // a good answer would be cached, and the file would not be read again
    ASSERT_EQ(ddal_kvb_rpram_set_isti(1), 0);
    const Reading cases[] = {
        {"ddal_common_read_file",
         kText,
         [] { return ddal_common_read_file(buffer, 4, kText); },
         {5, {}},
         {1, {}},
         done},
        {"ddal_common_read_file, size",
         kText,
         [] { return ddal_common_read_file(nullptr, 0, kText); },
         {5, {}},
         done,
         done,
         {},
         true},
        {"ddal_common_read_string", kText, [] { return ddal_common_read_string(4, buffer, kText); }, done, done, done},
        {"ddal_kvb_common_read_string_to_u64", kRate,
         [] { return ddal_kvb_common_read_string_to_u64(&number, kRate, 10); }, done, done, no_data},
        {"ddal_common_read_u32val", kCells, [] { return ddal_common_read_u32val(&value, kCells); }, done, no_data,
         no_data},
        {"ddal_kvb_rpram_get_isti", kWord, [] { return ddal_kvb_rpram_get_isti(0, &value); }, done, no_data, no_data},
        {"ddal_cpu_get_clk_rate", kRate, [] { return ddal_cpu_get_clk_rate(&value); }, done, done, no_data},
        {"ddal_version_get_lfs_version",
         "/etc/version",
         [] {
             size_t size = sizeof buffer;
             return ddal_version_get_lfs_version(buffer, &size);
         },
         done,
         done,
         done,
         {"3 ddal_version_get_lfs_version: cannot read /etc/version: %d"}},
        {"ddal_common_linux_id_get",
         kLinux,
         [] { return ddal_common_linux_id_get(&value); },
         done,
         no_id,
         no_id,
         {"3 ddal_common_linux_id_get: linux ID get error: %d"}},
        {"ddal_security_is_secure_env",
         kSecure,
         [] { return ddal_security_is_secure_env(&value); },
         no_mode,
         no_mode,
         no_mode,
         {"3 ddal_security_is_secure_env: error"}},
    };
    for (const Reading &c : cases) {
        const auto line = [&](const char *what) {
            return fails_through(std::string("3 ddal_common_read_file: error ") + what + " " + c.path + ": %m",
                                 c.callers);
        };
        Sweep(c.name, c.operation)
            .succeeds(c.success.result, c.success.lines)
            .when("fopen", line("open"))
            .when("fread/EIO", c.sizes_only ? changes_nothing() : line("read"))
            .when("fread/short", fails(c.cut.result, c.cut.lines))
            .when("fread/end", fails(c.emptied.result, c.emptied.lines))
            .when("fseek", line("seek"))
            .when("ftell", line("tell"))
            .when("fclose", changes_nothing())
            .run();
    }
}

TEST(Sweep, Writers)
{
    static const uint32_t value = 7;
    const struct {
        const char *name;
        const char *logs_as;
        std::function<long()> operation;
        const char *path;
    } cases[] = {
        {"ddal_common_write_string", "ddal_common_write_string",
         [] { return ddal_common_write_string("text", "/flash/out"); }, "/flash/out"},
        {"ddal_common_write_u32val", "ddal_common_write_u32val_array",
         [] { return ddal_common_write_u32val(&value, "/flash/out"); }, "/flash/out"},
        {"ddal_kvb_rpram_set_isti", "ddal_common_write_u32val_array", [] { return ddal_kvb_rpram_set_isti(value); },
         "/ram/hwapi/isti"},
    };
    put_file("/flash/out", "");
    for (const auto &c : cases) {
        const auto line = [&](const char *what) {
            return std::string("3 ") + c.logs_as + ": error " + what + " " + c.path + ": %m";
        };
        // The operation opens the start-up word's file twice. The first open creates it and logs nothing.
        const bool creates = strcmp(c.path, "/flash/out") != 0;
        const Expectation silent = fails_with_errno_or(-EIO, {});
        const Expectation unopened = fails_with_errno(line("open"));
        Sweep(c.name, c.operation)
            .succeeds(0)
            .when("mkdir", silent)
            .when("open", creates ? in_turn({silent, silent, unopened}) : unopened)
            .when("write/EIO", fails_with_errno(line("write")))
            .when("write/end", fails(-EIO, {line("write") + "*"}))
            .when("close", in_turn({fails_with_errno(line("close")), changes_nothing()}))
            .run();
    }
}

using Stream = std::unique_ptr<FILE, int (*)(FILE *)>;

TEST(Sweep, Runners)
{
    static char text[16];
    const Stream in(tmpfile(), fclose);
    const Stream out(tmpfile(), fclose);
    fputs("input", in.get());
    long last = 0;
    const struct {
        const char *name;
        const char *kind;
        const char *program;
        std::function<long(const char *, char **)> run;
        Expectation closing; // closing a stream to or from the program
    } cases[] = {
        {"_ddal_common_shell_command", "system", "/bin/true", _ddal_common_shell_command, changes_nothing()},
        {"_ddal_common_shell_command_read", "popen", "/bin/true",
         [](const char *path, char **argv) { return _ddal_common_shell_command_read(sizeof text, text, path, argv); },
         changes_nothing()},
        {"_ddal_common_shell_command_write_fp", "popen", "/bin/true",
         [&](const char *path, char **argv) { return _ddal_common_shell_command_write_fp(in.get(), 1, path, argv); },
         changes_nothing()},
        {"_ddal_common_shell_command_read_write_fp", "popen", "/bin/sleep",
         [&](const char *path, char **argv) {
             return _ddal_common_shell_command_read_write_fp(in.get(), 0, out.get(), path, argv);
         },
         // Of the two closes only the feeding thread's decides the result; `last` shows which one failed.
         [&](const Injected &, const Outcome &success) {
             return last == -EIO ? Outcome{-EIO, {}} : success;
         }},
    };
    for (const auto &c : cases) {
        const std::string prefix = std::string("3 ") + c.name + ": ";
        const Expectation not_started = [&](const Injected &injected, const Outcome &) {
            return Outcome{-injected.error,
                           {prefix + c.kind + " ('" + c.program + "') failed: " + std::to_string(-injected.error)}};
        };
        // The child may have ended before its input is flushed.
        const Expectation not_executed = [&](const Injected &, const Outcome &) {
            return Outcome{last == -EPIPE ? -EPIPE : 127, {}};
        };
        const Expectation unread = strstr(c.name, "_read") && !strstr(c.name, "_fp")
                                       ? fails(-EIO, {prefix + "ferror(out *"})
                                       : fails(-EIO, {});
        Sweep(c.name,
              [&] {
                  char seconds[] = "0.1";
                  char *argv[] = {nullptr, seconds, nullptr};
                  return last = c.run(c.program, argv);
              })
            .before([&] { rewind(in.get()); })
            .succeeds(0)
            .when("pipe", not_started)
            .when("fdopen", not_started)
            .when("fork", not_started)
            .when("poll", changes_nothing())
            .when("open:/dev/null", not_executed)
            .when("open:/proc/*", not_executed)
            .when("fread/EIO", unread)
            .when("fread/short", changes_nothing())
            .when("fread/end", changes_nothing())
            .when("fwrite/EIO", fails_with_errno_or(-EIO, {}))
            .when("fwrite/ENOSPC", fails_with_errno_or(-EIO, {}))
            .when("pthread_create", fails_with_errno_or(-EIO, {}))
            .when("fclose", c.closing)
            .run();
    }
}

// The caller dies during the start: before the supervisor, in it, or in front of the program.
TEST(Runners, StartNothingForADeadCaller)
{
    for (const char *place : {"open:/dev/null", "open:/proc/*", "exec"}) {
        for (const bool dies : {false, true}) {
            std::filesystem::remove("/flash/started");
            const Fault slow(std::string(place) + " delay=300ms");
            const pid_t caller = start_child([] {
                char file[] = "/flash/started";
                char *argv[] = {nullptr, file, nullptr};
                return _ddal_common_shell_command("/bin/touch", argv);
            });
            while (slow.fired() == 0)
                usleep(1000);
            if (dies)
                kill(caller, SIGKILL);
            EXPECT_EQ(wait_for_child(caller), dies ? -SIGKILL : 0) << place;
            usleep(dies ? 600000 : 0);
            EXPECT_EQ(std::filesystem::exists("/flash/started"), !dies) << place;
        }
    }
}

TEST(Sweep, Programs)
{
    const struct {
        const char *name;
        std::function<long()> operation;
        const char *program;
        long result; // for any failure to run the program, unless it is passed on
        const char *line;
    } cases[] = {
        {"ddal_trbl_store", [] { return ddal_trbl_store("x"); }, "/sbin/trbl_linux_log_store", -1018,
         "3 ddal_trbl_store: execution of 'trbl_linux_log_store x' failed"},
        {"ddal_sysinfo_update_devicetree_to_flash", ddal_sysinfo_update_devicetree_to_flash, "/usr/bin/l2u-dtb", 0,
         "3 ddal_sysinfo_update_devicetree_to_flash: l2u-dtb update failed: %d"},
    };
    for (const auto &c : cases) {
        const auto with = [&](long code) {
            std::string line = c.line;
            if (const size_t at = line.find("%d"); at != std::string::npos)
                line.replace(at, 2, std::to_string(code));
            return line;
        };
        Sweep(c.name, c.operation)
            .succeeds(0)
            .when("fork",
                  [&](const Injected &, const Outcome &) {
                      return Outcome{
                          c.result ? c.result : -EAGAIN,
                          {std::string("3 _ddal_common_shell_command: system ('") + c.program + "') failed: -11",
                           with(-EAGAIN)}};
                  })
            .when("open:/dev/null", fails(c.result ? c.result : -1001, {with(127)}))
            .when("open:/proc/*", fails(c.result ? c.result : -1001, {with(127)}))
            .run();
    }
}

TEST(Sweep, Memory)
{
    Sweep("ddal_map_soc", [] { return ddal_map_soc() ? 0L : -1L; })
        .before([] { ddal_unmap_soc(); })
        .succeeds(0)
        .when("open", fails(-1, {"3 ddal_map_soc: Error opening /dev/mem to map SoC registers: %m"}))
        .when("mmap", fails(-1, {"3 ddal_map_soc: Error mmaping SoC registers: %m"}))
        .run();
    Sweep("ddal_mem_map_addr",
          [] {
              void *mapped = ddal_mem_map_addr(0x10, 4);
              return mapped ? ddal_mem_unmap_addr(mapped, 4) : -1L;
          })
        .succeeds(0)
        .when("open", fails(-1, {"3 ddal_mem_map_addr: error open /dev/mem: %m"}))
        .when("mmap", fails(-1, {"3 ddal_mem_map_addr: failed to map address 0x10 size 0x4: %m"}))
        .when("munmap", fails(-EINVAL, {}))
        .run();
    Sweep("ddal_trbl_delete", [] { return ddal_trbl_delete("/flash/doomed"); })
        .before([] { put_file("/flash/doomed", ""); })
        .succeeds(0)
        .when("unlink", fails_with_errno("3 ddal_trbl_delete: unlink failed: %m"))
        .run();
}

constexpr const char *kSysinfo = "/flash/config/sysinfo";

TEST(Sweep, SystemInformation)
{
    const auto before = [] { put_file(kSysinfo, "0.13.20 = 1 # old\n"); };
    const auto unlocked = [](const Outcome &) { EXPECT_TRUE(is_unlocked(kSysinfo)); };
    static uint64_t value;
    const std::string get = "3 ddal_sysinfo_get_uint: can't ";
    const auto reading = [&](const char *name, std::function<long()> operation, std::vector<std::string> callers,
                             std::optional<long> failure) {
        const Expectation not_found = [=](const Injected &injected, const Outcome &success) {
            Outcome outcome = fails_through("", callers, failure)(injected, success);
            outcome.lines.erase(outcome.lines.begin());
            return outcome;
        };
        const Expectation line = fails_through(get + "open /flash/config/sysinfo: %m", callers, failure);
        Sweep(name, std::move(operation))
            .before(before)
            .after(unlocked)
            .succeeds(0)
            .when("open/ENOENT", not_found)
            .when("open", line)
            .when("fdopen", line)
            .when("flock/ENOLCK", line)
            .when("fstat", line)
            .when("stat", line)
            .when("getline", fails_through(get + "read /flash/config/sysinfo: -5", callers, failure))
            .when("fclose", changes_nothing())
            .run();
    };
    reading("ddal_sysinfo_get_uint", [] { return ddal_sysinfo_get_uint(0, 13, 20, &value); }, {}, {});
    reading("ddal_is_wifi_supported", ddal_is_wifi_supported,
            {"3 ddal_is_wifi_supported: ddal_sysinfo_get_uint failed to check wifi support, value returned: %d"}, -1);

    const std::string set = "3 ddal_sysinfo_set_uint: can't ";
    const Expectation not_opened = fails_with_errno(set + "open /flash/config/sysinfo: %m");
    const auto numbered = [&](const std::string &what) -> Expectation {
        return [line = set + what](const Injected &injected, const Outcome &) {
            return Outcome{-injected.error, {line + std::to_string(-injected.error)}};
        };
    };
    const Expectation unreplaced = numbered("replace /flash/config/sysinfo: ");
    Sweep("ddal_sysinfo_set_uint", [] { return ddal_sysinfo_set_uint(0, 13, 20, 2); })
        .before(before)
        .watch({"/flash/config"})
        .after([&](const Outcome &seen) {
            std::ifstream file(kSysinfo);
            std::string line;
            std::getline(file, line);
            EXPECT_EQ(line, seen.result == 0 ? "0.13.20 = 2 # old" : "0.13.20 = 1 # old");
            unlocked(seen);
        })
        .succeeds(0)
        .when("stat:/flash/config", numbered("create /flash/config: "))
        .when("open", not_opened)
        .when("fdopen", not_opened)
        .when("flock/ENOLCK", not_opened)
        .when("stat", not_opened)
        .when("fstat", in_turn({not_opened, unreplaced}))
        .when("getline", fails(-EIO, {set + "read /flash/config/sysinfo: -5"}))
        .when("fwrite", fails_with_errno(set + "write /flash/config/sysinfo: %m"))
        .when("fflush", unreplaced)
        .when("fsync:/flash/config", changes_nothing())
        .when("fsync", unreplaced)
        .when("fchmod", unreplaced)
        .when("fchown", unreplaced)
        .when("link", unreplaced)
        .when("rename", unreplaced)
        .when("fclose", changes_nothing())
        .run();
}

} // namespace
