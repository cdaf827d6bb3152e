# The Debian packages: docs/packages.md.

PACKAGES_PACKAGE=(dpkg-dev file)
# Where the packages are tried.
TREES=$PWD/build/trees

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

# amd64_tree: a Debian with nothing but apt in it, and the packages and their tests in /srv.
amd64_tree() {
  local tree=$TREES/amd64
  mkdir -p "$TREES"
  as_root timeout --kill-after=10 15m mmdebstrap --quiet --mode=root --variant=apt \
    bookworm "$tree" "$(debian_source)" </dev/null
  as_root mkdir -p "$tree/srv/packages" "$tree/srv/tests" "$tree/srv/examples"
  as_root cp build/packages/*_amd64.deb "$tree/srv/packages"
  as_root cp -r tests/packages "$tree/srv/tests"
  as_root cp -r examples/hello "$tree/srv/examples"
  as_root cp /etc/resolv.conf "$tree/etc/resolv.conf"
}

# In a tree, apt runs as it does for a user who answers no questions.
APT="apt-get -qq -y -o Dpkg::Use-Pty=0 --no-install-recommends"

# amd64_suite SUITE COMMAND: in the shell of the tree.
amd64_suite() {
  local inside=(unshare --mount sh -c
    'mount --rbind /proc "$0/proc" && exec chroot "$0" env -i LC_ALL=C.UTF-8 HOME=/srv VU_PREFIX=/usr \
       DEBIAN_FRONTEND=noninteractive PATH=/usr/sbin:/usr/bin:/sbin:/bin sh -ec "cd /srv; $1"')
  [ "$(id -u)" = 0 ] || inside=(sudo "${inside[@]}")
  run_suite packages "amd64-$1" 1200 "${inside[@]}" "$TREES/amd64" "$2"
}

# leg_packages: the packages of `./dev package` in trees that have nothing else of ours.
leg_packages() {
  install_packages "${PACKAGES_ARMHF[@]}"
  as_root rm -rf --one-file-system "$TREES"
  amd64_tree
  amd64_suite install "apt-get -qq update; $APT install ./packages/*.deb"
  amd64_suite runtime "python3 tests/packages/test_installed.py Runtime"
  amd64_suite tools "$APT install g++ cmake make pkg-config mypy"
  amd64_suite development "python3 tests/packages/test_installed.py Development Types"
  amd64_suite remove "$APT purge '*vu-mom*'; ! find /usr -name '*vu[_-]mom*' | grep ."
  # What apt takes the packages for the other machine from.
  (cd build/packages && dpkg-scanpackages --arch armhf . >Packages 2>/dev/null)
  armhf_tree "$TREES/armhf" "$TREES/armhf" vu-mom-dev \
    "$(debian_source)" "deb [trusted=yes] copy:$PWD/build/packages ./"
  rm build/packages/Packages
  run_suite packages armhf 600 env "VU_TREE=$TREES/armhf" \
    /usr/bin/python3 tests/packages/test_emulated.py
}
