// ddalctl on a board: its output, its exit status, its JSON document.
#include <csignal>
#include <cstdlib>

#include <gmock/gmock.h>

#include "support/board.h"
#include "support/board_file.h"
#include "tools/ddalctl.h"

using namespace testing_board;
using namespace std::chrono_literals;

TEST(Ddalctl, PrintsASingleValueAlone)
{
    ctl("fpga set 0x140900 0xcafe0001");
    const Finished run = ddalctl("fpga read 0x140900");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "0xcafe0001\n");
    EXPECT_EQ(run.err, "");
}

TEST(Ddalctl, PrintsSeveralRegistersAsATable)
{
    ctl("fpga set 0x200 1");
    ctl("fpga set 0x204 0xff");
    EXPECT_EQ(ddalctl("fpga read 512 2").out, "address     value\n"
                                              "0x00000200  0x00000001\n"
                                              "0x00000204  0x000000ff\n");
    const Json registers = ddalctl_json("fpga read 0x200 2").at("registers");
    EXPECT_EQ(registers, Json::parse(R"([{"address": 512, "value": 1}, {"address": 516, "value": 255}])"));
}

// Each line changes the board through one operation. Another operation reads the effect.
TEST(Ddalctl, ChangesTheBoard)
{
    struct {
        const char *command;
        const char *control;
        const char *state;
    } const cases[] = {
        {"fpga write 0x100 0x12345678", "fpga get 0x100", "0x12345678\n"},
        {"fpga masked-write 0x100 0x0000ff00 0xaaaaaaaa", "fpga get 0x100", "0x1234aa78\n"},
        {"cpld write 0x10 0xa5", "cpld get 0x10", "0xa5\n"},
    };
    for (const auto &row : cases) {
        const Finished run = ddalctl(row.command);
        EXPECT_EQ(run.status, 0) << row.command << run.err;
        EXPECT_EQ(run.out, "") << row.command;
        EXPECT_EQ(ctl(row.control), row.state) << row.command;
    }
}

TEST(Ddalctl, ReadsBackWrittenValues)
{
    struct {
        const char *write;
        const char *read;
        const char *document;
    } const cases[] = {
        {"dfe write 0x20 00a1b2c3", "dfe read 0x20 4", R"({"address": 32, "bytes": "00a1b2c3"})"},
        {"mem write 0x2620018 0x1234 --width 16", "mem read 0x2620018", R"({"address": 39976984, "value": 4660})"},
        {"sysinfo set 3 0x10 1 0xffffffffffffffff", "sysinfo get 3 16 1", R"({"value": 18446744073709551615})"},
        {"power-meter set-loops 77", "power-meter show", R"({"loops": 77, "range": 1})"},
        {"devicetree set-isti 0x80000000", "devicetree get isti", R"({"isti": 2147483648})"},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(ddalctl_json(row.write), Json::object()) << row.write;
        EXPECT_EQ(ddalctl_json(row.read), Json::parse(row.document)) << row.read;
    }
    EXPECT_EQ(ddalctl("dfe masked-write 0x20 00ff0f00 ffffffff").status, 0);
    EXPECT_EQ(ddalctl("dfe read 0x20 4").out, "00ffbfc3\n");
}

TEST(Ddalctl, ReportsTheBoard)
{
    const Json board = ddalctl_json("board");
    EXPECT_EQ(board.at("board-type"), 9);
    EXPECT_EQ(board.at("eth1"), ddalctl_json("devicetree mac eth1").at("mac"));
    EXPECT_EQ(board.at("fpga-version"), ddalctl_json("fpga version").at("version"));

    // A board that lacks a property still has a report.
    const KeptFile kept("/proc/device-tree/board-identity/die-id");
    ASSERT_EQ(unlink("/proc/device-tree/board-identity/die-id"), 0);
    const Finished run = ddalctl("--json board");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(document_of(run).at("die-id"), nullptr);
    EXPECT_EQ(document_of(run).at("serial-number"), board.at("serial-number"));
}

TEST(Ddalctl, KeepsTheDocumentValidForEveryProperty)
{
    const std::string property = "/proc/device-tree/board-identity/board-description";
    const KeptFile kept(property);
    put_file(property, std::string("\"quoted\"\n\xff\x1b[31m", 16));
    const Json board = ddalctl_json("board");
    EXPECT_NE(board.at("description").get<std::string>().find("\"quoted\"\n"), std::string::npos);
}

