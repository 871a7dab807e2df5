/// The two words of a boolean in a stream; a reader takes every other word for false.
#pragma once

inline constexpr unsigned int kStreamTrue = 0xBEEF;
inline constexpr unsigned int kStreamFalse = 0xDEAD;
