/*
 * The process that load_time measures: loads up to two libraries, may open a link event, and ends.
 *
 *     load_probe [LIBRARY [event | LIBRARY]]
 */
#include <dlfcn.h>
#include <string.h>

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        static void *library;

        if (strcmp(argv[i], "event") == 0) {
            int (*const open_link)(unsigned) =
                (int (*)(unsigned))dlsym(library, "ddal_phy_event_register_broadcom_switch");

            if (!open_link || open_link(1) < 0)
                return 1;
        } else {
            library = dlopen(argv[i], RTLD_NOW);
            if (!library)
                return 1;
        }
    }
    return 0;
}
