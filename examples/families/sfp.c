/* Prints the vendor and the temperature of the module in cage 1. */
#include <stdio.h>

#include <ddal/sfp.h>

int main(void)
{
    union {
        uint32_t bits;
        float celsius;
    } temperature;
    char vendor[17];

    if (ddal_sfp_vendor_name_get(DDAL_SFP_1, vendor) != 0) /* an empty cage typically gives -ENXIO */
        return 1;
    printf("the module is from %s\n", vendor);
    if (ddal_sfp_diagnostic_get(DDAL_SFP_1, DDAL_SFP_DIAG_TEMPERATURE, &temperature.bits) != 0)
        return 1;
    printf("it has %.1f degrees\n", (double)temperature.celsius); /* the word holds the bits of a float */
    return 0;
}
