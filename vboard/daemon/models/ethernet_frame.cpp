#include "daemon/models/ethernet_frame.h"

#include <algorithm>
#include <cstdio>

namespace vboard {

namespace {

constexpr uint16_t kIpv4 = 0x0800;
constexpr uint16_t kIpv6 = 0x86DD;
constexpr uint32_t kAddresses = 12;
constexpr uint32_t kTag = 4;
constexpr uint32_t kTypeAndChecksum = 6;
constexpr uint32_t kShortest = 64;

using Bytes = std::vector<uint8_t>;

Bytes bytes_of(const std::string &hex)
{
    if (hex.size() % 2 != 0 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw ControlError("not bytes in hexadecimal: " + hex);
    Bytes bytes;
    for (size_t at = 0; at < hex.size(); at += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    return bytes;
}

uint64_t word(const Bytes &bytes, size_t at, size_t length)
{
    uint64_t value = 0;
    for (size_t i = 0; i < length; ++i)
        value = value << 8 | (at + i < bytes.size() ? bytes[at + i] : 0);
    return value;
}

uint64_t address_of(const std::string &text)
{
    std::string digits = text;
    std::erase(digits, ':');
    const Bytes bytes = bytes_of(digits);
    if (bytes.size() != 6)
        throw ControlError("not an Ethernet address: " + text);
    return word(bytes, 0, 6);
}

std::string text_of_address(uint64_t address)
{
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", static_cast<unsigned>(address >> 40 & 0xFF),
             static_cast<unsigned>(address >> 32 & 0xFF), static_cast<unsigned>(address >> 24 & 0xFF),
             static_cast<unsigned>(address >> 16 & 0xFF), static_cast<unsigned>(address >> 8 & 0xFF),
             static_cast<unsigned>(address & 0xFF));
    return text;
}

EthernetFrame parse_bytes(const Bytes &bytes)
{
    if (bytes.size() < 14)
        throw ControlError("a frame has 14 bytes at least");
    EthernetFrame frame;
    frame.destination = word(bytes, 0, 6);
    frame.source = word(bytes, 6, 6);
    size_t at = 12;
    for (auto *tag : {&frame.outer, &frame.inner}) {
        const auto type = static_cast<uint16_t>(word(bytes, at, 2));
        if ((type != 0x8100 && type != 0x88A8) || at + 6 > bytes.size())
            break;
        const auto control = static_cast<uint16_t>(word(bytes, at + 2, 2));
        *tag = VlanTag{type, static_cast<uint16_t>(control & 0xFFF), static_cast<uint8_t>(control >> 13)};
        at += 4;
    }
    frame.type = static_cast<uint16_t>(word(bytes, at, 2));
    frame.payload.assign(bytes.begin() + static_cast<ptrdiff_t>(at + 2), bytes.end());
    return frame;
}

VlanTag &tag_in(std::optional<VlanTag> *tag)
{
    return *tag ? **tag : tag->emplace();
}

void set_field(EthernetFrame *frame, const std::string &name, const std::string &value)
{
    if (name == "dst")
        frame->destination = address_of(value);
    else if (name == "src")
        frame->source = address_of(value);
    else if (name == "vlan")
        tag_in(&frame->outer).vlan = static_cast<uint16_t>(number_of(value) & 0xFFF);
    else if (name == "pcp")
        tag_in(&frame->outer).pcp = static_cast<uint8_t>(number_of(value) & 7);
    else if (name == "tpid")
        tag_in(&frame->outer).type = static_cast<uint16_t>(number_of(value));
    else if (name == "inner")
        tag_in(&frame->inner).vlan = static_cast<uint16_t>(number_of(value) & 0xFFF);
    else if (name == "type")
        frame->type = static_cast<uint16_t>(number_of(value));
    else if (name == "payload")
        frame->payload = bytes_of(value);
    else if (name == "dscp")
        frame->set_dscp(static_cast<uint8_t>(number_of(value) & 0x3F));
    else
        throw ControlError("fields of a frame are dst, src, vlan, pcp, tpid, inner, type, dscp and payload");
}

} // namespace

EthernetFrame EthernetFrame::parse(const Words &words)
{
    if (words.empty())
        throw ControlError("missing FRAME");
    if (words[0].find('=') == std::string::npos)
        return parse_bytes(bytes_of(words[0]));
    EthernetFrame frame;
    frame.destination = 0x020000000002;
    frame.source = 0x020000000001;
    frame.type = kIpv4;
    frame.payload.assign(20, 0);
    frame.payload[0] = 0x45;
    for (const std::string &word : words) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos)
            throw ControlError("not a field of a frame: " + word);
        set_field(&frame, word.substr(0, equals), word.substr(equals + 1));
    }
    return frame;
}

std::string EthernetFrame::text() const
{
    std::string text = "dst=" + text_of_address(destination) + " src=" + text_of_address(source);
    char field[48];
    if (outer) {
        snprintf(field, sizeof field, " vlan=%u pcp=%u", outer->vlan, outer->pcp);
        text += field;
        if (outer->type != 0x8100) {
            snprintf(field, sizeof field, " tpid=0x%04x", outer->type);
            text += field;
        }
    }
    if (inner)
        text += " inner=" + std::to_string(inner->vlan);
    snprintf(field, sizeof field, " type=0x%04x", type);
    text += field;
    if (const auto code = dscp())
        text += " dscp=" + std::to_string(*code);
    return text;
}

uint32_t EthernetFrame::length() const
{
    const uint32_t tags = (outer ? kTag : 0) + (inner ? kTag : 0);
    return std::max(kShortest, kAddresses + tags + kTypeAndChecksum + static_cast<uint32_t>(payload.size()));
}

std::optional<uint8_t> EthernetFrame::dscp() const
{
    if (payload.size() < 2 || (type != kIpv4 && type != kIpv6))
        return {};
    const unsigned traffic_class = type == kIpv4 ? payload[1] : (payload[0] << 4 | payload[1] >> 4) & 0xFF;
    return static_cast<uint8_t>(traffic_class >> 2);
}

void EthernetFrame::set_dscp(uint8_t code)
{
    if (!dscp())
        return;
    if (type == kIpv4) {
        payload[1] = static_cast<uint8_t>((payload[1] & 3) | code << 2);
    } else {
        payload[0] = static_cast<uint8_t>((payload[0] & 0xF0) | code >> 2);
        payload[1] = static_cast<uint8_t>((payload[1] & 0x3F) | (code & 3) << 6);
    }
}

} // namespace vboard
