#!/usr/bin/env bash
# check_package.sh BUILD_DIR STEP: makes the .deb from the build with cpack
# into BUILD_DIR/package-check (STEP make), or checks one thing about the one
# made there (STEP):
#   contents   dpkg -c lists the binary, the headset check and its udev rule,
#              the desktop file, the icon at every size of the icon theme and
#              the scalable one, the metainfo, both launcher files and the
#              copyright and changelog, and nothing outside /usr; the PNGs
#              have the size of their folder, the udev rule names the check
#              where the package puts it
#   depends    the control file's Depends holds the libraries dpkg-shlibdeps
#              found (Qt, libre, PulseAudio) and the QML modules named by
#              hand, each a package the archive knows
#   lintian    lintian reports no error (its warnings are printed)
#   validate   desktop-file-validate and appstreamcli validate (--no-net:
#              the screenshots' addresses are not fetched) pass on the files
#              as packaged
#   installed  dpkg -i into a private root (its own dpkg database; the
#              libraries it depends on are the machine's, hence
#              --force-depends): dpkg records the package as installed, and
#              the installed binary, started from there on a private session
#              bus with a private Secret Service, answers on D-Bus and reads
#              German on a German desktop. What this does not prove is that
#              apt would install it on a bare system: the "depends" step
#              checks only that its dependencies name real packages.
set -euo pipefail

