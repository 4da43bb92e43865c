#include <gtest/gtest.h>

#include "tools/standin_daemon/standin_control.hpp"

namespace {

TEST(StandinControl, DefaultsBecomeReadyAtOnceAndStopOnTerm)
{
    Standin_control control;
    std::string error;
    ASSERT_TRUE(control.parse("", error));
    EXPECT_EQ(control.ready_after_ms, 0);
    EXPECT_EQ(control.ready_datagram, "READY=1");
    EXPECT_FALSE(control.ignore_term);
    EXPECT_EQ(control.exit_after_ms, Standin_control::never);
}

TEST(StandinControl, ReadsEveryKey)
{
    Standin_control control;
    std::string error;
    ASSERT_TRUE(
        control.parse("# rehearsal\n ready = 250 \nfirst=STATUS=starting\\nX=1\nready_text=A=1\\nREADY=1\n"
                      "ignore_term=yes\n\nexit_after=900\nexit_code=3\n",
                      error))
        << error;
    EXPECT_EQ(control.ready_after_ms, 250);
    EXPECT_EQ(control.first_datagram, "STATUS=starting\nX=1");
    EXPECT_EQ(control.ready_datagram, "A=1\nREADY=1");
    EXPECT_TRUE(control.ignore_term);
    EXPECT_EQ(control.exit_after_ms, 900);
    EXPECT_EQ(control.exit_code, 3);
    ASSERT_TRUE(control.parse("ready=never", error));
    EXPECT_EQ(control.ready_after_ms, Standin_control::never);
}

TEST(StandinControl, RejectsMistakesWithLineNumber)
{
    for (const auto& [text, reason] : std::vector<std::pair<std::string, std::string>>{
             {"ready=soon", "line 1: bad value 'soon' for ready"},
             {"\nreddy=now", "line 2: unknown key 'reddy'"},
             {"exit_code=256", "line 1: bad value '256' for exit_code"},
             {"ignore_term=perhaps", "line 1: bad value 'perhaps' for ignore_term"},
             {"exit_after=-5", "line 1: bad value '-5' for exit_after"},
             {"ready", "line 1: no '='"},
         }) {
        Standin_control control;
        std::string error;
        EXPECT_FALSE(control.parse(text, error)) << text;
        EXPECT_EQ(error, reason);
    }
}

}  // namespace
