// The new content of a file on its way into a directory: first without a name or under a fresh one, then at once in
// place.
//
// Whoever makes a replacement holds its lock from before it gets a name until it is closed, so that a name whose file
// is not locked was left by a writer that was killed.
#pragma once

#include "core/fresh_name.h"
#include "core/unique_fd.h"

namespace ddal::core {

// Creates an empty, locked file in the directory; `temporary` receives its name where the file system wants one.
// Returns an empty owner with errno on failure.
UniqueFd create_replacement(int directory, FreshName &temporary);

// Puts the file in place of `name`, which is not followed if it is a link, and waits until that outlives a power cut.
// The caller has synced the file, with its mode and owner. Returns 0 or a negative errno.
int put_in_place(int fd, int directory, const char *name);

// Removes the files that killed writers have left under fresh names. `locked` is the file whose lock the caller holds,
// or -1. Failures are ignored: the next writer tries again.
void remove_abandoned(int directory, int locked);

} // namespace ddal::core
