// ddalctl switch: VLANs, translations and addresses.
#include <ddal/eth_switch.h>

#include <array>
#include <cstdio>
#include <string>

#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/switch_commands.h"

namespace ddalctl {

namespace {

constexpr uint32_t kHighestVlan = 4095;

void add_vlans(Report &report, const char *name, const std::vector<uint16_t> &vlans)
{
    for (const uint16_t vlan : vlans) {
        Report &row = report.row("vlans");
        row.add("kind", name);
        row.add("vlan", uint64_t{vlan});
    }
}

void add_translations(Report &report, const char *name, const std::vector<ddal_eth_switch_translation> &list)
{
    for (const ddal_eth_switch_translation &entry : list) {
        Report &row = report.row("translations");
        row.add("direction", name);
        row.add("cvlan", uint64_t{entry.cvlan});
        row.add("svlan", uint64_t{entry.svlan});
    }
}

void vlans(const Arguments &arguments, Report &report)
{
    const uint32_t port = arguments.number("PORT");
    report.table("vlans");
    report.table("translations");
    add_vlans(report, "C-VLAN", switch_list<uint16_t>([port](uint16_t *list, uint32_t *size) {
                  return DDAL(ddal_eth_switch_get_cvlans)(kSwitch, port, list, size);
              }));
    add_vlans(report, "S-VLAN", switch_list<uint16_t>([port](uint16_t *list, uint32_t *size) {
                  return DDAL(ddal_eth_switch_get_svlans)(kSwitch, port, list, size);
              }));
    using Translation = ddal_eth_switch_translation;
    add_translations(report, "in", switch_list<Translation>([port](Translation *list, uint32_t *size) {
                         return DDAL(ddal_eth_switch_get_vlan_translation)(kSwitch, port, list, size);
                     }));
    add_translations(report, "out", switch_list<Translation>([port](Translation *list, uint32_t *size) {
                         return DDAL(ddal_eth_switch_get_egress_translations)(kSwitch, port, list, size);
                     }));
}

void create_svlan(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_create_svlan)(kSwitch, arguments.number("SVLAN")));
}

void delete_svlan(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_delete_svlan)(kSwitch, arguments.number("SVLAN")));
}

void join(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_add_svlan)(kSwitch, arguments.number("PORT"), arguments.number("SVLAN")));
}

void leave(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_remove_svlan)(kSwitch, arguments.number("PORT"), arguments.number("SVLAN")));
}

void default_svlan(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    if (arguments.given("SVLAN"))
        require_switch(DDAL(ddal_eth_switch_set_default_svlan)(kSwitch, port, arguments.number("SVLAN")));
    else
        require_switch(DDAL(ddal_eth_switch_remove_default_svlan)(kSwitch, port));
}

void translate(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_add_vlan_translation)(kSwitch, arguments.number("PORT"),
                                                              arguments.number("CVLAN"), arguments.number("SVLAN")));
}

void untranslate(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_remove_vlan_translation)(kSwitch, arguments.number("PORT"),
                                                                 arguments.number("CVLAN"), arguments.number("SVLAN")));
}

void add_addresses(Report &report, const char *kind, const std::vector<ddal_eth_switch_mac_entry> &list)
{
    for (const ddal_eth_switch_mac_entry &entry : list) {
        Report &row = report.row("addresses");
        row.add("mac", mac_text(entry.mac));
        row.add("vlan", uint64_t{entry.vlan});
        row.add("kind", kind);
    }
}

void addresses(const Arguments &arguments, Report &report)
{
    const uint32_t port = arguments.number("PORT");
    report.table("addresses");
    using Entry = ddal_eth_switch_mac_entry;
    add_addresses(report, "learned", switch_list<Entry>([port](Entry *list, uint32_t *size) {
                      return DDAL(ddal_eth_switch_get_port_learned_addrs)(kSwitch, port, list, size);
                  }));
    add_addresses(report, "static", switch_list<Entry>([port](Entry *list, uint32_t *size) {
                      return DDAL(ddal_eth_switch_get_static_arl_entries)(kSwitch, port, list, size);
                  }));
}

void add_address(const Arguments &arguments, Report &)
{
    const Mac mac = mac_of(arguments.text("MAC"));
    require_switch(DDAL(ddal_eth_switch_add_static_arl_entry)(kSwitch, arguments.number("PORT"), mac.data(),
                                                              arguments.number("VLAN")));
}

void remove_address(const Arguments &arguments, Report &)
{
    const Mac mac = mac_of(arguments.text("MAC"));
    require_switch(DDAL(ddal_eth_switch_remove_static_arl_entry)(kSwitch, arguments.number("PORT"), mac.data(),
                                                                 arguments.number("VLAN")));
}

void clear_addresses(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_clear_port_learned_arl_entries)(kSwitch, arguments.number("PORT")));
}

} // namespace

Mac mac_of(const std::string &text)
{
    Mac mac = {};
    int length = 0;
    if (sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4],
               &mac[5], &length) != 6 ||
        static_cast<size_t>(length) != text.size() || text.find_first_not_of("0123456789abcdefABCDEF:") != text.npos)
        throw WrongUse("MAC: \"" + text + "\" is not of the form 02:00:5e:10:00:10");
    return mac;
}

std::string mac_text(const uint8_t (&mac)[6])
{
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

std::vector<Command> switch_vlan_commands()
{
    const Argument cvlan = {"CVLAN", Kind::number, "C-VLAN, 0 to 4095", false, kHighestVlan};
    const Argument vlan = {"VLAN", Kind::number, "0 to 4095", false, kHighestVlan};
    const Argument mac = {"MAC", Kind::text, "such as 02:00:5e:10:00:10"};
    return {
        {"vlans", "list the VLANs and translations of a port", {kPort}, vlans},
        {"create-svlan", "create an S-VLAN", {kSvlan}, create_svlan},
        {"delete-svlan", "delete an S-VLAN", {kSvlan}, delete_svlan},
        {"join", "add a port to an S-VLAN, tagged", {kPort, kSvlan}, join},
        {"leave", "remove a port from an S-VLAN", {kPort, kSvlan}, leave},
        {"default-svlan",
         "set the S-VLAN of received frames without a tag; without SVLAN, remove it",
         {kPort, kOptionalSvlan},
         default_svlan},
        {"translate", "translate a C-VLAN of a port into an S-VLAN", {kPort, cvlan, kSvlan}, translate},
        {"untranslate", "remove a translation", {kPort, cvlan, kSvlan}, untranslate},
        {"addresses", "list the addresses of a port", {kPort}, addresses},
        {"add-address", "add a static address to a port", {kPort, mac, vlan}, add_address},
        {"remove-address", "remove a static address from a port", {kPort, mac, vlan}, remove_address},
        {"clear-addresses", "delete the learned addresses of a port", {kPort}, clear_addresses},
    };
}

} // namespace ddalctl
