// Calls that move bytes past the front door of libc. On files and channels they reach the kernel, on other nodes they
// fail as on a driver without the operation.
#include "shim.h"

#include <aio.h>

namespace vboard::shim {

namespace {

const Node *refusing_node(int fd)
{
    const Node *node = fd >= 0 ? node_of(fd) : nullptr;
    return node && node->kind != NodeKind::kPlain && node->kind != NodeKind::kChannel ? node : nullptr;
}

// Calls `act` unless one of the two descriptors is a node.
template <typename Act>
ssize_t unless_node(const char *call, int from, int to, Act act)
{
    Call around(call, from);
    if (around.fails())
        return -1;
    for (const int fd : {from, to})
        if (const Node *node = refusing_node(fd))
            return around.done(refuse_on_node(call, *node, EINVAL));
    return around.done(act());
}

} // namespace

WRAP(ssize_t, splice, int from, int64_t *from_offset, int to, int64_t *to_offset, size_t length, unsigned flags)
{
    return unless_node("splice", from, to,
                       [=] { return syscall(SYS_splice, from, from_offset, to, to_offset, length, flags); });
}

WRAP(ssize_t, tee, int from, int to, size_t length, unsigned flags)
{
    return unless_node("tee", from, to, [=] { return syscall(SYS_tee, from, to, length, flags); });
}

WRAP(ssize_t, vmsplice, int fd, const void *parts, size_t count, unsigned flags)
{
    return unless_node("vmsplice", fd, -1, [=] { return syscall(SYS_vmsplice, fd, parts, count, flags); });
}

WRAP(ssize_t, copy_file_range, int from, int64_t *from_offset, int to, int64_t *to_offset, size_t length,
     unsigned flags)
{
    return unless_node("copy_file_range", from, to,
                       [=] { return syscall(SYS_copy_file_range, from, from_offset, to, to_offset, length, flags); });
}

WRAP(ssize_t, sendfile, int to, int from, off_t *offset, size_t length)
{
    return unless_node("sendfile", from, to, [=] { return syscall(SYS_sendfile, to, from, offset, length); });
}

WRAP(ssize_t, sendfile64, int to, int from, int64_t *offset, size_t length)
{
#ifdef SYS_sendfile64
    return unless_node("sendfile", from, to, [=] { return syscall(SYS_sendfile64, to, from, offset, length); });
#else
    return unless_node("sendfile", from, to, [=] { return syscall(SYS_sendfile, to, from, offset, length); });
#endif
}

// The descriptor lies at the same place in both forms of the request.
#define WRAP_AIO(name, call)                                                                                           \
    WRAP(int, name, aiocb *request)                                                                                    \
    {                                                                                                                  \
        return static_cast<int>(                                                                                       \
            unless_node(call, request->aio_fildes, -1, [=] { return NEXT(int(aiocb *), name)(request); }));            \
    }
WRAP_AIO(aio_read, "aio_read")
WRAP_AIO(aio_read64, "aio_read")
WRAP_AIO(aio_write, "aio_write")
WRAP_AIO(aio_write64, "aio_write")

#define WRAP_LISTIO(name)                                                                                              \
    WRAP(int, name, int mode, aiocb *const *list, int count, sigevent *event)                                          \
    {                                                                                                                  \
        for (int i = 0; i < count; ++i)                                                                                \
            if (const Node *node = list[i] ? refusing_node(list[i]->aio_fildes) : nullptr)                             \
                return refuse_on_node("lio_listio", *node, EINVAL);                                                    \
        return NEXT(int(int, aiocb *const *, int, sigevent *), name)(mode, list, count, event);                        \
    }
WRAP_LISTIO(lio_listio)
WRAP_LISTIO(lio_listio64)

} // namespace vboard::shim
