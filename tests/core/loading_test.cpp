// The library in a program that loads it at run time.
#include <algorithm>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <string>

#include "support/board.h"
#include "support/resources.h"

using namespace testing_board;

namespace {

long mappings()
{
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

} // namespace

TEST(Loading, ClosingTheLibraryLeavesLinkEventsAtWork)
{
    void *const library = dlopen(DDAL_LIBRARY, RTLD_NOW);
    ASSERT_TRUE(library) << dlerror();
    const auto watch = reinterpret_cast<int (*)(uint32_t)>(dlsym(library, "ddal_phy_event_register_broadcom_switch"));
    const auto state_of = reinterpret_cast<int (*)(int, uint16_t *)>(dlsym(library, "ddal_phy_event_retrieve"));
    ASSERT_TRUE(watch && state_of);
    const int fd = watch(20);
    uint16_t state = 9;
    ASSERT_EQ(state_of(fd, &state), 0);
    EXPECT_EQ(state, 1);

    ASSERT_EQ(dlclose(library), 0);
    ctl("link 3 down");
    pollfd change{fd, POLLIN, 0};
    EXPECT_EQ(poll(&change, 1, 5000), 1);
    EXPECT_EQ(state_of(fd, &state), 0);
    EXPECT_EQ(state, 0);
}

TEST(Loading, LoadingAgainTakesNothingMore)
{
    const auto descriptors = open_descriptors();
    const long before = mappings();
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(dlclose(dlopen(DDAL_LIBRARY, RTLD_NOW)), 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(mappings(), before);
}
