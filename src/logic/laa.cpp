// Channels of licensed-assisted access: the record stream, pre-scan, DFS and SAS events.
#include <ddal/rf_fpga.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <poll.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/rf_fpga.h"
#include "logic/rf_fpga_driver.h"

using ddal::core::minus_errno;
using namespace ddal::logic;

static_assert(sizeof(ddal_rf_fpga_laa_record) == kLaaRecordSize);
static_assert(sizeof(ddal_rf_fpga_laa_prescan) == 8 && sizeof(ddal_rf_fpga_laa_dfs) == 8);
static_assert(sizeof(ddal_rf_fpga_laa_sas) == 4);

namespace {

template <typename T>
using HeapPtr = std::unique_ptr<T, decltype(&free)>;

template <typename T>
HeapPtr<T> allocate()
{
    return HeapPtr<T>{static_cast<T *>(malloc(sizeof(T))), free};
}

// Frees the caller's descriptor and sets the caller's pointer to NULL, even when the close fails.
template <typename T>
int close_and_free(T **desc)
{
    const HeapPtr<T> owned{*desc, free};
    *desc = nullptr;
    return close(owned->fd) == 0 ? 0 : minus_errno();
}

template <typename Channel>
int open_channel(const char *caller, const char *node, uint32_t index, Channel **out)
{
    if (!out)
        return log_error_as(caller, -EINVAL, "NULL pointer(desc) passed to %s\n", caller);
    auto desc = allocate<Channel>();
    if (!desc)
        return log_error_as(caller, -ENOMEM, "malloc failed in %s, size = %d, %m\n", caller,
                            static_cast<int>(sizeof *desc));
    *desc = {open(node, O_RDONLY | O_CLOEXEC), index};
    if (desc->fd < 0)
        return log_errno_as(caller, "can't open device %s: %m\n", node);
    *out = desc.release();
    return 0;
}

// Closes a channel. `number` is the member with the number in the channel's name.
template <typename Channel>
int close_channel(const char *caller, Channel **desc, uint32_t Channel::*number, const char *kind)
{
    if (!desc)
        return log_error_as(caller, -EINVAL, "NULL pointer passed to %s\n", caller);
    if (!*desc)
        return log_error_as(caller, -EINVAL, "%s: (*desc) points to NULL\n", caller);
    const auto index = static_cast<int>((*desc)->*number);
    return log_failure_as(caller, close_and_free(desc), "close /dev/fpga_laa_%s%d failed: %m\n", kind, index);
}

} // namespace

int ddal_rf_fpga_laa_open(int *fd)
{
    if (!fd)
        return -EINVAL;
    *fd = open(kLaaNode, O_RDONLY | O_CLOEXEC);
    if (*fd < 0)
        return log_errno("can't open device fpga_laa: %m\n");
    return 0;
}

int ddal_rf_fpga_laa_wait(int fd, struct ddal_rf_fpga_laa_record *record)
{
    if (!record)
        return -EINVAL;
    ddal_rf_fpga_laa_record received;
    const ssize_t n = ddal_common_read_all(fd, &received, sizeof received);
    if (n >= 0)
        errno = 0; // an interrupted and continued read leaves EINTR behind
    if (n != sizeof received)
        return log_errno("read from /dev/fpga_laa failed: %m\n");
    *record = received;
    return 0;
}

int ddal_rf_fpga_laa_close(int fd)
{
    if (close(fd) != 0)
        return log_errno("close /dev/fpga_laa failed: %m\n");
    return 0;
}

int ddal_rf_fpga_laa_prescan_open(uint32_t index, struct ddal_rf_fpga_laa_prescan **out)
{
    char node[kNodeNameSize];
    snprintf(node, sizeof node, kLaaPrescanNodeFormat, index);
    return open_channel(__func__, node, index, out);
}

int ddal_rf_fpga_laa_prescan_wait(struct ddal_rf_fpga_laa_prescan *desc, uint8_t *frame_index)
{
    if (!desc)
        return log_error(-EINVAL, "NULL pointer(desc) passed to ddal_rf_fpga_laa_prescan_wait\n");
    if (!frame_index)
        return log_error(-EINVAL, "NULL pointer(frame_index) passed to ddal_rf_fpga_laa_prescan_wait\n");

    const ssize_t n = ddal_common_read_all(desc->fd, frame_index, sizeof *frame_index);
    if (n < 0)
        return log_errno("read from /dev/fpga_laa_prescan%d failed: %m\n", static_cast<int>(desc->index));
    if (n == 0)
        return log_error(DDAL_ERR_FAILURE, "data is not available\n");
    return 0;
}

