# Debian packages: what the project needs, and installing what is missing.

PACKAGES_BUILD=(g++ cmake ninja-build pkg-config python3 python3-dev
  protobuf-compiler libprotobuf-dev libprotoc-dev libabsl-dev libuv1-dev libhiredis-dev
  libgtest-dev)
PACKAGES_TEST=(binutils mypy python3-pytest python3-hypothesis python3-protobuf redis-server)
PACKAGES_DEBUG=(python3-dbg libpython3-dbg)
PACKAGES_ARMHF=(g++-arm-linux-gnueabihf qemu-user mmdebstrap)

# note TEXT: a heading for the person who watches.
note() { printf '\n== %s\n' "$1"; }

# fail TEXT: an error that ends the command.
fail() {
  echo "dev: $1" >&2
  exit 1
}

# as_root COMMAND...: through sudo where the user is not root.
as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# install_packages NAME...: makes sure of them; silent and quick where all are there.
install_packages() {
  command -v dpkg-query >/dev/null || fail "this is not Debian; needed here: $*"
  local missing
  missing=$(comm -23 <(printf '%s\n' "$@" | sort -u) \
    <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null |
      sed -n 's/^installed //p' | sort -u))
  [ -n "$missing" ] || return 0
  missing=${missing//$'\n'/ }
  [ "$(id -u)" = 0 ] || command -v sudo >/dev/null ||
    fail "there is no sudo here; as root, run: apt-get install --no-install-recommends $missing"
  note "installing Debian packages: $missing"
  as_root apt-get -qq update </dev/null
  # shellcheck disable=SC2086  # one word per package
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends \
    install $missing </dev/null >/dev/null
}
