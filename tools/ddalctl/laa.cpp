// ddalctl laa: the channels of licensed-assisted access.
#include <ddal/rf_fpga.h>

#include <iterator>
#include <optional>
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
    RecordStream()
    {
        require(DDAL(ddal_rf_fpga_laa_open)(&fd_));
        fail_instead_of_waiting(fd_);
    }
    ~RecordStream() override { DDAL(ddal_rf_fpga_laa_close)(fd_); }

    std::string name() const override { return "laa"; }
    int descriptor() const override { return fd_; }
    short condition() const override { return POLLIN; }
    Event take() override
    {
        ddal_rf_fpga_laa_record record = {};
        require_record(DDAL(ddal_rf_fpga_laa_wait)(fd_, &record), fd_);
        std::string text;
        for (const uint32_t word : record.word)
            text += (text.empty() ? "" : " ") + hex(word, 8);
        return {text, [record](Report &event) {
                    event.add_to_document("words",
                                          std::vector<uint64_t>(std::begin(record.word), std::end(record.word)));
                }};
    }

private:
    int fd_ = -1;
};

class PrescanChannel : public EventSource {
public:
    explicit PrescanChannel(uint32_t index)
    {
        require(DDAL(ddal_rf_fpga_laa_prescan_open)(index, &channel_));
        fail_instead_of_waiting(channel_->fd);
    }
    ~PrescanChannel() override { DDAL(ddal_rf_fpga_laa_prescan_close)(&channel_); }

    std::string name() const override { return "prescan " + std::to_string(channel_->index); }
    int descriptor() const override { return channel_->fd; }
    short condition() const override { return POLLIN; }
    std::string kind() const override { return "prescan"; }
    Event take() override
    {
        uint8_t frame_index = 0;
        require_record(DDAL(ddal_rf_fpga_laa_prescan_wait)(channel_, &frame_index), channel_->fd);
        return {"frame index " + std::to_string(frame_index), [index = channel_->index, frame_index](Report &event) {
                    event.add("index", uint64_t{index});
                    event.add("frame-index", uint64_t{frame_index});
                }};
    }

private:
    ddal_rf_fpga_laa_prescan *channel_ = nullptr;
};

class DfsChannel : public EventSource {
public:
    explicit DfsChannel(uint32_t index) : index_(index)
    {
        require(DDAL(ddal_rf_fpga_laa_dfs_open)(index, &channel_));
        fail_instead_of_waiting(channel_->fd);
    }
    ~DfsChannel() override { DDAL(ddal_rf_fpga_laa_dfs_close)(&channel_); }

    std::string name() const override { return "dfs " + std::to_string(index_); }
    int descriptor() const override { return channel_->fd; }
    short condition() const override { return POLLIN; }
    std::string kind() const override { return "dfs"; }
    Event take() override
    {
        require_record(DDAL(ddal_rf_fpga_laa_dfs_wait)(channel_), channel_->fd);
        return {hex(channel_->event, 8), [index = index_, word = channel_->event](Report &event) {
                    event.add("index", uint64_t{index});
                    event.add("word", uint64_t{word});
                }};
    }

private:
    uint32_t index_;
    ddal_rf_fpga_laa_dfs *channel_ = nullptr;
};

class SasChannel : public EventSource {
public:
    SasChannel() { require(DDAL(ddal_rf_fpga_laa_sas_open_any_rtwp)(&channel_)); }
    explicit SasChannel(uint32_t index) : index_(index) { require(DDAL(ddal_rf_fpga_laa_sas_open)(index, &channel_)); }
    ~SasChannel() override { DDAL(ddal_rf_fpga_laa_sas_close)(&channel_); }

    std::string name() const override { return "sas " + (index_ ? std::to_string(*index_) : std::string("any")); }
    int descriptor() const override { return channel_->fd; }
    short condition() const override { return POLLPRI; }
    std::string kind() const override { return "sas"; }
    // The poll consumes the event; there is nothing to read.
    Event take() override
    {
        return {"signalled", [index = index_](Report &event) {
                    event.add_to_document("index", index ? Report::Value(uint64_t{*index}) : Report::Value(nullptr));
                }};
    }

private:
    std::optional<uint32_t> index_; // none: any received power
    ddal_rf_fpga_laa_sas *channel_ = nullptr;
};

// Prints the events of a channel until --count or a signal ends it.
void follow(EventSource &&source, const Arguments &arguments, const StopOnSignal &stop, Report &report)
{
    const uint32_t events = arguments.number_or("--count", UINT32_MAX);
    report.lasts("end");
    uint32_t seen = 0;
    for (; seen < events && next_event(source); seen++) {
        const Event event = source.take();
        report.event(source.kind(), event.text, event.fill);
    }
    stop.require_all(arguments, seen, "events");
}

void records(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop(arguments);
    follow(RecordStream(), arguments, stop, report);
}

void prescan(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop(arguments);
    follow(PrescanChannel(arguments.number("INDEX")), arguments, stop, report);
}

void dfs(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop(arguments);
    follow(DfsChannel(arguments.number("INDEX")), arguments, stop, report);
}

void sas(const Arguments &arguments, Report &report)
{
    const StopOnSignal stop(arguments);
    if (arguments.given("INDEX"))
        follow(SasChannel(arguments.number("INDEX")), arguments, stop, report);
    else
        follow(SasChannel(), arguments, stop, report);
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
    return {
        "laa",
        "channels of licensed-assisted access",
        {
            {"records", "print the records as they arrive, until interrupted", {count, kTimeout}, records},
            {"prescan", "print pre-scan events as they arrive, until interrupted", {index, count, kTimeout}, prescan},
            {"dfs", "print DFS events as they arrive, until interrupted", {index, count, kTimeout}, dfs},
            {"sas",
             "print SAS events as they arrive, until interrupted; without INDEX those of any received power",
             {{"INDEX", Kind::number, "index of the channel", true}, count, kTimeout},
             sas},
        }};
}

} // namespace ddalctl
