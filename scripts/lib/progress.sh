# shellcheck shell=bash
# SPDX-License-Identifier: MIT
# Progress of long work, for the scripts that source this file. On a terminal one line is rewritten; in a log there is a
# line when a step begins, one each minute, and one when it ends.

# Tenths of a CPU-second for one step of a build: measured over the whole build of the demo, without a compiler cache.
TENTHS_PER_STEP=13

length_in_words() { # SECONDS
    if [ "$1" -lt 100 ]; then
        echo "about $((($1 + 10) / 10 * 10)) seconds"
    else
        echo "about $((($1 + 30) / 60)) minutes"
    fi
}

# Prints a line that the next one replaces; only for a terminal.
terminal_width=80
[ ! -t 1 ] || terminal_width=$(tput cols 2>/dev/null) || terminal_width=80
passing_line() { # TEXT
    printf '\r%.*s\e[K' "$((terminal_width - 1))" "$1"
}
erase_passing_line() { [ ! -t 1 ] || printf '\r\e[K'; }

# Reads ninja's output. Lines of other programs (warnings, errors) are shown unchanged.
show_build() {
    local line total='' begin=$SECONDS told=$SECONDS
    while IFS= read -r line; do
        case $line in
        'ninja: no work to do.' | 'ninja: Entering directory'* | *'Re-checking globbed directories...' | *'Re-running CMake...') ;;
        '['[0-9]*/[0-9]*'] '*)
            if [ -z "$total" ]; then
                total=${line#*/} total=${total%%]*}
                echo "building: $total steps, $(length_in_words $((total * TENTHS_PER_STEP / 10 / $(nproc)))) on $(nproc) processors"
            fi
            if [ -t 1 ]; then
                passing_line "$line"
            elif [ $((SECONDS - told)) -ge 60 ]; then
                told=$SECONDS
                echo "building: ${line%%]*}] after $((SECONDS - begin)) seconds"
            fi
            ;;
        *)
            erase_passing_line
            printf '%s\n' "$line"
            ;;
        esac
    done
    erase_passing_line
}

build() { # DIRECTORY [TARGET]...
    local begin=$SECONDS
    NINJA_STATUS='[%f/%t] ' ninja -C "$@" | show_build || return
    [ $((SECONDS - begin)) -lt 2 ] || echo "built in $((SECONDS - begin)) seconds"
}

# Reads the machine-readable status of apt (apt-get -o APT::Status-Fd=1), and drops all other lines.
show_installation() {
    local kind percent text told=$SECONDS
    while IFS=: read -r kind _ percent text; do
        case $kind in
        dlstatus) text="downloading: $text" ;;
        pmstatus) ;;
        *) continue ;;
        esac
        if [ -t 1 ]; then
            passing_line "${percent%.*} % $text"
        elif [ $((SECONDS - told)) -ge 60 ]; then
            told=$SECONDS
            echo "bootstrap: ${percent%.*} % $text"
        fi
    done
    erase_passing_line
}

# Reads the output of a build of packages: on a terminal a line that changes, in a log nothing.
show_package_build() {
    local line
    while IFS= read -r line; do
        [ ! -t 1 ] || passing_line "${line//$'\t'/ }"
    done
    erase_passing_line
}
