// A program on a board must not change the host. The "host" of these tests is a stage in separate namespaces, so that
// even a hole in the board cannot damage the machine that runs the test.
#include <array>
#include <cstddef>
#include <cstdio>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <vector>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

struct Ran {
    int status;
    std::string output;
};

Ran run(const std::string &command)
{
    Ran ran{-1, {}};
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    std::array<char, 4096> chunk;
    for (size_t n; (n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0;)
        ran.output.append(chunk.data(), n);
    // Where the kernel allows no fence, the start says so.
    if (const size_t at = ran.output.find("vboard: no fence here"); at != std::string::npos)
        ran.output.erase(at, ran.output.find('\n', at) + 1 - at);
    const int status = pclose(pipe);
    ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return ran;
}

void put(const fs::path &path, const std::string &text)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

// Returns the names, modes, owners and contents of a tree.
std::map<std::string, std::string> picture(const fs::path &folder)
{
    std::map<std::string, std::string> seen;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        struct stat info;
        lstat(entry.path().c_str(), &info);
        std::ostringstream text;
        text << std::oct << info.st_mode << " " << info.st_uid << " " << info.st_nlink << " " << info.st_mtime << " ";
        if (entry.is_regular_file())
            text << std::ifstream(entry.path()).rdbuf();
        seen[entry.path().string()] = text.str();
    }
    return seen;
}

// Returns the emulator for a program of another processor; vboard reads the same from the environment.
std::string emulator()
{
    const char *line = getenv("VBOARD_EMULATOR");
    return line ? std::string(line) + " " : "";
}

// A small host: a private /etc, /rom, /var, /sbin and /dev over the machine's read-only /usr.
class Stage {
public:
    Stage()
    {
        char name[] = "/tmp/stage-XXXXXX";
        root_ = mkdtemp(name);
        put(root_ / "host/etc/ssh/sshd_config", "PermitRootLogin no\n");
        put(root_ / "host/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
        put(root_ / "host/etc/hostname", "stage\n");
        put(root_ / "host/rom/image", "rom\n");
        put(root_ / "host/var/log/messages", "log\n");
        put(root_ / "host/opt/file", "opt\n");
        put(root_ / "host/srv/file", "srv\n");

        for (const char *program : {"poweroff", "mkfs.vfat"}) {
            put(root_ / "host/sbin" / program, "#!/bin/sh\necho ran >/opt/ran\n");
            chmod((root_ / "host/sbin" / program).c_str(), 0755);
        }
        fs::create_directories(root_ / "tmp");
    }
    ~Stage() { fs::remove_all(root_); }

    fs::path host() const { return root_ / "host"; }

    // Runs a shell line on the stage.
    Ran play(const std::string &line) const
    {
        std::string command =
            "bwrap --unshare-user --uid 0 --gid 0 --unshare-net --unshare-pid --unshare-uts --die-with-parent "
            "--ro-bind /usr /usr --symlink usr/bin /bin --symlink usr/lib /lib "
            "--symlink usr/lib64 /lib64 --proc /proc --dev /dev --bind " +
            (root_ / "tmp").string() + " /tmp";
        std::vector<std::string> needed{DDAL_BUILD_DIR, fs::path(VBOARD_PROGRAM).parent_path().parent_path()};
        std::istringstream words(emulator());
        for (std::string word; words >> word;)
            if (word.starts_with('/')) // a program's folder of libraries is a link to the folder beside it
                needed.push_back(fs::path(word).parent_path());
        for (const std::string &folder : needed)
            command += " --ro-bind " + folder + " " + folder;
        for (const char *folder : {"etc", "rom", "var", "opt", "srv", "sbin"})
            command += " --bind " + (host() / folder).string() + " /" + folder;
        return run(command + " --chdir /tmp sh -c '" + line + "' </dev/null");
    }

private:
    fs::path root_;
};

const std::string kVboard = VBOARD_PROGRAM;
const std::string kIntruder = std::string(DDAL_BUILD_DIR) + "/tests/vboard/intruder";

} // namespace

