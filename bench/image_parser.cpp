// A firmware image of 1 MiB, parsed by the library and read by srec_cat, with the bare time to read its bytes.
#include <ddal/bsl.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <malloc.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench/row.h"

namespace {

constexpr uint32_t kImageBytes = 1 << 20;
constexpr int kOwnRuns = 200;
constexpr int kToolRuns = 15;

std::string folder = "/tmp/ddal-bench-XXXXXX";

void run(const std::vector<std::string> &words)
{
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t pid;
    int status = 0;
    if (posix_spawnp(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
        fprintf(stderr, "image_parser: cannot run %s\n", arguments[0]);
        exit(2);
    }
}

// Returns the shortest of several runs in seconds, because a disturbance only makes a run longer.
double best_of(int runs, const std::function<void()> &step)
{
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        step();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

std::string make_image(const std::string &name, uint32_t bytes)
{
    const std::string path = folder + "/" + name;
    run({"srec_cat", "-generate", "0", std::to_string(bytes), "-random", "-o", path + ".bin", "-binary"});
    run({"srec_cat", path + ".bin", "-binary", "-o", path + ".txt", "-ti_txt"});
    return path + ".txt";
}

void read_by_tool(const std::string &image)
{
    run({"srec_cat", image, "-ti_txt", "-o", folder + "/out.bin", "-binary"});
}

size_t heap_in_use()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Returns the bytes of heap that the parsed image occupies.
size_t parse(const std::string &image)
{
    const int fd = open(image.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    bsl_record *list = nullptr;
    uint8_t version[8];
    const size_t before = heap_in_use();
    if (fd < 0 || fstat(fd, &info) != 0 ||
        bsl_parse_file(&list, version, fd, static_cast<uint32_t>(info.st_size)) != 0 || !list ||
        list->length != kImageBytes) {
        fprintf(stderr, "image_parser: the image was not parsed\n");
        exit(2);
    }
    const size_t used = heap_in_use() - before;
    bsl_parse_release(list);
    close(fd);
    return used;
}

void read_only(const std::string &image)
{
    static char block[16384];
    const int fd = open(image.c_str(), O_RDONLY | O_CLOEXEC);
    while (read(fd, block, sizeof block) > 0)
        continue;
    close(fd);
}

} // namespace

int main()
{
    if (!freopen("/dev/null", "w", stderr) || !mkdtemp(folder.data())) // discards the library's log
        return 2;
    const std::string image = make_image("image", kImageBytes);
    const std::string small = make_image("small", 16);
    struct stat info;
    stat(image.c_str(), &info);

    const size_t heap = parse(image);
    const double own = best_of(kOwnRuns, [&] { parse(image); });
    const double bytes_only = best_of(kOwnRuns, [&] { read_only(image); });
    const double tool =
        best_of(kToolRuns, [&] { read_by_tool(image); }) - best_of(kToolRuns, [&] { read_by_tool(small); });
    const double megabytes = static_cast<double>(info.st_size) / 1e6;

    printf("image of %u bytes in %.2f MB of text\n", kImageBytes, megabytes);
    printf("library:   %8.3f ms, %7.0f MB of text a second\n", own * 1e3, megabytes / own);
    printf("srec_cat:  %8.3f ms without its start: the library is %.1f times as fast\n", tool * 1e3, tool / own);
    printf("read only: %8.3f ms: the library takes %.2f times as long\n", bytes_only * 1e3, own / bytes_only);
    printf("heap: %zu bytes, %+ld beyond the image's data\n", heap,
           static_cast<long>(heap) - static_cast<long>(kImageBytes));
    bench::print_row("an image of the RF card parsed", "srec_cat", own / tool, 1.0 / 3);
    bench::print_row("an image of the RF card parsed", "a read of its text", own / bytes_only);
    bench::print_row("heap of a parsed image", "the image's data", static_cast<double>(heap) / kImageBytes,
                     1 + 65536.0 / kImageBytes);
    run({"rm", "-r", folder});
    return 0;
}
