// ddalctl devicetree: the data that manufacturing wrote about the board.
#include <ddal/devicetree.h>

#include <cstring>
#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/identity.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

void show(const Arguments &, Report &report)
{
    for (const IdentityText &row : identity_texts())
        add_if_there(report, row);
    for (const IdentityNumber &row : identity_numbers())
        add_if_there(report, row);
}

void get(const Arguments &arguments, Report &report)
{
    const std::string &name = arguments.text("NAME");
    for (const IdentityText &row : identity_texts()) {
        if (name == row.name)
            return report.add(name, text_of(row));
    }
    for (const IdentityNumber &row : identity_numbers()) {
        if (name == row.name)
            return report.add(name, number_of(row));
    }
    throw WrongUse("NAME: \"" + name + "\" is not a property; see ddalctl devicetree show");
}

void mac(const Arguments &arguments, Report &report)
{
    const std::string &name = arguments.text("INTERFACE");
    const std::string digits = name.starts_with("virt") ? name.substr(strlen("virt")) : "";
    const bool is_virtual = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    if (!is_virtual && (name.size() != 4 || !name.starts_with("eth") || name[3] < '0' || name[3] > '3'))
        throw WrongUse("INTERFACE: \"" + name + "\" is not one of eth0, eth1, eth2, eth3, virt and a number");
    report.add("mac", mac_address(arguments.text("INTERFACE")));
}

void set_isti(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_devicetree_set_isti)(arguments.number("VALUE")));
}

void commit(const Arguments &, Report &)
{
    require(quietly([&] { return DDAL(ddal_devicetree_write_to_flash)(); }));
}

std::vector<std::string> names_of_properties(const std::vector<std::string> &)
{
    std::vector<std::string> names;
    for (const IdentityText &row : identity_texts())
        names.emplace_back(row.name);
    for (const IdentityNumber &row : identity_numbers())
        names.emplace_back(row.name);
    return names;
}

} // namespace

Family devicetree_family()
{
    return {"devicetree",
            "data that manufacturing wrote about the board",
            {
                {"show", "show all properties", {}, show},
                {"get",
                 "show one property",
                 {text_of("NAME", "name as shown by \"devicetree show\"", names_of_properties)},
                 get},
                {"mac",
                 "show the MAC address of a network interface",
                 {{"INTERFACE", Kind::text, "eth0, eth1, eth3, on some boards eth2, or virt and a number"}},
                 mac},
                {"set-isti", "write the property isti", {{"VALUE", Kind::number, "32-bit value"}}, set_isti},
                {"commit", "make a changed device tree permanent in flash", {}, commit},
            }};
}

} // namespace ddalctl
