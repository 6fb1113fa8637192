/*
 * /dev/fpga_frame: a radio frame every 10 ms of the processor's counter. The page is published a little after the start
 * of the frame, with the counter and the times of the start itself. Every hundredth frame is a pulse per second.
 */
#include <linux/fs.h>
#include <linux/hrtimer.h>
#include <linux/math64.h>
#include <linux/miscdevice.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/pps_kernel.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

#include <asm/arch_timer.h>

#include "board.h"

#define COUNTER_HZ 204800000u
#define FRAMES_PER_SECOND 100u
#define COUNTS_PER_FRAME (COUNTER_HZ / FRAMES_PER_SECOND)
#define FRAME_NS (NSEC_PER_SEC / FRAMES_PER_SECOND)
#define SFN_MASK 4095u
#define NO_FRAME_COUNT U64_MAX

#define WAIT_NEXT 0xE560u
#define WAIT_FOR 0x4004E561u

struct frame_page {
    u32 bcn_low, bcn_high;
    u32 monotonic_sec, monotonic_nsec;
    u32 counter_low, counter_high;
    u32 sequence;
    u32 real_sec, real_nsec;
};

/* Switches of the checks: frames have a number, the driver publishes, pulses come. */
static bool numbered = true;
module_param(numbered, bool, 0644);
static bool publishing = true;
module_param(publishing, bool, 0644);
static bool pulses = true;
module_param(pulses, bool, 0644);
/* The count of the first frame. */
static unsigned long long first_bcn = 1000;
module_param(first_bcn, ullong, 0644);

static struct frame_page *page;
static struct hrtimer timer;
static struct pps_device *pps;
static DECLARE_WAIT_QUEUE_HEAD(new_frame);

static u64 first_counter; /* of the first frame */
static u32 frame;         /* frames since then */

static u32 frame_at(u64 counter)
{
    return (u32)div_u64(counter - first_counter, COUNTS_PER_FRAME);
}

static void publish(u64 counter, ktime_t monotonic, ktime_t real)
{
    struct timespec64 a = ktime_to_timespec64(monotonic), b = ktime_to_timespec64(real);
    const u64 bcn = numbered ? first_bcn + frame : NO_FRAME_COUNT;

    WRITE_ONCE(page->sequence, page->sequence + 1);
    smp_wmb();
    WRITE_ONCE(page->bcn_low, lower_32_bits(bcn));
    WRITE_ONCE(page->bcn_high, upper_32_bits(bcn));
    WRITE_ONCE(page->monotonic_sec, (u32)a.tv_sec);
    WRITE_ONCE(page->monotonic_nsec, (u32)a.tv_nsec);
    WRITE_ONCE(page->counter_low, lower_32_bits(counter));
    WRITE_ONCE(page->counter_high, upper_32_bits(counter));
    WRITE_ONCE(page->real_sec, (u32)b.tv_sec);
    WRITE_ONCE(page->real_nsec, (u32)b.tv_nsec);
    smp_wmb();
    WRITE_ONCE(page->sequence, page->sequence + 1);
}

static void pulse(u32 previous)
{
    struct pps_event_time time;

    if (!pulses || frame / FRAMES_PER_SECOND == previous / FRAMES_PER_SECOND)
        return;
    pps_get_ts(&time);
    pps_event(pps, &time, PPS_CAPTUREASSERT, NULL);
}

/* Reads all three at one moment. Repeats the reads if the emulator was delayed between them. */
static void read_clocks(u64 *counter, ktime_t *monotonic, ktime_t *real)
{
    unsigned int tries = 0;
    u64 before;

    do {
        before = __arch_counter_get_cntvct();
        *monotonic = ktime_get();
        *real = ktime_get_real();
        *counter = __arch_counter_get_cntvct();
    } while (*counter - before > COUNTER_HZ / 50000 && ++tries < 20);
}

static enum hrtimer_restart tick(struct hrtimer *t)
{
    const u32 previous = frame;
    ktime_t monotonic, real;
    u64 now, start, late_ns;

    read_clocks(&now, &monotonic, &real);
    frame = frame_at(now);
    start = first_counter + (u64)frame * COUNTS_PER_FRAME;
    late_ns = div_u64((now - start) * (NSEC_PER_SEC / 100000), COUNTER_HZ / 100000);
    if (publishing)
        publish(start, ktime_sub_ns(monotonic, late_ns), ktime_sub_ns(real, late_ns));
    pulse(previous);
    if (frame != previous)
        wake_up_interruptible(&new_frame);

    /* Expires at the start of the next frame by the counter. */
    hrtimer_set_expires(t, ktime_add_ns(monotonic, FRAME_NS - late_ns));
    return HRTIMER_RESTART;
}

static int frame_mmap(struct file *file, struct vm_area_struct *area)
{
    if (area->vm_pgoff != 0 || area->vm_end - area->vm_start != PAGE_SIZE)
        return -EINVAL;
    if (area->vm_flags & VM_WRITE)
        return -EPERM;
    area->vm_flags &= ~VM_MAYWRITE;
    return vm_insert_page(area, area->vm_start, virt_to_page(page));
}

static long wait_for(u32 __user *argument)
{
    u32 wanted;

    if (get_user(wanted, argument))
        return -EFAULT;
    if (!numbered)
        return -EAGAIN;
    return wait_event_interruptible(new_frame, ((first_bcn + READ_ONCE(frame)) & SFN_MASK) == wanted);
}

static long frame_ioctl(struct file *file, unsigned int request, unsigned long argument)
{
    const u32 present = frame_at(__arch_counter_get_cntvct()); /* the timer may be late */

    switch (request) {
    case WAIT_NEXT: return wait_event_interruptible(new_frame, READ_ONCE(frame) > present);
    case WAIT_FOR: return wait_for((u32 __user *)argument);
    default: return -ENOTTY;
    }
}

static const struct file_operations frame_operations = {
    .owner = THIS_MODULE,
    .mmap = frame_mmap,
    .unlocked_ioctl = frame_ioctl,
};

static struct miscdevice frame_device = {
    .minor = MISC_DYNAMIC_MINOR,
    .name = "fpga_frame",
    .fops = &frame_operations,
};

static struct pps_source_info pulse_source = {
    .name = "fpga-pps",
    .mode = PPS_CAPTUREASSERT | PPS_OFFSETASSERT | PPS_CANWAIT | PPS_TSFMT_TSPEC,
    .owner = THIS_MODULE,
};

int frame_start(void)
{
    int result;

    page = (struct frame_page *)get_zeroed_page(GFP_KERNEL);
    if (!page)
        return -ENOMEM;
    first_counter = __arch_counter_get_cntvct();
    pps = pps_register_source(&pulse_source, PPS_CAPTUREASSERT);
    if (IS_ERR(pps)) {
        result = PTR_ERR(pps);
        goto no_source;
    }
    hrtimer_init(&timer, CLOCK_MONOTONIC, HRTIMER_MODE_ABS);
    timer.function = tick;
    hrtimer_start(&timer, ktime_get(), HRTIMER_MODE_ABS);
    result = misc_register(&frame_device);
    if (result == 0)
        return 0;

    hrtimer_cancel(&timer);
    pps_unregister_source(pps);
no_source:
    free_page((unsigned long)page);
    return result;
}

void frame_stop(void)
{
    misc_deregister(&frame_device);
    hrtimer_cancel(&timer);
    pps_unregister_source(pps);
    free_page((unsigned long)page);
}
