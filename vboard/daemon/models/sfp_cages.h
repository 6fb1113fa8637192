// The two SFP cages: module memories behind EEPROM files, control lines, and status lines that announce their changes.
#pragma once

#include <map>
#include <optional>

#include "daemon/channels.h"
#include "daemon/model.h"
#include "daemon/models/sfp_module.h"

namespace vboard {

class SfpCages : public Model {
public:
    using Model::Model;
    void start() override;
    int read(const Node &node, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &node, uint64_t offset, std::span<const uint8_t> in) override;
    int open(const Node &node, uint32_t flags, UniqueFd end) override;
    std::string text(const Node &node) override;

    static ControlTable commands();

private:
    static constexpr size_t kLines = 3;
    enum class What { kMemory, kTxDisable, kRateSelect, kLine };
    struct Place {
        size_t cage;
        What what;
        size_t index; // memory or line
    };
    struct Cage {
        std::optional<SfpModule> module;
        int64_t plugged_ns = 0;
        bool tx_disable = false;
        bool rate_select = false;
        std::optional<std::string> line_text[kLines]; // instead of the line's own
        std::string shown[kLines];
        Channels readers[kLines];
    };

    std::optional<Place> place_of(const std::string &path) const;
    const Place &place_of(const Node &node) const { return places_.at(node.id); }
    SfpModule::Surroundings surroundings(const Cage &cage) const;
    std::string line_text(const Cage &cage, size_t line) const;
    void announce(Cage &cage);
    template <typename Change>
    static auto at_cage(Change change);
    template <typename Change>
    static auto at_module(Change change);
    void plug(Cage &cage, SfpModule module);
    std::string show() const;

    std::map<uint32_t, Place> places_;
    Cage cages_[2];
};

} // namespace vboard