TEST(Ddalctl, FollowsTheFrame)
{
    const uint64_t before = ddalctl_json("frame show").at("bcn");
    const Json watched = events_of(ddalctl("--json frame watch --count 25")).back();
    EXPECT_EQ(watched.at("frames"), 25);
    const Json after = ddalctl_json("frame show");
    EXPECT_GE(after.at("bcn").get<uint64_t>(), before + 24 + watched.at("missed").get<uint64_t>());
    EXPECT_EQ(after.at("bcn").get<uint64_t>() % 4096, after.at("sfn"));

    const uint32_t wanted = (after.at("sfn").get<uint32_t>() + 200) % 4096;
    const uint32_t reached = ddalctl_json("frame wait " + std::to_string(wanted)).at("sfn");
    EXPECT_LT((reached - wanted + 4096) % 4096, 100u); // a busy machine wakes the program late
}

// What ends a watch leaves whole lines, and the totals.
TEST(Ddalctl, PrintsEachEventAsItHappens)
{
    const auto enough = std::getenv("VBOARD_EMULATOR") ? 8s : 2s; // the first line comes after a second
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const auto words = words_of(std::string(DDALCTL_PROGRAM) + " --json frame watch");
        const Finished frames = run_and_signal(words, enough, signal);
        EXPECT_EQ(frames.status, 0) << frames.err;
        const std::vector<Json> events = events_of(frames);
        ASSERT_FALSE(events.empty()) << signal;
        EXPECT_EQ(events.front().at("event"), "frames");
        EXPECT_EQ(events.back().at("event"), "end");
    }
    EXPECT_EQ(events_of(ddalctl("--json power-meter watch --count 2")).at(1).at("event"), "record");
    EXPECT_EQ(run_program({DDALCTL_PROGRAM, "events", "--only", ""}).status, 2);
    EXPECT_EQ(ddalctl("laa sas --timeout 50").status, 0);
    EXPECT_EQ(ddalctl("frame wait --timeout 5000").status, 0);
    const std::vector<Json> late = events_of(ddalctl("--json power-meter watch --count 9999 --timeout 300"));
    EXPECT_EQ(late.back().at("error").at("name"), "ETIMEDOUT");
}

TEST(Ddalctl, ReportsMemoryThatDoesNotAnswer)
{
    const Finished run = ddalctl("--json mem read 0x180000000"); // beyond the end of the memory
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(document_of(run).at("error").at("name"), "EFAULT");
}

TEST(Ddalctl, TellsTheNextStepAndTheLogOnRequest)
{
    ASSERT_EQ(ddalctl("ffs mount 1 ext4").status, 0);
    const Finished again = ddalctl("ffs mount 1 ext4");
    EXPECT_THAT(again.err, testing::HasSubstr("cannot mount a file system"));
    EXPECT_THAT(again.err, testing::HasSubstr("Device or resource busy (-16, EBUSY)"));
    EXPECT_THAT(again.err, testing::HasSubstr("ddalctl ffs remount"));
    const Finished hooks = ddalctl("--json --verbose atboot run");
    EXPECT_TRUE(document_of(hooks).is_object());
    EXPECT_THAT(hooks.err, testing::ContainsRegex("[0-9:.]{15} info +ddal_atboot_run:[0-9]+- Running"));
    EXPECT_EQ(ddalctl("--json atboot run").err, "");
}

