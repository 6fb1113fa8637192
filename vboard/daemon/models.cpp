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
    ControlFamily family;
    std::unique_ptr<Model> (*make)(Board &);
};
template <typename M, auto... arguments>
constexpr Row row(const char *name, const char *summary)
{
    return {{name, summary, M::commands}, make<M, arguments...>};
}
constexpr Row kModels[] = {
    row<WordRegisters>("fpga", "registers of the main FPGA"),
    row<ByteRegisters, kCpldSpacing, kCpldSize>("cpld", "registers of the CPLD"),
    row<ByteRegisters, 1u, kDfeSize>("dfe", "bytes of the digital front end"),
    row<WordRegisters>("rf-fpga0", "registers of RF FPGA 0"),
    row<SpiRegisters, 1u, kSpiSize>("rf-fpga1", "registers of RF FPGA 1"),
    row<SpiRegisters, 1u, kSpiSize>("rf-fpga2", "registers of RF FPGA 2"),
    row<SpiRegisters, 1u, kSpiSize>("rf-fpga3", "registers of RF FPGA 3"),
    row<SlowMeasurement>("slow-measurement", "the slow measurement report"),
    row<Laa>("laa", "event channels of licensed-assisted access"),
    row<Alarms>("alarms", "alarms of the main FPGA"),
    row<AntennaInterface>("aif", "registers of the antenna interface"),
    row<ContiguousMemory>("cma", "contiguous memory"),
    row<Frame>("frame", "the radio frame"),
    row<EventTimers>("emtimer", "event timers"),
    row<PulsePerSecond>("pps", "the pulse per second"),
    row<PowerMeter>("power-meter", "the RF power meter"),
    row<JitterCleaner>("jitter-cleaner", "the jitter cleaner"),
    row<Uptime>("uptime", "the uptime daemon"),
    row<Leds>("leds", "front-panel LEDs"),
    row<SfpCages>("sfp", "SFP cages and modules"),
    row<ServiceManager>("service-manager", "the service manager's notification socket"),
    row<RfCard>("rf-card", "the RF card"),
    row<PhyNodes>("phy", "copper PHYs on the management buses"),
    row<Interfaces>("interfaces", "network interfaces"),
    row<Links>("link", "links, and the services that report them"),
    row<Switch>("switch", "the Ethernet switch"),
    row<SwitchShell>("switch-shell", "the switch's diagnostic shell"),
    row<Multiport>("multiport", "the external multiport switch"),
};

} // namespace

std::unique_ptr<Model> make_model(const std::string &name, Board &board)
{
    for (const Row &row : kModels)
        if (name == row.family.name)
            return row.make(board);
    return nullptr;
}

std::vector<ControlFamily> control_families()
{
    std::vector<ControlFamily> families = Board::control_families();
    for (const Row &row : kModels)
        families.push_back(row.family);
    return families;
}

} // namespace vboard
