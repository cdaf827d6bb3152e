# What is too long, or too particular, for every run of the tests: docs/reliability.md.

PACKAGES_COVERAGE=(clang-14 llvm-14 libclang-rt-14-dev)
PACKAGES_LINT=(clang-14 clang-tidy-14 cppcheck)

#: faults -- let every call of the binding and every allocation fail, in all ways to call it
verb_faults() {
  local bad=0 suite
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_DEBUG[@]}"
  build_preset host
  build_preset debug vu_mom_faults vu_faults_malloc vu_binding_tests
  for suite in calls memory slopes platform; do
    note "$suite"
    /usr/bin/python3 tests/faults/run.py build/host "$suite" --whole || bad=1
  done
  for suite in calls slopes; do
    note "$suite, counting references"
    /usr/bin/python3-dbg tests/faults/run.py build/debug "$suite" || bad=1
  done
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

#: lint [DIRECTORY...] -- check the sources (src and include) with clang, clang-tidy and cppcheck
verb_lint() {
  local bad=0 sources
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_LINT[@]}"
  # The whole build with clang's warnings as errors.
  build_preset coverage || bad=1
  [ $# != 0 ] || set -- src include
  note "cppcheck"
  cppcheck --quiet --error-exitcode=1 --std=c++20 --language=c++ \
    --enable=warning,style,performance,portability --suppressions-list=.cppcheck \
    -Iinclude -Isrc "$@" || bad=1
  note "clang-tidy"
  mapfile -t sources < <(find "$@" -name '*.cpp' | sort)
  printf '%s\0' "${sources[@]}" |
    xargs -0 -n 2 -P "$(nproc)" clang-tidy-14 --quiet -p build/coverage 2>/dev/null || bad=1
  [ $bad != 0 ] || echo "no finding in ${#sources[@]} sources and their headers"
  return $bad
}
