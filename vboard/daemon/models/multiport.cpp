#include "daemon/models/multiport.h"

#include "daemon/log.h"
#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr const char *kFittedCall = "is_BH3_type_multiport_switch";

// "ex_switch_phy_set_speed" and "ex_switch_phy_get_speed" are about the same setting.
std::string setting_of(std::string name)
{
    for (const char *verb : {"_set_", "_get_"}) {
        const size_t at = name.find(verb);
        if (at != std::string::npos)
            return name.replace(at, 5, "_");
    }
    return name;
}

} // namespace

SwitchWords Multiport::call(const std::string &name, const SwitchWords &in)
{
    if (name == kFittedCall)
        return {fitted_ ? 0 : -1};
    keep_line(calls_, line_of(name, in));
    const auto failure = failures_.find(name);
    if (failure != failures_.end())
        return {failure->second};
    if (in.empty())
        return {-22};

    SwitchWords &values = values_[{setting_of(name), in[0]}];
    if (name.find("_get_") == std::string::npos) {
        values.assign(in.begin() + 1, in.end());
        return {0};
    }
    SwitchWords out{0};
    out.insert(out.end(), values.begin(), values.end());
    return out;
}

ControlTable Multiport::commands()
{
    using Row = ControlRow<Multiport>;
    return {
        Row{"calls", "print the calls of the driver since the last time, one a line",
            [](Multiport &chip) { return std::exchange(chip.calls_, {}); }},
        Row{"fitted on|off", "change whether the board has the switch",
            [](Multiport &chip, const Given &given) { chip.fitted_ = given.says("on"); }},
        Row{"fail CALL CODE", "fail a call of the driver until it is healed",
            [](Multiport &chip, const Given &given) {
                chip.failures_[given.text("CALL")] = given.number<int>("CODE");
            }},
        Row{"heal CALL", "let a call succeed again",
            [](Multiport &chip, const Given &given) { chip.failures_.erase(given.text("CALL")); }},
    };
}

} // namespace vboard
