// The example applications on a board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/program.h"

using namespace testing_board;
using testing::HasSubstr;

TEST(BoardReport, NamesTheBoard)
{
    const Finished run = run_program({BOARD_REPORT_PROGRAM});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("Board type 9\n"));
    EXPECT_THAT(run.out, HasSubstr("02:00:5e:10:00:10"));

    const Fault fault("open:/dev/fpga_usr errno=EIO");
    EXPECT_EQ(run_program({BOARD_REPORT_PROGRAM}).status, 1);
}

TEST(FrameMeter, CountsReceivedAndMissedFrames)
{
    const Finished run = run_program({FRAME_METER_PROGRAM, "120"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("frames    100 "));
    EXPECT_THAT(run.out, HasSubstr("120 frames in "));

    // A program that is delayed for three frames misses at least two.
    const Fault slow("ioctl:/dev/fpga_frame nth=5 delay=35ms");
    const Finished slowed = run_program({FRAME_METER_PROGRAM, "20"});
    unsigned missed = 0;
    ASSERT_EQ(sscanf(slowed.out.c_str(), "20 frames in %*f s: %*f per second, %u missed", &missed), 1) << slowed.out;
    EXPECT_GE(missed, 2u);
}

TEST(FrameMeter, EndsWithTheReasonWhenTheFrameStops)
{
    const Fault fault("ioctl:/dev/fpga_frame nth=3 errno=EIO");
    const Finished run = run_program({FRAME_METER_PROGRAM, "20"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("frame_meter: Input/output error (-5)"));
    EXPECT_EQ(run_program({FRAME_METER_PROGRAM, "0"}).status, 2);
}

TEST(LinkWatch, ReportsALinkThatGoesDownAndComesBack)
{
    std::string told;
    EXPECT_EQ(run_and_answer(LINK_WATCH_PROGRAM " 3 2 20",
                             [&](const std::string &line) {
                                 told += line;
                                 ctl(line.find("down") == std::string::npos ? "link 3 down" : "link 3 up");
                             }),
              0);
    EXPECT_EQ(told, "link 3 is up\nlink 3 went down\nlink 3 went up\n");
    ctl("link 3 up");
}

TEST(LinkWatch, DoesNotWaitForEver)
{
    const Finished run = run_program({LINK_WATCH_PROGRAM, "3", "1", "1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "link 3 is up\n");
    EXPECT_THAT(run.err, HasSubstr("link 3 did not change for 1 s"));
    for (const char *wrong : {"5", "eth0", ""})
        EXPECT_EQ(run_program({LINK_WATCH_PROGRAM, wrong}).status, 2) << wrong;
}
