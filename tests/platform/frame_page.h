// A frame page that the test writes. The board's driver stands still while it lives.
#pragma once

#include <cstdint>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/frame_driver.h"
#include "support/board.h"

namespace testing_board {

struct FrameContent {
    uint64_t bcn;
    uint64_t counter;
    uint32_t a_sec, a_nsec, b_sec, b_nsec;
};

class OwnFramePage {
public:
    OwnFramePage()
    {
        ctl("frame stop");
        const int fd = open(ddal::platform::kFrameNode, O_RDWR | O_CLOEXEC);
        void *at = mmap(nullptr, sizeof *page_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (at == MAP_FAILED)
            throw std::runtime_error("cannot map the frame page");
        page_ = static_cast<ddal::platform::FramePage *>(at);
    }
    ~OwnFramePage()
    {
        munmap(page_, sizeof *page_);
        ctl("frame start");
    }
    OwnFramePage(const OwnFramePage &) = delete;
    OwnFramePage &operator=(const OwnFramePage &) = delete;

    void publish(const FrameContent &content)
    {
        const uint32_t sequence = page_->sequence;
        set(page_->sequence, sequence + 1);
        set(page_->bcn_low, content.bcn);
        set(page_->bcn_high, content.bcn >> 32);
        set(page_->a_sec, content.a_sec);
        set(page_->a_nsec, content.a_nsec);
        set(page_->counter_low, content.counter);
        set(page_->counter_high, content.counter >> 32);
        set(page_->b_sec, content.b_sec);
        set(page_->b_nsec, content.b_nsec);
        set(page_->sequence, sequence + 2);
    }

private:
    static void set(uint32_t &word, uint64_t value)
    {
        __atomic_store_n(&word, static_cast<uint32_t>(value), __ATOMIC_SEQ_CST);
    }

    ddal::platform::FramePage *page_;
};

} // namespace testing_board
