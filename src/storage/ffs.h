// Flash file systems.
#pragma once

#include <cstdint>

#include "storage/ffs_table.h"

namespace ddal::storage {

// Returns the row of a valid id.
const FlashFileSystem &file_system(uint32_t id);

// The argument that names a partition to the encryption tool.
struct PartText {
    char text[2];
};
constexpr PartText part_text(int part)
{
    return {{static_cast<char>('0' + part), '\0'}};
}

// Runs one command of the encryption tool on partition 1 or 2.
int luksapi(const char *command, int part);

} // namespace ddal::storage

// Returns 1 for the id of a flash file system, otherwise 0.
int ddal_ffs_id_is_valid(uint32_t id);
