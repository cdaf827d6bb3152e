# The 32-bit ARM sysroot: a Debian tree to compile against and to run programs in with
# qemu-arm. Made from Debian packages alone, without root, binfmt or a chroot.

SYSROOT=$PWD/build/sysroot/armhf
SYSROOT_PACKAGES=python3.11,libpython3-dev,python3-pytest,python3-hypothesis,python3-protobuf
SYSROOT_PACKAGES+=,libstdc++6,libprotobuf-dev,libprotoc-dev,libabsl-dev,libuv1-dev,libhiredis-dev,libgtest-dev
SYSROOT_PYTHON=$SYSROOT/usr/bin/python3-armhf

# debian_mirror: where this machine gets Debian bookworm from.
debian_mirror() {
  local mirror
  mirror=$(apt-get indextargets --format '$(CREATED_BY) $(RELEASE) $(COMPONENT) $(REPO_URI)' \
    2>/dev/null | sed -n 's/^Packages bookworm main //p' | head -n 1)
  echo "${mirror:-http://deb.debian.org/debian}"
}

# sysroot_database TREE PLACE: in TREE/.dpkg, dpkg's database of the libraries in TREE as they are
# seen from here when TREE is in PLACE. With it dpkg-shlibdeps knows what packages for that machine
# depend on.
sysroot_database() {
  local tree=$1 place=$2 deb name file
  mkdir -p "$tree/.dpkg/info"
  for deb in "$tree"/var/cache/apt/archives/*.deb; do
    dpkg-deb --info "$deb" shlibs >/dev/null 2>&1 || continue
    name=$(dpkg-deb --field "$deb" Package)
    dpkg-deb --field "$deb" >>"$tree/.dpkg/status"
    printf 'Status: install ok installed\n\n' >>"$tree/.dpkg/status"
    dpkg-deb --fsys-tarfile "$deb" | tar -t | sed "s|^\.|$place|; s|/\$||" >"$tree/.dpkg/info/$name.list"
    for file in shlibs symbols; do
      dpkg-deb --info "$deb" $file >"$tree/.dpkg/info/$name.$file" 2>/dev/null ||
        rm "$tree/.dpkg/info/$name.$file"
    done
  done
}

# debian_source: the line of that in a sources.list. The release as it was published, without
# updates: every mirror has it for every architecture.
debian_source() {
  echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $(debian_mirror) bookworm main"
}

# armhf_tree TREE PLACE PACKAGES SOURCE...: a tree of these packages and what they depend on, to be
# used in PLACE.
armhf_tree() {
  local work=$1 place=$2 packages=$3
  shift 3
  mkdir -p "$(dirname "$work")"
  timeout --kill-after=10 15m mmdebstrap --quiet --mode=chrootless --arch=armhf \
    --variant=extract --skip=cleanup/apt --include="$packages" bookworm "$work" "$@" </dev/null
  sysroot_database "$work" "$place"
  # Programs that qemu-arm runs see these directories of the machine, not of the tree.
  rm -rf "${work:?}"/{tmp,dev,var,etc,run,proc,sys}
  find "$work" -type l -lname '/*' -print0 |
    while IFS= read -r -d '' link; do
      ln -sfnr "$work$(readlink "$link")" "$link"
    done
  find "$work" -xtype l -delete
  # Static: it must start with a guest's LD_PRELOAD in its environment.
  gcc -static -O2 -Wall -Wextra -Werror -o "$work/usr/bin/python3-armhf" tools/run_armhf_python.c
}

# make_sysroot: makes the tree, unless it is there and made the way it would be now.
make_sysroot() {
  local stamp work=$SYSROOT.new
  stamp=$(cat tools/sysroot.sh tools/run_armhf_python.c | sha256sum)
  [ "$(cat "$SYSROOT/.stamp" 2>/dev/null)" != "$stamp" ] || return 0
  note "making the armhf sysroot in $SYSROOT from $(debian_mirror)"
  rm -rf "$SYSROOT" "$work"
  armhf_tree "$work" "$SYSROOT" "$SYSROOT_PACKAGES" "$(debian_source)"
  # Its Python would otherwise compile its library again at every start.
  /usr/bin/python3.11 -m compileall -q "$work/usr/lib/python3.11" \
    "$work/usr/lib/python3/dist-packages" >/dev/null
  echo "$stamp" >"$work/.stamp"
  mv "$work" "$SYSROOT"
}

#: sysroot -- make the 32-bit ARM sysroot that the armhf preset needs
verb_sysroot() {
  install_for armhf
  make_sysroot
  echo "$SYSROOT: $(du -sh "$SYSROOT" | cut -f 1)"
}
