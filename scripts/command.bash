#!/usr/bin/env bash
# What the commands beside this file share. They source it in the top folder of the tree.

mistake() {
    printf '%s: %s\nscripts/%s --help says more.\n' "${0##*/}" "$1" "${0##*/}" >&2
    exit 2
}

# The folder for what is worth keeping but can be had again: where XDG says, or in the build folder for a user without a
# home. Tests and the compiler cache find it by the same variable.
choose_cache_folder() {
    [[ ${XDG_CACHE_HOME-} != /* ]] || return 0
    unset XDG_CACHE_HOME # a relative one does not count
    [[ ${HOME-} == /* && -w $HOME ]] || export XDG_CACHE_HOME=$PWD/build/cache
}

# Servers' configuration files cannot name a folder with blanks or quotes, and their commands run in other folders.
plain_temporary_folder() {
    case ${TMPDIR:-/tmp} in
    [!/]* | *[!A-Za-z0-9/._+-]*) echo /tmp ;;
    *) echo "${TMPDIR:-/tmp}" ;;
    esac
}

work=        # the folder that is removed in the end
temporary=() # more of the kind
supervising= # whether the group of the last job is ended in the end
job_before=  # if there is one since this

# From here on the command leaves nothing behind, whatever ends it. What it starts keeps temporary files in $work.
begin_work() {
    trap leave_nothing EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
    work=$(mktemp -d "$(plain_temporary_folder)/norla-${0##*/}-XXXXXX")
    chmod 711 "$work" # servers give up their rights in there
    export TMPDIR=$work
}

# Runs the function beside this shell, in a process group of its own: a shell that waits for a program in the foreground
# notices no signal. To be called as the last command.
supervise() {
    job_before=${!-}
    supervising=yes
    set -m
    "$@" < /dev/null &
    set +m
    wait "$!"
}

leave_nothing() {
    trap '' HUP INT TERM
    set +m # or else the shell tells of the end
    # A signal may come between the start of the group and whatever would note it.
    if [ -n "$supervising" ] && [ "${!-}" != "$job_before" ]; then
        end_group "$!" 2> /dev/null
    fi
    local folder
    for folder in ${work:+"$work"} "${temporary[@]}"; do
        remove "$folder"
    done
}

# Whoever has not ended five seconds after a SIGTERM is killed. All of them stand still until each has it: nobody sees
# that another one was ended, and complains. Each gets it once: the second may mean something else. A shell holds the
# signal back while it starts somebody, who is told when he is seen; nobody is left when nobody is seen twice.
end_group() {
    local attempt unseen=0 member
    local -A told=()
    kill -STOP -- "-$1" || return 0
    for ((attempt = 0; attempt < 100; ++attempt)); do
        ((++unseen))
        for member in $(members_of_group "$1"); do
            unseen=0
            [ -n "${told[$member]-}" ] || kill -TERM "$member" || true
            told[$member]=yes
        done
        kill -CONT -- "-$1" || true
        ((unseen < 2)) || return 0
        sleep 0.05
    done
    kill -KILL -- "-$1"
}

# Somebody who has ended counts as a member until he is reaped, which the first process of a container may never do.
members_of_group() {
    local file line state group
    for file in /proc/[0-9]*/stat; do
        read -r line < "$file" || continue
        read -r state _ group _ <<< "${line##*) }"
        [ "$group" != "$1" ] || [ "$state" = Z ] || echo "${line%% *}"
    done
}

# The servers of a program that was ended are killed by their keepers a moment later, and may write until then.
remove() {
    local attempt
    for ((attempt = 0; attempt < 100; ++attempt)); do
        ! rm -rf "$1" 2> /dev/null || return 0
        sleep 0.05
    done
    rm -rf "$1"
}

# Shows what the command says only if it fails, and without the test cases that passed and said nothing: a thousand of them
# would hide the one that failed.
quietly() {
    local log
    log=$(mktemp "$work/log-XXXXXX")
    "$@" > "$log" 2>&1 || { without_silent_cases < "$log" >&2; return 1; }
}

# A case that runs when everything ends is shown: it may be the one that never ended.
without_silent_cases() {
    awk '
        /^\[ RUN / { if (begun != "") print begun; begun = $0; next }
        /^\[       OK \]/ && begun != "" { begun = ""; next }
        /^\[-----/ { next }
        { if (begun != "") print begun; begun = ""; print }
        END { if (begun != "") print begun }'
}

# What runs on loopback is asked directly, whatever way this machine takes to the rest of the world.
forget_proxies() {
    unset http_proxy https_proxy ftp_proxy all_proxy no_proxy HTTP_PROXY HTTPS_PROXY FTP_PROXY ALL_PROXY NO_PROXY
}
