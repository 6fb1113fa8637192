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

std::string indexed(const char *format, const std::string &index)
{
    std::string path = format;
    return path.replace(path.find("%u"), 2, std::to_string(number_of(index)));
}

} // namespace

int Laa::open(const Node &node, uint32_t, Descriptor end)
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

std::string Laa::control(const Words &words)
{
    const std::string &verb = word_at(words, 0, "record, prescan, dfs, sas, short or hang-up");
    if (verb == "record") {
        uint32_t record[kLaaRecordSize / 4];
        ++records_;
        for (uint32_t i = 0; i < std::size(record); ++i)
            record[i] = i + 1 < words.size() ? static_cast<uint32_t>(number_of(words[i + 1])) : records_ << 8 | i;
        channels_of(kLaaNode).send(bytes_of(record));
    } else if (verb == "prescan") {
        const auto byte = static_cast<uint8_t>(number_of(word_at(words, 2, "a frame index")));
        channels_of(indexed(kLaaPrescanNodeFormat, word_at(words, 1, "an index"))).send(bytes_of(byte));
    } else if (verb == "dfs") {
        const auto event = static_cast<uint32_t>(number_of(word_at(words, 2, "an event")));
        channels_of(indexed(kLaaDfsNodeFormat, word_at(words, 1, "an index"))).send(bytes_of(event));
    } else if (verb == "sas") {
        const std::string &which = word_at(words, 1, "an index or \"any\"");
        channels_of(which == "any" ? kLaaSasAnyNode : indexed(kLaaSasNodeFormat, which)).signal();
    } else if (verb == "short") {
        channels_of(word_at(words, 1, "a node")).send(Bytes(number_of(word_at(words, 2, "a number of bytes"))));
    } else if (verb == "hang-up") {
        channels_of(word_at(words, 1, "a node")).hang_up();
    } else {
        throw ControlError("licensed-assisted access takes record, prescan, dfs, sas, short and hang-up");
    }
    return {};
}

int Alarms::open(const Node &node, uint32_t, Descriptor end)
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

std::string Alarms::control(const Words &words)
{
    const std::string &name = word_at(words, 0, "rp3, refab or hang-up");
    if (name == "hang-up") {
        for (auto &[id, alarm] : alarms_)
            alarm.channels.hang_up();
        return {};
    }
    if (name != "rp3" && name != "refab")
        throw ControlError("the alarms take rp3, refab and hang-up");
    const std::string path = name == "rp3" ? kRp3AlarmAttribute : kRefabAlarmAttribute;
    const Node *node = board().node(path);
    if (!node)
        throw ControlError("this board has no " + path);
    Alarm &alarm = alarms_[node->id];
    alarm.value = static_cast<uint32_t>(number_of(word_at(words, 1, "a value")));
    if (is_enabled(path))
        alarm.channels.signal();
    return {};
}

} // namespace vboard
