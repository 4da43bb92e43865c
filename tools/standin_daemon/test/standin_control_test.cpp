#include <gtest/gtest.h>

#include "tools/standin_daemon/standin_control.hpp"

namespace {

TEST(StandinControl, ReadsEveryKeyAndKeepsTheDefaultsOfTheOthers)
{
    Standin_control control;
    std::string error;
    ASSERT_TRUE(control.parse("# rehearsal\n ready = 250 \n\nfirst=STATUS=starting\\nX=1\nignore_term=yes\n", error));
    EXPECT_EQ(control.ready_after_ms, 250);
    EXPECT_EQ(control.first_datagram, "STATUS=starting\nX=1");
    EXPECT_EQ(control.ready_datagram, "READY=1");
    EXPECT_TRUE(control.ignore_term);
    EXPECT_EQ(control.exit_after_ms, Standin_control::never);
    ASSERT_TRUE(control.parse("ready=never\nready_text=A=1\nexit_after=900\nexit_code=255\nignore_term=no", error));
    EXPECT_EQ(control.ready_after_ms, Standin_control::never);
    EXPECT_EQ(control.ready_datagram, "A=1");
    EXPECT_EQ(control.exit_after_ms, 900);
    EXPECT_EQ(control.exit_code, 255);
    EXPECT_FALSE(control.ignore_term);
}

TEST(StandinControl, RejectsMistakesWithLineNumber)
{
    for (const auto& [text, reason] : std::vector<std::pair<std::string, std::string>>{
             {"ready=soon", "line 1: bad value 'soon' for ready"},
             {"\nreddy=now", "line 2: unknown key 'reddy'"},
             {"exit_code=256", "line 1: bad value '256' for exit_code"},
             {"ignore_term=perhaps", "line 1: bad value 'perhaps' for ignore_term"},
             {"ready", "line 1: no '='"},
         }) {
        std::string error;
        EXPECT_FALSE(Standin_control().parse(text, error)) << text;
        EXPECT_EQ(error, reason);
    }
}

}  // namespace
