#pragma once

namespace bc {

// How texts for the user name the computer the program runs on: only a Mac is "this Mac".
#ifdef __APPLE__
inline constexpr const char* thisMachine = "this Mac";
#else
inline constexpr const char* thisMachine = "this computer";
#endif

}  // namespace bc
