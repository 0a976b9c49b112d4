#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes the Debian packages of the build in $1 and looks at them; then unpacks them into an empty root,
# and builds and runs the examples there. The other arguments are for a cross build: the toolchain file
# and the emulator.
set -eu
build=$1
toolchain=${2:-}
shift $(($# > 1 ? 2 : 1))
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck source=tests/package/examples.sh
. "$(dirname "$0")/examples.sh"

(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/packages") >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log" >&2 && exit 1; }

root=$work/root
names=
for package in "$work"/packages/*.deb; do
    name=$(dpkg-deb -f "$package" Package)
    names="$names $name"
    depends=$(dpkg-deb -f "$package" Depends)
    case $name in
    libkova1 | libkova-fr1 | libkova-mpi-host1) wanted='libc6 (>= ' ;;
    libkova-find1 | libkova-fr-dev | kova-fr) wanted='libkova-fr1 (= ' ;;
    *) fail "$name: nobody knows this package" ;;
    esac
    case $depends in
    *"$wanted"*) ;;
    *) fail "$name depends on '$depends', not on '$wanted'" ;;
    esac
    # On this machine the library loads by itself, on a camera the stand-in has no business.
    case $name,$depends in
    libkova1,*'libkova-mpi-host1 (= '* | libkova-fr1,*'libkova-mpi-host1 (= '*) [ -z "$toolchain" ] || fail "$name depends on the stand-in" ;;
    libkova1,* | libkova-fr1,*) [ -n "$toolchain" ] || fail "$name depends on '$depends', not on the stand-in" ;;
    esac
    dpkg-deb -c "$package" | awk '!/\/$/ { print $6 }' >"$work/contents"
    for document in copyright changelog.gz; do
        grep -q "^\./usr/share/doc/$name/$document\$" "$work/contents" ||
            fail "$name has no $document"
    done
    if [ "$name" = kova-fr ]; then
        grep -q '^\./usr/share/man/man1/kova-fr\.1\.gz$' "$work/contents" || fail "$name has no manual page"
    fi
    cat "$work/contents" >>"$work/files"
    dpkg-deb -x "$package" "$root"
done
for name in libkova1 libkova-fr1 libkova-find1 libkova-mpi-host1 libkova-fr-dev; do
    case "$names " in
    *" $name "*) ;;
    *) fail "$name was not made, only$names" ;;
    esac
done
twice=$(sort "$work/files" | uniq -d)
[ -z "$twice" ] || fail "several packages have $twice"

# Debian's own checks. They are not for programs that somebody else built for another machine. A build that is
# not for /usr has its pkg-config files in a folder that is not one machine's alone, as it has its libraries.
if command -v lintian >/dev/null && [ -z "$toolchain" ]; then
    known=
    ! grep -q '^\./usr/lib/pkgconfig/' "$work/files" ||
        known="--suppress-tags pkg-config-unavailable-for-cross-compilation"
    # shellcheck disable=SC2086 # nothing, or two words
    lintian --fail-on error,warning $known "$work"/packages/*.deb >"$work/lintian" 2>&1 ||
        { cat "$work/lintian" >&2 && fail "lintian complains"; }
    echo "lintian has nothing to say against them"
fi
for package in "$work"/packages/*.deb; do
    # The trigger calls ldconfig once for all of them.
    scripts=$(dpkg-deb --ctrl-tarfile "$package" | tar -t | grep -E '/(post|pre)(inst|rm)$' || true)
    [ -z "$scripts" ] || fail "$package has scripts: $scripts"
    case $(dpkg-deb -f "$package" Section) in
    libs) dpkg-deb --ctrl-tarfile "$package" | tar -xO ./triggers 2>/dev/null | grep -qx 'activate-noawait ldconfig' || fail "$package has no trigger" ;;
    esac
done

# The packages are named after what programs ask for, and made for the machine that the code is for.
architecture=$(dpkg-deb -f "$(echo "$work"/packages/libkova-fr1_*.deb)" Architecture)
readelf -d "$(find "$root" -name libkova.so.1)" | grep -q 'SONAME.*\[libkova\.so\.1\]' ||
    fail "libkova's SONAME is wrong"
library=$(find "$root" -name libkova_fr.so.1)
readelf -d "$library" | grep -q 'SONAME.*\[libkova_fr\.so\.1\]' || fail "libkova_fr's SONAME is wrong"
readelf -h "$library" >"$work/header"
case $architecture in
amd64) grep -q 'Machine:.*X86-64' "$work/header" ;;
arm64) grep -q 'Machine:.*AArch64' "$work/header" ;;
armel)
    # softfp: armel's calling convention, not armhf's
    grep -q 'Machine:.*ARM' "$work/header" && ! grep -q 'hard-float ABI' "$work/header" &&
        ! readelf -A "$library" | grep -q 'Tag_ABI_VFP_args'
    ;;
*) echo "no check for the code of $architecture" ;;
esac || fail "the code in libkova-fr1 is not for $architecture"

package_dir=$(dirname "$(find "$root" -name orvo_fr-config.cmake)")
if [ -n "$toolchain" ]; then
    build_with_cmake "$work/examples" -Dorvo_fr_DIR="$package_dir" -DCMAKE_TOOLCHAIN_FILE="$toolchain"
else
    build_with_cmake "$work/examples" -Dorvo_fr_DIR="$package_dir"
fi
make_pictures "$(find "$root" -name libkova_fr.a)"
if [ -x "$root/usr/bin/kova-fr" ]; then
    wanted=$(wanted_distance "$root/usr/bin/kova-fr" b.pgm)
else
    # The command line is not made in a cross build: one example says what the other has to.
    wanted=$("$@" "$work/examples/plain_memory" "$work/a.pgm" "$work/b.pgm")
fi
expect "$wanted" b.pgm "$@" "$work/examples/face_distance"
expect "$wanted" b.pgm "$@" "$work/examples/plain_memory"
"$@" "$work/examples/find_faces" "$work/a.pgm" | grep -q '^[0-9][0-9]* found$' ||
    fail "find_faces does not run"
echo "$architecture:$names: the examples run against them"
