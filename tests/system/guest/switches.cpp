#include "switches.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

namespace rig {

namespace {

constexpr std::chrono::milliseconds kSeveralFrames{50};
const std::string kParameters = "/sys/module/ddal_board/parameters/";

} // namespace

void set_switch(const std::string &name, const std::string &value)
{
    std::ofstream file(kParameters + name);
    file << value << std::flush;
    EXPECT_TRUE(file.good()) << name;
    std::this_thread::sleep_for(kSeveralFrames);
}

std::string get_switch(const std::string &name)
{
    std::ifstream file(kParameters + name);
    std::string value;
    EXPECT_TRUE(std::getline(file, value)) << name;
    return value;
}

} // namespace rig