TEST(Host, StaysUnchanged)
{
    const Stage stage;
    const auto before = picture(stage.host());
    const Ran flags = stage.play(emulator() + kIntruder + " --flags");
    const Ran ran = stage.play("exec 9</etc; " + kVboard + " run -- " + kIntruder + " 9; echo status $?; " +
                               emulator() + kIntruder + " --flags");
    EXPECT_EQ(ran.output.substr(0, 5), "done\n") << ran.output;
    EXPECT_NE(ran.output.find("status 0\n" + flags.output), std::string::npos) << ran.output;
    EXPECT_EQ(picture(stage.host()), before);
}

// The test above would prove nothing if the stage itself kept the intruder out.
TEST(Host, WouldHaveBeenChangedWithoutTheBoard)
{
    const Stage stage;
    const auto before = picture(stage.host());
    stage.play("exec 9</etc; timeout 20 " + emulator() + kIntruder + " 9");
    EXPECT_NE(picture(stage.host()), before);
    EXPECT_TRUE(fs::exists(stage.host() / "opt/ran"));
}

bool has_fence()
{
    return run(kVboard + " run --fence -- true").status == 0;
}

TEST(Host, IsFenced)
{
    const std::string fence = has_fence() ? "--fence" : "--no-fence";
    char writable[] = "/var/tmp/fenced-XXXXXX";
    const std::string mark = std::string(mkdtemp(writable)) + "/mark";
    const Ran ran = run(kVboard + " run " + fence + " --writable " + writable +
                        " -- /bin/sh -c 'cat /etc/version; echo x >" + mark + "; echo page $VBOARD_PAGE; exit 3'");
    EXPECT_EQ(ran.status, 3) << ran.output;
    EXPECT_NE(ran.output.find("R4.2"), std::string::npos) << ran.output;
    EXPECT_TRUE(fs::exists(mark));

    const size_t page = ran.output.find("page /");
    ASSERT_NE(page, std::string::npos) << ran.output;
    const fs::path board = ran.output.substr(page + 5, ran.output.find("/.vboard", page) - page - 5);
    EXPECT_FALSE(fs::exists(board)) << "the board was not removed";
    fs::remove_all(writable);
}

// The ways to the machine that tests/vboard/bypass.c tries: by calls of libc, and beside libc.
const std::string kByLibc = "link mode owner times attribute flags new-mount account-lock host-id login-record "
                            "shared-memory word system-v";
const std::string kBesideLibc =
    "tcp signal raw-open raw-name raw-mount raw-node raw-clock raw-setting raw-file raw-folder raw-socket";

std::string each(const std::string &ways, const std::string &end)
{
    std::istringstream words(ways);
    std::string lines;
    for (std::string way; words >> way;)
        lines += way + " " + end + "\n";
    return lines;
}

// Runs a shell line over an overlay of the machine's root.
std::string over_overlay(const std::string &line)
{
    return run(ON_OVERLAY " 'cd /tmp; " + line + "' " DDAL_BUILD_DIR " " +
               fs::path(VBOARD_PROGRAM).parent_path().parent_path().string())
        .output;
}

// Runs the ways, and then those of the static program.
std::string bypass(const std::string &start)
{
    const std::string program = DDAL_BUILD_DIR "/tests/vboard/bypass";
    return over_overlay(program + " --machine ready & until [ -s ready ]; do sleep 0.05; done; " +
                        "read port process <ready; " + start + " " + program + " $port $process " + program +
                        "_static </etc/bypass");
}

// Calls what libc exports, and the kernel, at random.
void expect_no_escape(const std::string &start)
{
    const std::string calls = " " DDAL_BUILD_DIR "/tests/vboard/random_calls " + std::to_string(std::random_device{}());
    EXPECT_EQ(over_overlay(start + calls + " 1000"), "tried 1000\nchanged:\n") << start << calls;
}

