# Measuring what things cost, beside peers.

PACKAGES_BENCH=(cython3 pybind11-dev valgrind python3-matplotlib libbenchmark-dev python3-protobuf
  python3-redis python3-hiredis redis-server)

#: bench [SUITE...] -- measure, and write docs/performance.md; suites are the directories of bench/
verb_bench() {
  install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_ARMHF[@]}" "${PACKAGES_BENCH[@]}"
  build_preset bench
  build_preset armhf src/all platform/all  # what startup counts on that target
  bench/run --build build/bench "$@"
}
