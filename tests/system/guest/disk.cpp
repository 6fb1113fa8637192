#include "disk.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rig {

namespace {

constexpr const char *kImage = "/tmp/disk";
constexpr off_t kImageSize = off_t{48} << 20;
constexpr const char *kNames[] = {"/dev/sda1", "/dev/mapper/decrypted1"};

} // namespace

bool make_disk()
{
    const int image = open(kImage, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int loop = open("/dev/loop0", O_RDWR | O_CLOEXEC);
    struct stat node = {};
    if (image < 0 || loop < 0 || ftruncate(image, kImageSize) != 0 || ioctl(loop, LOOP_SET_FD, image) != 0 ||
        fstat(loop, &node) != 0)
        return false;
    mkdir("/dev/mapper", 0755);
    for (const char *name : kNames) {
        unlink(name);
        if (mknod(name, S_IFBLK | 0600, node.st_rdev) != 0)
            return false;
    }
    close(image);
    return mkdir("/ffs", 0755) == 0 && mkdir("/ffs/fs1", 0755) == 0; // the loop stays open
}

} // namespace rig
