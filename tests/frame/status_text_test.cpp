#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <set>
#include <string>

#include "core/status_text.h"
#include "rokcore.h"

namespace {

TEST(StatusText, EveryCodeHasItsNameAndOneLineAndUnknownCodesAFixedText) {
    ASSERT_GT(rok::core::status_count, 50);
    std::set<RokStatus> codes;
    std::set<std::string> texts;
    for (int k = 0; k < rok::core::status_count; ++k) {
        const auto& s = rok::core::status_names[k];
        EXPECT_TRUE(codes.insert(s.code).second) << "code " << s.code << " twice";
        const char* text = rokGetStatusString(s.code);
        ASSERT_NE(text, nullptr);
        const std::string t = text;
        EXPECT_EQ(t.rfind(std::string(s.name) + ": ", 0), 0u) << t;
        EXPECT_GT(t.size(), std::strlen(s.name) + 5) << "a message after the name: " << t;
        EXPECT_EQ(t.find('\n'), std::string::npos) << t;
        EXPECT_TRUE(texts.insert(t).second) << "two codes share " << t;
        EXPECT_EQ(t.find("warning") == 0 || t.find(": warning") != std::string::npos, s.code > 0) << t;
    }
    for (RokStatus unknown : {-1, -2, -3, 1, 5, 12345, INT_MIN, INT_MAX}) {
        ASSERT_EQ(codes.count(unknown), 0u);
        EXPECT_STREQ(rokGetStatusString(unknown), "rokStatusUnknown: not a status code of this library") << unknown;
    }
}

}  // namespace
