// ddalctl laa: the channels of licensed-assisted access.
#include <ddal/rf_fpga.h>

#include <poll.h>
#include <string>

#include "ddalctl/event_source.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

class RecordStream : public EventSource {
public:
    RecordStream() { require(DDAL(ddal_rf_fpga_laa_open)(&fd_)); }
    ~RecordStream() override { DDAL(ddal_rf_fpga_laa_close)(fd_); }

    std::string name() const override { return "laa"; }
    int descriptor() const override { return fd_; }
    short condition() const override { return POLLIN; }
    std::string take() override
    {
        ddal_rf_fpga_laa_record record = {};
        require(DDAL(ddal_rf_fpga_laa_wait)(fd_, &record));
        std::string text;
        for (const uint32_t word : record.word)
            text += (text.empty() ? "" : " ") + hex(word, 8);
        return text;
    }

private:
    int fd_ = -1;
};

class PrescanChannel : public EventSource {
public:
    explicit PrescanChannel(uint32_t index) { require(DDAL(ddal_rf_fpga_laa_prescan_open)(index, &channel_)); }
    ~PrescanChannel() override { DDAL(ddal_rf_fpga_laa_prescan_close)(&channel_); }

    std::string name() const override { return "prescan " + std::to_string(channel_->index); }
    int descriptor() const override { return channel_->fd; }
    short condition() const override { return POLLIN; }
    std::string take() override
    {
        uint8_t frame_index = 0;
        require(DDAL(ddal_rf_fpga_laa_prescan_wait)(channel_, &frame_index));
        return "frame index " + std::to_string(frame_index);
    }

private:
    ddal_rf_fpga_laa_prescan *channel_ = nullptr;
};

class DfsChannel : public EventSource {
public:
    explicit DfsChannel(uint32_t index) : name_("dfs " + std::to_string(index))
    {
        require(DDAL(ddal_rf_fpga_laa_dfs_open)(index, &channel_));
    }
    ~DfsChannel() override { DDAL(ddal_rf_fpga_laa_dfs_close)(&channel_); }

    std::string name() const override { return name_; }
    int descriptor() const override { return channel_->fd; }
    short condition() const override { return POLLIN; }
    std::string take() override
    {
        require(DDAL(ddal_rf_fpga_laa_dfs_wait)(channel_));
        return hex(channel_->event, 8);
    }

private:
    std::string name_;
    ddal_rf_fpga_laa_dfs *channel_ = nullptr;
};

class SasChannel : public EventSource {
public:
    SasChannel() : name_("sas any") { require(DDAL(ddal_rf_fpga_laa_sas_open_any_rtwp)(&channel_)); }
    explicit SasChannel(uint32_t index) : name_("sas " + std::to_string(index))
    {
        require(DDAL(ddal_rf_fpga_laa_sas_open)(index, &channel_));
    }
    ~SasChannel() override { DDAL(ddal_rf_fpga_laa_sas_close)(&channel_); }

    std::string name() const override { return name_; }
    int descriptor() const override { return channel_->fd; }
    short condition() const override { return POLLPRI; }
    // The poll consumes the event; there is nothing to read.
    std::string take() override { return "signalled"; }

private:
    std::string name_;
    ddal_rf_fpga_laa_sas *channel_ = nullptr;
};

// Prints the events of a channel until --count or a signal ends it.
void follow(EventSource &&source, const Arguments &arguments, Report &report)
{
    const uint32_t events = arguments.number_or("--count", UINT32_MAX);
    report.lasts("end");
    for (uint32_t n = 0; n < events && next_event(source); n++) {
        const std::string event = source.take();
        report.event(source.name(), event, [&](Report &values) { values.add("text", event); });
    }
}

void records(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop;
    follow(RecordStream(), arguments, report);
}

void prescan(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop;
    follow(PrescanChannel(arguments.number("INDEX")), arguments, report);
}

void dfs(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop;
    follow(DfsChannel(arguments.number("INDEX")), arguments, report);
}

void sas(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop;
    if (arguments.given("INDEX"))
        follow(SasChannel(arguments.number("INDEX")), arguments, report);
    else
        follow(SasChannel(), arguments, report);
}

} // namespace

std::vector<EventKind> laa_events()
{
    return {
        {"laa", "licensed-assisted access: records", false,
         [](uint32_t) -> std::unique_ptr<EventSource> { return std::make_unique<RecordStream>(); }},
        {"prescan", "pre-scan events of a channel", true,
         [](uint32_t index) -> std::unique_ptr<EventSource> { return std::make_unique<PrescanChannel>(index); }},
        {"dfs", "DFS events of a channel", true,
         [](uint32_t index) -> std::unique_ptr<EventSource> { return std::make_unique<DfsChannel>(index); }},
        {"sas", "SAS events of a channel", true,
         [](uint32_t index) -> std::unique_ptr<EventSource> { return std::make_unique<SasChannel>(index); }},
        {"sas-any", "SAS events of any received power", false,
         [](uint32_t) -> std::unique_ptr<EventSource> { return std::make_unique<SasChannel>(); }},
    };
}

Family laa_family()
{
    const Argument index = {"INDEX", Kind::number, "index of the channel"};
    const Argument count = {"--count", Kind::number, "stop after COUNT events", true, UINT32_MAX, 1};
    return {"laa",
            "channels of licensed-assisted access",
            {
                {"records", "print the records as they arrive, until interrupted", {count}, records},
                {"prescan", "print pre-scan events as they arrive, until interrupted", {index, count}, prescan},
                {"dfs", "print DFS events as they arrive, until interrupted", {index, count}, dfs},
                {"sas",
                 "print SAS events as they arrive, until interrupted; without INDEX those of any received power",
                 {{"INDEX", Kind::number, "index of the channel", true}, count},
                 sas},
            }};
}

} // namespace ddalctl
