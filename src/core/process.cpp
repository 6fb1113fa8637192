#include "core/process.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "core/log.h"
#include "core/sigpipe_guard.h"
#include "core/stream.h"
#include "core/supervisor.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

using namespace ddal::core;

namespace {

struct Pipe {
    UniqueFd read_end;
    UniqueFd write_end;

    bool make()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        read_end.reset(ends[0]);
        write_end.reset(ends[1]);
        return true;
    }
};

} // namespace

int ddal_common_spawn(pid_t *pid, FILE **to_child, FILE **from_child, int err_fd, const char *path, char **argv)
{
    Pipe input;
    Pipe output;
    if ((to_child && !input.make()) || (from_child && !output.make()))
        return minus_errno();

    // The streams are made first, because nothing may fail once the child runs.
    UniqueStream writer;
    UniqueStream reader;
    if (to_child && !(writer = UniqueStream::from(std::move(input.write_end), "a")))
        return minus_errno();
    if (from_child && !(reader = UniqueStream::from(std::move(output.read_end), "r")))
        return minus_errno();

    const ChildStreams streams = {input.read_end.get(), output.write_end.get(), err_fd};
    *pid = start_supervised(streams, path, argv);
    if (*pid < 0)
        return minus_errno();
    if (to_child)
        *to_child = writer.release();
    if (from_child)
        *from_child = reader.release();
    return 0;
}

int ddal_common_spawn_wait(pid_t pid, FILE *in_stream, FILE *out_stream, int *status)
{
    if (in_stream) {
        SigpipeGuard guard;
        wait_until_writable(in_stream);
        errno = 0;
        if (close_stream(in_stream) != 0 && errno == EPIPE)
            guard.caused();
    }
    if (out_stream)
        fclose(out_stream);
    return wait_supervised(pid, status);
}

int ddal_common_run(int out_fd, int err_fd, int *status, const char *path, char **argv)
{
    const pid_t pid = start_supervised({kNullDevice, out_fd, err_fd}, path, argv);
    if (pid < 0)
        return minus_errno();
    return wait_supervised(pid, status);
}
