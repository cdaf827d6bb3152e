# Configuring and building the presets of CMakePresets.json.

# Longest time that one build may take.
BUILD_LIMIT=30m

# build_preset PRESET [TARGET...]: configures build/PRESET and builds all or the targets.
build_preset() {
  local preset=$1 log=build/logs/build-$1.log start=$SECONDS target=()
  shift
  [ $# = 0 ] || target=(--target "$@")
  mkdir -p build/logs
  if [ "$preset" = armhf ]; then
    make_sysroot
    build_preset host protoc-gen-vu
  fi
  echo "-- building $preset${*:+ ($*)}"
  # The sanitized tools that run during a build are not looked over for leaks.
  if ! {
    cmake --preset "$preset" &&
      ASAN_OPTIONS=detect_leaks=0 timeout --kill-after=10 "$BUILD_LIMIT" \
        cmake --build --preset "$preset" "${target[@]}"
  } >"$log" 2>&1 </dev/null; then
    grep -E -A 12 'error|FAILED|CMake Error' "$log" | head -n 200 >&2 || tail -n 50 "$log" >&2
    fail "building $preset failed; the whole log is in $log"
  fi
  echo "   done in $((SECONDS - start)) s"
}

# install_for PRESET: the packages that building it needs.
install_for() {
  case $1 in
    armhf) install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_ARMHF[@]}" ;;
    debug) install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_DEBUG[@]}" ;;
    *) install_packages "${PACKAGES_BUILD[@]}" ;;
  esac
}

#: build [PRESET...] -- build host, armhf, asan or debug (host if none is named)
verb_build() {
  local preset
  for preset in "${@:-host}"; do
    if [ "$preset" = packages ]; then
      verb_package
    else
      install_for "$preset"
      build_preset "$preset"
    fi
  done
}
