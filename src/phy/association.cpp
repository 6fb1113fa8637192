#include "phy/association.h"

#include <ddal/common.h>
#include <ddal/devicetree.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>
#include <ddal/sysinfo.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "core/log.h"
#include "core/text.h"
#include "identity/boards.h"

static_assert(sizeof(ddal_phy_association) == 28 && offsetof(ddal_phy_association, dev_id) == 24);

using ddal::identity::this_board;

namespace ddal::phy {

namespace {

struct Device {
    const char *ifname;
    const char *mbo_ifname;
    uint32_t mbo_bh_port;
    int32_t mbo_switch_port; // kByType: the cached backhaul type decides
};

constexpr int32_t kByType = -1;
constexpr Device kDevices[] = {
    {"eth1", "eth1", 2, 14},      // 0
    {"eth0", "eth0", 1, 18},      // 1
    {"eth3", "eth3", 2, 14},      // 2
    {"eth3", "eth3", 3, kByType}, // 3
    {"eth3", "eth0", 4, 21},      // 4
};

struct TypePort {
    uint32_t type;
    int32_t switch_port;
};

constexpr TypePort kMboBackhaul3Ports[] = {{kTypeMboGigabit, 16}, {kTypeMbo2500, 20}};

struct BackhaulValue {
    uint64_t value;
    uint32_t bh_port;
};

constexpr BackhaulValue kBackhaulValues[] = {{249, 1}, {250, 2}, {0, 3}, {251, 3}, {253, 3}, {252, 4}};

constexpr uint32_t kHighestSocPort = 3;
constexpr uint32_t kSwitchSocPort = 3; // the SoC port that can connect an external multiport switch
constexpr int32_t kMarvellPort3 = 3;
constexpr int32_t kMarvellPort4 = 4;

// Items of the system-information store
constexpr uint32_t kItemCategory = 0;
constexpr uint32_t kTypeKey = 13;
constexpr uint32_t kTypeField = 18;
constexpr uint32_t kBackhaulKey = 42;
constexpr uint32_t kFirstBackhaulField = 31;

int read_dev_id(const char *ifname, uint32_t *dev_id)
{
    char path[64];
    const int length = snprintf(path, sizeof path, "/sys/class/net/%s/dev_id", ifname);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return log_error(DDAL_ERR_FAILURE, "snprintf failed\n");

    char text[16];
    const int rc = ddal_common_read_string(sizeof text, text, path);
    if (rc != 0)
        return rc;
    char *end = nullptr;
    const unsigned long value = strtoul(text, &end, 0);
    if (end == text || value > UINT32_MAX)
        return DDAL_ERR_FAILURE;
    *dev_id = static_cast<uint32_t>(value);
    return 0;
}

int find_name_and_dev_id(uint32_t phy_dev, Interface *found)
{
    if (ddal_phy_iface2ifname(phy_dev, found->name, sizeof found->name) != 0)
        return log_error(DDAL_ERR_FAILURE, "couldn't find interface name for interface: 0x%x\n", phy_dev);
    if (read_dev_id(found->name, &found->dev_id) != 0)
        return log_error(DDAL_ERR_FAILURE, "couldn't find dev_id for interface: 0x%x(%s)\n", phy_dev, found->name);
    return 0;
}

} // namespace

int find_interface(const char *caller, uint32_t phy_dev, Interface *found)
{
    if (find_name_and_dev_id(phy_dev, found) == 0)
        return 0;
    log_line(LOG_ERR, "couldn't find name & dev_id for interface: 0x%x\n", phy_dev);
    return log_error_as(caller, DDAL_ERR_FAILURE, "couldn't find name & dev_id for phy dev: %d\n",
                        static_cast<int>(phy_dev));
}

bool carries_external_switch(uint32_t dev_id)
{
    return dev_id == kSwitchSocPort && is_BH3_type_multiport_switch() != -1;
}

int get_cached_bh_type(uint32_t *type)
{
    static std::atomic<uint32_t> cached{kTypeUnset}; // two first calls may both read it, with the same result
    if (cached == kTypeUnset) {
        uint64_t value = 0;
        const int rc = ddal_sysinfo_get_uint(kItemCategory, kTypeKey, kTypeField, &value);
        if (rc != 0) {
            *type = kTypeUnset;
            return log_error(rc, "ddal_sysinfo_get_uint() failed:%d\n", rc);
        }
        cached = static_cast<uint32_t>(value);
    }
    *type = cached;
    return 0;
}

int mbo_board_association_set(uint32_t phy_dev, ddal_phy_association *association)
{
    *association = {};
    association->dev_id = -1;
    if (phy_dev >= std::size(kDevices))
        return log_error(-ENODEV, "unsupported phy device %d\n", static_cast<int>(phy_dev));

    association->bh_port = kDevices[phy_dev].mbo_bh_port;
    association->switch_port = kDevices[phy_dev].mbo_switch_port;
    if (association->switch_port != kByType)
        return 0;

    uint32_t type = kTypeUnset;
    get_cached_bh_type(&type);
    for (const TypePort &row : kMboBackhaul3Ports) {
        if (row.type == type) {
            association->switch_port = row.switch_port;
            return 0;
        }
    }
    return log_error(-ENODEV, "invalid bh3 type for mbo: %u\n", type);
}

int ifdev2soc(uint32_t dev_id, uint32_t *soc_port)
{
    if (dev_id > kHighestSocPort)
        return log_error(DDAL_ERR_FAILURE, "unsupported value of phy interface device id: %d\n",
                         static_cast<int>(dev_id));
    *soc_port = dev_id;
    return 0;
}

int bh_eth2bh_port(uint64_t value, uint32_t *bh_port)
{
    for (const BackhaulValue &row : kBackhaulValues) {
        if (row.value == value) {
            *bh_port = row.bh_port;
            return 0;
        }
    }
    return log_error(DDAL_ERR_FAILURE, "unsupported backhaul value: %llu\n", static_cast<unsigned long long>(value));
}

namespace {

int direct_association_set(const char *caller, uint32_t phy_dev, ddal_phy_association *association)
{
    Interface found{};
    uint32_t soc_port = 0;
    uint64_t value = 0;
    if (find_interface(caller, phy_dev, &found) != 0 || ifdev2soc(found.dev_id, &soc_port) != 0 ||
        ddal_sysinfo_get_uint(kItemCategory, kBackhaulKey, kFirstBackhaulField + soc_port, &value) != 0)
        return DDAL_ERR_FAILURE;

    *association = {};
    ddal_common_strlcpy(association->ifname, found.name, sizeof association->ifname);
    association->dev_id = static_cast<int32_t>(soc_port);
    association->switch_port = -1;
    if (bh_eth2bh_port(value, &association->bh_port) != 0)
        return DDAL_ERR_FAILURE;

    uint32_t type = kTypeUnset;
    if (phy_dev == kBackhaul3Device)
        get_cached_bh_type(&type);
    if (type == kTypeMarvellPort3)
        association->switch_port = kMarvellPort3;
    else if (carries_external_switch(soc_port))
        association->switch_port = kMarvellPort4;
    return 0;
}

} // namespace

} // namespace ddal::phy

using namespace ddal::phy;

int ddal_phy_iface2ifname(uint32_t phy_dev, char *ifname, size_t size)
{
    if (phy_dev >= std::size(kDevices))
        return log_error(DDAL_ERR_FAILURE, "Unsupported interface\n");
    const Device &device = kDevices[phy_dev];
    ddal_common_strlcpy(ifname, this_board().broadcom_switch ? device.mbo_ifname : device.ifname, size);
    return 0;
}

int ddal_phy_get_association(uint32_t phy_dev, struct ddal_phy_association *association)
{
    using namespace ddal::phy;

    if (!association)
        return log_error(-EINVAL, "association is NULL\n");
    if (this_board().broadcom_switch)
        return mbo_board_association_set(phy_dev, association);
    return log_failure(direct_association_set(__func__, phy_dev, association), "PHY dev %d association get failure\n",
                       static_cast<int>(phy_dev));
}
