#!/bin/sh
# CHANGELOG.md as Debian writes a changelog. A version that says "not released yet" is dated by DATE.
#     debian_changelog.sh PACKAGE REVISION CONTACT DATE <CHANGELOG.md
# DATE is seconds since 1970. A version's heading is "## 1.2.3 (2026-11-21)" or "## 1.2.3 (not released yet)".
set -eu
package=$1 revision=$2 contact=$3 now=$4
stamp() { LC_ALL=C date -u -R -d "$1"; }

item=
end_of_item() {
    [ -z "$item" ] || echo "$item" | fold -s -w 74 | sed -e '1s/^/  * /' -e '1!s/^/    /' -e 's/ *$//'
    item=
}

trailer=
end_of_version() {
    end_of_item
    [ -z "$trailer" ] || printf '\n -- %s  %s\n\n' "$contact" "$trailer"
}

while IFS= read -r line; do
    case $line in
    '## '*' (not released yet)')
        end_of_version
        trailer=$(stamp "@$now")
        version=${line#'## '}
        printf '%s (%s-%s) UNRELEASED; urgency=medium\n\n' "$package" "${version%% *}" "$revision"
        ;;
    '## '*' ('*')')
        end_of_version
        day=${line##*\(}
        trailer=$(stamp "${day%\)} 00:00 UTC")
        version=${line#'## '}
        printf '%s (%s-%s) unstable; urgency=medium\n\n' "$package" "${version%% *}" "$revision"
        ;;
    '- '*)
        end_of_item
        item=${line#- }
        ;;
    '  '*) item="$item ${line#  }" ;;
    '# '* | '') ;;
    *)
        echo "debian_changelog.sh: neither a version nor a change: $line" >&2
        exit 1
        ;;
    esac
done
end_of_version
