#!/usr/bin/env bash
# run-desktops-suite.sh PROGRAM: as run-suite.sh, for suites that start whole desktops. Those do not run as root: where
# root runs this, the suite runs under a user made for it, who is removed at the end with every process and file.
set -u -o pipefail
scripts="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
[[ $EUID -ne 0 ]] && exec "$scripts/run-suite.sh" "$1"

build="$(cd "$(dirname "$1")" && pwd)" || exit 1
suite="$(basename "$1")"
user="nimbrale-$$"
home="$(mktemp -d /tmp/nimbrale-user-XXXXXX)" || exit 1

# What the suite says of its files is true of where they are kept.
with_lasting_paths() {
    sed -u "s|$home/build|$build|g"
}

# What the user's processes are, is asked again until none is left; by id.
end_processes() {
    local signal processes
    for signal in TERM TERM TERM KILL KILL; do
        processes="$(ps -o pid= -u "$user" | tr '\n' ' ')"
        [[ -z ${processes// /} ]] && return
        # Some end by themselves meanwhile.
        # shellcheck disable=SC2086
        kill -s "$signal" $processes 2>/dev/null
        sleep 1
    done
}

remove_user() {
    # Whoever is in a hurry waits for this.
    trap '' INT TERM HUP
    end_processes
    mkdir -p "$build/test-results" "$build/test-output"
    with_lasting_paths <"$home/build/test-results/$suite.log" >"$build/test-results/$suite.log"
    [[ -d $home/build/test-output ]] && cp "$home/build/test-output/"* "$build/test-output"
    find /tmp -xdev -user "$user" -delete 2>/dev/null
    userdel "$user"
    rm -rf "$home"
}

useradd --home-dir "$home" --no-create-home --user-group --shell /usr/sbin/nologin "$user" || exit 1
trap remove_user EXIT
trap 'exit 1' INT TERM HUP

# The folder that was built may be one that only root may look into.
mkdir "$home/build" "$home/tmp"
mkdir -m 700 "$home/run"
cp "$scripts/run-suite.sh" "$home/build"
for file in "$suite" nimbrale nimbrale-caretaker nimbrale-encoder-probe nimbrale.desktop nimbrale_scene nimbrale_gtk_window \
    nimbrale_session_leader; do
    cp "$build/$file" "$home/build" || exit 1
done
chown -R "$user:$user" "$home"

setpriv --reuid "$user" --regid "$user" --init-groups --inh-caps=-all \
    env HOME="$home" USER="$user" LOGNAME="$user" TMPDIR="$home/tmp" XDG_RUNTIME_DIR="$home/run" \
    PATH=/usr/local/bin:/usr/bin:/bin \
    "$home/build/run-suite.sh" "$home/build/$suite" > >(with_lasting_paths) 2>&1 &
wait $!
