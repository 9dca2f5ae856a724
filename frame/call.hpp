// The frame of every public routine: push the name, test for a pending error, trap signals if that is on, run
// the worker, release the call's memory, pop the name. It lives here and nowhere else.
//
// A public entry hands its name and a worker over and returns:
//
//     double tavik_d_machine(int n)
//     {
//         return public_call<double>("tavik_d_machine", [=](Workspace &, double &result) { ... });
//     }
//
// The worker stores its result as its last act; until then the result is null or zero. Below an armed trap
// nothing may own memory through a destructor: work arrays come from the workspace.
#pragma once

#include "workspace.hpp"

namespace tavik {

using WorkerThunk = void (*)(void *worker, Workspace &workspace);

void run_public_call(const char *name, WorkerThunk thunk, void *worker);

template <class Worker> void public_call(const char *name, Worker worker)
{
    run_public_call(
        name, [](void *w, Workspace &workspace) { (*static_cast<Worker *>(w))(workspace); }, &worker);
}

template <class Result, class Worker> Result public_call(const char *name, Worker worker)
{
    Result result{};
    public_call(name, [&](Workspace &workspace) { worker(workspace, result); });
    return result;
}

} // namespace tavik
