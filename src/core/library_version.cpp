#include <ddal/diagnosis.h>

const char *ddal_ext_version(void)
{
    return DDAL_VERSION;
}
