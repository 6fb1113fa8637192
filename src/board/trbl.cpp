// Trouble log.
#include <ddal/trbl.h>

#include <ddal/common.h>
#include <unistd.h>

#include "core/log.h"

int ddal_trbl_prepare()
{
    return 0;
}

int ddal_trbl_store(const char *name)
{
    char program[] = "trbl_linux_log_store";
    char *argv[] = {program, const_cast<char *>(name), nullptr};
    if (_ddal_common_shell_command("/sbin/trbl_linux_log_store", argv) != 0)
        return log_error(DDAL_ERR_TRBL_STORE, "execution of 'trbl_linux_log_store %s' failed\n", name);
    return 0;
}

int ddal_trbl_delete(const char *path)
{
    if (unlink(path) != 0)
        return log_errno("unlink failed: %m\n");
    return 0;
}
