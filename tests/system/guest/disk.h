// The flash disk: a loop device under the names of its first partition and of the mapping of that partition.
#pragma once

namespace rig {

bool make_disk();

} // namespace rig
