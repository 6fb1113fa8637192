/*
 * Version of the board's software, from /etc/version.
 *
 * Any thread, no privilege; blocks only as long as reading the file does.
 */
#ifndef DDAL_VERSION_H
#define DDAL_VERSION_H

#include <stddef.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads the version without its newline. A version that sits exactly on a tag ("R1.2-0-g1a2b3c") is given without its
 * commit suffix ("R1.2").
 *
 * buf:  receives at most *size - 1 characters and a NUL; unchanged after a failure.
 * size: in, the size of buf in bytes; out, the full length of the version: it was cut if that is not below the size of
 *       buf. Unchanged after a failure.
 *
 * Returns 0, also when the text was cut, or a negative code of ddal_common_read_file.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_version_get_lfs_version(char *buf, size_t *size);

DDAL_END_DECLS

#endif
