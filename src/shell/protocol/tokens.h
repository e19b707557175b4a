// Cutting a command line into tokens and reading numbers out of tokens.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "shell/protocol/reply.h"

// Splits a line at blanks; double quotes group blanks into a token and always
// end the token they close. There is no escape character.
Tokens tokenise_line(std::string_view line);

// Tokens [first, last) joined by single blanks; bounds are clipped to the list.
std::string join_tokens(const Tokens& tokens, size_t first, size_t last);

// Standard base-10 conversions: a leading number is enough and trailing text is
// ignored. Text that is not a number, or a number out of range for the type,
// throws std::invalid_argument, which the interpreter answers "Invalid value".
int parse_int(const std::string& text);
double parse_double(const std::string& text);
// As parse_double, and infinities and NaNs are refused the same way.
double parse_finite_double(const std::string& text);
