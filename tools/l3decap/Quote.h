// What an error message may say of the operator's input: a short prefix of an offending word, its
// non-printable bytes escaped, so that a 10 MB line or a NUL byte never reaches the terminal whole.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace L3DecapCli {

// Bytes of an offending word that a message quotes; a longer word is cut and ends in "...".
constexpr std::size_t kQuotedBytes = 40;

// 'word' between single quotes: at most kQuotedBytes of it, every byte that is not printable
// ASCII as \xNN.
std::string quotedWord(std::string_view word);
// A word of a message longer than any file name is cut there.
constexpr std::size_t kLongestWord = 4096;

// A whole message made safe for a terminal the same way: non-printable bytes escaped, and each
// run of more than kLongestWord bytes without a blank cut short.
std::string printable(std::string_view message);

}  // namespace L3DecapCli
