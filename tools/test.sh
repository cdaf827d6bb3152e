# The test legs: which suites run where.
#
# A leg is a function leg_NAME, run in a process of its own (`./dev leg NAME`), so that one
# that breaks off does not take the others along. It calls run_suite for each runner, which
# adds a line "passed failed skipped" to build/logs/NAME.counts.

LEGS=(host armhf asan debug)

# run_suite LEG SUITE SECONDS COMMAND...: runs one test runner, at most SECONDS.
run_suite() { /usr/bin/python3 tools/run_suite.py "$@"; }

leg_host() {
  build_preset host
  run_suite host binding 600 /usr/bin/python3 tests/binding/run.py build/host
  run_suite host store 300 build/host/bin/vu_store_test
  run_suite host store-c 60 build/host/bin/vu_store_c_test
  run_suite host platform 600 env PYTHONPATH=build/host/python \
    /usr/bin/python3 -m pytest -p no:cacheprovider tests/platform
  run_suite host build 600 /usr/bin/python3 tests/build/run.py build/host
}

leg_armhf() {
  local run=(qemu-arm -L "$SYSROOT")
  build_preset armhf
  run_suite armhf binding 600 "$SYSROOT_PYTHON" tests/binding/run.py build/armhf
  run_suite armhf store 300 "${run[@]}" build/armhf/bin/vu_store_test
  run_suite armhf store-c 60 "${run[@]}" build/armhf/bin/vu_store_c_test
  run_suite armhf platform 600 env PYTHONPATH=build/armhf/python \
    "$SYSROOT_PYTHON" -m pytest -p no:cacheprovider tests/platform
  run_suite armhf build 600 /usr/bin/python3 tests/build/run.py build/armhf
}

leg_asan() {
  local runtime=() name
  for name in libasan.so libubsan.so libstdc++.so; do
    runtime+=("$(readlink -f "$(g++ -print-file-name="$name")")")
  done
  local run=(env "LD_PRELOAD=${runtime[*]}" PYTHONMALLOC=malloc ASAN_OPTIONS=detect_leaks=0
    UBSAN_OPTIONS=print_stacktrace=1)
  build_preset asan
  run_suite asan binding 600 "${run[@]}" /usr/bin/python3 tests/binding/run.py build/asan
  run_suite asan store 300 build/asan/bin/vu_store_test
  run_suite asan store-c 60 build/asan/bin/vu_store_c_test
  run_suite asan platform 600 "${run[@]}" PYTHONPATH=build/asan/python \
    /usr/bin/python3 -m pytest -p no:cacheprovider tests/platform
}

leg_debug() {
  build_preset debug
  run_suite debug binding 600 /usr/bin/python3-dbg tests/binding/run.py build/debug
}

verb_leg() { "leg_$1"; }

#: test [LEG...] -- build and run the tests; legs: host, armhf, asan, debug (all if none is named)
verb_test() {
  local leg bad=0 passed=0 failed=0 skipped=0 p f s
  [ $# != 0 ] || set -- "${LEGS[@]}"
  for leg in "$@"; do
    declare -F "leg_$leg" >/dev/null || fail "no test leg '$leg'; there are: ${LEGS[*]}"
  done
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
  for leg in "$@"; do install_for "$leg"; done
  mkdir -p build/logs
  for leg in "$@"; do
    note "$leg"
    rm -f "build/logs/$leg.counts"
    local ran=0
    ./dev leg "$leg" || bad=1
    while read -r p f s; do
      passed=$((passed + p)) failed=$((failed + f)) skipped=$((skipped + s))
      ran=$((ran + p + f))
    done < <(cat "build/logs/$leg.counts" 2>/dev/null)
    if [ $ran = 0 ]; then
      echo "-- $leg: no test ran"
      bad=1
    fi
  done
  # A leg that broke off counts, even where every test that it ran has passed.
  [ $bad = 0 ] || [ $failed != 0 ] || failed=1
  [ $failed = 0 ] || bad=1
  printf '\n%d passed, %d failed' "$passed" "$failed"
  [ $skipped = 0 ] || printf ', %d skipped' "$skipped"
  printf '\n'
  return $bad
}
