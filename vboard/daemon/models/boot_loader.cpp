#include "boot_loader.h"

#include <algorithm>

namespace vboard {

namespace {

constexpr uint8_t kHeader = 0x80;
constexpr size_t kFrontLength = 3; // header and length
constexpr size_t kCrcLength = 2;
constexpr size_t kBufferLength = 260; // longest payload the loader takes

enum Acknowledgement : uint8_t {
    kHeaderWrong = 0x51,
    kCrcWrong = 0x52,
    kEmpty = 0x53,
    kTooLong = 0x54,
    kRateUnknown = 0x56
};

enum Status : uint8_t {
    kDone = 0,
    kWriteCheck = 1,
    kFlashFailed = 2,
    kLocked = 4,
    kPasswordWrong = 5,
    kUnknown = 7,
    kLength = 8
};

enum Command : uint8_t {
    kWrite = 0x10,
    kPassword = 0x11,
    kEraseSegment = 0x12,
    kToggleInfo = 0x13,
    kMassErase = 0x15,
    kCrc = 0x16,
    kLoadPc = 0x17,
    kRead = 0x18,
    kVersion = 0x19,
    kRate = 0x52,
};

constexpr uint8_t kDataResponse = 0x3A;
constexpr uint8_t kMessageResponse = 0x3B;

// Field bytes that a command needs at least.
struct Form {
    uint8_t command;
    bool needs_password;
    size_t fields;
};

constexpr Form kForms[] = {
    {kWrite, true, 4}, {kPassword, false, 0}, {kEraseSegment, true, 3}, {kToggleInfo, true, 0}, {kMassErase, false, 0},
    {kCrc, true, 5},   {kLoadPc, true, 3},    {kRead, true, 5},         {kVersion, false, 0},   {kRate, false, 1},
};

constexpr uint32_t kRates[] = {9600, 19200, 38400, 57600, 115200}; // by rate code, from 2
constexpr uint8_t kFirstRateCode = 2;

uint32_t address_of(std::span<const uint8_t> fields)
{
    return fields[0] | fields[1] << 8 | fields[2] << 16;
}

uint32_t length_of(std::span<const uint8_t> fields)
{
    return fields[3] | fields[4] << 8;
}

} // namespace

// Bit by bit, so that it shares nothing with the tables that the packets are checked against elsewhere.
uint16_t loader_crc(std::span<const uint8_t> bytes)
{
    uint32_t crc = 0xFFFF;
    for (uint8_t byte : bytes) {
        crc ^= static_cast<uint32_t>(byte) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x8000 ? crc << 1 ^ 0x1021 : crc << 1;
    }
    return static_cast<uint16_t>(crc);
}

void BootLoader::start()
{
    packet_.clear();
    locked_ = true;
    flash_.lock_info();
}

LoaderReply BootLoader::refuse(uint8_t acknowledgement)
{
    packet_.clear();
    LoaderReply reply;
    reply.acknowledgement = acknowledgement;
    return reply;
}

std::optional<LoaderReply> BootLoader::feed(uint8_t byte)
{
    packet_.push_back(byte);
    if (packet_[0] != kHeader)
        return refuse(kHeaderWrong);
    if (packet_.size() < kFrontLength)
        return std::nullopt;
    const size_t length = packet_[1] | packet_[2] << 8;
    if (length == 0)
        return refuse(kEmpty);
    if (length > kBufferLength)
        return refuse(kTooLong);
    if (packet_.size() < kFrontLength + length + kCrcLength)
        return std::nullopt;

    const std::vector<uint8_t> packet = std::move(packet_);
    packet_.clear();
    const auto payload = std::span{packet}.subspan(kFrontLength, length);
    const uint16_t received = static_cast<uint16_t>(packet[packet.size() - 2] | packet[packet.size() - 1] << 8);
    return received == loader_crc(payload) ? execute(payload) : refuse(kCrcWrong);
}

void BootLoader::mass_erase()
{
    flash_.mass_erase();
    password_fill_ = 0xFF; // the password is part of the flash
}

uint8_t BootLoader::check_password(std::span<const uint8_t> password)
{
    const bool right = !password.empty() && std::all_of(password.begin(), password.end(),
                                                        [&](uint8_t byte) { return byte == password_fill_; });
    locked_ = !right;
    password_length_ = password.size();
    if (right)
        return kDone;
    mass_erase();
    return kPasswordWrong;
}

void BootLoader::answer_data(LoaderReply &reply, std::span<const uint8_t> fields)
{
    reply.response = {kDataResponse};
    if (reply.command == kVersion) {
        reply.response.insert(reply.response.end(), version_.begin(), version_.end());
        return;
    }
    const uint32_t address = address_of(fields);
    const uint32_t length = length_of(fields);
    if (!flash_.readable(address, length) || (reply.command == kRead && length >= kBufferLength)) {
        reply.response = {kMessageResponse, kLength};
        return;
    }
    const auto bytes = flash_.read(address, length);
    if (reply.command == kRead) {
        reply.response.insert(reply.response.end(), bytes.begin(), bytes.end());
        return;
    }
    const uint16_t crc = loader_crc(bytes);
    reply.response.push_back(static_cast<uint8_t>(crc));
    reply.response.push_back(static_cast<uint8_t>(crc >> 8));
}

// Status of a command that answers with a message; none for the others.
std::optional<uint8_t> BootLoader::change_memory(LoaderReply &reply, std::span<const uint8_t> fields)
{
    switch (reply.command) {
    case kWrite: {
        const bool there = flash_.contains(address_of(fields), static_cast<uint32_t>(fields.size() - 3));
        const bool good = there && flash_.program(address_of(fields), fields.subspan(3));
        return good ? kDone : there ? kWriteCheck : kFlashFailed;
    }
    case kPassword: return check_password(fields);
    case kEraseSegment: reply.erases = true; return flash_.erase_segment(address_of(fields)) ? kDone : kFlashFailed;
    case kToggleInfo: flash_.toggle_info(); return kDone;
    case kMassErase:
        reply.erases = true;
        mass_erase();
        return kDone;
    default: return std::nullopt;
    }
}

LoaderReply BootLoader::execute(std::span<const uint8_t> payload)
{
    LoaderReply reply;
    reply.command = payload[0];
    const auto fields = payload.subspan(1);
    const auto *form =
        std::find_if(std::begin(kForms), std::end(kForms), [&](const Form &f) { return f.command == payload[0]; });
    if (form == std::end(kForms))
        reply.response = {kMessageResponse, kUnknown};
    else if (form->needs_password && locked_)
        reply.response = {kMessageResponse, kLocked};
    else if (fields.size() < form->fields)
        reply.response = {kMessageResponse, kLength};
    else if (reply.command == kRate) {
        const size_t index = static_cast<size_t>(fields[0] - kFirstRateCode);
        if (fields[0] < kFirstRateCode || index >= std::size(kRates))
            reply.acknowledgement = kRateUnknown;
        else
            reply.new_rate = kRates[index];
    } else if (reply.command == kLoadPc)
        reply.starts_application = true;
    else if (const auto status = change_memory(reply, fields))
        reply.response = {kMessageResponse, *status};
    else
        answer_data(reply, fields);
    return reply;
}

} // namespace vboard
