// A device model: the state behind one or more nodes of the board.
//
// The daemon calls a model from one thread only. A model takes all times from the board's clock, so that scaled time
// and exact tests work.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/unique_fd.h"
#include "daemon/control.h"
#include "page/page.h"

namespace vboard {

using ddal::core::UniqueFd;

class Board;

using Bytes = std::vector<uint8_t>;

// Destination of the answer to one request. Copies share the request, and the first reply counts. A model that cannot
// answer at once keeps the Answer. If the caller is interrupted meanwhile, the server reports that and drops the late
// reply.
class Answer {
public:
    using Sink = std::function<void(int result, std::span<const uint8_t> bytes)>;
    explicit Answer(Sink sink) : sink_(std::make_shared<Sink>(std::move(sink))) {}

    void reply(int result, std::span<const uint8_t> bytes = {}) const
    {
        if (*sink_)
            std::exchange(*sink_, nullptr)(result, bytes);
    }
    template <typename Record>
    void reply_with(int result, const Record &record) const
    {
        reply(result, {reinterpret_cast<const uint8_t *>(&record), sizeof record});
    }
    void fail(int error) const { reply(-error); }
    bool is_waiting() const { return static_cast<bool>(*sink_); }

private:
    std::shared_ptr<Sink> sink_;
};

class Model : public Controlled {
public:
    explicit Model(Board &board) : board_(board) {}
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    // Runs once, after all nodes are made.
    virtual void start() {}

    // Returns the requests of a node, with the bytes that each carries.
    virtual std::vector<IoctlForm> ioctls(const Node &) const { return {}; }

    // Transfers return the bytes moved, or -errno.
    virtual int read(const Node &, uint64_t offset, std::span<uint8_t> out);
    virtual int write(const Node &, uint64_t offset, std::span<const uint8_t> in);

    // Executes a request. `argument` holds the caller's record and receives the answer's bytes.
    virtual void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer);

    // Opens a channel; `end` is the daemon's end of the socket. Returns 0 or -errno.
    virtual int open(const Node &, uint32_t flags, UniqueFd end);

    // Returns the text of a notifying attribute.
    virtual std::string text(const Node &);

    // Returns the commands of `vboard ctl <model>`. A model with commands hides this function.
    static ControlTable commands() { return {}; }

protected:
    Board &board() const { return board_; }

private:
    Board &board_;
};

} // namespace vboard
