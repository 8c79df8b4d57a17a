# shellcheck shell=bash
# Read by ./test: what lint and format look at, and lint itself. The caller is at the project's root.

# Every source, those too that git does not know yet.
all_sources() {
    git ls-files --cached --others --exclude-standard '*.cpp' '*.h' | existing_files
}

existing_files() {
    local file
    while IFS= read -r file; do
        [[ -e $file ]] && printf '%s\n' "$file"
    done | sort -u
}

# The revision that a change starts from: where this branch left the main one, and on the main one the commit before the
# last. Nothing where there is no such commit.
lint_base() {
    local main base
    for main in origin/main main; do
        base="$(git merge-base HEAD "$main" 2>/dev/null)" || continue
        [[ $base == "$(git rev-parse HEAD)" ]] && continue
        printf '%s\n' "$base"
        return
    done
    git rev-parse --verify --quiet 'HEAD~1'
}

# changed_sources BASE: what differs from it, those too that git does not know yet.
changed_sources() {
    {
        git diff --name-only "$1" -- '*.cpp' '*.h'
        git ls-files --others --exclude-standard '*.cpp' '*.h'
    } | existing_files
}

# recent_sources COUNT: what the newest commits changed, as many of them as change at most so many files; the newest one
# always.
recent_sources() {
    local most="$1" commit more chosen=""
    for commit in $(git rev-list --first-parent --max-count=30 HEAD); do
        more="$({
            printf '%s\n' "$chosen"
            git diff-tree --no-commit-id --name-only -r -m --first-parent --root "$commit" -- '*.cpp' '*.h'
        } | existing_files)"
        [[ -n $chosen && $(wc -l <<<"$more") -gt $most ]] && break
        chosen="$more"
    done
    [[ -n $chosen ]] && printf '%s\n' "$chosen"
}

# Reads sources and prints those that are compiled; for a header the file of its name, or else one that includes it.
compiled_for() {
    local file source
    while IFS= read -r file; do
        case "$file" in
        *.cpp) printf '%s\n' "$file" ;;
        *)
            source="${file%.h}.cpp"
            [[ -e $source ]] || source="$(git grep -l --fixed-strings "#include \"$file\"" -- '*.cpp' | head -n 1)"
            [[ -n $source ]] && printf '%s\n' "$source"
            ;;
        esac
    done | sort -u
}

# lint_sources TITLE FILE...: the rooms, the format and what clang-tidy says.
lint_sources() {
    local title="$1" status=0
    shift
    scripts/check-rooms.sh || status=1
    if [[ $# -gt 0 ]]; then
        clang-format --dry-run -Werror "$@" || status=1
        configure_tree release || return 1
        printf '%s\n' "$@" | compiled_for | xargs --no-run-if-empty -P "$(nproc)" -n 2 clang-tidy -p build --quiet \
            2> >(grep -vE 'warnings? generated|Suppressed|Use -header-filter' >&2) || status=1
    fi
    [[ $status -eq 0 ]] && printf 'lint: %d files (%s), clean\n' "$#" "$title"
    return $status
}
