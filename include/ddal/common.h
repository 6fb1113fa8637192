/*
 * Files of the board as values, and programs as calls.
 *
 * The operations read and write a file that reaches the hardware (a sysfs attribute, a device-tree property, a settings
 * file) as text or as big-endian 32-bit cells, and run programs with their output captured or their input fed. Every
 * call opens what it needs and closes it again; no state is kept, so calls may run in parallel from any thread. File
 * calls need the permission of the file and block as long as its driver does. Program calls block until the program has
 * ended; their children see no descriptor of the caller beyond the three standard streams, start with no signal blocked
 * or ignored, and are sent SIGTERM when the thread that started them ends.
 *
 * The operations log their failures; a caller only passes the code on.
 */
#ifndef DDAL_COMMON_H
#define DDAL_COMMON_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Writes a text into an existing file, truncating it; neither a newline nor the NUL is written.
 *
 * Returns 0 or a negative errno; -ENOENT: the file does not exist (it is never created).
 *
 * @threads safe on different units: files
 * @blocks one access
 */
DDAL_API int ddal_common_write_string(const char *str, const char *path);

/*
 * Writes n values as big-endian cells (n * 4 bytes) into an existing file, truncating it. vals is in host order and is
 * not changed.
 *
 * Returns 0 or a negative errno; -ENOENT: the file does not exist (it is never created).
 *
 * @threads safe on different units: files
 * @blocks one access
 */
DDAL_API int ddal_common_write_u32val_array(unsigned n, const uint32_t *vals, const char *path);

/*
 * Writes one value, passed by pointer, as ddal_common_write_u32val_array does.
 *
 * @threads safe on different units: files
 * @blocks one access
 */
DDAL_API int ddal_common_write_u32val(const uint32_t *val, const char *path);

/*
 * Reads at most n bytes of a file.
 *
 * buf: receives the bytes; unspecified after a failure. No NUL is added.
 *
 * Returns the bytes read, or, when the buffer was filled, the size of the whole file: a result above n means that the
 * file is longer, and n = 0 asks for the size. For a sysfs attribute that size is the one the kernel reports. A
 * negative errno or DDAL_ERR_FAILURE after a failure; -EOVERFLOW: the size does not fit an int.
 *
 * @threads safe: a reader may meet a file that is just being rewritten
 * @blocks one access
 */
DDAL_API int ddal_common_read_file(void *buf, size_t n, const char *path);

/*
 * Reads a text and reports how much of it did not fit.
 *
 * size: in, the size of buf in bytes; out, the bytes that did not fit, 0 if all did. With *size 0 nothing is read and
 *       *size becomes the size of the buffer needed. Unchanged after a failure.
 * buf:  receives at most *size - 1 bytes and a NUL; a newline or NUL of the file stays in it.
 *
 * Returns the number of bytes stored before the NUL, or a negative code of ddal_common_read_file.
 *
 * @threads safe: a reader may meet a file that is just being rewritten
 * @blocks one access
 */
DDAL_API int ddal_kvb_common_read_string_and_size(size_t *size, char *buf, const char *path);

/*
 * Reads a text of at most size - 1 bytes and adds a NUL; drops the rest silently. A newline or NUL of the
 * file stays in the buffer.
 *
 * Returns 0, not the length. -EINVAL: size is 0. Otherwise a negative code of ddal_common_read_file.
 *
 * @threads safe: a reader may meet a file that is just being rewritten
 * @blocks one access
 */
DDAL_API int ddal_common_read_string(size_t size, char *buf, const char *path);

/*
 * Reads a number written as text. Text after the digits is accepted.
 *
 * out:  receives the number; also stored when the conversion fails, unchanged when the file cannot be read.
 * base: as for strtoull(3): 0 or 2 to 36.
 *
 * Returns 0. -EFBIG: more than 31 characters. -ENODATA: no digit. -ERANGE: above 64 bits. Otherwise a negative code of
 * ddal_common_read_file.
 *
 * @threads safe: a reader may meet a file that is just being rewritten
 * @blocks one access
 */
