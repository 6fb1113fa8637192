// The board's network interfaces, as ethtool and interface-flag requests see them.
#pragma once

#include <linux/ethtool.h>
#include <map>

#include "daemon/model.h"
#include "page/protocol.h"

namespace vboard {

class Interfaces : public Model {
public:
    explicit Interfaces(Board &board);

    static ControlTable commands();

    // Does one request; the record carries its answer. 0 or -errno.
    int request(uint32_t number, InterfaceRequest &request);

    // The cable. False when there is no such interface.
    bool plug(const std::string &name, bool partner);
    bool has_link(const std::string &name) const;

private:
    struct Interface {
        uint32_t index;
        uint16_t flags;
        ethtool_cmd settings;
        bool partner;
        bool refuses;
    };
    Interface *find(const std::string &name);
    Interface &interface_in(const Given &given);
    std::string show() const;
    static int ethtool(Interface &interface, uint8_t *record);
    static int set(Interface &interface, const ethtool_cmd &settings);
    void tell(const Interface &interface) const;

    std::map<std::string, Interface> interfaces_;
};

} // namespace vboard