TEST(Host, IsNotReachedByWaysAroundLibc)
{
    const std::string held = each(kByLibc, "held");
    if (run(ON_OVERLAY " true").output != "changed:\n" || !has_fence()) {
        const Stage stage; // no privilege for an overlay: only the preload library can be tried
        const fs::path file = stage.host() / "srv/file";
        const std::string before = picture(stage.host())[file];
        const Ran ran = stage.play(kVboard + " run -- " DDAL_BUILD_DIR "/tests/vboard/bypass 9 1 9</srv");
        EXPECT_EQ(ran.output.substr(0, held.size()), held) << ran.output;
        EXPECT_EQ(picture(stage.host())[file], before);
        return;
    }
    const std::string all_held = held + each(kBesideLibc, "held");
    EXPECT_EQ(bypass(kVboard + " run --fence --"), all_held + all_held + "changed:\n");
    expect_no_escape(kVboard + " run --fence --");
    const std::string user = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    if (run(user + kVboard + " run --fence -- true").status == 0) {
        EXPECT_EQ(bypass(user + kVboard + " run --fence --"), all_held + all_held + "changed:\n");
        expect_no_escape(user + kVboard + " run --fence --");
    }
    const std::string alone = held + each(kBesideLibc, "reached");
    EXPECT_EQ(bypass(kVboard + " run --no-fence --").substr(0, alone.size()), alone);
    // Without a board the ways lead to the machine.
    const std::string changed = bypass("");
    EXPECT_NE(changed.find("/srv/file\n/srv/link\n/srv/raw\n/srv/through-folder\n/srv/word\n"), std::string::npos)
        << changed;
}

// A socket's name has at most 108 bytes. A name that does not fit below the board must not reach the host.
TEST(Host, IsNotReachedBySocketNamesTooLongForTheBoard)
{
    char folder[] = "/tmp/deep-XXXXXX";
    const std::string board = std::string(mkdtemp(folder)) + "/" + std::string(63, 'd');
    put(std::string(folder) + "/connect.py", "import socket\n"
                                             "s = socket.socket(socket.AF_UNIX)\n"
                                             "for name in '/run/dbus/system_bus_socket', '\\0system-bus-socket':\n"
                                             "    try:\n"
                                             "        s.connect(name)\n"
                                             "    except OSError as error:\n"
                                             "        print(error.strerror)\n");
    const Ran ran = run(kVboard + " run --board " + board + " -- /usr/bin/python3 " + folder + "/connect.py");
    EXPECT_EQ(ran.output, "File name too long\nFile name too long\n");
    fs::remove_all(folder);
}

namespace {

// Puts a text, filled up with NULs, in place of one that is as long or longer.
[[maybe_unused]] void replace_in(const fs::path &file, const std::string &old, const std::string &text)
{
    std::stringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    std::string bytes = content.str();
    const size_t at = bytes.find(old);
    ASSERT_NE(at, std::string::npos) << old;
    std::ofstream(file, std::ios::binary)
        << bytes.replace(at, old.size(), text + std::string(old.size() - text.size(), '\0'));
}

void set_machine(const fs::path &file, uint16_t machine)
{
    const char low = static_cast<char>(machine);
    std::fstream(file, std::ios::in | std::ios::out).seekp(offsetof(Elf64_Ehdr, e_machine)).put(low);
}

} // namespace

