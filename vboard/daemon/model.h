// A device model: the state behind one or more nodes of the board.
//
// The daemon calls a model from one thread only. Everything a model knows about time comes from the board's clock, so
// that scaled time and tests in numbers work.
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

// Where the answer to one request goes. Copies share the request; the first reply counts. A model that cannot answer at
// once keeps the Answer; when the caller is interrupted meanwhile it is told so by the server and the late reply goes
// nowhere.
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

    // Runs once, when all nodes are there.
    virtual void start() {}

    // The requests a node understands and the bytes each carries.
    virtual std::vector<IoctlForm> ioctls(const Node &) const { return {}; }

    // Transfers: bytes moved, or -errno.
    virtual int read(const Node &, uint64_t offset, std::span<uint8_t> out);
    virtual int write(const Node &, uint64_t offset, std::span<const uint8_t> in);

    // A request; `argument` holds what the caller's record held, the answer's bytes go back into it.
    virtual void ioctl(const Node &, uint32_t request, Bytes argument, Answer answer);

    // A channel was opened; `end` is the daemon's end of the socket. 0 or -errno.
    virtual int open(const Node &, uint32_t flags, UniqueFd end);

    // Text of a notifying attribute.
    virtual std::string text(const Node &);

    // What `vboard ctl <model>` takes; a model with commands has a table of the same name.
    static ControlTable commands() { return {}; }

protected:
    Board &board() const { return board_; }

private:
    Board &board_;
};

} // namespace vboard
