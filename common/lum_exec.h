// Running the router's own shell tools, and small work on files.
//
// A command is one text of at most 31 words between blanks; the first is the program's path. There is no
// shell, no search and no quoting. The caller's thread waits for the command, and with it the event loop of
// the main thread.
//
// Results of a command: its exit code, 0 to 255; -22 (EINVAL) for a null command; -1 when the command could
// not be started or waited for, or was ended by a signal. The child itself ends with 1 when the text is no
// command, with 2 when its program can't be executed. Failures are logged here.
#pragma once

#include <cstddef>
#include <sys/types.h>

// Runs the command and waits for it. Its standard output and error go, as text, to out_buf of out_len bytes,
// if that is given. Output beyond 8191 bytes is not read: a command that goes on writing may be ended by
// SIGPIPE. Environment: the management framework's access file and the system's PATH.
[[nodiscard]] int lum_execute_output(const char *command, char *out_buf, size_t out_len);

// The same with raw bytes. *p_size is the capacity of buf before the call and the size of the whole output
// after it, which may be more than was stored. Either pointer may be null: nothing is stored then.
[[nodiscard]] int lum_execute_output_bin(const char *command, void *buf, size_t *p_size);

// Starts the command in a process group of its own, with an empty environment and its output discarded.
// Returns the pid, or -1. Nothing here waits for the child: reaping it is the caller's affair.
[[nodiscard]] pid_t lum_execute_nowait(const char *command);

// Files. -22 for a null argument.

// Replaces the file's content by size bytes and syncs the disks. 0 or -1.
[[nodiscard]] int lum_write_val_to_file(const char *path, const char *value, size_t size);

// Removes a tree, not following links. 0, or -1 at the first entry that can't be removed; what went before is
// gone.
int lum_rmdir(const char *path);

// Walk the tree and remove nothing: on this system no file is removed by a pattern. 0, or -1 when the
// directory can't be read.
int lum_rmfile_with_prefix(const char *dir, const char *prefix);
int lum_rmfile_with_suffix(const char *dir, const char *suffix);
