// The named critical sections that guard process-wide state, one lock each. Plain mutexes rather than
// OpenMP's critical sections: they are also entered by threads that are ending and by threads that OpenMP did
// not make.
#pragma once

#include <pthread.h>

namespace tavik {

struct CriticalSection {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

namespace section {

inline constinit CriticalSection
    error_0; // the single structure, the threads that trapping must not meet two of
inline constinit CriticalSection error_1;   // initialisation of the fallback structure
inline constinit CriticalSection error_2;   // signal-trapping status
inline constinit CriticalSection error_4;   // release of record buffers
inline constinit CriticalSection readerr_0; // opening of the message file
inline constinit CriticalSection readerr_1; // reads on its descriptor; may be entered inside readerr_0
inline constinit CriticalSection omp_0;     // joining the error state of workers

} // namespace section

// Runs body alone. No guard object: a trapped signal jumps over this frame, where nothing may need a
// destructor.
template <class Body> void alone_in(CriticalSection &section, const Body &body)
{
    pthread_mutex_lock(&section.mutex);
    body();
    pthread_mutex_unlock(&section.mutex);
}

} // namespace tavik
