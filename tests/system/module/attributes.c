/*
 * Nodes below /sys: the registers of a copper PHY on the SoC's MDIO bus (phy_regs, 16 bits each at register * 2 | page
 * << 16) and attributes of the CPLD.
 */
#include <linux/device.h>
#include <linux/module.h>
#include <linux/sysfs.h>

#include "board.h"

#define PAGES 4
#define REGISTERS 32
#define CONTROL 0
#define CONTROL_RESET 0x8000
#define CONTROL_DEFAULT 0x1140
#define IDENTIFIER 2

static u16 phy[PAGES][REGISTERS] = {[0] = {[CONTROL] = CONTROL_DEFAULT, [IDENTIFIER] = 0x0141}};
static char phy_reset = '1';

/* Returns the register at an offset, or NULL. */
static u16 *phy_register(loff_t offset, size_t length)
{
    const u32 page = (u32)(offset >> 16), number = (u32)(offset & 0xFFFF) / sizeof(u16);

    if (length != sizeof(u16) || offset % sizeof(u16) != 0 || page >= PAGES || number >= REGISTERS)
        return NULL;
    return &phy[page][number];
}

static ssize_t phy_regs_read(struct file *file, struct kobject *object, struct bin_attribute *attribute, char *to,
                             loff_t offset, size_t length)
{
    const u16 *reg = phy_register(offset, length);

    if (!reg)
        return -EINVAL;
    memcpy(to, reg, sizeof(*reg));
    return length;
}

static ssize_t phy_regs_write(struct file *file, struct kobject *object, struct bin_attribute *attribute, char *from,
                              loff_t offset, size_t length)
{
    u16 *reg = phy_register(offset, length);

    if (!reg)
        return -EINVAL;
    memcpy(reg, from, sizeof(*reg));
    if (phy[0][CONTROL] & CONTROL_RESET)
        phy[0][CONTROL] = CONTROL_DEFAULT;
    return length;
}

static BIN_ATTR_RW(phy_regs, 0);

static ssize_t bh_phy_reset_show(struct device *device, struct device_attribute *attribute, char *text)
{
    return sysfs_emit(text, "%c\n", phy_reset);
}

static ssize_t bh_phy_reset_store(struct device *device, struct device_attribute *attribute, const char *text,
                                  size_t length)
{
    if (length == 0 || (text[0] != '0' && text[0] != '1'))
        return -EINVAL;
    phy_reset = text[0];
    return length;
}

static DEVICE_ATTR_RW(bh_phy_reset);

static struct bus_type mdio = {.name = "mdio_bus"};
static struct class *cpld;
static struct device *cpld_device;

static void phy_release(struct device *device) {}

static struct device phy_device = {.bus = &mdio, .init_name = "2090300.mdio:00", .release = phy_release};

static int phy_start(void)
{
    int result = bus_register(&mdio);

    if (result)
        return result;
    result = device_register(&phy_device);
    if (result) {
        put_device(&phy_device);
        bus_unregister(&mdio);
        return result;
    }
    result = device_create_bin_file(&phy_device, &bin_attr_phy_regs);
    if (result) {
        device_unregister(&phy_device);
        bus_unregister(&mdio);
    }
    return result;
}

static void phy_stop(void)
{
    device_unregister(&phy_device);
    bus_unregister(&mdio);
}

static int cpld_start(void)
{
    int result;

    cpld = class_create(THIS_MODULE, "cpld-usr");
    if (IS_ERR(cpld))
        return PTR_ERR(cpld);
    cpld_device = device_create(cpld, NULL, 0, NULL, "cpld-usr");
    result = PTR_ERR_OR_ZERO(cpld_device);
    if (!result)
        result = device_create_file(cpld_device, &dev_attr_bh_phy_reset);
    if (result)
        class_destroy(cpld);
    return result;
}

int attributes_start(void)
{
    int result = phy_start();

    if (result)
        return result;
    result = cpld_start();
    if (result)
        phy_stop();
    return result;
}

void attributes_stop(void)
{
    device_unregister(cpld_device);
    class_destroy(cpld);
    phy_stop();
}
