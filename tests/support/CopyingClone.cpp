// Linked into the test programs of the ThreadSanitizer build only.
//
// Qt 6.4's QProcess starts a program with vfork semantics: clone() with
// CLONE_VM | CLONE_VFORK, so the child runs on the parent's memory until it
// execs. ThreadSanitizer keeps the state of each thread in that memory, and
// the child's calls through its interceptors leave the parent's main thread
// with a state that no longer records its locks: every later handover from
// the main thread then reads as a race. A child that copies the parent's
// memory, as fork() does, leaves it alone.

#include <sched.h>

#include <cstdarg>
#include <dlfcn.h>
#include <sys/types.h>

extern "C" int clone(int (*function)(void*), void* stack, int flags, void* argument, ...) {
    if ((flags & CLONE_VFORK) != 0) {
        flags &= ~(CLONE_VM | CLONE_VFORK);
    }
    va_list rest;
    va_start(rest, argument);
    auto* parentTid = va_arg(rest, pid_t*);
    void* tls = va_arg(rest, void*);
    auto* childTid = va_arg(rest, pid_t*);
    va_end(rest);
    using Clone = int (*)(int (*)(void*), void*, int, void*, ...);
    static const auto system = reinterpret_cast<Clone>(dlsym(RTLD_NEXT, "clone"));
    return system(function, stack, flags, argument, parentTid, tls, childTid);
}
