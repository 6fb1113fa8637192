// The steps of a session with the diagnostic shell, fed byte by byte.
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "support/log_watch.h"
#include "switch/shell/bcmdiag.h"

using namespace ddal::ethswitch;
using testing_board::LogWatch;

namespace {

struct Response {
    int result;
    std::string out;
};

class Pair {
public:
    Pair() { socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_); }
    ~Pair()
    {
        close(ends_[0]);
        close_peer();
    }
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;
    int client() const { return ends_[0]; }
    int peer() const { return ends_[1]; }
    void close_peer()
    {
        if (ends_[1] >= 0)
            close(std::exchange(ends_[1], -1));
    }

private:
    int ends_[2];
};

void put(int fd, const std::string &bytes)
{
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

// Returns the outcome of get_rsp for these packets. With `hang_up` the peer then closes.
Response respond(const std::vector<std::string> &packets, bool hang_up = false)
{
    Pair pair;
    char *text = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    std::thread peer([&] {
        for (const std::string &packet : packets) {
            put(pair.peer(), packet);
            if (packets.size() > 1)
                usleep(500);
        }
        if (hang_up)
            pair.close_peer();
    });
    const int result = get_rsp(pair.client(), out);
    peer.join();
    fclose(out);
    const Response response{result, {text, length}};
    free(text);
    return response;
}

const std::string kGood = "echo of it\r\nfirst\r\nsecond BCM.0> in it\r\n\r\nlast\nBCM.0> ";
const std::string kGoodOut = "first\nsecond BCM.0> in it\n\nlast\n";

} // namespace

TEST(GetRsp, AcceptsAResponseHoweverItIsSplit)
{
    for (size_t at = 0; at <= kGood.size(); ++at) {
        const Response response = respond({kGood.substr(0, at), kGood.substr(at)});
        EXPECT_EQ(response.result, 0) << at;
        EXPECT_EQ(response.out, kGoodOut) << at;
    }
    std::vector<std::string> bytes;
    for (const char byte : kGood)
        bytes.emplace_back(1, byte);
    EXPECT_EQ(respond(bytes).out, kGoodOut);
    EXPECT_EQ(respond({"\nBCM.0> "}).result, 0) << "an echo and the prompt";
}

TEST(GetRsp, EndsWhenThePeerEnds)
{
    for (size_t at = 0; at < kGood.size(); ++at) {
        LogWatch log;
        EXPECT_EQ(respond({kGood.substr(0, at)}, true).result, -ENETDOWN) << at;
        const std::string line = log.take().back();
        EXPECT_NE(line.find(" get_rsp:"), std::string::npos) << line;
        EXPECT_NE(line.find("socket disconnected"), std::string::npos) << line;
    }
}

TEST(GetRsp, PassesLongLinesInPieces)
{
    for (const size_t length : {1022u, 1023u, 1024u, 1025u, 2047u, 2048u, 2049u, 5000u}) {
        const std::string line(length, 'x');
        EXPECT_EQ(respond({"e\n" + line + "\r\nBCM.0> "}).out, line + "\n") << length;
        EXPECT_EQ(respond({"e\n" + line + "\n", "BCM.0> "}).out, line + "\n") << length;
    }
    // A full buffer that ends in a prompt-like text is a piece of a line.
    const std::string deceit = std::string(1017, 'x') + "BCM.0> ";
    EXPECT_EQ(respond({"e\n" + deceit + "tail\nBCM.0> "}).out, deceit + "tail\n");
}

TEST(GetRsp, ReportsAnOutputThatCannotBeWritten)
{
    Pair pair;
    put(pair.peer(), kGood);
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    setvbuf(full, nullptr, _IONBF, 0);
    LogWatch log;
    EXPECT_EQ(get_rsp(pair.client(), full), -ENOSPC);
    EXPECT_NE(log.take().at(0).find("fwrite of 5 bytes No space left on device"), std::string::npos);
    fclose(full);
}

TEST(WriteWithoutCr, WritesThePiecesBetween)
{
    for (const auto &[line, out] : {std::pair<std::string, std::string>{"a\r\n", "a\n"},
                                    {"\r\r\r", ""},
                                    {"\ra\rb\r", "ab"},
                                    {"", ""},
                                    {std::string("a\0b\r\n", 5), std::string("a\0b\n", 4)}}) {
        char *text = nullptr;
        size_t length = 0;
        FILE *stream = open_memstream(&text, &length);
        EXPECT_EQ(write_without_cr(stream, line.data(), line.size()), 0);
        fclose(stream);
        EXPECT_EQ(std::string(text, length), out);
        free(text);
    }
}

// The peer writes all the time and reads late. Its output is dropped, and the whole text arrives.
TEST(SendStr, DropsTheOutputOfThePeer)
{
    Pair pair;
    const std::string text(600'000, 'c');
    std::string received;
    std::thread peer([&] {
        const std::string noise(200'000, 'n');
        put(pair.peer(), noise);
        char bytes[4096];
        while (received.size() < text.size()) {
            const ssize_t n = read(pair.peer(), bytes, sizeof bytes);
            if (n <= 0)
                break;
            received.append(bytes, static_cast<size_t>(n));
        }
    });
    EXPECT_EQ(send_str(pair.client(), text.data(), text.size()), 0);
    peer.join();
    EXPECT_TRUE(received == text);
}

TEST(SendStr, EndsWhenThePeerHasClosed)
{
    Pair pair;
    pair.close_peer();
    EXPECT_EQ(send_str(pair.client(), "exit;\n", 6), -ENETDOWN);
}

// poll then reports only an error: there are no data and nothing to wait for.
TEST(Steps, EndOnAnErrorOfTheSocket)
{
    const int unconnected = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const int closed = dup(unconnected);
    close(closed);
    for (const int fd : {unconnected, ends[1], closed}) {
        EXPECT_EQ(send_str(fd, "exit;\n", 6), -ENETDOWN) << fd;
        EXPECT_EQ(get_rsp(fd, nullptr), -ENETDOWN) << fd;
    }
    close(unconnected);
    close(ends[1]);
}
