// What keeps launcher.exe small: four things that the run-time libraries bring along for every program, replaced by
// the little that this one needs of them. Linked into the executable only. Each replaces a whole object of its library;
// a function that is missing here shows at the link, as one that is defined twice.
//
// 1. The handler of uncaught exceptions, which prints their type: with it come the demangler and formatted output.
// 2. The functions by which the standard library throws: with them come all of its exception classes and their texts.
// 3. The bookkeeping of exceptions in flight, one for each thread: with it comes an emulation of thread-local storage
//    on top of one of POSIX threads. Here only the main thread ever throws; the error box's thread runs no code that
//    could.
// 4. The lock around the memory that is kept back for exceptions. This one is no matter of size alone: the library's
//    takes memory itself when it is first used, which is when there is none, and fails by throwing, for which it is
//    used: a program that has run out of memory would run out of stack.
//
// Exceptions themselves work as always: an exhausted memory unwinds everything and ends the process with code 3.

#include <bits/functexcept.h>
#include <cxxabi.h>
#include <pthread.h>

#include <cstdlib>
#include <exception>
#include <new>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl58-cpp,cert-dcl50-cpp): the names are
// the library's.

namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }  // not reached: the entry point sets a handler first
}  // namespace __gnu_cxx

namespace {

// A length, position or argument that the caller has got wrong. Nobody here tells one from another.
struct Impossible final : std::exception {};

}  // namespace

namespace std {
void __throw_bad_alloc() { throw bad_alloc(); }
void __throw_bad_array_new_length() { throw bad_array_new_length(); }
void __throw_length_error(const char* /*what*/) { throw Impossible(); }
void __throw_bad_function_call() { throw Impossible(); }
void __throw_logic_error(const char* /*what*/) { throw Impossible(); }
void __throw_out_of_range_fmt(const char* /*what*/, ...) { throw Impossible(); }
}  // namespace std

namespace __cxxabiv1 {

// As laid out by the C++ ABI.
struct __cxa_eh_globals {
  void* caughtExceptions = nullptr;
  unsigned int uncaughtExceptions = 0;
};

namespace {
__cxa_eh_globals mainThread;
}

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept { return &mainThread; }
extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept { return &mainThread; }

}  // namespace __cxxabiv1

extern "C" {
int pthread_mutex_init(pthread_mutex_t* /*mutex*/, const pthread_mutexattr_t* /*attributes*/) { return 0; }
int pthread_mutex_lock(pthread_mutex_t* /*mutex*/) { return 0; }
int pthread_mutex_unlock(pthread_mutex_t* /*mutex*/) { return 0; }
int pthread_mutex_destroy(pthread_mutex_t* /*mutex*/) { return 0; }
}

// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl58-cpp,cert-dcl50-cpp)
