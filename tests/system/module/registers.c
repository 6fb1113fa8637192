/*
 * Register devices: /dev/fpga_usr (32-bit registers), /dev/cpld-usr (8-bit registers at multiples of 4), /dev/dfe
 * (bytes). A transfer outside the registers fails with ENXIO, one of another width with EINVAL.
 */
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/spinlock.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>

#include "board.h"

#define REGISTER_READ 0x100u
#define REGISTER_WRITE 0x101u
#define REGISTER_MASKED_WRITE 0x102u

#define FPGA_VERSION 0x20260401u

struct register_request {
    u32 reserved;
    u32 address;
    u32 mask;
    u32 value;
};

struct register_device {
    struct miscdevice misc;
    size_t width; /* of a register in bytes; 0: transfers of any length */
    size_t size;
    u8 *bytes;
};

/* The FPGA has two ranges of registers. The offsets of the upper one need more than 31 bits. */
#define FPGA_RANGE 0x200000u
#define FPGA_UPPER_RANGE 0xF0000000u

static DEFINE_SPINLOCK(lock);

static struct register_device *device_of(struct file *file)
{
    return container_of(file->private_data, struct register_device, misc);
}

/* Returns the bytes at the position, or NULL. */
static u8 *locate(const struct register_device *device, loff_t position, size_t length)
{
    if (device->width == sizeof(u32) && position >= FPGA_RANGE)
        position = position < FPGA_UPPER_RANGE ? -1 : position - FPGA_UPPER_RANGE + FPGA_RANGE;
    if (position < 0 || position > device->size || length > device->size - position)
        return NULL;
    return device->bytes + position;
}

static ssize_t checked(const struct register_device *device, loff_t position, size_t length)
{
    if (device->width != 0 && (length != device->width || position % 4 != 0))
        return -EINVAL;
    return locate(device, position, length) ? 0 : -ENXIO;
}

static ssize_t registers_read(struct file *file, char __user *to, size_t length, loff_t *position)
{
    const struct register_device *device = device_of(file);
    const ssize_t result = checked(device, *position, length);

    if (result)
        return result;
    return copy_to_user(to, locate(device, *position, length), length) ? -EFAULT : length;
}

static ssize_t registers_write(struct file *file, const char __user *from, size_t length, loff_t *position)
{
    const struct register_device *device = device_of(file);
    const ssize_t result = checked(device, *position, length);

    if (result)
        return result;
    return copy_from_user(locate(device, *position, length), from, length) ? -EFAULT : length;
}

static long registers_ioctl(struct file *file, unsigned int number, unsigned long argument)
{
    const struct register_device *device = device_of(file);
    struct register_request request;
    u32 *value;

    if (device->width != sizeof(u32))
        return -ENOTTY;
    if (copy_from_user(&request, (void __user *)argument, sizeof(request)))
        return -EFAULT;
    value = (u32 *)locate(device, request.address, sizeof(u32));
    if (!value)
        return -ENXIO;

    spin_lock(&lock);
    switch (number) {
    case REGISTER_READ: request.value = *value; break;
    case REGISTER_WRITE: *value = request.value; break;
    case REGISTER_MASKED_WRITE: *value = (*value & ~request.mask) | (request.value & request.mask); break;
    }
    spin_unlock(&lock);

    if (number < REGISTER_READ || number > REGISTER_MASKED_WRITE)
        return -ENOTTY;
    if (number == REGISTER_READ && copy_to_user((void __user *)argument, &request, sizeof(request)))
        return -EFAULT;
    return 0;
}

static const struct file_operations operations = {
    .owner = THIS_MODULE,
    .read = registers_read,
    .write = registers_write,
    .unlocked_ioctl = registers_ioctl,
    .llseek = default_llseek,
};

#define DEVICE(node, register_width, bytes_of_it)                                                                      \
    {                                                                                                                  \
        .misc = {.minor = MISC_DYNAMIC_MINOR, .name = (node), .fops = &operations}, .width = (register_width),         \
        .size = (bytes_of_it)                                                                                          \
    }

static struct register_device devices[] = {
    DEVICE("fpga_usr", sizeof(u32), 2 * FPGA_RANGE),
    DEVICE("cpld-usr", sizeof(u8), 0x400),
    DEVICE("dfe", 0, 0x1000),
};

static void stop_first(size_t count)
{
    while (count-- > 0) {
        misc_deregister(&devices[count].misc);
        vfree(devices[count].bytes);
    }
}

int registers_start(void)
{
    size_t i;

    for (i = 0; i < ARRAY_SIZE(devices); i++) {
        int result;

        devices[i].bytes = vzalloc(devices[i].size);
        result = devices[i].bytes ? misc_register(&devices[i].misc) : -ENOMEM;
        if (result) {
            vfree(devices[i].bytes);
            stop_first(i);
            return result;
        }
    }
    *(u32 *)devices[0].bytes = FPGA_VERSION;
    return 0;
}

void registers_stop(void)
{
    stop_first(ARRAY_SIZE(devices));
}
