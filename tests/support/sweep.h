// How long a random sweep goes on.
#pragma once

namespace sweep {

// Under an emulator or a sanitizer, or without optimisation, a case takes ten to forty times as long, and the platform
// or the watcher has little more to show in the last thousand cases than in the first. The full number runs where it is
// cheap.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__) || !defined(__OPTIMIZE__)
inline constexpr int SHARE = 50;
#else
inline constexpr int SHARE = 1;
#endif

constexpr unsigned cases(unsigned full_number) { return full_number / static_cast<unsigned>(SHARE); }

}  // namespace sweep
