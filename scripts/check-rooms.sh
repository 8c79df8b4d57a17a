#!/usr/bin/env bash
# check-rooms.sh [ROOT]: whether every room includes only what the table in docs/architecture.md lets it. Prints each
# include that it does not, and ends with 1 then. A room that the table does not name may not include any other.
set -u -o pipefail
cd "${1:-$(dirname "${BASH_SOURCE[0]}")/..}" || exit 2
table=docs/architecture.md
[[ -r $table ]] || { printf 'check-rooms: no %s here\n' "$table" >&2; exit 2; }

mapfile -t sources < <(find app controls geometry platform recording region settings share ui updates webcam -name '*.cpp' -o -name '*.h' \
    2>/dev/null | sort)
awk -f <(cat <<'AWK'
    # A file that the table names is a room of its own; any other is in the room of its folder.
    function room_of(path) {
        if (!(path in allowed)) sub(/\/[^\/]*$/, "", path)
        return path
    }
    function may_include(room, other,    name, names, count, i) {
        if (room == other || other == "platform") return 1
        if (allowed[room] ~ /^(everything|all of them)$/) return 1
        count = split(allowed[room], names, /, */)
        for (i = 1; i <= count; i++)
            if (names[i] == other || "platform/" names[i] == other || "platform/x11/" names[i] == other) return 1
        return 0
    }
    FILENAME ~ /architecture\.md$/ {
        if (split($0, cells, /\|/) < 4 || cells[2] !~ /`.*`/) next
        name = cells[2]; gsub(/[` ]|\/[` ]*$/, "", name)
        rule = cells[4]; gsub(/\([^)]*\)|`/, "", rule); gsub(/^ +| +$/, "", rule); gsub(/ +,/, ",", rule)
        allowed[name] = rule
        rooms++
        next
    }
    FNR == 1 { source = FILENAME; sub(/\.[^.\/]*$/, "", source); room = room_of(source); files++ }
    /^#include "/ {
        header = $0; sub(/^#include "/, "", header); sub(/".*/, "", header); sub(/\.[^.\/]*$/, "", header)
        if (header ~ /\// && !may_include(room, room_of(header))) {
            printf "%s:%d: %s may not include %s\n", FILENAME, FNR, room, room_of(header); wrong = 1
        }
    }
    /^#include <(xcb|X11)\// && FILENAME !~ /^platform\/x11\// {
        printf "%s:%d: only platform/x11 may include %s\n", FILENAME, FNR, $2; wrong = 1
    }
    /^#include <opencv2\// && FILENAME !~ /^platform\/opencv\// {
        printf "%s:%d: only platform/opencv may include %s\n", FILENAME, FNR, $2; wrong = 1
    }
    /^#include <(pipewire|spa)\// && FILENAME !~ /^platform\/pipewire\// {
        printf "%s:%d: only platform/pipewire may include %s\n", FILENAME, FNR, $2; wrong = 1
    }
    /^#include <pulse\// && FILENAME !~ /^platform\/pulseaudio\// {
        printf "%s:%d: only platform/pulseaudio may include %s\n", FILENAME, FNR, $2; wrong = 1
    }
    /^#include <(linux\/videodev2|libavdevice\/)/ && FILENAME !~ /^platform\/v4l2\// {
        printf "%s:%d: only platform/v4l2 may include %s\n", FILENAME, FNR, $2; wrong = 1
    }
    END {
        if (rooms < 10 || files < 50) { print "check-rooms: the table or the sources were not found"; exit 2 }
        exit wrong
    }
AWK
) "$table" "${sources[@]}"
