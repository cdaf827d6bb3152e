# The Debian packages: docs/packages.md.

PACKAGES_PACKAGE=(dpkg-dev file)

# package_leg ARCHITECTURE: the preset that is built for it.
package_leg() {
  case $1 in
    amd64) echo host ;;
    armhf) echo armhf ;;
    *) fail "no packages are made for '$1'; there are: amd64, armhf" ;;
  esac
}

# make_packages ARCHITECTURE: in build/packages, of what is built for it.
make_packages() {
  local arch=$1 leg made log=build/logs/package-$1.log environment=()
  leg=$(package_leg "$arch")
  # dpkg's database of the machine that the packages are for.
  [ "$arch" != armhf ] || environment=("DPKG_ADMINDIR=$SYSROOT/.dpkg" DEB_HOST_ARCH=armhf)
  made=build/$leg/packages
  rm -rf "$made"
  mkdir -p build/packages build/logs
  env "${environment[@]}" cpack --config "build/$leg/CPackConfig.cmake" -B "$made" >"$log" 2>&1 ||
    { tail -n 50 "$log" >&2; fail "making the packages failed; the whole log is in $log"; }
  rm -f build/packages/*_"$arch".deb
  mv "$made"/*.deb build/packages
  rm -rf "$made"
}

#: package [amd64|armhf] -- make the Debian packages, in build/packages (both if none is named)
verb_package() {
  local arch
  [ $# != 0 ] || set -- amd64 armhf
  for arch in "$@"; do package_leg "$arch" >/dev/null; done
  install_packages "${PACKAGES_PACKAGE[@]}"
  for arch in "$@"; do
    install_for "$(package_leg "$arch")"
    build_preset "$(package_leg "$arch")" src/all platform/all
    make_packages "$arch"
  done
  ls build/packages
}
