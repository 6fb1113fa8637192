/* Sets the status LED to blinking green. */
#include <stdio.h>

#include <ddal/led.h>

int main(void)
{
    uint32_t colour = DDAL_LED_OFF;

    if (ddal_led_set(DDAL_LED_STATUS, DDAL_LED_BLINKING_GREEN) != 0)
        return 1;
    if (ddal_led_get(DDAL_LED_STATUS, &colour) != 0)
        return 1;
    printf("the status LED %s\n", colour == DDAL_LED_BLINKING_GREEN ? "blinks green" : "does something else");
    return 0;
}
