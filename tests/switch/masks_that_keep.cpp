// The library's egress masks for the other meaning of their bits, in place of the library's choice.
#define egress_mask_of mask_that_keeps // inline, so the linker could take either
#define ddal_bcm_ifp_egress_mask_update_all update_masks_that_keep
#include "../../src/switch/broadcom/egress_mask.cpp" // NOLINT(bugprone-suspicious-include)
#undef ddal_bcm_ifp_egress_mask_update_all

extern "C" int ddal_bcm_ifp_egress_mask_update_all()
{
    return update_masks_that_keep();
}
