// ddalctl atboot: the boot hooks, which the board's start-up runs once.
#include <ddal/atboot.h>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

void run(const Arguments &, Report &)
{
    const int result = quietly([] { return DDAL(ddal_atboot_run)(); });
    if (result != 0) // ENOENT of a hook is a failed operation, not a missing board
        throw Failure(result, kOperationFailed, failure_of(result).what());
}

} // namespace

Family atboot_family()
{
    return {"atboot",
            "boot hooks, which the board's start-up runs once",
            {{"run", "run every boot hook in order", {}, run}}};
}

} // namespace ddalctl
