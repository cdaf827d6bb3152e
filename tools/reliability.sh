# What is too long, or too particular, for every run of the tests: docs/reliability.md.

PACKAGES_COVERAGE=(clang-14 llvm-14 libclang-rt-14-dev)
PACKAGES_LINT=(clang-14 clang-tidy-14 cppcheck)

#: faults -- let every call of the modules and every allocation fail, in all ways to call them
verb_faults() {
  local bad=0 suite
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_DEBUG[@]}" \
    "${PACKAGES_ARMHF[@]}"
  build_preset host
  build_preset host vu_platform_faults
  build_preset debug vu_mom_faults vu_faults_malloc vu_binding_tests
  build_preset platform-debug
  build_preset armhf vu_faults vu_binding_tests
  for suite in calls memory slopes platform platform_calls platform_slopes; do
    note "$suite"
    /usr/bin/python3 tests/faults/run.py build/host "$suite" --whole || bad=1
  done
  for suite in calls slopes; do
    note "$suite, counting references"
    /usr/bin/python3-dbg tests/faults/run.py build/debug "$suite" || bad=1
  done
  note "platform_slopes, counting references"
  /usr/bin/python3-dbg tests/faults/run.py build/platform-debug platform_slopes --whole || bad=1
  note "slopes, 32-bit ARM"
  "$SYSROOT_PYTHON" tests/faults/run.py build/armhf slopes || bad=1
  return $bad
}

#: coverage -- report the branch coverage of src/ by the tests of the binding
verb_coverage() {
  local build=build/coverage profiles=$PWD/build/coverage/profiles objects=() name
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_COVERAGE[@]}"
  build_preset coverage vu_binding_tests vu_mom_faults vu_faults_malloc vu_mom_stubs
  rm -rf "$profiles"
  mkdir -p "$profiles" build/logs
  export LLVM_PROFILE_FILE=$profiles/%m.profraw
  rm -f build/logs/coverage.counts
  run_suite coverage binding 600 /usr/bin/python3 tests/binding/run.py "$build"
  run_suite coverage faults-calls 600 /usr/bin/python3 tests/faults/run.py "$build" calls
  unset LLVM_PROFILE_FILE
  for name in binding/python binding/mismatch faults/python; do
    objects+=("$build/tests/$name/vu_mom.so")
  done
  join() { local IFS=:; echo "$*"; }
  /usr/bin/python3 tools/coverage.py tests/faults/unreachable.txt "$(join "${objects[@]}")" \
    "$(join "$profiles"/*.profraw)"
  ! grep -qv ' 0 [0-9]*$' build/logs/coverage.counts || fail "a test has failed"
}

# Where C and C++ sources are, and where the headers that they include.
SOURCES=(src include platform examples tests bench tools)
HEADERS=(include src platform/include platform/store platform/store/include platform/message
  platform/thread tests/faults)

# sources_named PATTERN DIRECTORY...
sources_named() {
  local pattern=$1
  shift
  find "$@" -name "$pattern" ! -path '*/build/*' | sort
}

#: lint [DIRECTORY...] -- check all sources with clang, clang-tidy, cppcheck and tools/references.py
verb_lint() {
  local bad=0 headers=() cpp c known
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_LINT[@]}"
  # The whole build with clang's warnings as errors; g++'s are so in every build.
  build_preset clang
  [ $# != 0 ] || set -- "${SOURCES[@]}"
  note "references"
  /usr/bin/python3 tools/references.py src platform || bad=1
  mapfile -t cpp < <(sources_named '*.cpp' "$@")
  mapfile -t c < <(sources_named '*.c' "$@")
  headers=("${HEADERS[@]/#/-I}")
  local cppcheck=(cppcheck --quiet --error-exitcode=1 --inline-suppr -j "$(nproc)"
    --enable=warning,style,performance,portability --suppressions-list=.cppcheck
    --library=python --library=googletest "${headers[@]}")
  note "cppcheck"
  [ ${#cpp[@]} = 0 ] || "${cppcheck[@]}" --std=c++20 --language=c++ "${cpp[@]}" || bad=1
  [ ${#c[@]} = 0 ] || "${cppcheck[@]}" --std=c11 --language=c "${c[@]}" || bad=1
  note "clang-tidy"
  # What the build compiles; it leaves out what other tools build.
  known=$(sed -n 's|^ *"file": "'"$PWD"'/\(.*\)",*$|\1|p' build/clang/compile_commands.json | sort -u)
  mapfile -t cpp < <(comm -12 <(printf '%s\n' "${cpp[@]}" "${c[@]}" | sort) <(echo "$known"))
  printf '%s\0' "${cpp[@]}" |
    xargs -0 -n 2 -P "$(nproc)" clang-tidy-14 --quiet -p build/clang 2>/dev/null || bad=1
  [ $bad != 0 ] || echo "no finding in ${#cpp[@]} sources and their headers"
  return $bad
}

#: tsan -- run the store's tests with ThreadSanitizer
verb_tsan() {
  local program bad=0
  install_packages "${PACKAGES_BUILD[@]}"
  build_preset tsan vu_store_test vu_store_c_test
  for program in vu_store_test vu_store_c_test; do
    note "$program"
    # Measures of memory are not those of a sanitized program; ended processes write no report.
    TSAN_OPTIONS="halt_on_error=1 die_after_fork=0" \
      "build/tsan/bin/$program" --gtest_brief=1 --gtest_filter='-Memory.*' || bad=1
  done
  return $bad
}