TEST(Board, RefusesProgramsThatItCannotIntercept)
{
    char folder[] = "/tmp/escape-XXXXXX";
    const fs::path program = fs::path(mkdtemp(folder)) / "program";
    const std::string native_loader = "/lib64/ld-linux-x86-64.so.2";
    const std::string other = "--emulator '/bin/true -L " + std::string(folder) + "' ";
    const char *foreign = getenv("VBOARD_EMULATOR") ? "has a loader" : "start the board with --emulator";
    // A version 2 record of one permitted capability.
    const unsigned char capability[20] = {0, 0, 0, 2, 0, 4};
    const struct {
        std::string options;
        std::string source;
        std::function<void()> change;
        std::string reason;
    } cases[] = {
        {"", DDAL_BUILD_DIR "/tests/vboard/static_program", [] {}, "is static"},
        {"", "/bin/true", [&] { chmod(program.c_str(), 0755 | S_ISUID); }, "is setuid"},
        {"", "/bin/true",
         [&] {
             if (setxattr(program.c_str(), "security.capability", capability, sizeof capability, 0) != 0)
                 chmod(program.c_str(), 0755 | S_ISGID); // only root gives capabilities
         },
         "is setuid"},
        {"", "/bin/true", [&] { fs::resize_file(program, 45); }, "is static"},
        {"", "/bin/true", [&] { put(program, "#! " DDAL_BUILD_DIR "/tests/vboard/static_program -x\n"); },
         "is a script"},
        {"", "/bin/true", [&] { set_machine(program, EM_386); }, foreign},
        {other, "/bin/true", [&] { set_machine(program, EM_386); }, "has a loader"},
#if defined(__x86_64__)
        {"", "/bin/true", [&] { replace_in(program, native_loader, "/lib/ld-musl-x86_64.so.1"); }, "has a loader"},
        {other, "/bin/true",
         [&] {
             set_machine(program, EM_AARCH64);
             replace_in(program, native_loader, "/lib/ld-linux-aarch64.so.1");
         },
         "has a loader"},
#endif
    };
    for (const auto &row : cases) {
        fs::copy_file(row.source, program, fs::copy_options::overwrite_existing);
        chmod(program.c_str(), 0755);
        row.change();
        for (const std::string &command : {program.string(), "/bin/sh -c " + program.string()}) {
            const Ran ran = run(kVboard + " run " + row.options + "-- " + command);
            EXPECT_EQ(ran.status, 126) << command << ": " << ran.output;
            EXPECT_NE(ran.output.find(row.reason), std::string::npos) << ran.output;
        }
        fs::remove(program);
    }
    fs::remove(folder);
}

TEST(Board, ListsOnlyTypesThatCanRun)
{
    const Ran types = run(kVboard + " types");
    std::istringstream lines(types.output);
    size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const std::string type = line.substr(0, line.find('\t'));
        const Ran ran = run(kVboard + " run --type " + type + " -- true");
        EXPECT_EQ(ran.status, 0) << line << ": " << ran.output;
        EXPECT_GT(line.size(), type.size() + 1) << line << " has no name";
    }
    EXPECT_GE(count, 4u) << types.output;
}

TEST(Board, TwoRunSideBySideWithSeparateState)
{
    const auto board = [](const std::string &type, const std::string &mark) {
        return kVboard + " run --type " + type + " -- /bin/sh -c \"echo " + mark +
               " >/flash/config/mine; sleep 0.5; cat /flash/config/mine\"";
    };
    const Ran ran = run("{ " + board("mbo", "one") + " & " + board("type5", "two") + " & wait; } | sort");
    EXPECT_EQ(ran.output, "one\ntwo\n");
}

TEST(Board, ProgramsOfOneBoardShareIt)
{
    char folder[] = "/tmp/shared-XXXXXX";
    const std::string board = std::string(mkdtemp(folder)) + "/board";
    const Ran ran = run(kVboard + " create " + board + " --type type8 && " + kVboard + " run --board " + board +
                        " -- /bin/sh -c 'sleep 5' & for i in $(seq 100); do " + kVboard + " ctl --board " + board +
                        " fpga set 0x44 0x55aa 2>/dev/null && break; sleep 0.1; done; " + kVboard + " run --board " +
                        board + " -- " + kVboard + " ctl fpga get 0x44; wait");
    EXPECT_NE(ran.output.find("0x000055aa"), std::string::npos) << ran.output;
    fs::remove_all(folder);
}

// The next program may start while the daemon of the last one is still ending.
TEST(Board, RunsOneProgramRightAfterTheOther)
{
    char folder[] = "/tmp/again-XXXXXX";
    const std::string board = std::string(mkdtemp(folder)) + "/board";
    for (int i = 0; i < 25; ++i) {
        const Ran ran = run(kVboard + " run --board " + board + " -- " + kVboard + " ctl link show");
        ASSERT_EQ(ran.status, 0) << "run " << i << ": " << ran.output;
    }
    fs::remove_all(folder);
}

TEST(Board, ListsItsFiles)
{
    const Ran ran = run(kVboard + " run -- ls -l /dev/fpga_usr /etc/version /flash 2>&1 >/dev/null");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.output, "");
}

