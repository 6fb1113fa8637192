// Snapshot of the radio data path between the SoC's antenna interface and the main FPGA.
#include "logic/rp3_validate.h"

#include <cstring>

#include <ddal/fpga.h>
#include <ddal/mem.h>
#include <ddal/rp3.h>

#include "core/log.h"
#include "core/text.h"
#include "identity/boards.h"
#include "logic/rp3_log.h"
#include "logic/rp3_registers.h"

namespace ddal::logic {

namespace {

constexpr size_t kTextSize = 2048;

void append_line(char *text, size_t text_len, uint32_t address, uint32_t value, const char *label)
{
    const size_t used = strnlen(text, text_len);
    ddal_common_scnprintf(text + used, text_len - used, "0x%08X <0x%08X> - %s\n", address, value, label);
}

// Collects the lines of a snapshot and the health of the links.
class Snapshot {
public:
    int take();
    const char *text() const { return text_; }

private:
    bool read_fpga(const LabelledRegister &reg, uint32_t *value);
    bool read_aif(const LabelledRegister &reg, uint32_t *value);
    void read_links();
    void expect_bits(uint32_t address, uint32_t value, uint32_t expected);

    char text_[kTextSize] = "";
    bool good_ = true;
};

bool Snapshot::read_fpga(const LabelledRegister &reg, uint32_t *value)
{
    const bool read = sprintf_read_fpga_reg(text_, sizeof text_, reg.address, reg.label, value) == 0;
    good_ &= read;
    return read;
}

bool Snapshot::read_aif(const LabelledRegister &reg, uint32_t *value)
{
    const bool read = sprintf_read_k2_dsp_reg(text_, sizeof text_, reg.address, reg.label, value) == 0;
    good_ &= read;
    return read;
}

void Snapshot::expect_bits(uint32_t address, uint32_t value, uint32_t expected)
{
    if ((value & expected) == expected)
        return;
    good_ = false;
    log_line_as(
        LOG_INFO, "ddal_rp3_validate_aif",
        "Register 0x%08X has value 0x%08X instead of 0x%08X.  If AIF has not been configured, this is expected.\n",
        address, value, expected);
}

void Snapshot::read_links()
{
    const bool upper = identity::this_board().upper_links;
    for (const LinkRegister &reg : kAifLinks) {
        for (const uint32_t address : upper ? reg.upper : reg.lower) {
            uint32_t value;
            read_aif({address, reg.label}, &value);
        }
    }
}

int Snapshot::take()
{
    uint32_t value;
    if (!read_fpga(kRp1SfnStatus, &value))
        return DDAL_ERR_FAILURE;
    expect_bits(kRp1SfnStatus.address, value, kRp1SfnStatusGood);
    for (const LabelledRegister &reg : kDataPathCounters)
        read_fpga(reg, &value);

    if (read_aif(kAifAlarm, &value))
        expect_bits(kAifAlarm.address, value, kAifAlarmGood);
    for (const LabelledRegister &reg : kAifCommon)
        read_aif(reg, &value);
    read_links();
    return good_ ? 0 : DDAL_ERR_FAILURE;
}

} // namespace

int sprintf_read_fpga_reg(char *text, size_t text_len, uint32_t address, const char *label, uint32_t *value)
{
    *value = 0;
    // kept: only DDAL_ERR_FAILURE counts as a failed read. After a negative errno the line shows the value that the
    // call left.
    if (ddal_fpga_read(address, value) == DDAL_ERR_FAILURE)
        return log_error(DDAL_ERR_FAILURE, "Reading FPGA register 0x%08X failed.\n", address);
    append_line(text, text_len, address, *value, label);
    return 0;
}

int read_value_from_map_addr(uint32_t address, uint32_t *value)
{
    void *const mapped = ddal_mem_map_addr(address, sizeof *value);
    if (!mapped)
        return log_error(DDAL_ERR_FAILURE, "address mapping failed\n");
    *value = *static_cast<const volatile uint32_t *>(mapped);
    ddal_mem_unmap_addr(mapped, sizeof *value);
    return 0;
}

int sprintf_read_k2_dsp_reg(char *text, size_t text_len, uint32_t address, const char *label, uint32_t *value)
{
    *value = 0;
    if (read_value_from_map_addr(address, value) != 0)
        return log_error(DDAL_ERR_FAILURE, "Reading K2-DSP register 0x%08X failed.\n", address);
    append_line(text, text_len, address, *value, label);
    return 0;
}

} // namespace ddal::logic

using namespace ddal::logic;

int ddal_rp3_validate_aif(const char *event, int write_log, char *text, size_t text_len)
{
    Snapshot snapshot;
    const int result = snapshot.take();
    if (result != 0 && snapshot.text()[0] == '\0') // even the first register could not be read
        return result;

    if (text)
        ddal_common_strlcpy(text, snapshot.text(), text_len);
    if (!write_log)
        return result;
    return append_link_log(event ? event : "", snapshot.text()); // kept: the result of the logging alone
}