int ddal_rf_fpga_laa_prescan_close(struct ddal_rf_fpga_laa_prescan **desc)
{
    return close_channel(__func__, desc, &ddal_rf_fpga_laa_prescan::index, "prescan");
}

int ddal_rf_fpga_laa_dfs_open(uint32_t index, struct ddal_rf_fpga_laa_dfs **out)
{
    char node[kNodeNameSize];
    snprintf(node, sizeof node, kLaaDfsNodeFormat, index);
    return open_channel(__func__, node, index, out);
}

int ddal_rf_fpga_laa_dfs_wait(struct ddal_rf_fpga_laa_dfs *desc)
{
    if (!desc)
        return log_error(-EINVAL, "NULL pointer(desc) passed to ddal_rf_fpga_laa_dfs_wait\n");

    uint32_t event;
    const ssize_t n = ddal_common_read_all(desc->fd, &event, sizeof event);
    if (n < 0)
        return log_errno("read from /dev/fpga_laa_dfs%d failed: %m\n", static_cast<int>(desc->event));
    if (n != sizeof event)
        return log_error(DDAL_ERR_FAILURE, "data is not available\n");
    desc->event = event; // kept: callers read the event from the member that held the channel's index
    return 0;
}

int ddal_rf_fpga_laa_dfs_close(struct ddal_rf_fpga_laa_dfs **desc)
{
    return close_channel(__func__, desc, &ddal_rf_fpga_laa_dfs::event, "dfs");
}

int ddal_rf_fpga_laa_sas_open_by_filename(const char *filename, struct ddal_rf_fpga_laa_sas **out)
{
    if (!out)
        return log_error(-EINVAL, "NULL pointer(desc) passed\n");
    auto desc = allocate<ddal_rf_fpga_laa_sas>();
    if (!desc)
        return log_error(-ENOMEM, "malloc failed, size = %d, %m\n", static_cast<int>(sizeof *desc));

    desc->fd = open(filename, O_RDONLY | O_CLOEXEC);
    if (desc->fd < 0)
        return log_errno("can't open device %s: %m\n", filename);
    *out = desc.release();
    return 0;
}

int ddal_rf_fpga_laa_sas_open(uint32_t index, struct ddal_rf_fpga_laa_sas **out)
{
    char node[kNodeNameSize];
    snprintf(node, sizeof node, kLaaSasNodeFormat, index);
    return ddal_rf_fpga_laa_sas_open_by_filename(node, out);
}

int ddal_rf_fpga_laa_sas_open_any_rtwp(struct ddal_rf_fpga_laa_sas **out)
{
    return ddal_rf_fpga_laa_sas_open_by_filename(kLaaSasAnyNode, out);
}

int ddal_rf_fpga_laa_sas_wait(struct ddal_rf_fpga_laa_sas *desc)
{
    if (!desc)
        return log_error(-EINVAL, "NULL pointer(desc) passed\n");

    pollfd channel{desc->fd, POLLPRI, 0};
    int signalled;
    do
        signalled = poll(&channel, 1, -1);
    while (signalled < 0 && errno == EINTR);

    // Without priority input the descriptor has ended the wait: it is not open, or its device has disappeared.
    if (signalled >= 0 && (channel.revents & POLLPRI) == 0) {
        errno = (channel.revents & POLLNVAL) != 0 ? EBADF : EIO;
        signalled = -1;
    }
    if (signalled < 0)
        return log_errno("poll failed\n");
    return 0;
}

int ddal_rf_fpga_laa_sas_close(struct ddal_rf_fpga_laa_sas **desc)
{
    if (!desc)
        return log_error(-EINVAL, "NULL pointer passed\n");
    if (!*desc)
        return log_error(-EINVAL, "(*desc) points to NULL\n");

    return log_failure(close_and_free(desc), "Failed to close fpga_laa_sas dev node: %m\n");
}