TEST(Board, ReportsWrongCommands)
{
    const std::pair<const char *, const char *> wrong[] = {
        {"run --type nothing -- true", "nothing.conf"},
        {"run -- /nowhere/program", "cannot run"},
        {"run -- " VBOARD_PROGRAM " run -- true", "a program of a board already"},
        {"ctl --board /tmp models", "no board is running"},
        {"ctl models", "no board named"},
        {"run -- " VBOARD_PROGRAM " ctl fault add pread:/dev/fpga_usr errno=EFOO", "not the name of an error"},
        {"trace --board /tmp", "no trace"},
    };
    for (const auto &[command, text] : wrong) {
        const Ran ran = run(kVboard + " " + command);
        EXPECT_NE(ran.status, 0) << command;
        EXPECT_NE(ran.output.find(text), std::string::npos) << command << ": " << ran.output;
    }
}

TEST(Board, RefusesOptionsThatWouldDoNothing)
{
    char folder[] = "/tmp/options-XXXXXX";
    const std::string board = std::string(mkdtemp(folder)) + "/board";
    const std::string start = kVboard + " run --board " + board;
    EXPECT_EQ(run(start + " --type type8 -- true").status, 0);
    EXPECT_EQ(run(start + " --type type8 -- true").status, 0) << "its own type is no other";
    const Ran other = run(start + " --type mbo -- true");
    EXPECT_EQ(other.status, 1);
    EXPECT_NE(other.output.find("is of another type"), std::string::npos) << other.output;

    const Ran running =
        run("{ " + start + " --speed 2 -- sleep 60 & for i in $(seq 100); do " + kVboard + " ctl --board " + board +
            " models >/dev/null 2>&1 && break; sleep 0.1; done; for option in "
            "\"--speed 3\" --no-trace \"--writable /var\" \"--speed 2\"; do " +
            start + " $option -- echo \"did $option\" 2>/dev/null; done; kill $!; wait; }");
    EXPECT_EQ(running.output, "did --speed 2\n");
    fs::remove_all(folder);
}

// Runs on a stage with a private /tmp and private processes.
TEST(Board, LeavesNothingBehind)
{
    const Stage stage;
    const std::string left = "; ls -d /tmp/* /dev/shm/* 2>/dev/null; grep -l sleep /proc/[0-9]*/comm";
    EXPECT_EQ(stage.play(kVboard + " run --type nothing -- true 2>/dev/null" + left).output, "");
    EXPECT_EQ(stage.play(kVboard + " run -- /bin/sh -c \"sleep 77 &\"" + left).output, "");
    const auto end_by = [&](const std::string &signal, const std::string &program) {
        return stage.play(kVboard + " run -- /bin/sh -c \"echo up >/tmp/up; " + program +
                          "\" & until [ -s /tmp/up ]; do sleep 0.05; done; rm /tmp/up; kill -" + signal +
                          " $!; wait $!; echo $?" + left);
    };
    for (const auto &[signal, status] : {std::pair{"INT", 130}, {"TERM", 143}, {"HUP", 129}, {"QUIT", 131}})
        EXPECT_EQ(end_by(signal, "sleep 77 & exec sleep 77").output, std::to_string(status) + "\n") << signal;

    EXPECT_NE(end_by("KILL", "exec sleep 77").output.find("vboard-"), std::string::npos);
    EXPECT_EQ(stage
                  .play("for i in 1 2 3; do " + kVboard + " run -- true 2>/dev/null; sleep 0.3; done" + left +
                        "; grep -l vboardd /proc/[0-9]*/comm")
                  .output,
              "");
}

