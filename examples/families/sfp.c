/* Names the module in cage 1 and measures its temperature. */
#include <stdio.h>
#include <string.h>

#include <ddal/sfp.h>

int main(void)
{
    uint32_t bits = 0;
    char vendor[17];
    float celsius;

    if (ddal_sfp_vendor_name_get(DDAL_SFP_1, vendor) != 0) /* an empty cage typically gives -ENXIO */
        return 1;
    printf("the module is from %s\n", vendor);
    if (ddal_sfp_diagnostic_get(DDAL_SFP_1, DDAL_SFP_DIAG_TEMPERATURE, &bits) != 0)
        return 1;
    memcpy(&celsius, &bits, sizeof celsius); /* the bits of a float */
    printf("it has %.1f degrees\n", (double)celsius);
    return 0;
}
