# Shared set-up of scripts/run and scripts/test: Debian packages, configure, build.
# Sourced, not run.

ZQ_PACKAGES=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-private-dev libqt6opengl6-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools libgl-dev
    libplist-dev libglib2.0-dev
    libbenchmark-dev
    python3 desktop-file-utils appstream dpkg-dev file lintian clang-format clang-tidy-16
    xvfb xauth x11-utils xdotool imagemagick strace
    libxcb1-dev openbox python3-xlib dbus python3-pyatspi
    systemd sway qt6-wayland
)

zq_missing_packages() {
    local package
    for package in "${ZQ_PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed$' \
            || printf '%s\n' "$package"
    done
}

zq_install_packages() {
    if ! command -v dpkg-query >/dev/null 2>&1; then
        echo "This set-up needs a Debian system (dpkg and apt-get); install the equivalents of: ${ZQ_PACKAGES[*]}" >&2
        return 1
    fi
    local missing
    mapfile -t missing < <(zq_missing_packages)
    [ ${#missing[@]} -eq 0 ] && return 0

    local -a sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null 2>&1; then
            echo "Missing packages: ${missing[*]}" >&2
            echo "Run as root, or install sudo, or install them yourself: apt-get install ${missing[*]}" >&2
            return 1
        fi
        sudo=(sudo)
        if [ ! -t 0 ] && ! sudo -n true 2>/dev/null; then
            echo "Missing packages: ${missing[*]}" >&2
            echo "sudo needs a password and there is no terminal to ask for it. Run: sudo apt-get install ${missing[*]}" >&2
            return 1
        fi
    fi
    echo "Installing missing Debian packages: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -q \
        && "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}" || {
        echo "Could not install: ${missing[*]}" >&2
        return 1
    }
}

zq_build() {
    local preset=$1
    cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset"
}
