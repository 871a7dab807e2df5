/// The two words of a boolean in a stream; a reader takes every other word for false.
#pragma once

inline constexpr unsigned int kStreamTrue = 0xBEEF;   ///< true
inline constexpr unsigned int kStreamFalse = 0xDEAD;  ///< false, as every other word
