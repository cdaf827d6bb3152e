// How a function of the interpreter gets a form that can be made to fail: the linker lets a test
// build call __wrap_NAME where the source calls NAME.
#pragma once

#include "faults.h"

#define HERE __builtin_return_address(0)

#define WRAP(Result, name, failure, parameters, arguments) \
  extern "C" Result __real_##name parameters;              \
  extern "C" Result __wrap_##name parameters {             \
    if (faults_fail_call(#name, HERE)) return failure;     \
    return __real_##name arguments;                        \
  }

// Functions that return nothing, since they set an error: another one is set.
#define WRAP_RAISE(name, parameters, arguments) \
  extern "C" void __real_##name parameters;     \
  extern "C" void __wrap_##name parameters {    \
    if (faults_fail_call(#name, HERE)) return;  \
    __real_##name arguments;                    \
  }

// Functions with a list of arguments; the body follows.
#define WRAP_VARIADIC(Result, name, parameters) extern "C" Result __wrap_##name parameters
