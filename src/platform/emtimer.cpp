// Timers of the FPGA.
#include <ddal/emtimer.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "platform/emtimer_driver.h"

using ddal::core::minus_errno;
using ddal::core::UniqueFd;
using namespace ddal::platform;

namespace {

constexpr ddal_emtimer_setting kNoSetting{};

// The descriptor of the process. Its number never changes once it is open, so that no thread uses a closed one.
std::atomic<int> timer_fd{-1};

int install(UniqueFd fresh)
{
    int installed = -1;
    if (timer_fd.compare_exchange_strong(installed, fresh.get())) {
        fresh.release();
        return 0;
    }
    // Puts the new device under the old number and closes the old one, in one step.
    return dup3(fresh.get(), installed, O_CLOEXEC) < 0 ? minus_errno() : 0;
}

int request(uint32_t number, void *record)
{
    errno = 0;
    return ioctl(timer_fd.load(), number, record) < 0 ? minus_errno() : 0;
}

} // namespace

int ddal_emtimer_config(uint32_t a0, uint32_t a1, uint32_t a2, uint32_t a3, uint32_t a4, uint32_t a5)
{
    UniqueFd fd{open(kEmtimerNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return minus_errno();
    const int result = install(std::move(fd));
    if (result != 0)
        return result;

    EmtimerConfigRequest config{{a0, a1, a2, a3, a4, a5}};
    return request(kEmtimerConfig, &config);
}

int ddal_emtimer_create(uint32_t a, uint32_t b, const struct ddal_emtimer_setting *setting, uint32_t *id)
{
    EmtimerCreateRequest create{.setting = {}, .a = a, .b = b, .id = 0};
    memcpy(create.setting, setting ? setting->word : kNoSetting.word, sizeof create.setting);
    const int result = request(kEmtimerCreate, &create);
    if (result == 0)
        *id = create.id;
    return result;
}

int ddal_emtimer_settime(uint32_t id, const struct ddal_emtimer_setting *setting)
{
    EmtimerSettimeRequest settime{.setting = {}, .id = id};
    memcpy(settime.setting, setting ? setting->word : kNoSetting.word, sizeof settime.setting);
    return request(kEmtimerSettime, &settime);
}

int ddal_emtimer_destroy(uint32_t id, uint32_t *out1, uint32_t *out2)
{
    EmtimerDestroyRequest destroy{.id = id, .out1 = 0, .out2 = 0};
    const int result = request(kEmtimerDestroy, &destroy);
    if (result != 0)
        return result;
    if (out1)
        *out1 = destroy.out1;
    if (out2)
        *out2 = destroy.out2;
    return 0;
}
