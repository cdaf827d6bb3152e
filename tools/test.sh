# The test legs: which suites run where.
#
# A leg is a function leg_NAME, run in a process of its own (`./dev leg NAME`) when preset
# NAME is built, so that one that breaks off does not take the others along. One more runs at a
# time than there are processors, as some tests wait for time to pass. It calls run_suite for
# each runner, which adds a line "passed failed skipped" to build/logs/NAME.counts.

LEGS=(host armhf asan debug)

# run_suite LEG SUITE SECONDS COMMAND...: runs one test runner, at most SECONDS.
run_suite() { /usr/bin/python3 tools/run_suite.py "$@"; }

# pytest_suite LEG SUITE PYTHON...: tests/SUITE, with what the leg has built. A test that
# hangs shows where it does.
pytest_suite() {
  local leg=$1 suite=$2
  shift 2
  run_suite "$leg" "$suite" 1800 env "PYTHONPATH=$PWD/build/$leg/python" \
    "HYPOTHESIS_STORAGE_DIRECTORY=$PWD/build/hypothesis" \
    "$@" -m pytest -q -p no:cacheprovider -o faulthandler_timeout=120 "tests/$suite"
}

CONTRACT_ON_ARM='not cluster and (not server or test_values or test_hashes or test_lists or
 test_lifetimes or test_subscriptions or test_delivery or test_scans or test_server or
 test_differential)'
CONTRACT_ON_ARM=${CONTRACT_ON_ARM//$'\n'/}

# python_suites LEG PYTHON...: what the interpreter of a leg runs.
python_suites() {
  local leg=$1
  shift
  run_suite "$leg" binding 600 "$@" tests/binding/run.py "build/$leg"
  pytest_suite "$leg" platform "$@"
  # The emulated processor runs a part of the contract on a server; the rest makes no
  # difference there.
  [ "$leg" != armhf ] || set -- env "PYTEST_ADDOPTS=-k '$CONTRACT_ON_ARM'" "$@"
  pytest_suite "$leg" contract "$@"
}

# store_suites LEG [EMULATOR...]: the programs that test the store library without Python.
# The programs that test the server engine start redis-servers of their own, each in a directory
# of its own.
store_suites() {
  local leg=$1 program
  shift
  for program in vu_store_test vu_store_c_test vu_server_test vu_server_functions_test \
    vu_server_engine_test; do
    run_suite "$leg" "$program" 900 "$@" "build/$leg/bin/$program"
  done
}

# faults_suites LEG PYTHON SUITE...: what the binding does where something fails.
faults_suites() {
  local leg=$1 python=$2 suite
  shift 2
  for suite in "$@"; do
    run_suite "$leg" "faults-$suite" 600 "$python" tests/faults/run.py "build/$leg" "$suite"
  done
}

# fuzz_suites LEG [EMULATOR...]: what fuzzing has found, run again.
fuzz_suites() {
  local leg=$1 target
  shift
  for target in "${FUZZ_TARGETS[@]}"; do
    run_suite "$leg" "fuzz-$target" 600 env "PYTHONPATH=$(fuzz_python "$leg" "$target")" \
      "$@" "build/$leg/bin/vu_replay_$target" "tests/fuzz/corpus/$target"
  done
}

leg_host() {
  python_suites host /usr/bin/python3
  pytest_suite host machines /usr/bin/python3
  pytest_suite host server /usr/bin/python3
  store_suites host
  fuzz_suites host
  faults_suites host /usr/bin/python3 calls memory slopes platform platform_slopes
  pytest_suite host tool /usr/bin/python3
  pytest_suite host docs /usr/bin/python3
  run_suite host build 600 /usr/bin/python3 tests/build/run.py build/host
}

leg_armhf() {
  python_suites armhf "$SYSROOT_PYTHON"
  faults_suites armhf "$SYSROOT_PYTHON" slopes
  store_suites armhf qemu-arm -L "$SYSROOT"
  fuzz_suites armhf qemu-arm -L "$SYSROOT"
  # A process of this machine and one of that on one server.
  [ -e build/host/python/contract_vu.py ] || build_preset host src/all platform/all tests/contract/all
  run_suite armhf machines 300 env "PYTHONPATH=$PWD/build/host/python" \
    "VU_OTHER_MACHINE=env PYTHONPATH=$PWD/build/armhf/python $SYSROOT_PYTHON" \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/machines
  run_suite armhf build 600 /usr/bin/python3 tests/build/run.py build/armhf
}

# Python itself is not sanitized: the sanitizers' run-time libraries are loaded before it.
leg_asan() {
  local runtime=() name
  for name in libasan.so libubsan.so libstdc++.so; do
    runtime+=("$(readlink -f "$(g++ -print-file-name="$name")")")
  done
  export ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1
  # The host runs four times as many examples of the state machine.
  VU_MACHINE_EXAMPLES=100 python_suites asan env "LD_PRELOAD=${runtime[*]}" PYTHONMALLOC=malloc /usr/bin/python3
  store_suites asan
  PYTHONMALLOC=malloc fuzz_suites asan
}

# Total reference counts, which only this interpreter has.
leg_debug() {
  run_suite debug binding 600 /usr/bin/python3-dbg tests/binding/run.py build/debug
  faults_suites debug /usr/bin/python3-dbg calls slopes
}

verb_leg() { "leg_$1"; }

#: test [LEG...] -- build and run the tests; legs: host, armhf, asan, debug (those if none is named), packages
verb_test() {
  local leg bad=0 passed=0 failed=0 skipped=0 p f s built=()
  [ $# != 0 ] || set -- "${LEGS[@]}"
  for leg in "$@"; do
    declare -F "leg_$leg" >/dev/null || fail "no test leg '$leg'; there are: ${LEGS[*]} packages"
  done
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
  mkdir -p build/logs
  for leg in "$@"; do
    rm -f "build/logs/$leg.counts"
    if ./dev build "$leg"; then built+=("$leg"); else bad=1; fi
  done
  note "testing ${built[*]}"
  [ ${#built[@]} = 0 ] || printf '%s\n' "${built[@]}" | xargs -P "$(($(nproc) + 1))" -n 1 ./dev leg || bad=1
  for leg in "$@"; do
    local ran=0
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