// With --real-net, interface requests go to the kernel, in the network of the run and never in that of this machine.
TEST(RealNetwork, IsSeparateFromTheHosts)
{
    const std::string probe =
        "import fcntl,socket,struct\n"
        "s=socket.socket()\n"
        "for name in \"lo\",\"eth0\":\n"
        "  try: print(fcntl.ioctl(s,0x8913,struct.pack(\"16sh22x\",name.encode(),0))[16]&1)\n"
        "  except OSError as e: print(e.strerror)\n"
        "try: print(len(socket.if_nameindex()),socket.socket(socket.AF_NETLINK,socket.SOCK_RAW).fileno()>0)\n"
        "except OSError as e: print(e.strerror)\n"
        "try: socket.socket(socket.AF_INET,socket.SOCK_RAW,1); print(\"raw\")\n"
        "except OSError as e: print(e.strerror)\n";
    char folder[] = "/tmp/network-XXXXXX";
    put(std::string(mkdtemp(folder)) + "/probe.py", probe);
    const std::string python = "/usr/bin/python3 " + std::string(folder) + "/probe.py";

    const Ran usual = run(kVboard + " run -- " + python);
    EXPECT_EQ(usual.output.substr(0, 17), "No such device\n1\n") << "the models' interfaces";
    EXPECT_EQ(usual.output.find("True"), std::string::npos) << usual.output;
    EXPECT_EQ(usual.output.find("raw"), std::string::npos) << usual.output;
    const Ran real = run(kVboard + " run --real-net -- " + python);
    EXPECT_EQ(real.output.substr(0, 17), "1\nNo such device\n") << real.output;
    EXPECT_NE(real.output.find("True"), std::string::npos) << real.output;
    EXPECT_NE(real.output.find("raw"), std::string::npos) << real.output;

    // A program that joins the board from the host's network reaches the interfaces of neither network.
    const std::string board = std::string(folder) + "/board";
    const Ran joined = run("{ " + kVboard + " run --board " + board +
                           " --no-fence --real-net -- /bin/sh -c 'exec sleep 60' & for i in $(seq "
                           "100); do " +
                           kVboard + " ctl --board " + board + " models >/dev/null 2>&1 && break; sleep 0.1; done; " +
                           kVboard + " run --board " + board + " -- " + python + "; " + kVboard + " run --board " +
                           board + " --real-net -- true; echo status $?; kill $!; wait; }");
    EXPECT_EQ(joined.output.substr(0, 48), "Operation not permitted\nOperation not permitted\n") << joined.output;
    EXPECT_NE(joined.output.find("runs already"), std::string::npos) << joined.output;
    EXPECT_NE(joined.output.find("status 1"), std::string::npos) << joined.output;
    fs::remove_all(folder);
}

TEST(Namespaces, AreMissedInOneLine)
{
    const std::string refused = std::string(DDAL_BUILD_DIR) + "/tests/vboard/without_unshare " + kVboard + " run ";
    for (const auto &[option, text] : {std::pair{"--real-net", "cannot create the network namespace of --real-net"},
                                       {"--fence", "no fence can be had here (unshare: "}}) {
        const Ran ran = run(refused + option + " -- /bin/echo ran");
        EXPECT_EQ(ran.status, 1) << ran.output;
        EXPECT_NE(ran.output.find(text), std::string::npos) << ran.output;
        EXPECT_EQ(ran.output.find("ran\n"), std::string::npos) << ran.output;
    }
    const std::string count = "-- true 2>&1 | grep -c 'vboard: no fence here (unshare: '";
    EXPECT_EQ(run(refused + count).output, "1\n");
    EXPECT_EQ(run(refused + "--no-fence " + count).output, "0\n");
    const Ran why = run(refused + "--explain --json");
    EXPECT_EQ(why.output.find("{\"fence\": false, \"obstacle\": \"unshare: "), 0u) << why.output;
}

TEST(Trace, HasOneJsonObjectPerLine)
{
    char folder[] = "/tmp/traced-XXXXXX";
    const std::string board = std::string(mkdtemp(folder)) + "/board";
    run(kVboard + " run --board " + board +
        " -- /bin/sh -c 'dd if=/dev/fpga_usr bs=4 count=1 2>/dev/null; l2u-dtb update'");
    const Ran trace = run(kVboard + " trace --board " + board);
    EXPECT_NE(trace.output.find("\"call\":\"read\",\"path\":\"/dev/fpga_usr\""), std::string::npos) << trace.output;
    EXPECT_NE(trace.output.find("\"data\":\"03020117\""), std::string::npos) << trace.output;
    EXPECT_NE(
        trace.output.find("\"call\":\"exec\",\"path\":\"/usr/bin/l2u-dtb\",\"data\":\"6c32752d64746220757064617465\""),
        std::string::npos)
        << trace.output;
    fs::remove_all(folder);
}
