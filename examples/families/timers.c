/* Creates and deletes a timer of the FPGA and reads the status of the jitter cleaner. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/emtimer.h>
#include <ddal/jitter_cleaner.h>

int main(void)
{
    const struct ddal_emtimer_setting setting = {{0, 1000, 0, 0}};
    int32_t status = 0;
    uint32_t id = 0;

    if (ddal_emtimer_config(1, 0, 0, 0, 0, 0) != 0) /* must come first */
        return 1;
    if (ddal_emtimer_create(0, 0, &setting, &id) != 0 || ddal_emtimer_destroy(id, NULL, NULL) != 0)
        return 1;
    if (ddal_jitter_cleaner_stat_read(0, &status) != 0)
        return 1;
    printf("the timer came and went, jitter cleaner status %" PRId32 "\n", status);
    return 0;
}
