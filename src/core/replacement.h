// Replacement of a file in a directory. The new content is written without a name or under a fresh one, and then takes
// the file's place in one step.
//
// A writer locks its replacement before the replacement gets a name, and holds the lock until it closes the file. A
// file under a fresh name that is not locked was therefore left by a killed writer.
#pragma once

#include "core/fresh_name.h"
#include "core/unique_fd.h"

namespace ddal::core {

// Creates an empty, locked file in the directory. Stores its name in `temporary` if the file system cannot create a
// file without a name. Returns an empty owner with errno on failure.
UniqueFd create_replacement(int directory, FreshName &temporary);

// Gives the file the name `name`, replaces a file or link of that name, and waits until that survives a power cut. The
// caller has synced the file, with its mode and owner. Returns 0 or a negative errno.
int put_in_place(int fd, int directory, const char *name);

// Removes the files that killed writers have left under fresh names. `locked` is a file whose lock the caller holds, or
// -1. Ignores failures: the next writer tries again.
void remove_abandoned(int directory, int locked);

} // namespace ddal::core
