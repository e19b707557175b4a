#include "shell/protocol/tokens.h"

#include <gtest/gtest.h>

#include <stdexcept>

TEST(Tokeniser, QuotesBlanksAndEmptyTokens) {
    EXPECT_EQ(tokenise_line("a  b   c"), (Tokens{"a", "b", "c"}));
    EXPECT_EQ(tokenise_line("  lead"), (Tokens{"lead"}));
    EXPECT_EQ(tokenise_line("ab\"c d\"ef"), (Tokens{"abc d", "ef"}));
    EXPECT_EQ(tokenise_line("\"unclosed quote runs on"), (Tokens{"unclosed quote runs on"}));
    EXPECT_EQ(tokenise_line("x \"\" y"), (Tokens{"x", "y"}));
    EXPECT_TRUE(tokenise_line("\"").empty());
    EXPECT_TRUE(tokenise_line("     ").empty());
    EXPECT_TRUE(tokenise_line("").empty());
    // Tab is an ordinary character, and a closing quote always ends the token.
    EXPECT_EQ(tokenise_line("a\tb \"c\"d"), (Tokens{"a\tb", "c", "d"}));
}

TEST(Tokeniser, JoinClipsToTheList) {
    const Tokens tokens{"a", "b", "c"};
    EXPECT_EQ(join_tokens(tokens, 1, 3), "b c");
    EXPECT_EQ(join_tokens(tokens, 0, 99), "a b c");
    EXPECT_EQ(join_tokens(tokens, 3, 5), "");
}

TEST(Numbers, LeadingNumberIsEnoughAndBadTextIsInvalid) {
    EXPECT_EQ(parse_int("42abc"), 42);
    EXPECT_EQ(parse_int("  -7"), -7);
    EXPECT_EQ(parse_int("0x10"), 0);  // base 10 only
    EXPECT_DOUBLE_EQ(parse_double("2.5e1x"), 25.0);
    EXPECT_EQ(parse_int64("9000000000"), 9000000000LL);
    EXPECT_THROW(parse_int("abc"), std::invalid_argument);
    EXPECT_THROW(parse_int(""), std::invalid_argument);
    // Out of range is refused like any other bad number, not fatal.
    EXPECT_THROW(parse_int("99999999999"), std::invalid_argument);
    EXPECT_THROW(parse_int64("123456789012345678901"), std::invalid_argument);
    EXPECT_THROW(parse_double("1e999"), std::invalid_argument);
    EXPECT_NO_THROW(parse_double("inf"));
    EXPECT_THROW(parse_finite_double("inf"), std::invalid_argument);
    EXPECT_THROW(parse_finite_double("nan"), std::invalid_argument);
}
