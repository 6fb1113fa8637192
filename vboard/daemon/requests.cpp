#include "daemon/requests.h"

#include <cerrno>
#include <cstring>

#include "daemon/models/interfaces.h"
#include "daemon/models/links.h"
#include "daemon/models/switch.h"

namespace vboard {

namespace {

void serve_interface(Board &board, uint32_t number, const Bytes &payload, const Answer &answer)
{
    auto *interfaces = board.find<Interfaces>();
    InterfaceRequest request;
    if (!interfaces || payload.size() != sizeof request) {
        answer.fail(ENODEV);
        return;
    }
    memcpy(&request, payload.data(), sizeof request);
    const int result = interfaces->request(number, request);
    if (result < 0)
        answer.fail(-result);
    else
        answer.reply_with(result, request);
}

void serve_switch(Board &board, const Bytes &payload, const Answer &answer)
{
    auto *chip = board.find<Switch>();
    if (!chip || payload.size() < kSwitchCallName || (payload.size() - kSwitchCallName) % sizeof(int64_t) != 0) {
        answer.fail(ENXIO);
        return;
    }
    const char *name = reinterpret_cast<const char *>(payload.data());
    std::vector<int64_t> in((payload.size() - kSwitchCallName) / sizeof(int64_t));
    if (!in.empty())
        memcpy(in.data(), payload.data() + kSwitchCallName, in.size() * sizeof(int64_t));
    const std::string call(name, strnlen(name, kSwitchCallName));
    const SwitchWords out = chip->call(call, in);
    answer.reply(0, {reinterpret_cast<const uint8_t *>(out.data()), out.size() * sizeof(int64_t)});
}

void serve_bus(Board &board, const Answer &answer)
{
    auto *links = board.find<Links>();
    if (links && links->provide_bus())
        answer.reply(0, {});
    else
        answer.fail(ECONNREFUSED);
}

} // namespace

void serve_request(Board &board, const RequestHeader &header, Bytes payload, const Answer &answer)
{
    if (header.op == Op::kInterface)
        serve_interface(board, header.request, payload, answer);
    else if (header.op == Op::kBus)
        serve_bus(board, answer);
    else
        serve_switch(board, payload, answer);
}

} // namespace vboard
