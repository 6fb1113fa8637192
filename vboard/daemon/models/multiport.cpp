#include "daemon/models/multiport.h"

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
    calls_ += name;
    for (const int64_t word : in)
        calls_ += " " + std::to_string(word);
    calls_ += "\n";
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

std::string Multiport::control(const Words &words)
{
    const std::string &verb = word_at(words, 0, "calls, fitted, fail or heal");
    if (verb == "calls")
        return std::exchange(calls_, {});
    const std::string &object = word_at(words, 1, "on, off or a call");
    if (verb == "fitted")
        fitted_ = object == "on";
    else if (verb == "fail")
        failures_[object] = std::stoi(word_at(words, 2, "a code"));
    else if (verb == "heal")
        failures_.erase(object);
    else
        throw ControlError("the multiport switch takes calls, fitted, fail and heal");
    return {};
}

} // namespace vboard
