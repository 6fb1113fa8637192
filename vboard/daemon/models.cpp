// The models that board descriptions can name. A new model needs one row here.
#include "daemon/board.h"
#include "daemon/models/event_channels.h"
#include "daemon/models/frame.h"
#include "daemon/models/interfaces.h"
#include "daemon/models/leds.h"
#include "daemon/models/links.h"
#include "daemon/models/multiport.h"
#include "daemon/models/phy.h"
#include "daemon/models/registers.h"
#include "daemon/models/rf_card.h"
#include "daemon/models/rf_fpga.h"
#include "daemon/models/service_manager.h"
#include "daemon/models/sfp_cages.h"
#include "daemon/models/slow_measurement.h"
#include "daemon/models/small_devices.h"
#include "daemon/models/soc.h"
#include "daemon/models/switch.h"
#include "daemon/models/switch_shell.h"
#include "daemon/models/timers.h"

namespace vboard {

namespace {

constexpr uint32_t kCpldSpacing = 4;
constexpr uint64_t kCpldSize = 0x400;
constexpr uint64_t kDfeSize = 1 << 20;
constexpr uint64_t kSpiSize = 1 << 16;

template <typename M, auto... arguments>
std::unique_ptr<Model> make(Board &board)
{
    return std::make_unique<M>(board, arguments...);
}

struct Row {
    const char *name;
    std::unique_ptr<Model> (*make)(Board &);
};
constexpr Row kModels[] = {
    {"fpga", make<WordRegisters>},
    {"cpld", make<ByteRegisters, kCpldSpacing, kCpldSize>},
    {"dfe", make<ByteRegisters, 1u, kDfeSize>},
    {"rf-fpga0", make<WordRegisters>},
    {"rf-fpga1", make<SpiRegisters, 1u, kSpiSize>},
    {"rf-fpga2", make<SpiRegisters, 1u, kSpiSize>},
    {"rf-fpga3", make<SpiRegisters, 1u, kSpiSize>},
    {"slow-measurement", make<SlowMeasurement>},
    {"laa", make<Laa>},
    {"alarms", make<Alarms>},
    {"aif", make<AntennaInterface>},
    {"cma", make<ContiguousMemory>},
    {"frame", make<Frame>},
    {"emtimer", make<EventTimers>},
    {"pps", make<PulsePerSecond>},
    {"power-meter", make<PowerMeter>},
    {"jitter-cleaner", make<JitterCleaner>},
    {"uptime", make<Uptime>},
    {"leds", make<Leds>},
    {"sfp", make<SfpCages>},
    {"service-manager", make<ServiceManager>},
    {"rf-card", make<RfCard>},
    {"phy", make<PhyNodes>},
    {"interfaces", make<Interfaces>},
    {"link", make<Links>},
    {"switch", make<Switch>},
    {"switch-shell", make<SwitchShell>},
    {"multiport", make<Multiport>},
};

} // namespace

std::unique_ptr<Model> make_model(const std::string &name, Board &board)
{
    for (const Row &row : kModels)
        if (name == row.name)
            return row.make(board);
    return nullptr;
}

} // namespace vboard
