# What is too long, or too particular, for every run of the tests: docs/reliability.md.

PACKAGES_COVERAGE=(clang-14 llvm-14 libclang-rt-14-dev)
PACKAGES_LINT=(clang-14 clang-tidy-14 cppcheck)

#: faults -- let every call and every allocation of the binding fail, in all its calls
verb_faults() {
  local bad=0 suite
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_DEBUG[@]}"
  build_preset host vu_mom_faults vu_faults_malloc vu_binding_tests
  build_preset debug vu_mom_faults vu_faults_malloc vu_binding_tests
  for suite in calls memory slopes; do
    note "$suite"
    /usr/bin/python3 tests/faults/run.py build/host "$suite" --whole || bad=1
  done
  for suite in calls slopes; do
    note "$suite, counting references"
    /usr/bin/python3-dbg tests/faults/run.py build/debug "$suite" --whole || bad=1
  done
  return $bad
}
