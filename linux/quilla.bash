# Completion of quilla's words for bash.
_quilla() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} options
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "create mount dismount list info passwd check --help" -- "$word")
        return
    fi
    case $before in
        --cipher) mapfile -t COMPREPLY < <(compgen -W "twofish cast128 none" -- "$word"); return ;;
        --format) mapfile -t COMPREPLY < <(compgen -W "ext4 fat exfat xfs btrfs" -- "$word"); return ;;
        --size | --timeout | --strength) return ;;
        --key | --password-file) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
    esac
    case ${COMP_WORDS[1]} in
        create) options="--size --cipher --key --timeout --format --password-file --no-strength --yes" ;;
        mount) options="--key --password-file --plain --read-only --raw --nbd --foreground" ;;
        dismount) options="--all --force" ;;
        list) options="--json" ;;
        info) options="--key --json" ;;
        passwd) options="--key --password-file --strength --no-strength" ;;
        check) options="--key --password-file" ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options --help" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -o filenames -F _quilla quilla
