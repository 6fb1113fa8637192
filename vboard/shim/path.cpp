// Resolves a path of the program to a place on the board or on the host.
#include "shim.h"

#include <fcntl.h>

namespace vboard::shim {

namespace {

constexpr int kMaxLinks = 40;

long read_link(const char *path, char *out, size_t size)
{
    const long n = syscall(SYS_readlinkat, AT_FDCWD, path, out, size - 1);
    if (n >= 0)
        out[n] = '\0';
    return n;
}

// Reports whether the name exists. A dangling link also counts.
bool name_exists(const char *host)
{
    KeepErrno keep;
    char target[2];
    return syscall(SYS_faccessat, AT_FDCWD, host, F_OK) == 0 ||
           syscall(SYS_readlinkat, AT_FDCWD, host, target, sizeof target) >= 0;
}

// Turns "/bin/x" into "/usr/bin/x".
void fold(char *board)
{
    constexpr const char *kFolded[] = {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};
    for (const char *prefix : kFolded) {
        if (!is_below(board, prefix))
            continue;
        const size_t n = length_of(board);
        if (n + 4 >= PATH_MAX)
            return;
        for (size_t i = n + 1; i-- > 0;)
            board[i + 4] = board[i];
        const char usr[] = {'/', 'u', 's', 'r'};
        for (int i = 0; i < 4; ++i)
            board[i] = usr[i];
        return;
    }
}

bool is_process_folder(const char *board)
{
    return starts_with(board, "/proc/") && board[6] >= '0' && board[6] <= '9';
}

// Reports a link such as "/proc/self/fd/7", which leads to an open file whatever its text says.
bool is_descriptor_link(const char *board)
{
    if (!starts_with(board, "/proc/"))
        return false;
    const char *last = board;
    for (const char *p = board; *p; ++p)
        if (*p == '/')
            last = p;
    if (!(last[1] >= '0' && last[1] <= '9'))
        return false;
    return last - board > 9 && last[-1] == 'd' && last[-2] == 'f' && last[-3] == '/';
}

Policy policy_of(const char *board)
{
    const Page &p = *page();
    for (uint32_t i = 0; i < p.writable_count && i < kMaxWritable; ++i)
        if (is_below(board, p.writable[i]))
            return Policy::kWritable;
    if (is_process_folder(board))
        return Policy::kHost;
    const PathRule *best = &kPathRules[0];
    size_t best_length = 0;
    for (const PathRule &rule : kPathRules) {
        const size_t n = length_of(rule.prefix);
        if (n > best_length && is_below(board, rule.prefix)) {
            best = &rule;
            best_length = n;
        }
    }
    return best->policy;
}

// Treats "python3.11" as "python3", and "lua5.4" as "lua".
bool is_version_of(const char *name, const char *program)
{
    if (!starts_with(name, program))
        return false;
    for (const char *p = name + length_of(program); *p; ++p)
        if (*p != '.' && (*p < '0' || *p > '9'))
            return false;
    return true;
}

bool is_host_program(const char *board)
{
    const char *name = board;
    for (const char *p = board; *p; ++p)
        if (*p == '/')
            name = p + 1;
    for (const char *allowed : kHostPrograms)
        if (is_version_of(name, allowed))
            return true;
    return false;
}

// Finds the host path to read from, for a name without links. `is_named_program`: a link of the host that is itself a
// program for the board leads to the name, as python3 leads to python3.11.
void host_for_reading(const char *board, Policy policy, bool is_named_program, char *host)
{
    copy_text(host, PATH_MAX, page()->root);
    append(host, PATH_MAX, board);
    if (policy == Policy::kBoard)
        return;
    if (policy == Policy::kOverlay || policy == Policy::kProgram) {
        if (name_exists(host))
            return;
        if (policy == Policy::kProgram && !same(board, "/usr/bin") && !same(board, "/usr/sbin") && !is_named_program &&
            !is_host_program(board))
            return; // the name does not exist: ENOENT
    }
    copy_text(host, PATH_MAX, board);
}

bool make_parents(const char *host)
{
    char path[PATH_MAX];
    copy_text(path, sizeof path, host);
    for (char *p = path + length_of(page()->root) + 1; *p; ++p) {
        if (*p != '/')
            continue;
        *p = '\0';
        if (syscall(SYS_mkdirat, AT_FDCWD, path, 0755) != 0 && errno != EEXIST)
            return false;
        *p = '/';
    }
    return true;
}

// Copies a host file to the board before its first change.
bool copy_up(const char *board, char *host)
{
    char from[PATH_MAX];
    copy_text(from, sizeof from, board);
    copy_text(host, PATH_MAX, page()->root);
    append(host, PATH_MAX, board);
    if (name_exists(host))
        return true;
    // The folder must exist on the board or on the host. The board's copy of it is made on demand.
    char parent[PATH_MAX];
    copy_text(parent, sizeof parent, board);
    size_t cut = length_of(parent);
    while (cut > 0 && parent[cut] != '/')
        --cut;
    parent[cut] = '\0';
    char parent_on_board[PATH_MAX];
    copy_text(parent_on_board, sizeof parent_on_board, page()->root);
    append(parent_on_board, sizeof parent_on_board, parent);
    if (!name_exists(parent_on_board) && cut > 0 && !name_exists(parent)) {
        errno = ENOENT;
        return false;
    }
    if (!make_parents(host))
        return false;
    KeepErrno keep;
    if (syscall(SYS_faccessat, AT_FDCWD, from, R_OK) != 0)
        return true; // nothing to copy, since the call creates the file
    const long probe = syscall(SYS_openat, AT_FDCWD, from, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_DIRECTORY, 0);
    if (probe >= 0) {
        syscall(SYS_close, probe);
        syscall(SYS_mkdirat, AT_FDCWD, host, 0755);
        return true;
    }
    copy_file(from, host);
    return true;
}

bool host_for_writing(const char *board, Policy policy, unsigned how, char *host)
{
    copy_text(host, PATH_MAX, page()->root);
    append(host, PATH_MAX, board);
    switch (policy) {
    case Policy::kBoard: return true;
    case Policy::kWritable: copy_text(host, PATH_MAX, board); return true;
    case Policy::kHost: errno = EROFS; return false;
    case Policy::kOverlay:
    case Policy::kProgram: break;
    }
    if (how & kRemove) {
        if (!name_exists(host) && name_exists(board)) {
            errno = EROFS; // the host's file cannot be removed
            return false;
        }
        return true;
    }
    return copy_up(board, host);
}

// A descriptor may be written through if its file belongs to the board or to nothing but memory.
bool may_write_to(const char *target)
{
    if (target[0] != '/' || starts_with(target, "/memfd:") || is_below(target, page()->root) ||
        is_below(target, page()->private_dir))
        return true;
    return policy_of(target) == Policy::kWritable;
}

// Reads where a descriptor leads to, as the kernel names it.
bool read_descriptor(int fd, char *out, size_t size)
{
    KeepErrno keep;
    char link[64] = "/proc/self/fd/";
    char digits[24];
    digits[23] = '\0';
    append(link, sizeof link, format_number(static_cast<unsigned>(fd), digits + 23));
    return fd >= 0 && read_link(link, out, size) >= 0;
}

bool start_of(int directory, const char *path, char *out)
{
    out[0] = '\0';
    if (path[0] == '/')
        return true;
    char host[PATH_MAX];
    if (directory == AT_FDCWD) {
        if (syscall(SYS_getcwd, host, sizeof host) < 0)
            return false;
    } else if (!read_descriptor(directory, host, sizeof host)) {
        host[0] = '\0';
    }
    if (host[0] != '/') {
        errno = EBADF;
        return false;
    }
    board_name(host, out, PATH_MAX);
    if (same(out, "/"))
        out[0] = '\0';
    return true;
}

// State of the walk: `done` holds the resolved board path without a closing slash, `rest` the remaining path.
struct Walk {
    char done[PATH_MAX];
    char rest[PATH_MAX];
    int links = 0;
    bool is_named_program = false;
};

void drop_last(char *path)
{
    size_t n = length_of(path);
    while (n > 0 && path[n] != '/')
        --n;
    path[n] = '\0';
}

// Moves the first component of `rest` into `name`. Returns false when `rest` is empty.
bool take_component(char *rest, char *name, bool *last)
{
    size_t i = 0;
    while (rest[i] == '/')
        ++i;
    size_t n = 0;
    while (rest[i] && rest[i] != '/' && n + 1 < NAME_MAX + 2)
        name[n++] = rest[i++];
    name[n] = '\0';
    const bool slash = rest[i] == '/';
    while (rest[i] == '/')
        ++i;
    *last = rest[i] == '\0' && !slash;
    size_t k = 0;
    while ((rest[k] = rest[i]) != '\0') {
        ++k;
        ++i;
    }
    return n > 0;
}

// Replaces the last component by the target of its link.
bool enter_link(Walk &walk, const char *target)
{
    if (++walk.links > kMaxLinks) {
        errno = ELOOP;
        return false;
    }
    char rest[PATH_MAX];
    copy_text(rest, sizeof rest, target);
    if (walk.rest[0]) {
        append(rest, sizeof rest, "/");
        if (!append(rest, sizeof rest, walk.rest)) {
            errno = ENAMETOOLONG;
            return false;
        }
    }
    copy_text(walk.rest, sizeof walk.rest, rest);
    if (target[0] == '/')
        walk.done[0] = '\0';
    else
        drop_last(walk.done);
    return true;
}

bool is_link(Walk &walk, char *host, char *target)
{
    KeepErrno keep;
    const Policy policy = policy_of(walk.done);
    host_for_reading(walk.done, policy, walk.is_named_program, host);
    if (read_link(host, target, PATH_MAX) < 0)
        return false;
    if (policy == Policy::kProgram && is_host_program(walk.done) && !is_below(host, page()->root))
        walk.is_named_program = true;
    return true;
}

bool walk_path(Walk &walk, bool follow)
{
    char name[NAME_MAX + 2];
    char host[PATH_MAX];
    char target[PATH_MAX];
    bool last = false;
    while (take_component(walk.rest, name, &last)) {
        if (same(name, "."))
            continue;
        if (same(name, "..")) {
            drop_last(walk.done);
            continue;
        }
        if (length_of(name) > NAME_MAX || !append(walk.done, sizeof walk.done, "/") ||
            !append(walk.done, sizeof walk.done, name)) {
            errno = ENAMETOOLONG;
            return false;
        }
        fold(walk.done);
        if ((last && !follow) || is_descriptor_link(walk.done))
            continue;
        if (is_link(walk, host, target) && !enter_link(walk, target))
            return false;
    }
    return true;
}

} // namespace

void board_name(const char *host, char *out, size_t size)
{
    const Page &p = *page();
    if (is_below(host, p.root)) {
        copy_text(out, size, host + length_of(p.root));
        if (!out[0])
            copy_text(out, size, "/");
        return;
    }
    copy_text(out, size, host);
}

void name_of_descriptor(int fd, char *out, size_t size)
{
    KeepErrno keep;
    out[0] = '\0';
    if (const Node *node = node_of(fd)) {
        copy_text(out, size, node->path);
        return;
    }
    char host[PATH_MAX];
    if (read_descriptor(fd, host, sizeof host))
        board_name(host, out, size);
}

bool may_change(int fd)
{
    char target[PATH_MAX];
    return !read_descriptor(fd, target, sizeof target) || may_write_to(target);
}

bool resolve(int directory, const char *path, unsigned how, Path &out)
{
    if (!path) {
        errno = EFAULT;
        return false;
    }
    if (!path[0]) {
        errno = ENOENT;
        return false;
    }
    Walk walk;
    if (length_of(path) >= sizeof walk.rest) {
        errno = ENAMETOOLONG;
        return false;
    }
    copy_text(walk.rest, sizeof walk.rest, path);
    if (!start_of(directory, path, walk.done) || !walk_path(walk, (how & kFollow) != 0))
        return false;
    copy_text(out.board, sizeof out.board, walk.done[0] ? walk.done : "/");
    out.policy = policy_of(out.board);
    if (is_descriptor_link(out.board) && (how & kWrite)) {
        copy_text(out.host, sizeof out.host, out.board);
        char target[PATH_MAX];
        if (read_link(out.board, target, sizeof target) >= 0 && may_write_to(target))
            return true;
        errno = EROFS;
        return false;
    }
    if (how & (kWrite | kRemove))
        return host_for_writing(out.board, out.policy, how, out.host);
    KeepErrno keep;
    host_for_reading(out.board, out.policy, walk.is_named_program, out.host);
    return true;
}

} // namespace vboard::shim
