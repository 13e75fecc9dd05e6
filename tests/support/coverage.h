// Where lines are counted (VELKOR_COVERAGE), a process writes its counts at its end, and one that is killed does not.
// The runner process is always killed; asked in this way it writes them first.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace coverage {

#ifdef VELKOR_COVERAGE

// To be called before the process is forked.
void prepare();

// Waits for the end, without taking a child's status. Whoever was interrupted where it cannot be done is killed all the
// same.
void write_down(pid_t process);

#else

inline void prepare() {}
inline void write_down(pid_t) {}

#endif

}  // namespace coverage
