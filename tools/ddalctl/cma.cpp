// ddalctl cma: contiguous memory for the DMA engines, and the critical sections of their drivers.
#include <ddal/cma.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <semaphore.h>
#include <sstream>
#include <string>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "dsp/cma_driver.h"
#include "dsp/osal_sections.h"

namespace ddalctl {

namespace {

constexpr uint32_t kWord = sizeof(uint32_t);
constexpr Choice kMemories[] = {{"msm", DDAL_CMA_MSM}, {"ddr", DDAL_CMA_DDR}};

void regions(const Arguments &, Report &report)
{
    std::ifstream list(ddal::dsp::kCmaRegionList);
    if (!list)
        throw Failure(-errno, errno == ENOENT ? kNothingThere : kOperationFailed, strerror(errno),
                      ddal::dsp::kCmaRegionList);
    std::string line;
    std::getline(list, line); // the header
    while (std::getline(list, line)) {
        std::istringstream words(line);
        uint32_t physical = 0;
        uint32_t size = 0;
        std::string name;
        std::string rest;
        if (!(words >> std::hex >> physical >> name >> size >> rest))
            continue;
        Report &row = report.row("regions");
        row.add_hex("physical", physical);
        row.add_hex("size", size);
        row.add("name", name);
    }
}

// The word at a physical address, in this process.
volatile uint32_t *word_at(uint32_t physical)
{
    uint32_t address = 0;
    require(DDAL(ddal_cma_phy_to_virt)(physical, &address));
    return reinterpret_cast<volatile uint32_t *>(uintptr_t{address});
}

void init(const Arguments &, Report &)
{
    require(DDAL(ddal_cma_init_once)());
}

void alloc(const Arguments &arguments, Report &report)
{
    const uint32_t memory = arguments.choice("MEMORY", kMemories);
    require(DDAL(ddal_cma_process_init)());
    uint32_t address = 0;
    require(DDAL(ddal_cma_alloc)(memory, arguments.number("SIZE"), &address));
    uint32_t physical = 0;
    require(DDAL(ddal_cma_virt_to_phy)(address, &physical));
    report.add_hex("physical", physical);
}

void read(const Arguments &arguments, Report &report)
{
    const uint32_t count = arguments.number_or("COUNT", 1);
    const uint32_t physical = arguments.start("ADDRESS", count * kWord);
    require(DDAL(ddal_cma_process_init)());
    if (count == 1) {
        report.repeat("address", physical);
        report.add_hex("value", *word_at(physical));
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t value = *word_at(physical + kWord * i);
        Report &row = report.row("words");
        row.add_hex("address", physical + kWord * i);
        row.add_hex("value", value);
    }
}

void write(const Arguments &arguments, Report &)
{
    const uint32_t physical = arguments.start("ADDRESS", kWord);
    require(DDAL(ddal_cma_process_init)());
    *word_at(physical) = arguments.number("VALUE");
}

// Reads the state of a section without creating it.
void add_state(Report &row, const char *semaphore_name)
{
    sem_t *const semaphore = sem_open(semaphore_name, 0);
    if (semaphore == SEM_FAILED && errno != ENOENT)
        throw Failure(-errno, kOperationFailed, std::string(semaphore_name) + ": " + strerror(errno), semaphore_name);
    if (semaphore == SEM_FAILED)
        return row.add("state", nullptr, "not used yet");
    int value = 0;
    sem_getvalue(semaphore, &value);
    sem_close(semaphore);
    row.add("state", value > 0 ? "free" : "locked");
}

void sections(const Arguments &, Report &report)
{
    for (const char *name : ddal::dsp::kSections) {
        Report &row = report.row("sections");
        row.add("semaphore", name);
        add_state(row, name);
    }
}

} // namespace

Family cma_family()
{
    const Argument address = {
        "ADDRESS", Kind::number, "physical address inside a region, a multiple of 4", false, UINT32_MAX, 0, kWord};
    return {"cma",
            "contiguous memory for the DMA engines",
            {
                {"regions", "list the memory regions of the driver", {}, regions},
                {"init", "initialise the driver's allocator", {}, init},
                {"alloc",
                 "allocate memory, which is never freed, and show its physical address",
                 {one_of<kMemories>("MEMORY", "msm or ddr"), {"SIZE", Kind::number, "bytes", false, UINT32_MAX, 1}},
                 alloc},
                {"read",
                 "read one word, or several in a row",
                 {address, {"COUNT", Kind::number, "number of words", true, 4096, 1}},
                 read},
                {"write", "write one word", {address, {"VALUE", Kind::number, "32-bit value"}}, write},
                {"sections", "show whether each critical section of the drivers is free or locked", {}, sections},
            }};
}

} // namespace ddalctl