build=$1
step=$2
work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${pids[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

out=$build/package-check
if [ "$step" = make ]; then
    # The package, made from this build as ./run package makes it.
    rm -rf "$out"
    (cd "$build" && cpack -G DEB -B "$out" >"$work/cpack.log" 2>&1) || {
        cat "$work/cpack.log"
        fail "cpack did not make the package"
    }
fi
deb=$(find "$out" -maxdepth 1 -name 'velnor-rz_*.deb' | head -n 1)
[ -n "$deb" ] || fail "no velnor-rz_*.deb in $out"
echo "package: $(basename "$deb"), $(stat -c %s "$deb") bytes"

sizes=(16 22 24 32 48 64 128 256 512)

contents() {
    local listing
    listing=$(dpkg -c "$deb" | awk '{print $6}' | sed 's|^\./|/|')
    echo "$listing"
    local expected=(
        /usr/bin/velnor-rz
        /usr/libexec/velnor-rz/velnor-rz-headset-check
        /usr/lib/udev/rules.d/70-velnor-rz-headsets.rules
        /usr/share/applications/net.velnor.rz.desktop
        /usr/share/metainfo/net.velnor.rz.metainfo.xml
        /usr/share/gnome-shell/search-providers/net.velnor.rz.search-provider.ini
        /usr/share/krunner/dbusplugins/net.velnor.rz-runner.desktop
        /usr/share/icons/hicolor/scalable/apps/net.velnor.rz.svg
        /usr/share/doc/velnor-rz/copyright
        /usr/share/doc/velnor-rz/changelog.gz
        /usr/share/man/man1/velnor-rz.1.gz
    )
    for size in "${sizes[@]}"; do
        expected+=("/usr/share/icons/hicolor/${size}x${size}/apps/net.velnor.rz.png")
    done
    for path in "${expected[@]}"; do
        grep -qxF "$path" <<<"$listing" || fail "the package lacks $path"
    done
    local outside
    outside=$(grep -v -e '^/$' -e '^/usr/' -e '^/usr$' <<<"$listing" || true)
    [ -z "$outside" ] || fail "the package places files outside /usr: $outside"
    # Nothing of the tests or the development server.
    ! grep -q -e test -e devserver <<<"$listing" || fail "the package holds test files"

    local root=$work/root
    dpkg-deb -x "$deb" "$root"
    for size in "${sizes[@]}"; do
        local png=$root/usr/share/icons/hicolor/${size}x${size}/apps/net.velnor.rz.png
        file "$png" | grep -q "PNG image data, $size x $size," ||
            fail "the ${size} px icon is $(file -b "$png")"
    done
    local check
    check=$(sed -n 's/.*PROGRAM="\([^ ]*\) .*/\1/p' "$root/usr/lib/udev/rules.d/70-velnor-rz-headsets.rules")
    [ "$check" = /usr/libexec/velnor-rz/velnor-rz-headset-check ] ||
        fail "the udev rule runs '$check'"
}

depends() {
    local depends
    depends=$(dpkg-deb -f "$deb" Depends)
    echo "Depends: $depends"
    echo "Recommends: $(dpkg-deb -f "$deb" Recommends)"
    for name in libqt6core6 libqt6quick6 libqt6dbus6 libre libpulse0 libebook-1.2 \
        qml6-module-qtquick-controls qml6-module-qtqml-workerscript libqt6svg6; do
        grep -q "\b$name" <<<"$depends" || fail "Depends lacks $name"
    done
    # Each package named, first of each alternative, is one the archive has
    # (or one that packages of it provide, as qt6-websockets-abi).
    local names known
    names=$(tr ',' '\n' <<<"$depends" | sed 's/|.*//; s/(.*//; s/[[:space:]]//g' | grep -v '^$' |
        sort -u)
    # shellcheck disable=SC2086 # one name a word
    known=$(apt-cache show --no-all-versions $names 2>/dev/null | sed -n 's/^Package: //p')
    for name in $names; do
        grep -qxF "$name" <<<"$known" && continue
        apt-cache showpkg "$name" 2>/dev/null | sed -n '/^Reverse Provides:/,$p' | sed 1d |
            grep -q . || fail "Depends names $name, which no archive has"
    done
}

run_lintian() {
    local out status=0
    out=$(lintian --fail-on error --tag-display-limit 0 "$deb" 2>&1) || status=$?
    echo "$out"
    if grep -q '^E: ' <<<"$out" || [ $status -ne 0 ]; then
        fail "lintian reports errors (status $status)"
    fi
}

validate() {
    local root=$work/root
    dpkg-deb -x "$deb" "$root"
    desktop-file-validate "$root/usr/share/applications/net.velnor.rz.desktop" ||
        fail "desktop-file-validate rejects the desktop file"
    desktop-file-validate "$root/usr/share/krunner/dbusplugins/net.velnor.rz-runner.desktop" ||
        fail "desktop-file-validate rejects the KRunner file"
    appstreamcli validate --no-net "$root/usr/share/metainfo/net.velnor.rz.metainfo.xml" ||
        fail "appstreamcli rejects the metainfo"
}

installed() {
    local root=$work/root
    mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
    touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
    dpkg --root="$root" --force-depends --log=/dev/null -i "$deb" ||
        fail "dpkg -i into $root failed"
    dpkg --root="$root" -s velnor-rz | grep -q '^Status: install ok installed' ||
        fail "dpkg does not record velnor-rz as installed"
    [ -x "$root/usr/bin/velnor-rz" ] || fail "no binary after dpkg -i"

    # A home, a session bus and a Secret Service of the app's own.
    local home=$work/home
    mkdir -p "$home"/{config,cache,data,runtime}
    chmod 700 "$home/runtime"
    export HOME=$home XDG_CONFIG_HOME=$home/config XDG_CACHE_HOME=$home/cache
    export XDG_DATA_HOME=$home/data XDG_RUNTIME_DIR=$home/runtime
    unset XDG_CURRENT_DESKTOP DESKTOP_SESSION DISPLAY WAYLAND_DISPLAY
    dbus-daemon --session --nofork --nopidfile --address="unix:path=$home/runtime/bus" \
        --print-address=3 3>"$work/bus-address" &
    pids+=($!)
    local tries=0
    until [ -s "$work/bus-address" ]; do
        tries=$((tries + 1))
        [ $tries -le 100 ] || fail "the session bus did not start"
        sleep 0.05
    done
    export DBUS_SESSION_BUS_ADDRESS
    DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus-address")
    printf 'test' | gnome-keyring-daemon --foreground --unlock --components=secrets \
        >"$work/keyring.log" 2>&1 &
    pids+=($!)
    gdbus wait --session --timeout 10 org.freedesktop.secrets ||
        fail "the Secret Service did not start"

    # The installed binary, on a German desktop.
    cd "$work"
    LANG=de_DE.UTF-8 LANGUAGE=de QT_QPA_PLATFORM=offscreen \
        "$root/usr/bin/velnor-rz" >"$work/app.log" 2>&1 &
    local app=$!
    pids+=($app)
    gdbus wait --session --timeout 30 net.velnor.rz || {
        cat "$work/app.log"
        fail "the installed app did not take net.velnor.rz on the session bus"
    }
    # It reads the Secret Service before it knows whether someone is signed
    # in: a bounded wait for that answer.
    local state tries=0
    while :; do
        state=$(gdbus call --session --dest net.velnor.rz --object-path /net/velnor/rz \
            --method org.freedesktop.DBus.Properties.Get net.velnor.rz.App State)
        [ "$state" != "(<'loading'>,)" ] && break
        tries=$((tries + 1))
        [ $tries -le 200 ] || break
        sleep 0.1
    done
    echo "State: $state"
    [ "$state" = "(<'signedOut'>,)" ] || fail "the installed app answers State $state"
    gdbus introspect --session --dest net.velnor.rz --object-path /net/velnor/rz/SearchProvider |
        grep -q org.gnome.Shell.SearchProvider2 || fail "no search provider on the bus"
    grep -q 'Texts in de' "$work/app.log" || {
        cat "$work/app.log"
        fail "the installed app did not load its German texts"
    }
    kill -TERM "$app"
    local status=0
    wait "$app" || status=$?
    [ $status -eq 0 ] || {
        cat "$work/app.log"
        fail "the installed app ended with $status on SIGTERM"
    }
}

case "$step" in
    make) ;;
    contents) contents ;;
    depends) depends ;;
    lintian) run_lintian ;;
    validate) validate ;;
    installed) installed ;;
    *) fail "no step $step" ;;
esac
echo "ok: $step"
