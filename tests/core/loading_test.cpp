// The library in a program that loads it at run time.
#include <algorithm>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <set>
#include <string>
#include <unistd.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/resources.h"

using namespace testing_board;

namespace {

long mappings()
{
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

struct Library {
    void *handle = dlopen(DDAL_LIBRARY, RTLD_NOW);
    template <typename Function>
    Function *find(const char *name) const
    {
        return handle ? reinterpret_cast<Function *>(dlsym(handle, name)) : nullptr;
    }
    int (*watch)(uint32_t) = find<int(uint32_t)>("ddal_phy_event_register_broadcom_switch");
    int (*state_of)(int, uint16_t *) = find<int(int, uint16_t *)>("ddal_phy_event_retrieve");
};

} // namespace

// Must run first, before the library is loaded.
TEST(Loading, LeavesTheNumbersOfStandardStreamsFree)
{
    for (int closed = 1; closed < 8; ++closed) {
        EXPECT_EQ(in_child([closed]() -> std::string {
                      std::set<int> before = open_descriptors();
                      for (int fd = 0; fd < 3; ++fd) {
                          if (closed & 1 << fd && before.erase(fd))
                              close(fd);
                      }
                      const Library library;
                      uint16_t state = 9;
                      const int fd = library.watch ? library.watch(20) : -1;
                      if (fd < 3 || library.state_of(fd, &state) != 0 || state != 1)
                          return "no link event";
                      for (const int open : open_descriptors()) {
                          if (open < 3 && !before.count(open))
                              return "number " + std::to_string(open);
                      }
                      return "";
                  }),
                  "")
            << "closed: " << closed;
    }
}

// Comes before the link events, whose threads map memory of their own accord.
TEST(Loading, LoadingAgainOpensNothing)
{
    ASSERT_EQ(dlclose(dlopen(DDAL_LIBRARY, RTLD_NOW)), 0);
    const auto descriptors = open_descriptors();
    const long before = mappings();
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(dlclose(dlopen(DDAL_LIBRARY, RTLD_NOW)), 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(mappings(), before);
}

TEST(Loading, ClosingTheLibraryKeepsLinkEventsRunning)
{
    const Library library;
    ASSERT_TRUE(library.watch && library.state_of) << dlerror();
    const int fd = library.watch(20);
    uint16_t state = 9;
    ASSERT_EQ(library.state_of(fd, &state), 0);
    EXPECT_EQ(state, 1);

    ASSERT_EQ(dlclose(library.handle), 0);
    ctl("link 3 down");
    pollfd change{fd, POLLIN, 0};
    EXPECT_EQ(poll(&change, 1, 5000), 1);
    EXPECT_EQ(library.state_of(fd, &state), 0);
    EXPECT_EQ(state, 0);
}