TEST(Ddalctl, ReportsHowAnOperationFailed)
{
    struct {
        const char *fault;
        const char *command;
        int status;
        int code;
        const char *name;
        const char *log;
        const char *path; // NULL: none was accessed
    } const cases[] = {
        {"pread:/dev/fpga_usr errno=EIO", "fpga read 0", 1, -EIO, "EIO", "fpga read failed: Input/output error",
         "/dev/fpga_usr"},
        {"pread:/dev/fpga_usr short=0", "fpga version", 1, -1001, "DDAL_ERR_FAILURE", "unexpected len",
         "/dev/fpga_usr"},
        {"open:/dev/cpld-usr errno=ENODEV", "cpld read 0", 3, -ENODEV, "ENODEV", "can't open device cpld",
         "/dev/cpld-usr"},
        {"open:/dev/dfe errno=EACCES", "dfe read 0 1", 1, -EACCES, "EACCES", "can't open device dfe", "/dev/dfe"},
        {"open:/dev/mem errno=EPERM", "mem read 0x1000", 1, -EPERM, "EPERM", "error open /dev/mem", "/dev/mem"},
        {"open:/dev/fpga_frame errno=EACCES", "fpga read 0", 1, -EACCES, "EACCES", "", "/dev/fpga_frame"},
        {"open:/dev/fpga_frame errno=ENOENT", "fpga read 0", 3, -ENODEV, "ENODEV", "", "/dev/fpga_frame"},
        {"*:nothing errno=EIO", "devicetree mac eth2", 3, -ENODEV, "ENODEV", "not supported interface", nullptr},
        {"*:nothing errno=EIO", "sysinfo get 99 99", 3, -ENOENT, "ENOENT", "", nullptr},
    };
    for (const auto &row : cases) {
        const Fault fault(row.fault);
        const Finished run = ddalctl(std::string("--json ") + row.command);
        EXPECT_EQ(run.status, row.status) << row.command;
        const Json error = document_of(run).at("error");
        EXPECT_EQ(error.at("code"), row.code) << row.command;
        EXPECT_EQ(error.at("name"), row.name) << row.command;
        EXPECT_NE(error.at("message"), "") << row.command;
        EXPECT_NE(error.at("log").dump().find(row.log), std::string::npos) << row.command << ": " << error;
        EXPECT_EQ(error.at("path"), row.path ? Json(row.path) : Json(nullptr)) << row.command;
        EXPECT_EQ(run.err, "") << row.command;
    }
}

TEST(Ddalctl, RefusesWrongUseBeforeItAccessesTheBoard)
{
    const Fault loaded("open:/dev/fpga_frame errno=EIO count=0");
    for (const char *line : {"",
                             "nosuch",
                             "fpga",
                             "fpga nosuch",
                             "fpga read",
                             "fpga read 0 1 2",
                             "fpga read 0x",
                             "fpga read 12a",
                             "fpga read 0x1g",
                             "fpga read -1",
                             "fpga write 0",
                             "dfe write 0 abc",
                             "dfe write 0 xy",
                             "dfe masked-write 0 ff ffff",
                             "mem read 0 --width 12",
                             "mem write 0 256 --width 8",
                             "frame watch --count",
                             "sysinfo set 0 1 2",
                             "devicetree get nosuch",
                             "--completion csh",
                             "fpga read 0 --nosuch"}) {
        const Finished run = ddalctl(std::string(line) + " --json");
        EXPECT_EQ(run.status, 2) << line;
        EXPECT_EQ(document_of(run).at("error").at("code"), -EINVAL) << line;
        EXPECT_EQ(run.err, "") << line;
    }
    EXPECT_EQ(loaded.seen(), 0u);
}