DDAL_API int ddal_kvb_common_read_string_to_u64(uint64_t *out, const char *path, int base);

/*
 * Reads exactly n big-endian cells and converts them to host order.
 *
 * vals: receives n values; after a failure it may hold bytes of the file that were not converted.
 *
 * Returns 0. -ENODATA: the file is shorter or longer than n * 4 bytes. Otherwise a negative code of
 * ddal_common_read_file.
 *
 * @threads safe: a reader may meet a file that is just being rewritten
 * @blocks one access
 */
DDAL_API int ddal_common_read_u32val_array(unsigned n, uint32_t *vals, const char *path);

/*
 * Reads exactly one cell, as ddal_common_read_u32val_array does.
 *
 * @threads safe: a reader may meet a file that is just being rewritten
 * @blocks one access
 */
DDAL_API int ddal_common_read_u32val(uint32_t *val, const char *path);

/*
 * Runs a program with standard input from /dev/null; its output and errors go where the caller's go.
 *
 * path: the program; PATH is not searched.
 * argv: its arguments, ended by NULL. If argv[0] is NULL, the base name of path is stored there (the vector is
 *       changed), and the arguments from argv[1] on, again ended by NULL, follow it.
 *
 * Returns the program's exit status, 0 to 255: a positive result means that it ran and failed, 127 that it could not be
 * executed. -EINTR: a signal ended it. -EINVAL: it ended in another way. Otherwise the negative errno of starting it or
 * waiting for it.
 *
 * @threads safe on different units: argument vectors
 * @blocks a program
 */
DDAL_API int _ddal_common_shell_command(const char *path, char **argv);

/*
 * Runs a program as _ddal_common_shell_command does and captures its output.
 *
 * size: size of buf in bytes; with 0 nothing is captured and the call is _ddal_common_shell_command.
 * buf:  receives at most size - 1 bytes of output and a NUL, also after a failure of the program. Unchanged if the
 *       program could not be started.
 *
 * Also returns -ENOBUFS: the output does not fit, whatever the exit status; -EIO: the output could not be read.
 *
 * @threads safe on different units: argument vectors
 * @blocks a program
 */
DDAL_API int _ddal_common_shell_command_read(size_t size, char *buf, const char *path, char **argv);

/*
 * Runs a program as _ddal_common_shell_command does, feeds its input from a stream and discards its output.
 *
 * in:    read from its present position to its end.
 * flags: bit 0: send one newline after the input.
 *
 * A failure to copy the input is returned in place of the exit status; -EPIPE: the program closed its input (the caller
 * gets no SIGPIPE).
 *
 * @threads safe on different units: streams and argument vectors
 * @blocks a program
 */
DDAL_API int _ddal_common_shell_command_write_fp(FILE *in, unsigned flags, const char *path, char **argv);

/*
 * Runs a program as _ddal_common_shell_command_write_fp does and copies its output to the stream `out`. A thread feeds
 * the input meanwhile: nothing else may use either stream during the call.
 *
 * A failure of the feeding thread is returned before one of the output, and both before the exit status.
 *
 * @threads safe on different units: streams and argument vectors
 * @blocks a program
 */
DDAL_API int _ddal_common_shell_command_read_write_fp(FILE *in, unsigned flags, FILE *out, const char *path,
                                                      char **argv);

/*
 * Runs the shell command line `cmdline` with /bin/sh and captures its output as _ddal_common_shell_command_read does.
 *
 * @threads safe
 * @blocks a program
 */
DDAL_API int ddal_common_read_cmd_output(size_t size, char *buf, const char *cmdline);

/*
 * Tells which of the two Linux installations is running.
 *
 * id: receives 1 or 2; also stored, with DDAL_ERR_FAILURE, when the device tree holds something else. Unchanged if the
 *     device tree cannot be read.
 *
 * Returns 0. -EINVAL: id is NULL. DDAL_ERR_FAILURE: neither 1 nor 2. Otherwise a negative code of
 * ddal_common_read_file.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_common_linux_id_get(uint32_t *id);

DDAL_END_DECLS

#endif
