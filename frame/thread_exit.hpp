// Memory that a thread keeps between calls frees itself when the thread ends.
//
// A pthread key rather than a destructor of a thread_local: keys are served after all thread_local
// destructors and again when a destructor of the caller's calls the library once more, so nothing is left
// behind then either.
#pragma once

namespace tavik {

// One per kind of state, a thread-local constant-initialised object beside that state.
struct ThreadExit {
    void (*release)();
    bool registered;
    ThreadExit *next;
};

// Has `node.release` called when the calling thread ends. Registering twice does nothing. False when the
// system has no room for it.
bool release_at_thread_exit(ThreadExit &node);

// Releases now what the calling thread holds.
void release_thread_state();

} // namespace tavik
