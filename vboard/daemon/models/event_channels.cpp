#include "daemon/models/event_channels.h"

#include <cstring>

#include "daemon/board.h"
#include "daemon/models/registers.h"
#include "logic/fpga_driver.h"
#include "logic/rf_fpga_driver.h"

namespace vboard {

using namespace ddal::logic;

namespace {

template <typename Record>
std::span<const uint8_t> bytes_of(const Record &record)
{
    return {reinterpret_cast<const uint8_t *>(&record), sizeof record};
}

std::string indexed(const char *format, const Given &given)
{
    std::string path = format;
    return path.replace(path.find("%u"), 2, std::to_string(given.number("INDEX")));
}

} // namespace

int Laa::open(const Node &node, uint32_t, UniqueFd end)
{
    channels_[node.id].add(std::move(end));
    return 0;
}

Channels &Laa::channels_of(const std::string &path)
{
    const Node *node = board().node(path);
    if (!node || board().model_of(*node) != this)
        throw ControlError("no such channel: " + path);
    return channels_[node->id];
}

// Words that are left out count the record and their place.
void Laa::send_record(const Words &words)
{
    uint32_t record[kLaaRecordSize / 4];
    if (words.size() > std::size(record))
        throw ControlError("a record has " + std::to_string(std::size(record)) + " words");
    ++records_;
    for (uint32_t i = 0; i < std::size(record); ++i)
        record[i] = i < words.size() ? static_cast<uint32_t>(number_of(words[i])) : records_ << 8 | i;
    channels_of(kLaaNode).send(bytes_of(record));
}

ControlTable Laa::commands()
{
    using Row = ControlRow<Laa>;
    return {
        Row{"record [WORD...]", "send a record",
            [](Laa &laa, const Given &given) { laa.send_record(given.words("WORD")); }},
        Row{"prescan INDEX BYTE", "send a pre-scan event",
            [](Laa &laa, const Given &given) {
                laa.channels_of(indexed(kLaaPrescanNodeFormat, given)).send(bytes_of(given.number<uint8_t>("BYTE")));
            }},
        Row{"dfs INDEX EVENT", "send a radar event",
            [](Laa &laa, const Given &given) {
                laa.channels_of(indexed(kLaaDfsNodeFormat, given)).send(bytes_of(given.number("EVENT")));
            }},
        Row{"sas any", "signal the event of all spectrum-access channels",
            [](Laa &laa) { laa.channels_of(kLaaSasAnyNode).signal(); }},
        Row{"sas INDEX", "signal the event of one spectrum-access channel",
            [](Laa &laa, const Given &given) { laa.channels_of(indexed(kLaaSasNodeFormat, given)).signal(); }},
        Row{"short NODE BYTES", "send a record of another length on the channel of a path",
            [](Laa &laa, const Given &given) {
                laa.channels_of(given.text("NODE")).send(Bytes(given.number<uint16_t>("BYTES")));
            }},
        Row{"hang-up NODE", "close the channels of a path",
            [](Laa &laa, const Given &given) { laa.channels_of(given.text("NODE")).hang_up(); }},
    };
}

int Alarms::open(const Node &node, uint32_t, UniqueFd end)
{
    alarms_[node.id].channels.add(std::move(end));
    return 0;
}

std::string Alarms::text(const Node &node)
{
    return std::to_string(alarms_[node.id].value) + "\n";
}

bool Alarms::is_enabled(const std::string &path) const
{
    const auto *fpga = dynamic_cast<const WordRegisters *>(board().model("fpga"));
    return path != kRp3AlarmAttribute || !fpga || fpga->get(kFpgaRp3AlarmMask) != 0;
}

void Alarms::raise(const std::string &path, uint32_t value)
{
    const Node *node = board().node(path);
    if (!node)
        throw ControlError("this board has no " + path);
    Alarm &alarm = alarms_[node->id];
    alarm.value = value;
    if (is_enabled(path))
        alarm.channels.signal();
}

ControlTable Alarms::commands()
{
    using Row = ControlRow<Alarms>;
    return {
        Row{"rp3|refab VALUE", "change an alarm attribute, and announce it",
            [](Alarms &alarms, const Given &given) {
                alarms.raise(given.says("rp3") ? kRp3AlarmAttribute : kRefabAlarmAttribute, given.number("VALUE"));
            }},
        Row{"hang-up", "close the alarm channels of all programs",
            [](Alarms &alarms) {
                for (auto &[id, alarm] : alarms.alarms_)
                    alarm.channels.hang_up();
            }},
    };
}

} // namespace vboard
