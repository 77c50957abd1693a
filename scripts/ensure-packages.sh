# Sourced by the build scripts: ensure_packages PKG... installs the Debian
# packages that are missing (apt-get update runs once, only when needed).
ensure_packages() {
    local missing=()
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing Debian packages: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

BUILD_PACKAGES=(g++ cmake ninja-build ccache pkgconf binutils)
TEST_PACKAGES=(googletest libgtest-dev libbenchmark-dev clang libclang-rt-14-dev zlib1g-dev libisal-dev
    libdouble-conversion-dev libfast-float-dev libfmt-dev)
