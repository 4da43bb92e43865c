// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/standin_daemon/standin_control.hpp"

namespace {

TEST(StandinControl, ReadsEveryKeyAndRejectsMistakesWithTheirLine)
{
    Standin_control control;
    std::string error;
    ASSERT_TRUE(
        control.parse("# rehearsal\n ready = 250 \n\nfirst=STATUS=a\\nX=1\nignore_term=yes\nexit_code=255", error));
    EXPECT_EQ(control.ready_after_ms, 250);
    EXPECT_EQ(control.first_datagram, "STATUS=a\nX=1");
    EXPECT_EQ(control.ready_datagram, "READY=1");
    EXPECT_TRUE(control.ignore_term);
    EXPECT_EQ(control.exit_after_ms, Standin_control::never);
    EXPECT_EQ(control.exit_code, 255);
    for (const auto& [text, reason] : std::vector<std::pair<std::string, std::string>>{
             {"ready=soon", "line 1: bad value 'soon' for ready"},
             {"\nreddy=now", "line 2: unknown key 'reddy'"},
             {"exit_code=256", "line 1: bad value '256' for exit_code"},
             {"ready", "line 1: no '='"},
         }) {
        EXPECT_FALSE(Standin_control().parse(text, error)) << text;
        EXPECT_EQ(error, reason);
    }
}

}  // namespace
