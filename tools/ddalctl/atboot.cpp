// ddalctl atboot: what the board's start-up runs once.
#include <ddal/atboot.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

void run(const Arguments &, Report &)
{
    require(DDAL(ddal_atboot_run)());
}

} // namespace

Family atboot_family()
{
    return {"atboot", "what the board's start-up runs once", {{"run", "run every boot hook in order", {}, run}}};
}

} // namespace ddalctl
