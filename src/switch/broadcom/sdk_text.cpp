// Texts of the SDK's results.
#include "switch/broadcom/sdk_call.h"

namespace ddal::ethswitch {

namespace {

// Older releases end their table here with the text of an unknown error. Newer ones continue it.
constexpr int kLastText = 19;

constexpr char kNoTable[] = "Unknown error";

const char *text_of(char *const *table, int result)
{
    if (!table)
        return kNoTable;
    return table[result <= 0 && result > -kLastText ? -result : kLastText];
}

} // namespace

const char *sdk_text(int result)
{
    return text_of(_shr_errmsg, result);
}

void log_port_failure(const CallSite &site, uint32_t port, int result)
{
    __ddal_log(LOG_ERR, "%s:%u- %s failed on port %u: %s\n", site.caller, site.line, site.callee, port,
               sdk_text(result));
}

void log_unit_failure(const CallSite &site, int result)
{
    __ddal_log(LOG_ERR, "%s:%u- %s failed: %s\n", site.caller, site.line, site.callee, sdk_text(result));
}

} // namespace ddal::ethswitch
