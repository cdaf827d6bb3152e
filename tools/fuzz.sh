# Fuzzing with libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer: tests/fuzz.
#
# Inputs are kept in tests/fuzz/corpus/TARGET, which the tests replay. What a run finds to be
# new goes to build/fuzz/corpus/TARGET, what it finds to be wrong to build/fuzz/found/TARGET.

PACKAGES_FUZZ=(clang-14 libclang-rt-14-dev)
FUZZ_TARGETS=(engine messages descriptors arguments)

# fuzz_python LEG TARGET: where the target's interpreter finds its modules.
fuzz_python() {
  local build=$PWD/build/$1 tests=$PWD/tests
  case $2 in
    arguments) echo "$build/tests/binding/python:$tests/fuzz:$tests/binding" ;;
    *) echo "$build/python:$tests/fuzz" ;;
  esac
}

# fuzz_length TARGET: the longest input. Many small ones find more than few large ones.
fuzz_length() {
  case $1 in
    descriptors) echo 96 ;;
    *) echo 40 ;;
  esac
}

# fuzz_run TARGET ARGUMENT...: the target, with what makes the sanitizers quick enough.
fuzz_run() {
  local target=$1 asan
  shift
  asan=detect_leaks=0:quarantine_size_mb=1:malloc_context_size=1:max_malloc_fill_size=32
  asan+=:max_redzone=16:allocator_may_return_null=1
  env ASAN_OPTIONS="$asan" UBSAN_OPTIONS=print_stacktrace=1 PYTHONMALLOC=malloc \
    "PYTHONPATH=$(fuzz_python fuzz "$target")" "build/fuzz/bin/vu_fuzz_$target" \
    -entropic=0 -detect_leaks=0 -use_memmem=0 "-max_len=$(fuzz_length "$target")" "$@"
}

#: fuzz [TARGET...] [RUNS] -- fuzz engine, messages, descriptors, arguments (all; 1000000 runs each)
verb_fuzz() {
  local targets=() runs=1000000 target left part at log total
  for target in "$@"; do
    case $target in
      *[!0-9]*) targets+=("$target") ;;
      *) runs=$target ;;
    esac
  done
  [ ${#targets[@]} != 0 ] || targets=("${FUZZ_TARGETS[@]}")
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_FUZZ[@]}"
  build_preset fuzz "${FUZZ_TARGETS[@]/#/vu_fuzz_}" vu_binding_tests \
    vu_message vu_message_files vu_message_test_protos
  mkdir -p build/logs
  for target in "${targets[@]}"; do
    [ -x "build/fuzz/bin/vu_fuzz_$target" ] || fail "no target '$target'; there are: ${FUZZ_TARGETS[*]}"
    note "$target: $runs runs"
    mkdir -p "build/fuzz/corpus/$target" "build/fuzz/found/$target"
    log=build/logs/fuzz-$target.log
    left=$runs total=0
    while [ "$left" -gt 0 ]; do
      part=$left
      # Types that were accepted stay for the life of a process.
      [ "$target" != descriptors ] || [ "$part" -le 100000 ] || part=100000
      if ! fuzz_run "$target" "-runs=$part" -timeout=20 -rss_limit_mb=3000 -print_final_stats=1 \
        "-artifact_prefix=build/fuzz/found/$target/" "build/fuzz/corpus/$target" \
        "tests/fuzz/corpus/$target" >"$log" 2>&1; then
        tail -n 60 "$log"
        fail "$target has found something; the input is in build/fuzz/found/$target"
      fi
      at=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
      total=$((total + at)) left=$((left - at))
    done
    echo "$total inputs, nothing found"
  done
}

#: corpus [TARGET...] -- make tests/fuzz/corpus anew, small, out of itself and what fuzzing has found
verb_corpus() {
  local target old
  [ $# != 0 ] || set -- "${FUZZ_TARGETS[@]}"
  for target in "$@"; do
    old=build/fuzz/corpus.old/$target
    rm -rf "$old"
    mkdir -p "$(dirname "$old")" "build/fuzz/corpus/$target"
    mv "tests/fuzz/corpus/$target" "$old"
    mkdir -p "tests/fuzz/corpus/$target"
    # One input for each branch, however often it is taken.
    fuzz_run "$target" -merge=1 -use_counters=0 "tests/fuzz/corpus/$target" "$old" \
      "build/fuzz/corpus/$target" 2>&1 | tail -n 1
  done
}
