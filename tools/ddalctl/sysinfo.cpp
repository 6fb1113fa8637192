// ddalctl sysinfo: the system-information store.
#include <ddal/sysinfo.h>

#include <cerrno>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

void get(const Arguments &arguments, Report &report)
{
    uint64_t value = 0;
    const int result = DDAL(ddal_sysinfo_get_uint)(arguments.number("CATEGORY"), arguments.number("KEY"),
                                                   arguments.number_or("KEY2", 0), &value);
    if (result == -ENOENT)
        throw Failure(result, kNothingThere, "the store holds no such item");
    require(result);
    report.add("value", value);
}

void set(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_sysinfo_set_uint)(arguments.number("CATEGORY"), arguments.number("KEY"), arguments.number("KEY2"),
                                        arguments.number64("VALUE")));
}

void commit(const Arguments &, Report &)
{
    require(quietly([&] { return DDAL(ddal_sysinfo_update_devicetree_to_flash)(); }));
}

} // namespace

Family sysinfo_family()
{
    const Argument category = {"CATEGORY", Kind::number, "category of the item"};
    const Argument key = {"KEY", Kind::number, "key of the item"};
    return {"sysinfo",
            "the system-information store",
            {
                {"get", "show an item", {category, key, {"KEY2", Kind::number, "second key (default 0)", true}}, get},
                {"set",
                 "store an item",
                 {category,
                  key,
                  {"KEY2", Kind::number, "second key, 0 for an item without one"},
                  {"VALUE", Kind::number, "64-bit value", false, UINT64_MAX}},
                 set},
                {"commit", "make a changed device tree permanent in flash", {}, commit},
            }};
}

} // namespace ddalctl