// Numbers and ranges beyond what a command can reach are wrong use, and the message says what it can reach. Those that
// just fit get as far as the board, which cannot be opened here.
TEST(Ddalctl, RefusesNumbersAndRangesThatLeaveTheSpace)
{
    const Fault board("open:/dev/fpga_frame errno=EIO count=0");
    const char *const registers = "0x0 to 0xffffffff";
    const char *const memory = "0x0 to 0x7fffffffffffffff";
    const char *const module = "0x0 to 0xff";
    struct {
        const char *command;
        const char *allowed; // null: it fits
    } const cases[] = {
        {"fpga read 0xfffffff8 3", registers},
        {"fpga read 0xfffffff8 2", nullptr},
        {"fpga read 4294967296", "0 to 4294967292"},
        {"fpga read 2", "0 to 4294967292 in steps of 4"},
        {"cpld read 1", "in steps of 4"},
        {"rf-fpga read 2", "in steps of 4"},
        {"rf-fpga read 2 --device 1", nullptr},
        {"rf-fpga read 0 2 --device 1", "1 to 1"},
        {"rf-fpga write 0 256 --device 3", "0 to 255"},
        {"rf-fpga masked-write 0 256 0 --device 1", "0 to 255"},
        {"rf-fpga set-bit 0 8 --device 2", "0 to 7"},
        {"cma read 2", "in steps of 4"},
        {"cma alloc ddr 0", "1 to 4294967295"},
        {"mem read 2", "not a multiple of 4"},
        {"dfe read 0 0", "1 to 65536"},
        {"slow-measurement set-period 150", "100 to 1000 in steps of 100"},
        {"clock wait-pps --timeout 9", "10 to 86400000"},
        {"led set global green", "disabled, enabled"},
        {"led set rf disabled", "off, green, red"},
        {"ssh set LoginGraceTime 3", "ClientAliveInterval, ClientAliveCountMax"},
        {"ssh set ClientAliveInterval 65536", "0 to 65535"},
        {"ssh set ClientAliveCountMax 0", "1 to 255"},
        {"password history -1", "decimal"},
        {"password reset root --yes", "toor4qrx, serviceuser"},
        {"ssh keys reset root --yes", "toor4qrx, serviceuser"},
        {"devicetree mac eth9", "eth0, eth1, eth2, eth3"},
        {"boot reset-count 256", "0 to 255"},
        {"switch synce 9", "10 to 21"},
        {"switch synce 17", "10 to 16 and 18 to 21"},
        {"switch weights 20 1,2,3,4,5,6,7,2147483648", "0 to 2147483647"},
        {"switch tunnel 50 1", "0 to 49"},
        {"switch join 20 0", "1 to 20"},
        {"switch set-ports 7 none", "0 to 6"},
        {"switch counters 20 --count 1", "--watch"},
        {"switch ethertype-svlan 20 0x5ff", "1536 to 65535"},
        {"sfp watch 1 --interval 9", "10 to 3600000"},
        {"events --timeout 0", "1 to 86400000"},
        {"fpga read 0 0", "1 to 4096"},
        {"fpga read 0 4097", "1 to 4096"},
        {"rf-fpga read 0xfffffffc 2", registers},
        {"rf-fpga write 0xffffffff 0 --device 1", nullptr},
        {"rf-fpga set-bit 0 32", "0 to 31"},
        {"rf-fpga read-block 0xffffffff 2", registers},
        {"rf-fpga write-block 0xffffffff 0102", registers},
        {"rf-fpga masked-write-block 0xffffffff 0102 0304", registers},
        {"cpld write 0 256", "0 to 255"},
        {"dfe read 0xffff0001 65536", registers},
        {"dfe read 0xffff0000 65536", nullptr},
        {"dfe write 0xffffffff 0102", registers},
        {"dfe masked-write 0xffffffff ffff 0102", registers},
        {"cma read 0xfffffffc 2", registers},
        {"mem read 0x7ffffffffffffffc 2", memory},
        {"mem read 0x7ffffffffffffff8 2", nullptr},
        {"mem write 0x8000000000000000 1", memory},
        {"phy read 0 32", "0 to 31"},
        {"phy write 0 0 0 --page 65536", "0 to 65535"},
        {"sfp read 1 id 200 57", module},
        {"sfp read 1 id 200 56", nullptr},
        {"sfp write 1 255 0102", module},
        {"rfcard message 0 --send 00 --receive 252", "0 to 252"},
        {"frame wait 4096", "0 to 4095"},
        {"frame watch --count 0", "1 to 4294967295"},
        {"clock jitter-cleaner-write 0x1000000", "0 to 16777215"},
    };
    for (const auto &row : cases) {
        const Finished run = ddalctl(row.command);
        EXPECT_EQ(run.status, row.allowed ? 2 : 1) << row.command << ": " << run.err;
        if (row.allowed) {
            EXPECT_NE(run.err.find(row.allowed), std::string::npos) << row.command << ": " << run.err;
        }
    }
}

TEST(Ddalctl, ColoursTheDoctorsPageOnATerminalOnly)
{
    const std::string coloured = "dfe\r\n  \033[32mok     \033[0m  /dev/dfe\r\nboard type 9, 1 needs: no problem\r\n";
    const std::vector<std::string> words{DDALCTL_PROGRAM, "doctor", "dfe"};
    EXPECT_EQ(run_on_terminal(words).out, coloured);
    EXPECT_EQ(run_program(words).out, "dfe\n  ok       /dev/dfe\nboard type 9, 1 needs: no problem\n");
    setenv("NO_COLOR", "1", 1);
    EXPECT_EQ(run_on_terminal(words).out.find('\033'), std::string::npos);
    unsetenv("NO_COLOR");
}
