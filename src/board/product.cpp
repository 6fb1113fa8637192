#include <ddal/product.h>

DDAL_WEAK void ddal_product_family_set(uint32_t) {}

int ddal_product_family_get()
{
    return 0;
}
