# shellcheck shell=bash
# SPDX-License-Identifier: GPL-2.0-only
# Sourced by run and test: packages, kernels to boot, and the builds. Every function says what it
# does, keeps the long output in a log, and has nothing to do when it is called again.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=$root/.cache
log=$cache/setup.log
mkdir -p "$cache"
export PATH=$PATH:/usr/sbin:/sbin PYTHONUTF8=1 PYTHONDONTWRITEBYTECODE=1

say() { printf '%s\n' "$*"; }

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# step "what is done" command...: the output goes to the log and is shown only on failure.
step() {
    local what=$1 start=$SECONDS
    shift
    printf '==> %s ... ' "$what"
    : > "$log"
    # Not as a condition: -e would be without effect inside of the command.
    local status
    set +e
    (set -e; "$@") > "$log" 2>&1
    status=$?
    set -e
    if [ $status != 0 ]; then
        printf 'failed\n'
        tail -n 40 "$log" >&2
        die "\"$what\" failed with status $status; all of its output is in $log"
    fi
    printf 'done (%s s)\n' $((SECONDS - start))
}

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        command -v sudo > /dev/null || {
            echo "packages are missing, and this is neither root nor a machine with sudo"
            return 1
        }
        sudo "$@"
    fi
}

# ---- packages -------------------------------------------------------------------------------

# shellcheck disable=SC2034 # used by run and test
# What ./run needs: compilers and headers for the module and the tool, and the machines.
packages_run=(
    make cmake g++ nlohmann-json3-dev libcli11-dev libfmt-dev libsystemd-dev
    linux-headers-cloud-amd64
    qemu-system-x86 tshark busybox-static iproute2 iputils-ping dash python3
)

# shellcheck disable=SC2034
# What ./test needs beyond that.
packages_test=(
    clang clang-format clang-tidy libclang-rt-dev llvm shellcheck
    libgtest-dev libgmock-dev librapidcheck-dev libbenchmark-dev
    linux-headers-6.12-cloud-amd64
)

missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2> /dev/null | grep -q 'ok installed' ||
            printf '%s\n' "$package"
    done
}

need_packages() {
    command -v dpkg-query > /dev/null || die "this is no Debian; the packages are: $*"
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} = 0 ] && return
    say "==> missing packages: ${missing[*]}"
    step "installing ${#missing[@]} packages" install_packages "${missing[@]}"
}

install_packages() {
    as_root apt-get -q -o Acquire::Retries=3 update
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Acquire::Retries=3 \
        -o DPkg::Lock::Timeout=300 install --no-install-recommends "$@"
}

# ---- kernels to boot ------------------------------------------------------------------------

# need_kernel NAME HEADERS: leaves .cache/kernels/NAME/{image,modules,build}. The image is the one
# of exactly the version of the installed headers; it is unpacked here and installed nowhere.
need_kernel() {
    local name=$1 headers=$2 wanted
    wanted=$(kernel_of_headers "$headers")
    [ -n "$wanted" ] || die "cannot tell which kernel the package $headers belongs to"
    if [ "$(cat "$cache/kernels/$name/version" 2> /dev/null)" != "$wanted" ]; then
        step "fetching the kernel ${wanted%% *}" fetch_kernel "$name" "$headers"
    fi
}

# "RELEASE VERSION" of the kernel that a headers meta package stands for.
kernel_of_headers() {
    dpkg-query -W -f '${Depends}\n' "$1" |
        sed -n 's/.*linux-headers-\([^ ,]*\) (= \([^)]*\)).*/\1 \2/p'
}

fetch_kernel() {
    local name=$1 headers=$2 release version new
    read -r release version < <(kernel_of_headers "$headers")
    new=$cache/kernels/$name.new
    rm -rf "$new"
    mkdir -p "$new/download"
    cd "$new/download"
    # An archive keeps old versions for a while only: when the image has gone, headers and image
    # move on together.
    if ! download_image "$release" "$version"; then
        as_root apt-get -q -o Acquire::Retries=3 update
        if ! download_image "$release" "$version"; then
            install_packages "$headers"
            read -r release version < <(kernel_of_headers "$headers")
            download_image "$release" "$version"
        fi
    fi
    dpkg-deb --fsys-tarfile ./*.deb | tar -x -C "$new" ./boot ./lib
    cd "$new"
    rm -r download
    ln -s "boot/vmlinuz-$release" image
    ln -s "lib/modules/$release" modules
    ln -s "/usr/src/linux-headers-$release" build
    test -e image && test -e modules/kernel && test -e build/Makefile
    echo "$release $version" > version
    rm -rf "${cache:?}/kernels/$name"
    mv "$new" "$cache/kernels/$name"
}

download_image() {
    apt-get -q -o Acquire::Retries=3 download "linux-image-$1-unsigned=$2"
}

# ---- builds ---------------------------------------------------------------------------------

# need_modules NAME KDIR: ipfc.ko and brim_platform.ko for one kernel, in out/NAME.
need_modules() {
    local name=$1 kdir=$2 out=$root/out/$1 kernel
    kernel=$(cat "$kdir/include/config/kernel.release" 2> /dev/null) ||
        die "$kdir is no kernel build tree"
    if [ "$(cat "$out/.built" 2> /dev/null)" = "$kernel" ] && ! newer_sources "$out/.built"; then
        return
    fi
    step "building the modules for $kernel" build_modules "$kdir" "$out" "$kernel"
}

# Folders count too: their time tells of files that came or went.
newer_sources() {
    find "$root/include" "$root/infra/kspace" "$root/scripts/build-modules" -newer "$1" | grep -q .
}

build_modules() {
    mkdir -p "$2"
    rm -f "$2/.built"
    # Dated before the build: a source that changes during it counts as newer.
    echo "$3" > "$2/.building"
    "$root/scripts/build-modules" --kdir "$1" --out "$2"
    test -s "$2/ipfc.ko" && test -s "$2/brim_platform.ko"
    mv "$2/.building" "$2/.built"
}

# The administrator's tool, in build/.
need_tool() {
    step "building ipfcctl and ipfc-resolverd" build_tool
}

build_tool() {
    if [ ! -e "$root/build/CMakeCache.txt" ]; then
        # The compiler's time matters more here than the program's.
        cmake -S "$root" -B "$root/build" -DIPFC_TESTS=OFF \
            -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -DNDEBUG"
    fi
    cmake --build "$root/build" --target ipfcctl ipfc-resolverd -j "$(nproc)"
}

kernel_build_tree() {
    if [ "$1" = extra ]; then
        printf '%s\n' "$IPFC_KERNEL_BUILD"
    else
        printf '%s\n' "$cache/kernels/$1/build"
    fi
}
